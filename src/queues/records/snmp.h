// The payload records of SNMP checks and probes.
//
// Known to the codec alone: this process acts on none of them.
#pragma once

#include "types/id.h"

#include <cstdint>
#include <list>
#include <string>

namespace snmp {

// SNMP_CHECK.
struct Snmp_Check_Data {
    tql::id_t id;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
    }
    bool operator==(const Snmp_Check_Data&) const = default;
};

// SNMP_TIMEOUT.
struct Snmp_Timeout_Data {
    std::int32_t req_id = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("req_id", self.req_id);
    }
    bool operator==(const Snmp_Timeout_Data&) const = default;
};

// SNMP_OID_PROBE.
struct Snmp_Oid_Probe_Data {
    std::string hostname;
    std::string community;
    std::string password;
    std::int32_t version = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("hostname", self.hostname);
        visit("community", self.community);
        visit("password", self.password);
        visit("version", self.version);
    }
    bool operator==(const Snmp_Oid_Probe_Data&) const = default;
};

// SNMP_PROBE_TIMEOUT.
struct Snmp_Probe_Timeout_Data {
    std::int32_t req_id = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("req_id", self.req_id);
    }
    bool operator==(const Snmp_Probe_Timeout_Data&) const = default;
};

// SNMP_PROBE_RESULT.
struct Snmp_Probe_Result_Data {
    std::list<std::uint32_t> oid;
    std::int32_t version = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("oid", self.oid);
        visit("version", self.version);
    }
    bool operator==(const Snmp_Probe_Result_Data&) const = default;
};

}  // namespace snmp
