// The payload records of the scheduler: an event, and when it is to be sent.
//
// Known to the codec alone: this process acts on none of them.
#pragma once

#include "common/Held.h"
#include "common/Time.h"
#include "queues/event.h"

namespace scheduler {

// SCHEDULE_EVENT_ABSOLUTE. `ev` must be there when the record is written or printed.
struct Schedule_Event_Absolute_Data {
    Time time;               // a point in time
    Held<queues::event> ev;  // a whole frame on the wire

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("time", queues::pointInTime(self.time));
        visit("ev", self.ev);
    }
    bool operator==(const Schedule_Event_Absolute_Data&) const = default;
};

// SCHEDULE_EVENT_RELATIVE. `ev` as above.
struct Schedule_Event_Relative_Data {
    Time time;  // a span
    Held<queues::event> ev;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("time", self.time);
        visit("ev", self.ev);
    }
    bool operator==(const Schedule_Event_Relative_Data&) const = default;
};

}  // namespace scheduler
