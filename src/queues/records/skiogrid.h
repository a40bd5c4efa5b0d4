// The payload records of the messages between stations of a grid.
//
// Known to the codec alone: this process acts on none of them.
#pragma once

#include "common/BigNum.h"

#include <cstdint>
#include <string>

namespace skiogrid {

// The secret that two stations share.
struct Endpoint_Secret {
    std::int32_t first = 0;
    BigNum second;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("first", self.first);
        visit("second", self.second);
    }
    bool operator==(const Endpoint_Secret&) const = default;
};

// GRIDCLEARTEXTSEND.
struct GridCleartextSend_Data {
    std::uint32_t dest_gid = 0;  // a GID, see id.h
    std::string payload;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("dest_gid", self.dest_gid);
        visit("payload", self.payload);
    }
    bool operator==(const GridCleartextSend_Data&) const = default;
};

// GRIDNSINCOMING.
struct GridNSIncoming_Data {
    std::string package;
    std::uint32_t peer_gid = 0;  // a GID, see id.h

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("package", self.package);
        visit("peer_gid", self.peer_gid);
    }
    bool operator==(const GridNSIncoming_Data&) const = default;
};

// GRIDSETENDPOINTSECRET.
struct GridSetEndpointSecret_Data {
    Endpoint_Secret shared_secret;
    std::uint32_t peer_gid = 0;  // a GID, see id.h

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("shared_secret", self.shared_secret);
        visit("peer_gid", self.peer_gid);
    }
    bool operator==(const GridSetEndpointSecret_Data&) const = default;
};

// GRIDCLEARENDPOINTSECRET.
struct GridClearEndpointSecret_Data {
    std::uint32_t peer_gid = 0;  // a GID, see id.h

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("peer_gid", self.peer_gid);
    }
    bool operator==(const GridClearEndpointSecret_Data&) const = default;
};

// GRIDSENDMESSAGE.
struct GridSendMessage_Data {
    std::uint32_t dest_gid = 0;  // a GID, see id.h
    std::string payload;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("dest_gid", self.dest_gid);
        visit("payload", self.payload);
    }
    bool operator==(const GridSendMessage_Data&) const = default;
};

// GRIDRECEIVEDMESSAGE.
struct GridReceivedMessage_Data {
    std::uint32_t source_gid = 0;  // a GID, see id.h
    std::string payload;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("source_gid", self.source_gid);
        visit("payload", self.payload);
    }
    bool operator==(const GridReceivedMessage_Data&) const = default;
};

}  // namespace skiogrid
