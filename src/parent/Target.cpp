#include "parent/Target.h"

#include "common/errors.h"
#include "common/text.h"
#include "parent/shown.h"
#include "queues/records/services.h"
#include "types/vocabulary.h"

#include <algorithm>
#include <cstddef>
#include <optional>

namespace parent {

namespace {

std::unique_ptr<tql::property_t> readBoolean(std::uint32_t property, const std::string& text)
{
    if (text != "true" && text != "false")
        return nullptr;
    return std::make_unique<tql::property_boolean_t>(property, text == "true");
}

const TargetParameter tcpParameters[] = {
    {"connClose", tql::property::connClose, "true|false", readBoolean},
};

const TargetKind kinds[] = {
    {"tcp", services::SERVICE_TCP, 0, tcpParameters},
};

// The longest host name that the domain name system has (RFC 1035, 2.3.4), as text.
constexpr std::size_t maximumHostLength = 253;

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

std::string decodePercent(const TargetKind& kind, std::string_view text)
{
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out += text[i];
            continue;
        }
        const int high = i + 2 < text.size() ? hexDigit(text[i + 1]) : -1;
        const int low = high >= 0 ? hexDigit(text[i + 2]) : -1;
        if (low < 0)
            fail(kind, quoted(text.substr(i, 3)) + " is no percent escape");
        out += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return out;
}

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

// Letters, digits, "-", "." and "_", and bytes above 127, which names in other scripts have.
bool isHostCharacter(char c)
{
    const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    return letter || isDigit(c) || c == '-' || c == '.' || c == '_' ||
           static_cast<unsigned char>(c) > 127;
}

// Four numbers of 0 to 255 without leading zeros.
bool isDottedAddress(const std::string& text)
{
    const auto numbers = splitToVector(text, '.', true);
    return numbers.size() == 4 &&
           std::all_of(numbers.begin(), numbers.end(), [](const std::string& number) {
               if (number.empty() || number.size() > 3 || (number.size() > 1 && number[0] == '0'))
                   return false;
               return stringToULong(number) <= 255;
           });
}

std::string parseHost(const TargetKind& kind, std::string_view text)
{
    std::string host = decodePercent(kind, text);
    if (host.empty())
        fail(kind, "no host");
    for (const char c : host) {
        if (!isHostCharacter(c))
            fail(kind, quoted({&c, 1}) + " in the host " + quoted(host));
    }
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
    if (equals == std::string_view::npos)
        fail(kind, "parameter " + quoted(name) + " has no value");
    const std::string value = decodePercent(kind, text.substr(equals + 1));
    std::unique_ptr<tql::property_t> property = found->read(found->property, value);
    if (property == nullptr)
        fail(kind, "parameter " + quoted(name) + " can't be " + quoted(value));
    const bool added =
        properties->emplace(found->property, Held<tql::property_t>(std::move(property))).second;
    if (!added)
        fail(kind, "parameter " + quoted(name) + " is given twice");
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

const TargetKind& findKind(std::string_view name)
{
    const std::string lowered = toLower(name);
    for (const TargetKind& kind : kinds) {
        if (lowered == kind.name)
            return kind;
    }
    fail("unknown kind of target " + quoted(name) + "; known forms: " + knownForms());
}

}  // namespace

std::string TargetKind::form() const
{
    std::string text = std::string(name) + "://HOST" + (defaultPort == 0 ? ":PORT" : "[:PORT]");
    const char* before = "[?";
    for (const TargetParameter& parameter : parameters) {
        text += std::string(before) + parameter.name + "=" + parameter.values;
        before = "&";
    }
    return parameters.empty() ? text : text + "]";
}

std::span<const TargetKind> targetKinds()
{
    return kinds;
}

std::string knownForms()
{
    std::string text;
    for (const TargetKind& kind : kinds)
        text += (text.empty() ? "" : ", ") + kind.form();
    return text;
}

Target parseTarget(std::string_view text)
{
    Target target;
    target.text = text;
    const std::size_t mark = text.find("://");
    if (mark == std::string_view::npos)
        fail("no kind of target in front; known forms: " + knownForms());
    const TargetKind& kind = findKind(text.substr(0, mark));
    target.kind = &kind;

    std::string_view rest = text.substr(mark + 3);
    if (rest.find('#') != std::string_view::npos)
        fail(kind, "'#' has no meaning here");
    const std::optional<std::string_view> query = cutAt(&rest, '?');
    const std::optional<std::string_view> path = cutAt(&rest, '/');
    if (path && !path->empty())
        fail(kind, "a path (" + quoted("/" + std::string(*path)) + ") has no meaning here");
    if (rest.find('@') != std::string_view::npos)
        fail(kind, "a user has no meaning here");
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
