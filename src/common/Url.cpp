#include "common/Url.h"

#include "common/errors.h"
#include "common/text.h"

namespace {

constexpr std::size_t none = std::string_view::npos;

// Whether `position` is one in the text, and holds this character.
bool isAt(std::string_view text, std::size_t position, char character)
{
    return position < text.size() && text[position] == character;
}

}  // namespace

Url::Url(std::string_view text)
{
    std::size_t position = text.find_first_of(":/?#");
    if (position == none) {
        path.emplace_back(text);
        return;
    }
    std::size_t start = 0;
    if (text[position] == ':') {
        scheme = text.substr(0, position);
        start = ++position;
    }

    if (!isAt(text, position, '/')) {
        relative = true;
        position = parsePath(text, start);
    } else {
        if (isAt(text, position + 1, '/')) {
            const std::size_t begin = position + 2;
            if (begin == text.size())
                throw error::EParseError("Cannot parse authority part of url when not present.");
            position = text.find_first_of("/?#", begin);
            const std::string_view authority = text.substr(begin, position - begin);
            const std::size_t colon = authority.find(':');
            host_name = authority.substr(0, colon);
            if (colon != none) {
                const std::string digits(authority.substr(colon + 1));
                port_number = static_cast<std::uint16_t>(stringToULong(digits));
            }
        }
        if (isAt(text, position, '/'))
            position = parsePath(text, position + 1);
    }

    if (isAt(text, position, '?'))
        position = parseQuery(text, position + 1);
    if (isAt(text, position, '#'))
        fragment = text.substr(position + 1);
}

std::size_t Url::parsePath(std::string_view text, std::size_t start)
{
    std::size_t end = text.find_first_of("/?#", start);
    while (isAt(text, end, '/')) {
        path.emplace_back(text.substr(start, end - start));
        start = end + 1;
        end = text.find_first_of("/?#", start);
    }
    // A path that stops right at a query or fragment has no empty last segment; one that stops
    // right at the end of the text has.
    if (end != start)
        path.emplace_back(text.substr(start, end - start));
    return end;
}

std::size_t Url::parseQuery(std::string_view text, std::size_t start)
{
    const std::size_t end = text.find('#', start);
    for (const std::string& piece : splitToVector(text.substr(start, end - start), '&', false)) {
        std::vector<std::string> parts = splitToVector(piece, '=', false);
        if (parts.size() == 1)
            query[parts[0]].clear();
        else if (parts.size() == 2)
            query[parts[0]] = std::move(parts[1]);
    }
    return end;
}

std::string Url::toString() const
{
    std::string text;
    if (!scheme.empty())
        text += scheme + ":";
    const bool hasAuthority = !host_name.empty() || port_number != 0;
    if (hasAuthority)
        text += "//" + host_name;
    if (port_number != 0)
        text += ":" + uintToString(port_number);

    if (!relative || (hasAuthority && !path.empty()))
        text += '/';
    const char* separator = "";
    for (const std::string& segment : path) {
        text.append(separator).append(segment);
        separator = "/";
    }
    separator = "?";
    for (const auto& [key, value] : query) {
        text.append(separator).append(key).append("=").append(value);
        separator = "&";
    }
    if (!fragment.empty())
        text += "#" + fragment;
    return text;
}
