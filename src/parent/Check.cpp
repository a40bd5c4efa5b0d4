#include "parent/Check.h"

#include "common/text.h"
#include "platform/Process.h"

#include <map>

namespace parent {

namespace {

struct LookedUp {
    std::uint32_t address = 0;
    std::string unresolved;
};

LookedUp lookUp(const std::string& host)
{
    LookedUp found;
    const std::vector<std::uint32_t> addresses = platform::resolveIpv4(host, &found.unresolved);
    if (!addresses.empty())
        found = {addresses.front(), ""};
    else if (found.unresolved.empty())
        found.unresolved = "no IPv4 address";
    return found;
}

}  // namespace

bool Check::hostIsName() const
{
    // The parser lets digits and dots alone pass as addresses only.
    return target.host.find_first_not_of("0123456789.") != std::string::npos;
}

std::string Check::endpoint() const
{
    return target.host + ":" + uintToString(target.port);
}

std::int64_t Check::limitMs() const
{
    return std::int64_t{alertIfAbove} + 10'000;
}

remcheck::remcheck_conf Check::request(std::uint32_t id) const
{
    remcheck::remcheck_conf conf;
    conf.host = target.host;
    conf.addr = address;
    conf.id = tql::id_t{id};
    conf.service = target.kind->service;
    conf.port = target.port;
    conf.warnIfAbove = warnIfAbove;
    conf.alertIfAbove = alertIfAbove;
    conf.properties = target.properties;
    return conf;
}

void resolve(std::vector<Check>* checks)
{
    std::map<std::string, LookedUp> known;
    for (Check& check : *checks) {
        auto found = known.find(check.target.host);
        if (found == known.end())
            found = known.emplace(check.target.host, lookUp(check.target.host)).first;
        check.address = found->second.address;
        check.unresolved = found->second.unresolved;
    }
}

}  // namespace parent
