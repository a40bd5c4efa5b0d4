// What an SNMP check measured, in three forms: a number, an up-time, a set of states.
//
// Each has a rule of validity. A record that breaks it is a programming error of whoever made it,
// and the codec asserts so, on writing and printing and on reading alike. A fresh record is
// invalid.
#pragma once

#include <cstdint>
#include <string>

// A measured number; of which kind, `Kind` tells.
template <class Kind>
struct snmpcheck_stat_number {
    std::int64_t start = 0;   // seconds since 1970 UTC, from 1 on
    std::int64_t end = 0;     // not before `start`
    double result = 0;        // finite, unless `status` is 5
    std::int32_t status = 0;  // 0 to 5

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("start", self.start);
        visit("end", self.end);
        visit("result", self.result);
        visit("status", self.status);
    }
    bool operator==(const snmpcheck_stat_number&) const = default;

    bool isValid() const;
    static const char* recordName() { return Kind::recordName; }
    // Of its values, for the message about an invalid record.
    std::string description() const { return Kind::description(*this); }
};

struct snmp_continuous_kind {
    static constexpr const char* recordName = "snmpcheck_stat_continuous";
    static std::string description(const snmpcheck_stat_number<snmp_continuous_kind>& stat);
};
using snmpcheck_stat_continuous = snmpcheck_stat_number<snmp_continuous_kind>;

struct snmp_uptime_kind {
    static constexpr const char* recordName = "snmpcheck_stat_uptime";
    static std::string description(const snmpcheck_stat_number<snmp_uptime_kind>&) { return ""; }
};
using snmpcheck_stat_uptime = snmpcheck_stat_number<snmp_uptime_kind>;

// Measured states.
struct snmpcheck_stat_enum {
    std::int64_t start = 0;   // seconds since 1970 UTC, from 1 on
    std::int64_t end = 0;     // not before `start`
    std::uint32_t mask = 0;   // a bit for each state seen
    std::int32_t status = 0;  // 0 to 5

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("start", self.start);
        visit("end", self.end);
        visit("mask", self.mask);
        visit("status", self.status);
    }
    bool operator==(const snmpcheck_stat_enum&) const = default;

    bool isValid() const;
    static const char* recordName() { return "snmpcheck_stat_enum"; }
    static std::string description() { return ""; }
};
