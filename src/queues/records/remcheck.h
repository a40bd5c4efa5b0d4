// A check to be made: what the parent says about it.
#pragma once

#include "queues/fields.h"
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

}  // namespace remcheck
