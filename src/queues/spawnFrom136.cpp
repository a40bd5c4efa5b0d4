#include "queues/spawnRange.h"

namespace queues {

template <>
constinit const std::array<EventCodec, 60> CodecsFrom136::codecs = codecRange<136, 195>();

}  // namespace queues
