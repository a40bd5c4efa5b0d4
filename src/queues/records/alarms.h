// The payload records of the alarms: states of objects, and what users do about them.
//
// Known to the codec alone: this process acts on none of them.
#pragma once

#include "types/id.h"

#include <cstdint>
#include <list>
#include <string>

namespace alarms {

// The state of one object.
struct Id_State {
    tql::id_t id;
    std::int32_t state = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
        visit("state", self.state);
    }
    bool operator==(const Id_State&) const = default;
};

// IMMEDIATE_STATE.
struct Immediate_State_Data {
    tql::id_t id;
    std::int32_t state = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
        visit("state", self.state);
    }
    bool operator==(const Immediate_State_Data&) const = default;
};

// IMMEDIATE_STATES.
struct Immediate_States_Data {
    std::list<Id_State> states;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("states", self.states);
    }
    bool operator==(const Immediate_States_Data&) const = default;
};

// CHECKIN.
struct Checkin_Data {
    tql::id_t id;
    std::int64_t checkin_time = 0;  // seconds since 1970 UTC

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
        visit("checkin_time", self.checkin_time);
    }
    bool operator==(const Checkin_Data&) const = default;
};

// ACKNOWLEDGE_ALERT.
struct Acknowledge_Alert_Data {
    tql::id_t user;
    std::string comment;
    tql::id_t object;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("user", self.user);
        visit("comment", self.comment);
        visit("object", self.object);
    }
    bool operator==(const Acknowledge_Alert_Data&) const = default;
};

// RESET_SCORE.
struct Reset_Score_Data {
    tql::id_t user;
    std::string comment;
    tql::id_t object;
    bool recursive = false;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("user", self.user);
        visit("comment", self.comment);
        visit("object", self.object);
        visit("recursive", self.recursive);
    }
    bool operator==(const Reset_Score_Data&) const = default;
};

// SET_STATUS.
struct Set_Status_Data {
    tql::id_t id;
    std::int32_t status = 0;
    std::int64_t entered_warn = 0;   // seconds since 1970 UTC
    std::int64_t entered_alert = 0;  // seconds since 1970 UTC

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
        visit("status", self.status);
        visit("entered_warn", self.entered_warn);
        visit("entered_alert", self.entered_alert);
    }
    bool operator==(const Set_Status_Data&) const = default;
};

// ALARM_NOTIFY.
struct Alarm_Notify_Data {
    tql::id_t id;
    tql::version_t seq;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
        visit("seq", self.seq);
    }
    bool operator==(const Alarm_Notify_Data&) const = default;
};

}  // namespace alarms
