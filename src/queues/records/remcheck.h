// The payload records of remote checks. This process takes remcheck_conf, what the parent says about
// a check to be made; the others are known to its codec alone.
#pragma once

#include "queues/fields.h"
#include "queues/records/services.h"
#include "types/id.h"
#include "types/property.h"

#include <cstdint>
#include <string>

namespace remcheck {

// The payload of CHECK_REQUEST.
struct remcheck_conf {
    std::string host;              // for messages and protocols; never resolved here
    std::uint32_t addr = 0;        // IPv4, network byte order
    tql::id_t id;                  // comes back as `check_id` of the result
    std::int32_t service = 0;      // a SERVICE_ number of services.h
    std::uint32_t port = 0;        // of which the low 16 bits count
    std::uint32_t frequency = 0;   // the schedule in the server; carried
    std::int32_t warnIfAbove = 0;  // milliseconds; below 1: no threshold
    // Milliseconds; below 1: no threshold. The time limit of the check is 10 seconds more.
    std::int32_t alertIfAbove = 0;
    std::string libssl;  // the configured TLS library; carried

    // Further settings by property number. A value can be null: the sender had none, or one of an
    // unknown type.
    tql::property_map properties;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("host", self.host);
        visit("addr", queues::ipv4(self.addr));
        visit("id", self.id);
        visit("service", self.service);
        visit("port", self.port);
        visit("frequency", self.frequency);
        visit("warnIfAbove", self.warnIfAbove);
        visit("alertIfAbove", self.alertIfAbove);
        visit("libssl", self.libssl);
        visit("properties", self.properties);
    }
    bool operator==(const remcheck_conf&) const = default;
};

// REMOTE_CHECK.
struct Remote_Check_Data {
    tql::id_t id;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
    }
    bool operator==(const Remote_Check_Data&) const = default;
};

// CHECK_TIMEOUT.
struct Check_Timeout_Data {
    tql::id_t id;
    std::int32_t serial = 0;
    std::int64_t ctime = 0;  // seconds since 1970 UTC

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
        visit("serial", self.serial);
        visit("ctime", self.ctime);
    }
    bool operator==(const Check_Timeout_Data&) const = default;
};

// ICMP_REQUEST.
struct Icmp_Request_Data {
    std::int32_t cmd = 0;
    std::uint32_t addr = 0;  // IPv4, network byte order
    tql::id_t id;
    std::int32_t serial = 0;
    std::int32_t good_time = 0;
    std::int32_t acceptable_time = 0;
    std::uint32_t max_attempts = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("cmd", self.cmd);
        visit("addr", queues::ipv4(self.addr));
        visit("id", self.id);
        visit("serial", self.serial);
        visit("good_time", self.good_time);
        visit("acceptable_time", self.acceptable_time);
        visit("max_attempts", self.max_attempts);
    }
    bool operator==(const Icmp_Request_Data&) const = default;
};

// ICMP_ECHO_REPLY.
struct Icmp_Echo_Reply_Data {
    tql::id_t id;
    std::int32_t serial = 0;
    services::remcheck_stat stats;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
        visit("serial", self.serial);
        visit("stats", self.stats);
    }
    bool operator==(const Icmp_Echo_Reply_Data&) const = default;
};

}  // namespace remcheck
