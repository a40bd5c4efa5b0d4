#include "parent/Check.h"

#include "common/text.h"
#include "platform/Process.h"
#include "queues/records/services.h"
#include "types/vocabulary.h"

#include <algorithm>
#include <map>
#include <string_view>

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

// A text of IMAP: as it is if nothing in it has a meaning there, else in quotes (RFC 9051, 4.3
// and the rules "astring" and "quoted" of section 9).
std::string imapText(const std::string& text)
{
    const bool plain = std::all_of(text.begin(), text.end(), [](unsigned char byte) {
        return byte > 0x20 && byte < 0x7F &&
               std::string_view("(){%*\"\\").find(static_cast<char>(byte)) ==
                   std::string_view::npos;
    });
    if (plain && !text.empty())
        return text;
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            quoted += '\\';
        quoted += c;
    }
    return quoted + "\"";
}

void setLogin(const Target& target, tql::property_map* properties)
{
    const std::string password = target.password.value_or("");
    const bool imap = target.kind->service == services::SERVICE_IMAP;
    setProperty(properties, tql::property_string_t(tql::property::user,
                                                   imap ? imapText(target.user) : target.user));
    setProperty(properties, tql::property_string_t(tql::property::checkPassword,
                                                   imap ? imapText(password) : password));
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
    if (!target.user.empty())
        setLogin(target, &conf.properties);
    if (target.kind->path == TargetPath::url)
        setHttpProperties(target, http, &conf.properties);
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
