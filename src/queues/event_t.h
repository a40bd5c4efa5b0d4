// The numbers and names of events and of the server's queues.
#pragma once

#include <cstdint>
#include <string>

namespace queues {

// Event numbers. 1 to 195 are events, but for 69 to 71, which are not assigned.
enum event_t : std::int32_t {
    INVALID_HEAD = 0,  // sentinels, both name no event
    INVALID_TAIL = 196,
#define EVENT(number, name, ...) name = (number),
#define EVENT_EXCEPTION(number, name) name = (number),
#include "queues/EventTable.inc"
};

// The server's queues.
enum class queue_t : std::int32_t {
    none = -1,
    main = 0,
    schd = 1,
    dbms = 2,
    rmch = 3,
    skio = 4,
    alrm = 5,
    alrt = 6,
    snmp = 7,
    brdc = 8,
    bnch = 9,
    port = 10,
    keyg = 11,
    rept = 12,
    forc = 13,
    kngt = 14,
    nets = 15,
    grid = 16,
    ncup = 17,
    gmas = 18,
    gsat = 19,
    tsdb = 20,
    upln = 21,
    extra = 22,
};

// The name of an event or a sentinel; "(event_t)" and the number for a value from 69 to 71 or
// outside 0 to 196.
std::string eventName(event_t number);

// The name of a queue. Any other value in unsigned decimal, filled up with "x" on the left to
// four characters: "xx23".
std::string queueName(queue_t queue);

}  // namespace queues

using queues::event_t;
