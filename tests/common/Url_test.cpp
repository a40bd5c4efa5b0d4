#include "common/Url.h"

#include "common/errors.h"
#include "tests/common/outcome.h"

#include <gtest/gtest.h>

namespace {

// Host, port, text form, and the form without an authority; or the failure.
std::string takenApart(const std::string& text)
{
    return outcome<error::EParseError>([&] {
        Url url(text);
        const std::string parts =
            url.host() + " " + std::to_string(url.port()) + " " + url.toString() + " ";
        url.setScheme("");
        url.setHost("");
        url.setPort(0);
        url.setRelative(false);
        return parts + url.toString();
    });
}

TEST(Url, TakesAnyTextApart)
{
    const std::string cases[][2] = {
        {"http://h:80/a/b?x=1&y=2#f", "h 80 http://h:80/a/b?x=1&y=2#f /a/b?x=1&y=2#f"},
        {"word", " 0 /word /word"},
        {"", " 0 / /"},
        {"/a//b/", " 0 /a//b/ /a//b/"},
        {"word?x=1", " 0 word?x=1 /word?x=1"},
        {"/a//?x", " 0 /a/?x= /a/?x="},
        {"?x#?y", " 0 ?x=#?y /?x=#?y"},
        {"mailto:a/b:c", " 0 mailto:a/b:c /a/b:c"},
        {"a/b/c", " 0 /b/c /b/c"},
        {"//h", "h 0 //h/ /"},
        {"http://h:?b", "h 0 http://h/?b= /?b="},
        {"http://h:65617#", "h 81 http://h:81/ /"},
        {"/?b=2&&a=1=2&a==1&=c=&b=3&c", " 0 /?a=1&b=3&c= /?a=1&b=3&c="},
        {"/?/:?=//#/?#", " 0 /?/:?=//#/?# /?/:?=//#/?#"},
        {"http://", "Cannot parse authority part of url when not present."},
        {"http://[::1]/", "Error parsing: \":1]\""},
    };
    for (const auto& [text, parts] : cases)
        EXPECT_EQ(takenApart(text), parts) << text;
    Url url("?x");
    url.setHost("h");  // no path, so no slash
    EXPECT_EQ(url.toString(), "//h?x=");
}

}  // namespace
