#include "queues/event_t.h"

#include "common/text.h"

#include <array>
#include <cstddef>

namespace queues {

namespace {

// By number less 1; empty where no event has the number.
std::array<std::string, 195> namesOfEvents()
{
    std::array<std::string, 195> names;
#define EVENT(number, name, ...) names[(number)-1] = #name;
#define EVENT_EXCEPTION(number, name) names[(number)-1] = #name;
#include "queues/EventTable.inc"
    return names;
}

const std::array<std::string, 195> eventNames = namesOfEvents();

constexpr std::array<const char*, 23> queueNames = {
    "main", "schd", "dbms", "rmch", "skio", "alrm", "alrt", "snmp", "brdc", "bnch", "port", "keyg",
    "rept", "forc", "kngt", "nets", "grid", "ncup", "gmas", "gsat", "tsdb", "upln", "extra"};

}  // namespace

std::string eventName(event_t number)
{
    const auto index = static_cast<std::uint32_t>(number);
    if (index == INVALID_HEAD)
        return "INVALID_HEAD";
    if (index == INVALID_TAIL)
        return "INVALID_TAIL";
    if (index < INVALID_TAIL && !eventNames[index - 1].empty())
        return eventNames[index - 1];
    return "(event_t)" + intToString(static_cast<std::int32_t>(number));
}

std::string queueName(queue_t queue)
{
    const auto number = static_cast<std::uint32_t>(queue);
    if (queue == queue_t::none)
        return "none";
    if (number < queueNames.size())
        return queueNames[number];
    std::string text = uintToString(number);
    if (text.size() < 4)
        text.insert(0, 4 - text.size(), 'x');
    return text;
}

}  // namespace queues
