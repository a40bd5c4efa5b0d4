#include "parent/HttpOptions.h"

#include "common/Url.h"
#include "common/regex.h"
#include "common/text.h"
#include "types/vocabulary.h"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

namespace parent {

namespace {

// The enumeration of the versions of HTTP, and its value for 1.1.
constexpr std::uint32_t httpVersionType = 0x10020;
constexpr std::uint32_t http11 = 1;

constexpr std::size_t workerRoom = 4096;

// With the port only where it isn't that of the kind, as browsers have it.
std::string hostHeader(const Target& target, const HttpOptions& options)
{
    if (!options.hostHeader.empty())
        return options.hostHeader;
    if (target.port == target.kind->defaultPort)
        return target.host;
    return target.host + ":" + uintToString(target.port);
}

// What stands before the "?", and the pieces behind it in a form of their own.
std::pair<std::string, std::vector<std::string>> parts(const std::string& url)
{
    const std::size_t mark = std::min(url.find('?'), url.size());
    std::vector<std::string> pieces;
    if (mark < url.size())
        pieces = splitToVector(url.substr(mark + 1), '&', false);
    for (std::string& piece : pieces) {
        if (piece.find('=') == std::string::npos)
            piece += '=';
    }
    std::sort(pieces.begin(), pieces.end());
    return {url.substr(0, mark), pieces};
}

}  // namespace

void setHttpProperties(const Target& target, const HttpOptions& options,
                       tql::property_map* properties)
{
    using tql::property_enum_t;
    using tql::property_string_t;
    namespace property = tql::property;
    setProperty(properties, property_enum_t(property::httpVersion, httpVersionType,
                                            options.version11 ? http11 : 0));
    // The authority keeps a path that begins with "//" from being taken for one.
    const std::string url =
        options.version11 ? "http://" + hostHeader(target, options) + target.url : target.url;
    setProperty(properties, property_string_t(property::httpUrl, url));
    const std::pair<std::uint32_t, const std::string&> texts[] = {
        {property::httpStatusRegex, options.statusRegex},
        {property::httpContentRegex, options.contentRegex},
        {property::httpUserAgent, options.userAgent},
    };
    for (const auto& [number, text] : texts) {
        if (!text.empty())
            setProperty(properties, property_string_t(number, text));
    }
}

std::string requestedUrl(const Target& target, const HttpOptions& options)
{
    if (!options.version11)
        return target.url;
    Url url("http://h" + target.url);
    url.setScheme("");
    url.setHost("");
    url.setPort(0);
    url.setRelative(false);
    return url.toString();
}

bool asksForTheSame(const std::string& a, const std::string& b)
{
    return parts(a) == parts(b);
}

bool requestFits(const Target& target, const HttpOptions& options)
{
    const std::string fixed =
        "GET  HTTP/1.1\r\nHost: \r\nConnection: close\r\nUser-Agent: \r\n\r\n";
    return fixed.size() + requestedUrl(target, options).size() +
               hostHeader(target, options).size() + options.userAgent.size() <
           workerRoom;
}

std::string regexProblem(const std::string& pattern)
{
    tv_regex_t compiled;
    const int code = tv_regcomp(&compiled, pattern.c_str(), REG_EXTENDED);
    tv_regfree(&compiled);
    if (code == REG_OKAY)
        return "";
    std::array<char, 80> text{};
    tv_regerror(code, &compiled, text.data(), text.size());
    return text.data();
}

}  // namespace parent
