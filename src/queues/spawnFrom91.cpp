#include "queues/spawnRange.h"

namespace queues {

template <>
constinit const std::array<EventCodec, 45> CodecsFrom91::codecs = codecRange<91, 135>();

}  // namespace queues
