// The last good event of each link, for the message about a frame that cannot be read.
#pragma once

#include "queues/ioprim.h"

#include <cstdint>

namespace protocol {

struct LastEvent {
    std::int32_t type = 0;  // the number in the frame
    std::int32_t dest = 0;
};

// Zeros if the link has read none.
LastEvent lastEvent(const ioprim& link);
void rememberEvent(const ioprim& link, LastEvent event);
// Called when a link ends.
void forgetEvents(const ioprim& link);

}  // namespace protocol
