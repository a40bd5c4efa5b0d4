#include "parent/Target.h"

#include "common/errors.h"
#include "common/shown.h"
#include "common/text.h"
#include "queues/records/services.h"
#include "types/vocabulary.h"

#include <algorithm>
#include <cstddef>
#include <optional>

namespace parent {

namespace {

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

std::unique_ptr<tql::property_t> readBoolean(std::uint32_t property, const std::string& text)
{
    if (text != "true" && text != "false")
        return nullptr;
    return std::make_unique<tql::property_boolean_t>(property, text == "true");
}

// Four numbers of 0 to 255 without leading zeros.
bool isDottedAddress(const std::string& text)
{
    const auto numbers = splitToVector(text, '.', true);
    return numbers.size() == 4 &&
           std::all_of(numbers.begin(), numbers.end(), [](const std::string& number) {
               if (number.empty() || number.size() > 3 || (number.size() > 1 && number[0] == '0') ||
                   !std::all_of(number.begin(), number.end(), isDigit))
                   return false;
               return stringToULong(number) <= 255;
           });
}

// The worker compares texts, so an address must be in the form in which it writes one.
std::unique_ptr<tql::property_t> readAddresses(std::uint32_t property, const std::string& text)
{
    const auto addresses = splitToVector(text, ',', true);
    if (!std::all_of(addresses.begin(), addresses.end(), isDottedAddress))
        return nullptr;
    return std::make_unique<tql::property_string_t>(property, text);
}

const TargetParameter tcpParameters[] = {
    {"connClose", tql::property::connClose, "true|false", nullptr, readBoolean},
};

const TargetParameter dnsParameters[] = {
    {"expect", tql::property::dnsIp, "ADDRESS,...", nullptr, readAddresses},
};

const TargetParameter smtpParameters[] = {
    {"vrfy", tql::property::smtpExecuteVrfy, "true|false", "true", readBoolean},
};

const TargetKind kinds[] = {
    // name, service, port, TLS, login, path, parameters
    {"tcp", services::SERVICE_TCP, 0, false, false, TargetPath::none, tcpParameters},
    {"dns", services::SERVICE_DNS, 53, false, false, TargetPath::dnsName, dnsParameters},
    {"smtp", services::SERVICE_SMTP, 25, false, false, TargetPath::none, smtpParameters},
    {"ftp", services::SERVICE_FTP, 21, false, true, TargetPath::none, {}},
    {"http", services::SERVICE_HTTP, 80, false, false, TargetPath::url, {}},
    {"https", services::SERVICE_HTTP, 443, true, false, TargetPath::url, {}},
    {"pop3", services::SERVICE_POP3, 110, false, true, TargetPath::none, {}},
    {"pop3s", services::SERVICE_POP3, 995, true, true, TargetPath::none, {}},
    {"imap", services::SERVICE_IMAP, 143, false, true, TargetPath::none, {}},
    {"imaps", services::SERVICE_IMAP, 993, true, true, TargetPath::none, {}},
};

// The longest host name that the domain name system has (RFC 1035, 2.3.4), as text.
constexpr std::size_t maximumHostLength = 253;
// The longest that the worker asks a DNS server for, and the longest part between two dots.
constexpr std::size_t maximumQueryLength = 225;
constexpr std::size_t maximumLabelLength = 63;

[[noreturn]] void fail(const std::string& what)
{
    throw error::EParseError(what);
}

[[noreturn]] void fail(const TargetKind& kind, const std::string& what)
{
    fail(what + "; form: " + kind.form());
}

std::string quoted(std::string_view text)
{
    return "'" + shown(text) + "'";
}

int hexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// Where the escape stands that is none; npos if all are well-formed.
std::size_t findBadEscape(std::string_view text)
{
    for (std::size_t i = text.find('%'); i < text.size(); i = text.find('%', i + 1)) {
        if (i + 2 >= text.size() || hexDigit(text[i + 1]) < 0 || hexDigit(text[i + 2]) < 0)
            return i;
    }
    return std::string_view::npos;
}

// All escapes must be well-formed.
std::string decoded(std::string_view text)
{
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out += text[i];
            continue;
        }
        out += static_cast<char>(hexDigit(text[i + 1]) * 16 + hexDigit(text[i + 2]));
        i += 2;
    }
    return out;
}

std::string decodePercent(const TargetKind& kind, std::string_view text)
{
    const std::size_t bad = findBadEscape(text);
    if (bad != std::string_view::npos)
        fail(kind, quoted(text.substr(bad, 3)) + " is no percent escape");
    return decoded(text);
}

// Letters, digits, "-", "." and "_", and bytes above 127, which names in other scripts have.
bool isHostCharacter(char c)
{
    const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    return letter || isDigit(c) || c == '-' || c == '.' || c == '_' ||
           static_cast<unsigned char>(c) > 127;
}

void requireHostCharacters(const TargetKind& kind, const std::string& name, const char* what)
{
    for (const char c : name) {
        if (!isHostCharacter(c))
            fail(kind, quoted({&c, 1}) + " in the " + what + " " + quoted(name));
    }
}

std::string parseHost(const TargetKind& kind, std::string_view text)
{
    std::string host = decodePercent(kind, text);
    if (host.empty())
        fail(kind, "no host");
    requireHostCharacters(kind, host, "host");
    if (host.size() > maximumHostLength)
        fail(kind, "the host has more than " + sizeToString(maximumHostLength) + " characters");
    // What looks like an address must be one: resolvers read "10.1" and "010.0.0.1" in ways that
    // nobody expects.
    const bool numeric =
        std::all_of(host.begin(), host.end(), [](char c) { return isDigit(c) || c == '.'; });
    if (numeric && !isDottedAddress(host))
        fail(kind, quoted(host) + " is no IPv4 address");
    return host;
}

std::uint16_t parsePort(const TargetKind& kind, std::string_view text)
{
    if (text.empty())
        fail(kind, "no port");
    const bool digits = std::all_of(text.begin(), text.end(), isDigit);
    // Larger numbers saturate, so they don't come out as small ones.
    const std::uint32_t port = digits ? stringToULong(std::string(text)) : 0;
    if (port < 1 || port > 65535)
        fail(kind, quoted(text) + " is no port (1 to 65535)");
    return static_cast<std::uint16_t>(port);
}

void parseParameter(const TargetKind& kind, std::string_view text, tql::property_map* properties)
{
    const std::size_t equals = text.find('=');
    const std::string name = decodePercent(kind, text.substr(0, equals));
    if (name.empty())
        fail(kind, "a parameter without a name");
    const auto* const found =
        std::find_if(kind.parameters.data(), kind.parameters.data() + kind.parameters.size(),
                     [&](const TargetParameter& parameter) { return name == parameter.name; });
    if (found == kind.parameters.data() + kind.parameters.size())
        fail(kind, "unknown parameter " + quoted(name));
    if (equals == std::string_view::npos && found->whenAlone == nullptr)
        fail(kind, "parameter " + quoted(name) + " has no value");
    const std::string value = equals == std::string_view::npos
                                  ? found->whenAlone
                                  : decodePercent(kind, text.substr(equals + 1));
    std::unique_ptr<tql::property_t> property = found->read(found->property, value);
    if (property == nullptr)
        fail(kind, "parameter " + quoted(name) + " can't be " + quoted(value));
    const bool added =
        properties->emplace(found->property, Held<tql::property_t>(std::move(property))).second;
    if (!added)
        fail(kind, "parameter " + quoted(name) + " is given twice");
}

// What a DNS server is asked for. The worker compares answers with the text as it is, so doubled
// dots, which don't survive the way to the server, would never find one.
std::string parseDnsName(const TargetKind& kind, std::string_view text)
{
    std::string name = decodePercent(kind, text);
    requireHostCharacters(kind, name, "name");
    if (std::any_of(name.begin(), name.end(), [](unsigned char byte) { return byte > 127; }))
        fail(kind, "the name " + quoted(name) + " must be in its ASCII form (xn--...)");
    if (name.size() > maximumQueryLength)
        fail(kind, "the name has more than " + sizeToString(maximumQueryLength) + " characters");
    std::vector<std::string> labels = splitToVector(name, '.', true);
    if (labels.size() > 1 && labels.back().empty())
        labels.pop_back();
    for (const std::string& label : labels) {
        if (label.empty() || label.size() > maximumLabelLength)
            fail(kind, "a part of the name " + quoted(name) + " has not 1 to " +
                           sizeToString(maximumLabelLength) + " characters");
    }
    return name;
}

// Splits `text` at the first `separator`; gives what stands behind it, if there is one.
std::optional<std::string_view> cutAt(std::string_view* text, char separator)
{
    const std::size_t at = text->find(separator);
    if (at == std::string_view::npos)
        return std::nullopt;
    const std::string_view rest = text->substr(at + 1);
    *text = text->substr(0, at);
    return rest;
}

// User and password must not show in messages, not even in parts.
std::string parseLoginText(const TargetKind& kind, std::string_view text, const char* what)
{
    const std::string name = what;
    const std::size_t separator = text.find_first_of("/?#@");
    if (separator != std::string_view::npos)
        fail(kind, "'" + std::string(1, text[separator]) + "' in the " + name +
                       " must be written as %" +
                       hexToString(static_cast<unsigned char>(text[separator]), 2));
    if (findBadEscape(text) != std::string_view::npos)
        fail(kind, "a '%' in the " + name + " that begins no escape must be written as %25");
    std::string plain = decoded(text);
    const std::string problem = loginProblem(plain);
    if (!problem.empty())
        fail(kind, "the " + name + " " + problem);
    return plain;
}

// Takes user and password from the front of `rest`, if they are there.
void parseLogin(const TargetKind& kind, std::string_view* rest, Target* target)
{
    const std::size_t at = rest->rfind('@');
    if (at == std::string_view::npos)
        return;
    if (!kind.login)
        fail(kind, "a user has no meaning here");
    std::string_view user = rest->substr(0, at);
    const std::optional<std::string_view> password = cutAt(&user, ':');
    rest->remove_prefix(at + 1);
    target->user = parseLoginText(kind, user, "user");
    if (target->user.empty())
        fail(kind, "no user in front of the '@'");
    if (password)
        target->password = parseLoginText(kind, *password, "password");
}

// Takes path and query from the end of `rest`, as the server is to get them.
std::string cutUrl(const TargetKind& kind, std::string_view* rest)
{
    const std::string_view authority = rest->substr(0, rest->find_first_of("/?#"));
    // A password can hold a "/" that ends the authority; it must not show as "no port".
    const std::size_t colon = authority.find(':');
    const bool noPort = colon != std::string_view::npos &&
                        authority.find_first_not_of("0123456789", colon + 1) < authority.size();
    if (authority.find('@') < authority.size() || (noPort && rest->find('@') < rest->size()))
        fail(kind, "a user has no meaning here");
    const std::string_view whole = rest->substr(authority.size());
    const std::string_view url = whole.substr(0, whole.find('#'));
    for (const char c : url) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte <= 0x20 || byte == 0x7F)
            fail(kind, quoted({&c, 1}) + " in the URL must be written as %" + hexToString(byte, 2));
    }
    *rest = authority;
    return (url.starts_with('/') ? "" : "/") + std::string(url);
}

const TargetKind& findKind(std::string_view name)
{
    const std::string lowered = toLower(name);
    for (const TargetKind& kind : kinds) {
        if (lowered == kind.name)
            return kind;
    }
    fail("unknown kind of target " + quoted(name) + "; known kinds: " + knownKinds());
}

}  // namespace

std::string TargetKind::form() const
{
    std::string text = std::string(name) + "://" + (login ? "[USER[:PASSWORD]@]" : "") + "HOST" +
                       (defaultPort == 0 ? ":PORT" : "[:PORT]");
    if (path == TargetPath::url)
        return text + "[/PATH][?QUERY]";
    if (path == TargetPath::dnsName)
        text += "[/NAME]";
    const char* before = "[?";
    for (const TargetParameter& parameter : parameters) {
        const bool alone = parameter.whenAlone != nullptr;
        text += std::string(before) + parameter.name + (alone ? "[=" : "=") + parameter.values +
                (alone ? "]" : "");
        before = "&";
    }
    return parameters.empty() ? text : text + "]";
}

std::span<const TargetKind> targetKinds()
{
    return kinds;
}

std::string knownKinds()
{
    std::string text;
    for (const TargetKind& kind : kinds)
        text += (text.empty() ? "" : ", ") + std::string(kind.name);
    return text;
}

void setProperty(tql::property_map* properties, const tql::property_t& property)
{
    properties->insert_or_assign(property.name, Held<tql::property_t>(property));
}

std::string loginProblem(std::string_view text)
{
    // A line end would begin another command.
    if (text.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos)
        return "holds a line end or a zero byte";
    if (text.size() > maximumLoginText)
        return "has more than " + sizeToString(maximumLoginText) + " bytes";
    return "";
}

std::string withoutPassword(std::string_view text)
{
    const std::size_t mark = text.find("://");
    const std::size_t colon = text.find(':', mark == std::string_view::npos ? 0 : mark + 3);
    const std::size_t at = text.rfind('@');
    if (at == std::string_view::npos || colon == std::string_view::npos || colon > at)
        return std::string(text);
    return std::string(text.substr(0, colon + 1)) + "***" + std::string(text.substr(at));
}

Target parseTarget(std::string_view text)
{
    Target target;
    const std::size_t mark = text.find("://");
    if (mark == std::string_view::npos)
        fail("no kind of target in front; known kinds: " + knownKinds());
    const TargetKind& kind = findKind(text.substr(0, mark));
    target.kind = &kind;
    target.text = kind.login ? withoutPassword(text) : text;
    if (kind.tls)
        setProperty(&target.properties, tql::property_boolean_t(tql::property::useSsl, true));

    std::string_view rest = text.substr(mark + 3);
    std::optional<std::string_view> query;
    if (kind.path == TargetPath::url) {
        target.url = cutUrl(kind, &rest);
    } else {
        parseLogin(kind, &rest, &target);
        if (rest.find('#') != std::string_view::npos)
            fail(kind, "'#' has no meaning here");
        query = cutAt(&rest, '?');
        const std::optional<std::string_view> path = cutAt(&rest, '/');
        if (path && !path->empty() && kind.path == TargetPath::none)
            fail(kind, "a path (" + quoted("/" + std::string(*path)) + ") has no meaning here");
        if (path && !path->empty()) {
            setProperty(&target.properties,
                        tql::property_string_t(tql::property::dnsHost, parseDnsName(kind, *path)));
        }
    }
    if (rest.starts_with('[') || std::count(rest.begin(), rest.end(), ':') > 1) {
        fail(kind, "IPv6 addresses are not supported (" + quoted(rest) +
                       "): give an IPv4 address or a name");
    }

    const std::optional<std::string_view> port = cutAt(&rest, ':');
    target.host = parseHost(kind, rest);
    target.port =
        !port && kind.defaultPort != 0 ? kind.defaultPort : parsePort(kind, port.value_or(""));
    if (query) {
        for (const std::string& parameter : splitToVector(*query, '&', true))
            parseParameter(kind, parameter, &target.properties);
    }
    return target;
}

}  // namespace parent
