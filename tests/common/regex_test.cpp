#include "common/regex.h"

#include "common/regexProgram.h"
#include "tests/common/RegexReference.h"
#include "tests/support/Case.h"

#include <random>
#include <string>
#include <tuple>

// The C library's <regex.h>, which comes with gtest, numbers these two the other way round.
#undef REG_NEWLINE
#undef REG_NOSUB

namespace {

using support::runCase;

constexpr int ere = REG_EXTENDED;

// Start and end of the match, then of each group; empty if there is none. A code that isn't one of
// these two is negative.
std::vector<int> match(const std::string& pattern, int cflags, const std::string& text,
                       int eflags = 0)
{
    tv_regex_t regex;
    const int code = tv_regcomp(&regex, pattern.c_str(), cflags);
    EXPECT_EQ(regex.re_magic, code == REG_OKAY ? 62053 : 0) << pattern;
    if (code != REG_OKAY)
        return {-code};
    std::vector<tv_regmatch_t> spans(regex.re_nsub + 2, {7, 7});
    const int found = tv_regexec(&regex, text.c_str(), spans.size(), spans.data(), eflags);
    EXPECT_EQ(tv_regexec(&regex, text.c_str(), 0, nullptr, eflags), found);
    tv_regfree(&regex);
    std::vector<int> out;
    for (std::size_t i = 0; found == REG_OKAY && i + 1 < spans.size(); ++i)
        out.insert(out.end(), {static_cast<int>(spans[i].rm_so), static_cast<int>(spans[i].rm_eo)});
    EXPECT_EQ(spans.back().rm_so, found == REG_OKAY ? -1 : 7) << "beyond the groups";
    return found <= REG_NOMATCH ? out : std::vector<int>{-found};
}

std::string text(int code, const tv_regex_t* preg = nullptr, std::size_t size = 80)
{
    char buffer[80] = "untouched";
    const std::size_t needed = tv_regerror(code, preg, buffer, size);
    return buffer + (" " + std::to_string(needed));
}

TEST(Regex, PatternsAndTheirCodes)
{
    const std::string deep = std::string(500, '(') + "a" + std::string(500, ')');
    struct Case {
        int code;
        std::vector<std::string> extended, basic;
    };
    const Case cases[] = {
        {REG_OKAY,
         {"()", "a{255}", "a{,2}", "{", "(a)\\1", "$*", deep, "(a{255}){70}"},
         {"\\(\\)", "\\(^*\\)", "*", "a|", "a+?", "{1}"}},
        {REG_EMPTY, {"", "a|", "|a", "a||b", "(|a)", "(a|)"}, {""}},
        {REG_EPAREN, {"(", ")", "(a", "a|b)"}, {"\\(", "a\\)"}},
        {REG_EBRACE, {"a{1", "a{1,", "a{1,2"}, {"a\\{1}", "a\\}"}},
        {REG_BADBR, {"a{256}", "a{3,2}", "a{1x}", "a{1,x}", "a{0,256}"}, {"a\\{x\\}"}},
        {REG_BADRPT, {"*", "a|{1}", "(+a)", "a**", "a+{2}", "^*", "^{2}"}, {"a**", "\\{1\\}"}},
        {REG_EESCAPE, {"a\\", "(\\"}, {"\\(a\\"}},
        {REG_ESUBREG, {}, {"\\1", "\\(\\1\\)", "\\(a\\)\\2"}},
        {REG_EBRACK, {"[a", "[]", "[^]", "[a-", "[[:alpha:", "[[.a", "[[=a=]"}, {"["}},
        {REG_ERANGE, {"[b-a]", "[a-c-e]", "[[:digit:]-z]", "[a-[=z=]]", "[a-[:digit:]]"}, {}},
        {REG_ECTYPE, {"[[:word:]]", "[a[:<:]]", "[[:<:]a]"}, {}},
        {REG_ECOLLATE, {"[[.nothing.]]", "[[==]]", "[[.ab.]]"}, {}},
        {REG_ESPACE, {"(a{200}){100}", "((a{255}){255}){255}", "(" + deep + ")"}, {}},
    };
    const auto codeOf = [](const std::string& pattern, int cflags) {
        const std::vector<int> spans = match(pattern, cflags, "");
        return text(spans.empty() || spans[0] == 0 ? REG_OKAY : -spans[0]);
    };
    for (const auto& [code, extended, basic] : cases) {
        for (const std::string& pattern : extended)
            EXPECT_EQ(codeOf(pattern, ere), text(code)) << pattern;
        for (const std::string& pattern : basic)
            EXPECT_EQ(codeOf(pattern, 0), text(code)) << pattern;
    }
    EXPECT_EQ(codeOf("a", ere | REG_NOSPEC), text(REG_INVARG));
}

TEST(Regex, MatchesAndTheirSpans)
{
    struct Case {
        const char *pattern, *text, *spans;
        int cflags = ere, eflags = 0;
    };
    const Case cases[] = {
        {"^2..", "200 OK", "0 3 "},
        {"^2..", "404 Not Found 200", ""},
        {"a\\r\\nb\\t", "a\r\nb\t", "0 5 "},
        {"[\\n]+", "n\\\n\n", "2 4 "},
        {"\\\\n\\.\\x", "\\nx.\\n.x", "4 8 "},
        {"{a{,2}{", "{a{,2}{", "0 7 "},
        {"a{2,}b{0}c{1,2}", "aaacc", "0 5 "},
        {"a.b", "axba.b", "3 6 ", REG_NOSPEC},
        {"aB*[c-d]", "xAbBD", "1 5 ", ere | REG_ICASE},
        {"a[[:space:]]c|a.c|[^x]d|^e", "a\nc\nd\ne", "6 7 ", ere | REG_NEWLINE},
        {"a$", "aa", "", ere, REG_NOTEOL | 64},
        {"[[:<:]]foo[[:>:]]", "foobar _foo foo2 foo.", "17 20 "},
        {"[]a-]+[^]a][\\]+", "x]-ab\\", "1 6 "},
        {"[--/]+[%--]", "./-,", "0 4 "},
        {"[[.hyphen.]-[.slash.][=tilde=][.].]]+", "a~]-/", "1 5 "},
        {"[[.left-brace.][.NUL.][.IS4.][.DEL.][.low-line.]-b]+", "c{\x1c\x7f_`b", "1 7 "},
        {"[[:upper:][:digit:]_]+", "aZ0_\xc4", "1 4 "},
        {"[^[:print:]]", "a\x80", "1 2 "},
        {"(b|c)a{1,9}bbb", "caaabbb", "0 7 0 1 "},
        {"[[:<:]]a*b", "-aab", "1 4 "},
        {"c{58}|^((a|b)(a|b))*$", "abab", "0 4 2 4 2 3 3 4 "},  // a loop across two words
        // The longest first parts, a group's last turn, and no memory of the turns before.
        {"(a|ab)(c|bcd)(d*)", "xabcd", "1 5 1 3 3 4 4 5 "},
        {"*a\\(*\\)^\\(^b$\\)*$c", "*a*^$c", "0 6 2 3 -1 -1 ", 0},
        {"^*a\\{2\\}+?|(){}$", "*aa+?|(){}", "0 10 ", 0},
        {"\\(a*\\)b\\1", "aaba", "1 4 1 2 ", 0},
        {"\\(a*\\)*b\\1", "aabaa", "0 5 0 2 ", 0},
        {"\\(.\\)\\1$", "xaA", "1 3 1 2 ", REG_ICASE},
        {"\\(\\(a\\)*\\)b\\2", "bab", "", 0},
        {"\\(\\(a\\)\\{0,1\\}b\\)*\\2c", "abbac", "", 0},
        {"\\([[:<:]]b*\\)\\{2\\}\\(x*\\)\\2", "b", "0 1 0 1 1 1 ", 0}};
    for (const Case& c : cases) {
        runCase(c.pattern, [&] {
            std::string spans;
            for (const int place : match(c.pattern, c.cflags, c.text, c.eflags))
                spans += std::to_string(place) + " ";
            EXPECT_EQ(spans, c.spans);
        });
    }
}

TEST(Regex, EndsOfPatternsAndTexts)
{
    const char pattern[] = {'[', '^', 'a', ']', '\0', '$', 'a'};
    tv_regex_t regex;
    regex.re_endp = pattern - 1;
    EXPECT_EQ(tv_regcomp(&regex, pattern, ere | REG_PEND), REG_INVARG);
    regex.re_endp = pattern + 6;
    ASSERT_EQ(tv_regcomp(&regex, pattern, ere | REG_PEND | REG_NOSUB), REG_OKAY);
    tv_regmatch_t span{2, 5};
    EXPECT_EQ(tv_regexec(&regex, "b\0ab\0c", 1, &span, REG_STARTEND), REG_OKAY);
    EXPECT_EQ(span.rm_so, 2) << "unwanted, so untouched";
    span.rm_eo = 6;
    EXPECT_EQ(tv_regexec(&regex, "b\0ab\0c", 1, &span, REG_STARTEND), REG_NOMATCH);

    const auto code = [&] {
        return tv_regexec(&regex, "b", 0, nullptr, 0);
    };
    EXPECT_EQ(code(), REG_NOMATCH);
    for (std::int32_t* magic : {&regex.re_magic, &regex.re_g->magic}) {
        const std::int32_t right = std::exchange(*magic, 1);
        tv_regfree(&regex);
        EXPECT_EQ(code(), REG_BADPAT);
        *magic = right;
    }
    regex.re_g->bad = true;
    EXPECT_EQ(code(), REG_BADPAT);
    tv_regfree(&regex);
    EXPECT_EQ(code(), REG_BADPAT);
}

TEST(Regex, Texts)
{
    const tv_regex_t name{.re_endp = "REG_BADRPT"};
    const tv_regex_t other{.re_endp = "REG_BAD"};
    const std::pair<std::string, std::string> cases[] = {
        {text(REG_NOMATCH), "regexec() failed to match 26"},
        {text(REG_EESCAPE), "trailing backslash (\\) 23"},
        {text(REG_ASSERT), "\"can't happen\" -- you found a bug 34"},
        {text(17), "*** unknown regexp error code *** 34"},
        {text(REG_ESPACE, nullptr, 4), "out 14"},
        {text(REG_ESPACE, nullptr, 0), "untouched 14"},
        {text(REG_ITOA | REG_EBRACK), "REG_EBRACK 11"},
        {text(REG_ITOA | 0x1a), "REG_0x1a 9"},
        {text(REG_ATOI, &name), "13 3"},
        {text(REG_ATOI, &other), "0 2"}};
    for (const auto& [got, wanted] : cases)
        EXPECT_EQ(got, wanted);
}

// What takes more than linear time doesn't come to an end here.
TEST(Regex, LongTexts)
{
    constexpr int size = 1 << 20;
    const std::string line(size, 'a');
    const std::string words = "ab ba abab aba ab bab ";
    // Sets of states that recur for a while, and then no more.
    std::string mixed;
    std::mt19937 random(1);
    for (int i = 0; i < 2000; ++i) {
        std::string part;
        while (part.size() < 40)
            part += "ab"[random() % 2];
        for (int times = i < 1000 ? 12 : 1; times > 0; --times)
            mixed += part;
    }
    const std::string parity = "^([ab][ab])*c|^[ab]*a[ab]{14}d";
    const std::tuple<std::string, int, std::string, std::vector<int>> cases[] = {
        {"(a|a)*(a|a)*[bc]", ere, line, {}},
        {"((a|aa)*)*$", ere, line, {0, size, 0, size, size - 2, size}},
        {"^(a|aa)*b", ere, line, {}},
        {parity, ere, mixed + "c", {0, 520001, 519998, 520000}},
        {parity, ere, mixed + "ac", {}},
        {"[[:<:]]b[[:>:]]", ere, words + words + "b", {44, 45}},
        {"bc*a", ere, "b" + std::string(61, 'c') + "a", {0, 63}},
        {"bc*a", ere, "b" + std::string(62, 'c') + "a", {0, 64}},
        {"bc*a", ere, "b" + std::string(63, 'c') + "a", {0, 65}},
        {"bc*a", ere, "b" + std::string(64, 'c') + "a", {0, 66}},
        {"\\(\\(a*\\)*\\)*\\2b", 0, line, {}},
        {"\\(\\(a*\\)*\\)*\\2[bc]", 0, line + "c", {-REG_ESPACE}}};
    for (const auto& [pattern, cflags, text, spans] : cases)
        EXPECT_EQ(match(pattern, cflags, text), spans) << pattern;
}

// Each pattern also behind an alternative that no text has, which makes it lie across two words of
// states, and on all texts in a row, where it has to find the first that it matches alone. False if
// the reference takes too long.
bool compare(RegexReference&& reference, int flags, bool isPlain)
{
    static const char* const texts[] = {"",
                                        "a",
                                        "b",
                                        "ab",
                                        "aa",
                                        "bba",
                                        "aabb",
                                        "b\n\nab",
                                        "aabBbaab",
                                        "bbabababbb",
                                        "-----------------ba\n"};
    const std::string &small = reference.pattern,
                      large = "c{" + std::to_string(50 + small.size() % 12) + "}|" + small;
    std::string row;
    std::vector<int> first;
    for (const std::string text : texts) {
        const int eflags = static_cast<int>(text.size() % 3);
        try {
            const std::vector<int> wanted = reference.match(text, eflags);
            EXPECT_EQ(match(small, flags, text, eflags), wanted) << small << " on " << text;
            EXPECT_EQ(match(large, flags, text, eflags), wanted) << small << " on " << text;
            if (first.empty()) {
                for (const int place : wanted)
                    first.push_back(place < 0 ? place : place + static_cast<int>(row.size()));
            }
        } catch (const RegexReference::TooMuchWork&) {
            return false;
        }
        row += text + "-------------------";
    }
    if (isPlain) {
        EXPECT_EQ(match(small, flags, row), first) << small;
    }
    return true;
}

// All patterns of up to two pieces of the first kinds, and some of more of all kinds.
TEST(Regex, AgreesWithTheReference)
{
    std::vector<std::pair<int, int>> taken;
    int tooMuch = 0;
    do {
        std::size_t at = 0;
        const auto next = [&](int limit) {
            if (at == taken.size())
                taken.emplace_back(0, limit);
            return taken[at++].first;
        };
        tooMuch += compare(RegexReference(ere, 2, 7, next), ere, false) ? 0 : 1;
        while (!taken.empty() && ++taken.back().first == taken.back().second)
            taken.pop_back();
    } while (!taken.empty() && !HasFailure());

    std::mt19937 random(4);
    const auto any = [&](int limit) {
        return static_cast<int>(random() % limit);
    };
    for (int i = 0; i < 500 && !HasFailure(); ++i) {
        const int flags = ere | (i % 3 == 1 ? REG_ICASE : i % 3 == 2 ? REG_NEWLINE : 0);
        tooMuch += compare(RegexReference(flags, 8, 9, any), flags, false) ? 0 : 1;
        tooMuch += compare(RegexReference(ere, 8, 3, any), ere, true) ? 0 : 1;
    }
    EXPECT_LT(tooMuch, 100);
}

}  // namespace
