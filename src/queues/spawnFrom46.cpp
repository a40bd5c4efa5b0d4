#include "queues/spawnRange.h"

namespace queues {

template <>
constinit const std::array<EventCodec, 45> CodecsFrom46::codecs = codecRange<46, 90>();

}  // namespace queues
