#include "queues/lastEvent.h"

#include <map>

namespace protocol {

namespace {

// Never destroyed: a link may be a static object itself.
std::map<const ioprim*, LastEvent>& lastEvents()
{
    static auto& events = *new std::map<const ioprim*, LastEvent>;
    return events;
}

}  // namespace

LastEvent lastEvent(const ioprim& link)
{
    const auto found = lastEvents().find(&link);
    return found == lastEvents().end() ? LastEvent() : found->second;
}

void rememberEvent(const ioprim& link, LastEvent event)
{
    lastEvents()[&link] = event;
}

void forgetEvents(const ioprim& link)
{
    lastEvents().erase(&link);
}

}  // namespace protocol
