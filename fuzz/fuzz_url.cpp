// URLs of all kinds: the input is one. Its text form with an authority must read as the same URL,
// and without one it must be a target, which begins with "/".

#include "common/Url.h"
#include "common/errors.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>

namespace {

void require(bool holds, const char* what, const std::string& text)
{
    if (!holds) {
        std::cerr << what << ": " << text << '\n';
        std::abort();
    }
}

// For a URL with an authority.
void requireSame(const Url& url, const char* what)
{
    const std::string text = url.toString();
    // A path that stops at a query or fragment loses the slash at its end, but for the first one.
    const std::size_t path = text.find('/', text.find("//") + 2);
    const std::size_t end = text.find_first_of("?#", path);
    std::string expected = text;
    if (end != std::string::npos && end - path > 1 && text[end - 1] == '/')
        expected.erase(end - 1, 1);

    const Url again(text);
    require(again.toString() == expected, what, text);
    require(again.host() == url.host() && again.port() == url.port(), what, text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    std::optional<Url> url;
    try {
        url.emplace(text);
    } catch (const error::EParseError&) {
        return 0;
    }

    // Without an authority, an empty scheme or first segment makes the text form another URL.
    if (!url->host().empty() || url->port() != 0)
        requireSame(*url, "a URL changes");

    url->setRelative(false);
    url->setScheme("http");
    url->setHost("h");
    requireSame(*url, "a URL with another authority changes");

    url->setScheme("");
    url->setHost("");
    url->setPort(0);
    require(url->toString().starts_with('/'), "no target", url->toString());
    return 0;
}
