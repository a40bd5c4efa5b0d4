// Regular expressions of all kinds, on texts of all kinds.
//
// The input is
//     0    the flags for compiling, as in common/regex.h; 0x80: the pattern is made up
//     1    the flags for matching
//     2    the pattern up to a zero byte, or the choices by which it is made up; then the text
// Any pattern has to compile or be refused, and its match has to be one span, with the groups
// inside, however it is asked for. A pattern that is made up has to match as the reference does.

#include "common/regex.h"
#include "tests/common/RegexReference.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

namespace {

void require(bool holds, const char* what, const std::string& pattern)
{
    if (!holds) {
        std::cerr << what << ": " << pattern << '\n';
        std::abort();
    }
}

// Start and end of the match, then of each group; empty if there is none, or too much work.
std::vector<int> match(const tv_regex_t& regex, const std::string& pattern, const std::string& text,
                       int eflags)
{
    std::vector<tv_regmatch_t> spans(regex.re_nsub + 1);
    const int code = tv_regexec(&regex, text.c_str(), spans.size(), spans.data(), eflags);
    require(code == REG_OKAY || code == REG_NOMATCH || code == REG_ESPACE, "a code", pattern);
    std::vector<tv_regmatch_t> again = spans;
    again[0] = {0, static_cast<std::ptrdiff_t>(text.size())};
    require(tv_regexec(&regex, text.c_str(), 0, nullptr, eflags) == code, "yes and no", pattern);
    require(tv_regexec(&regex, text.c_str(), again.size(), again.data(), eflags | REG_STARTEND) ==
                code,
            "a text with an end", pattern);
    std::vector<int> out;
    if (code != REG_OKAY)
        return out;
    for (std::size_t i = 0; i < spans.size(); ++i) {
        const auto [start, end] = spans[i];
        require(start == again[i].rm_so && end == again[i].rm_eo, "two spans", pattern);
        const bool isInside = spans[0].rm_so <= start && start <= end && end <= spans[0].rm_eo;
        require(isInside || (i > 0 && start == -1 && end == -1), "a span", pattern);
        out.push_back(static_cast<int>(start));
        out.push_back(static_cast<int>(end));
    }
    return out;
}

void runAny(const std::string& input, int cflags, int eflags)
{
    const std::string pattern = input.substr(0, input.find('\0'));
    std::string text = input.substr(std::min(pattern.size() + 1, input.size()));
    text.resize(std::min(text.find('\0'), text.size()));
    tv_regex_t regex;
    if (tv_regcomp(&regex, pattern.c_str(), cflags) == REG_OKAY)
        match(regex, pattern, text, eflags);
    tv_regfree(&regex);
    require(tv_regexec(&regex, "", 0, nullptr, 0) == REG_BADPAT, "a released one", pattern);
}

void runMadeUp(const std::string& input, int cflags, int eflags)
{
    std::size_t used = 0;
    const auto choose = [&](int limit) {
        return used < input.size() ? static_cast<unsigned char>(input[used++]) % limit : 0;
    };
    RegexReference reference(cflags, 10, 9, choose);
    std::string text;
    while (used < input.size() && text.size() < 24)
        text += "abAB\n-"[choose(6)];

    tv_regex_t regex;
    require(tv_regcomp(&regex, reference.pattern.c_str(), cflags) == REG_OKAY, "refused",
            reference.pattern);
    try {
        const std::vector<int> wanted = reference.match(text, eflags);
        require(match(regex, reference.pattern, text, eflags) == wanted, "another match",
                reference.pattern + " on " + text);
    } catch (const RegexReference::TooMuchWork&) {
        match(regex, reference.pattern, text, eflags);
    }
    tv_regfree(&regex);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 2)
        return 0;
    const std::string input(reinterpret_cast<const char*>(data) + 2, size - 2);
    const int cflags = data[0] & (REG_EXTENDED | REG_ICASE | REG_NEWLINE | REG_NOSPEC);
    const int eflags = data[1] & (REG_NOTBOL | REG_NOTEOL);
    if ((data[0] & 0x80) != 0)
        runMadeUp(input, (cflags & ~REG_NOSPEC) | REG_EXTENDED, eflags);
    else
        runAny(input, cflags, eflags);
    return 0;
}
