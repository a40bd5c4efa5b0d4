// The payload records by which the router tells of endpoints and their secrets.
//
// Known to the codec alone: this process acts on none of them.
#pragma once

#include <cstdint>

namespace router {

// SUBSCRIBEEPSECCHANGE.
struct SubscribeEpsecChange_Data {
    template <class Self, class Visitor>
    static void fields(Self& /*self*/, Visitor& /*visit*/)
    {}
    bool operator==(const SubscribeEpsecChange_Data&) const = default;
};

// EPSECCHANGENOTIFICATION.
struct EpsecChangeNotification_Data {
    bool confirmed = false;
    std::uint32_t gid = 0;  // a GID, see id.h
    std::uint32_t major = 0;
    std::uint32_t minor = 0;
    std::uint32_t release = 0;
    std::uint32_t buildno = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("confirmed", self.confirmed);
        visit("gid", self.gid);
        visit("major", self.major);
        visit("minor", self.minor);
        visit("release", self.release);
        visit("buildno", self.buildno);
    }
    bool operator==(const EpsecChangeNotification_Data&) const = default;
};

}  // namespace router
