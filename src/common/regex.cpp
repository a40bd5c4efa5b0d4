// The four operations: flags, ownership, codes and texts. The work is done in
//     regexParser.cpp, regexBracket.cpp   patterns to trees
//     regexCompiler.cpp                   trees to programs
//     regexSearch.cpp                     whether there is a match
//     regexSubmatch.cpp                   where it is
//     regexBackReference.cpp              the same, with back-references

#include "common/regex.h"

#include "common/regexProgram.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

namespace {

constexpr std::int32_t magicNumber = 62053;

struct Code {
    const char* name;
    const char* text;
};

// By number.
constexpr Code codes[] = {
    {"REG_OKAY", "no errors detected"},
    {"REG_NOMATCH", "regexec() failed to match"},
    {"REG_BADPAT", "invalid regular expression"},
    {"REG_ECOLLATE", "invalid collating element"},
    {"REG_ECTYPE", "invalid character class"},
    {"REG_EESCAPE", "trailing backslash (\\)"},
    {"REG_ESUBREG", "invalid backreference number"},
    {"REG_EBRACK", "brackets ([ ]) not balanced"},
    {"REG_EPAREN", "parentheses not balanced"},
    {"REG_EBRACE", "braces not balanced"},
    {"REG_BADBR", "invalid repetition count(s)"},
    {"REG_ERANGE", "invalid character range"},
    {"REG_ESPACE", "out of memory"},
    {"REG_BADRPT", "repetition-operator operand invalid"},
    {"REG_EMPTY", "empty (sub)expression"},
    {"REG_ASSERT", "\"can't happen\" -- you found a bug"},
    {"REG_INVARG", "invalid argument to regex routine"},
};
constexpr int codeCount = sizeof codes / sizeof codes[0];

// Copies the pattern with its control characters in place and gives its length. The copy is never
// longer than the original.
std::size_t copyPattern(std::string_view pattern, char* out)
{
    char* to = out;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] != '\\' || i + 1 == pattern.size()) {
            *to++ = pattern[i];
            continue;
        }
        const char escaped = pattern[++i];
        switch (escaped) {
        case 'n':
            *to++ = '\n';
            break;
        case 'r':
            *to++ = '\r';
            break;
        case 't':
            *to++ = '\t';
            break;
        default:
            *to++ = '\\';
            *to++ = escaped;
            break;
        }
    }
    *to = '\0';
    return static_cast<std::size_t>(to - out);
}

int compilePattern(tv_regex_t* preg, std::string_view pattern, int cflags)
{
    auto copy = std::make_unique<char[]>(pattern.size() + 1);
    const std::size_t length = copyPattern(pattern, copy.get());
    auto program = std::make_unique<RegexProgram>();
    regex::compile(regex::parse({copy.get(), length}, cflags), cflags, program.get());
    if (program->bad)
        return REG_ASSERT;
    preg->re_nsub = program->syntax.groups;
    preg->re_g = program.release();
    preg->pattern = copy.release();
    preg->re_magic = magicNumber;
    return REG_OKAY;
}

bool isCompiled(const tv_regex_t* preg)
{
    return preg->re_magic == magicNumber && preg->re_g != nullptr &&
           preg->re_g->magic == RegexProgram::magicNumber;
}

int match(RegexProgram& program, const char* start, std::size_t nmatch, tv_regmatch_t* pmatch,
          int eflags)
{
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(start);
    if ((program.cflags & REG_NOSUB) != 0)
        nmatch = 0;
    const bool wantsSpans = nmatch > 0 || program.syntax.hasBackReferences;
    std::ptrdiff_t offset = 0;
    regex::Text text{bytes, nullptr,
                     (eflags & REG_NOTBOL) != 0 ? regex::Edge::plain : regex::Edge::line,
                     (eflags & REG_NOTEOL) != 0 ? regex::Edge::plain : regex::Edge::line};
    if ((eflags & REG_STARTEND) != 0) {
        offset = pmatch[0].rm_so;
        if (offset < 0 || pmatch[0].rm_eo < offset)
            return REG_INVARG;
        text.begin = bytes + offset;
        text.end = bytes + pmatch[0].rm_eo;
    } else if (wantsSpans) {
        text.end = bytes + std::strlen(start);
    }
    if (!wantsSpans)
        return regex::hasMatch(program, text) ? REG_OKAY : REG_NOMATCH;

    std::vector<regex::Span> spans;
    if (!(program.syntax.hasBackReferences ? regex::findMatchWithReferences(program, text, &spans)
                                           : regex::findMatch(program, text, &spans)))
        return REG_NOMATCH;
    for (std::size_t i = 0; i < nmatch; ++i) {
        pmatch[i] = {};
        if (i < spans.size() && spans[i].begin >= 0)
            pmatch[i] = {spans[i].begin + offset, spans[i].end + offset};
    }
    return REG_OKAY;
}

}  // namespace

int tv_regcomp(tv_regex_t* preg, const char* pattern, int cflags)
{
    preg->re_magic = 0;
    preg->re_nsub = 0;
    preg->re_g = nullptr;
    preg->pattern = nullptr;
    if ((cflags & REG_EXTENDED) != 0 && (cflags & REG_NOSPEC) != 0)
        return REG_INVARG;
    std::size_t length = 0;
    if ((cflags & REG_PEND) == 0)
        length = std::strlen(pattern);
    else if (preg->re_endp < pattern)
        return REG_INVARG;
    else
        length = static_cast<std::size_t>(preg->re_endp - pattern);

    try {
        return compilePattern(preg, {pattern, length}, cflags);
    } catch (const regex::Refusal& refusal) {
        return refusal.code;
    } catch (const std::exception&) {
        return REG_ESPACE;  // nothing but memory can run out
    }
}

int tv_regexec(const tv_regex_t* preg, const char* text, std::size_t nmatch, tv_regmatch_t* pmatch,
               int eflags)
{
    if (!isCompiled(preg) || preg->re_g->bad)
        return REG_BADPAT;
    try {
        return match(*preg->re_g, text, nmatch, pmatch, eflags);
    } catch (const std::exception&) {
        preg->re_g->cache = {};  // perhaps in the middle of a change
        return REG_ESPACE;
    }
}

std::size_t tv_regerror(int code, const tv_regex_t* preg, char* buffer, std::size_t size)
{
    char number[24];
    const char* text = number;
    if (code == REG_ATOI) {
        int found = 0;
        while (found < codeCount && std::strcmp(codes[found].name, preg->re_endp) != 0)
            ++found;
        std::snprintf(number, sizeof number, "%d", found < codeCount ? found : 0);
    } else if ((code & REG_ITOA) != 0) {
        const int plain = code & ~REG_ITOA;
        if (plain >= 0 && plain < codeCount)
            text = codes[plain].name;
        else
            std::snprintf(number, sizeof number, "REG_0x%x", static_cast<unsigned>(plain));
    } else if (code >= 0 && code < codeCount) {
        text = codes[code].text;
    } else {
        text = "*** unknown regexp error code ***";
    }

    const std::size_t length = std::strlen(text);
    if (size > 0) {
        const std::size_t cut = std::min(length, size - 1);
        std::memcpy(buffer, text, cut);
        buffer[cut] = '\0';
    }
    return length + 1;
}

void tv_regfree(tv_regex_t* preg)
{
    if (!isCompiled(preg))
        return;
    preg->re_magic = 0;
    preg->re_g->magic = 0;
    delete preg->re_g;
    delete[] preg->pattern;
    preg->re_g = nullptr;
    preg->pattern = nullptr;
}
