// The payload records of the scanner, which looks for open ports.
//
// Known to the codec alone: this process acts on none of them.
#pragma once

#include "queues/fields.h"

#include <cstdint>

namespace scan {

// SCAN_REQUEST.
struct Scan_Request_Data {
    std::uint32_t ip = 0;  // IPv4, network byte order
    std::uint32_t port = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("ip", queues::ipv4(self.ip));
        visit("port", self.port);
    }
    bool operator==(const Scan_Request_Data&) const = default;
};

// SCAN_RESULT.
struct Scan_Result_Data {
    std::uint32_t ip = 0;  // IPv4, network byte order
    std::uint32_t port = 0;
    bool ok = false;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("ip", queues::ipv4(self.ip));
        visit("port", self.port);
        visit("ok", self.ok);
    }
    bool operator==(const Scan_Result_Data&) const = default;
};

}  // namespace scan
