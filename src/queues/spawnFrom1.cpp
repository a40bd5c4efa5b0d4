#include "queues/spawnRange.h"

namespace queues {

template <>
constinit const std::array<EventCodec, 45> CodecsFrom1::codecs = codecRange<1, 45>();

}  // namespace queues
