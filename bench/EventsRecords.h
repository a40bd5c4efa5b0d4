// Events with the ten most complex payloads of the catalogue, filled as in a server with some
// hundred hosts. Each is the same at every call.
#pragma once

#include "queues/event.h"

#include <memory>
#include <vector>

namespace bench {

struct NamedEvent {
    const char* record;  // the type of the payload
    std::unique_ptr<const queues::event> event;
};

std::vector<NamedEvent> complexEvents();

}  // namespace bench
