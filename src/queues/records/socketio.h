// The payload records of the socket layer: keys, links of the grid, routes, remote calls.
//
// Known to the codec alone: this process acts on none of them.
#pragma once

#include "common/BigNum.h"
#include "types/id.h"

#include <cstdint>
#include <string>

namespace socketio {

// REQSHAREDKEYGEN.
struct ReqSharedKeyGen_Data {
    BigNum modulus;
    BigNum generator;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("modulus", self.modulus);
        visit("generator", self.generator);
    }
    bool operator==(const ReqSharedKeyGen_Data&) const = default;
};

// SHAREDKEYREPLY.
struct SharedKeyReply_Data {
    BigNum y;
    BigNum Y;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("y", self.y);
        visit("Y", self.Y);
    }
    bool operator==(const SharedKeyReply_Data&) const = default;
};

// REQFINALKEYGEN.
struct ReqFinalKeyGen_Data {
    BigNum modulus;
    BigNum y;
    BigNum X;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("modulus", self.modulus);
        visit("y", self.y);
        visit("X", self.X);
    }
    bool operator==(const ReqFinalKeyGen_Data&) const = default;
};

// FINALKEYREPLY.
struct FinalKeyReply_Data {
    BigNum k;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("k", self.k);
    }
    bool operator==(const FinalKeyReply_Data&) const = default;
};

// GRIDLINKINITIATE.
struct GridLinkInitiate_Data {
    tql::id_t linkconfig;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("linkconfig", self.linkconfig);
    }
    bool operator==(const GridLinkInitiate_Data&) const = default;
};

// GRIDLINKSTATUSCHANGE.
struct GridLinkStatusChange_Data {
    tql::id_t linkconfig;
    std::int32_t state = 0;
    bool supports_keep_alive = false;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("linkconfig", self.linkconfig);
        visit("state", self.state);
        visit("supports_keep_alive", self.supports_keep_alive);
    }
    bool operator==(const GridLinkStatusChange_Data&) const = default;
};

// GRIDLINKSHUTDOWN.
struct GridLinkShutdown_Data {
    tql::id_t linkconfig;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("linkconfig", self.linkconfig);
    }
    bool operator==(const GridLinkShutdown_Data&) const = default;
};

// GRIDLINKKEEPALIVE.
struct GridLinkKeepAlive_Data {
    tql::id_t linkconfig;
    std::int64_t interval = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("linkconfig", self.linkconfig);
        visit("interval", self.interval);
    }
    bool operator==(const GridLinkKeepAlive_Data&) const = default;
};

// GRIDLINKACTIVITY.
struct GridLinkActivity_Data {
    tql::id_t linkconfig;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("linkconfig", self.linkconfig);
    }
    bool operator==(const GridLinkActivity_Data&) const = default;
};

// GRIDSYSTEMSHUTDOWN.
struct GridSystemShutdown_Data {
    template <class Self, class Visitor>
    static void fields(Self& /*self*/, Visitor& /*visit*/)
    {}
    bool operator==(const GridSystemShutdown_Data&) const = default;
};

// RETURN_GRIDSYSTEMSHUTDOWN.
struct Return_GridSystemShutdown_Data {
    template <class Self, class Visitor>
    static void fields(Self& /*self*/, Visitor& /*visit*/)
    {}
    bool operator==(const Return_GridSystemShutdown_Data&) const = default;
};

// ROUTINGTABLEADD_NHL.
struct RoutingTableAdd_NHL_Data {
    std::uint32_t dest_gid = 0;  // a GID, see id.h
    tql::id_t next_hop;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("dest_gid", self.dest_gid);
        visit("next_hop", self.next_hop);
    }
    bool operator==(const RoutingTableAdd_NHL_Data&) const = default;
};

// ROUTINGTABLEREMOVE_NHL.
struct RoutingTableRemove_NHL_Data {
    std::uint32_t dest_gid = 0;  // a GID, see id.h
    tql::id_t next_hop;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("dest_gid", self.dest_gid);
        visit("next_hop", self.next_hop);
    }
    bool operator==(const RoutingTableRemove_NHL_Data&) const = default;
};

// ROUTINGTABLEADD_CM.
struct RoutingTableAdd_CM_Data {
    std::uint32_t dest_gid = 0;  // a GID, see id.h
    std::uint32_t next_hop = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("dest_gid", self.dest_gid);
        visit("next_hop", self.next_hop);
    }
    bool operator==(const RoutingTableAdd_CM_Data&) const = default;
};

// ROUTINGTABLEREMOVE_CM.
struct RoutingTableRemove_CM_Data {
    std::uint32_t dest_gid = 0;  // a GID, see id.h
    std::uint32_t next_hop = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("dest_gid", self.dest_gid);
        visit("next_hop", self.next_hop);
    }
    bool operator==(const RoutingTableRemove_CM_Data&) const = default;
};

// RPC_CLIENTCALLREQUEST.
struct RPC_ClientCallRequest_Data {
    std::uint32_t server_gid = 0;  // a GID, see id.h
    std::uint32_t function_number = 0;
    std::string args;
    bool infinite_retry = false;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("server_gid", self.server_gid);
        visit("function_number", self.function_number);
        visit("args", self.args);
        visit("infinite_retry", self.infinite_retry);
    }
    bool operator==(const RPC_ClientCallRequest_Data&) const = default;
};

// RPC_CLIENTCALLREPLY.
struct RPC_ClientCallReply_Data {
    std::string retval;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("retval", self.retval);
    }
    bool operator==(const RPC_ClientCallReply_Data&) const = default;
};

// RPC_CLIENTCALLERROR.
struct RPC_ClientCallError_Data {
    std::int32_t error = 0;
    std::string text;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("error", self.error);
        visit("text", self.text);
    }
    bool operator==(const RPC_ClientCallError_Data&) const = default;
};

// RPC_HANDLERREGISTER.
struct RPC_HandlerRegister_Data {
    std::uint16_t function = 0;  // 4 bytes on the wire

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("function", self.function);
    }
    bool operator==(const RPC_HandlerRegister_Data&) const = default;
};

// RPC_HANDLERUNREGISTER.
struct RPC_HandlerUnregister_Data {
    std::uint16_t function = 0;  // 4 bytes on the wire

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("function", self.function);
    }
    bool operator==(const RPC_HandlerUnregister_Data&) const = default;
};

// RPC_PROCEDURECALL.
struct RPC_ProcedureCall_Data {
    std::uint16_t function = 0;    // 4 bytes on the wire
    std::uint32_t caller_gid = 0;  // a GID, see id.h
    std::string args;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("function", self.function);
        visit("caller_gid", self.caller_gid);
        visit("args", self.args);
    }
    bool operator==(const RPC_ProcedureCall_Data&) const = default;
};

// RPC_PROCEDURECALLREPLY.
struct RPC_ProcedureCallReply_Data {
    std::string retval;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("retval", self.retval);
    }
    bool operator==(const RPC_ProcedureCallReply_Data&) const = default;
};

// RPC_PROCEDURECALLFAILED.
struct RPC_ProcedureCallFailed_Data {
    std::string explanation;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("explanation", self.explanation);
    }
    bool operator==(const RPC_ProcedureCallFailed_Data&) const = default;
};

// RPC_MESSAGEFORWARD.
struct RPC_MessageForward_Data {
    std::uint32_t peer_gid = 0;  // a GID, see id.h
    std::string request;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("peer_gid", self.peer_gid);
        visit("request", self.request);
    }
    bool operator==(const RPC_MessageForward_Data&) const = default;
};

}  // namespace socketio
