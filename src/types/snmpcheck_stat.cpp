#include "types/snmpcheck_stat.h"

#include "common/text.h"

#include <cmath>

namespace {

constexpr std::int32_t highestStatus = 5;  // with it, a measured number may be anything

bool isValidSpan(std::int64_t start, std::int64_t end)
{
    return start >= 1 && end >= start;
}

bool isValidStatus(std::int32_t status)
{
    return status >= 0 && status <= highestStatus;
}

}  // namespace

template <class Kind>
bool snmpcheck_stat_number<Kind>::isValid() const
{
    return isValidSpan(start, end) && isValidStatus(status) &&
           (status == highestStatus || std::isfinite(result));
}

template struct snmpcheck_stat_number<snmp_continuous_kind>;
template struct snmpcheck_stat_number<snmp_uptime_kind>;

std::string snmp_continuous_kind::description(const snmpcheck_stat_continuous& stat)
{
    return "start=" + uint64ToString(static_cast<std::uint64_t>(stat.start)) +
           ", end=" + uint64ToString(static_cast<std::uint64_t>(stat.end)) +
           ", result=" + doubleToString(stat.result, -1, -1) +
           ", status=" + uintToString(static_cast<std::uint32_t>(stat.status));
}

bool snmpcheck_stat_enum::isValid() const
{
    return isValidSpan(start, end) && isValidStatus(status);
}
