// POSIX regular expressions: leftmost-longest, extended and basic syntax.
//
// Four operations in the manner of POSIX.1 <regex.h>: compile, match, text of a code, release.
// Beyond POSIX: "\n", "\r" and "\t" in a pattern stand for the control characters, and the bracket
// expressions "[[:<:]]" and "[[:>:]]" match at the start and at the end of a word. Texts are
// bytes in the C locale.
//
// Nothing here is shared between expressions. A compiled expression serves any number of matches,
// one at a time.
#pragma once

#include <cstddef>
#include <cstdint>

// ---- Codes ---------------------------------------------------------------------------------

inline constexpr int REG_OKAY = 0;
inline constexpr int REG_NOMATCH = 1;
inline constexpr int REG_BADPAT = 2;
inline constexpr int REG_ECOLLATE = 3;
inline constexpr int REG_ECTYPE = 4;
inline constexpr int REG_EESCAPE = 5;
inline constexpr int REG_ESUBREG = 6;
inline constexpr int REG_EBRACK = 7;
inline constexpr int REG_EPAREN = 8;
inline constexpr int REG_EBRACE = 9;
inline constexpr int REG_BADBR = 10;
inline constexpr int REG_ERANGE = 11;
inline constexpr int REG_ESPACE = 12;
inline constexpr int REG_BADRPT = 13;
inline constexpr int REG_EMPTY = 14;
inline constexpr int REG_ASSERT = 15;
inline constexpr int REG_INVARG = 16;

// Codes for tv_regerror alone.
inline constexpr int REG_ITOA = 0x100;  // added to a code: its name is wanted, not its text
inline constexpr int REG_ATOI = 255;    // the number of the name at `re_endp` is wanted

// ---- Flags ---------------------------------------------------------------------------------

// For tv_regcomp.
inline constexpr int REG_EXTENDED = 1;
inline constexpr int REG_ICASE = 2;
inline constexpr int REG_NOSUB = 4;    // no subexpression positions are wanted
inline constexpr int REG_NEWLINE = 8;  // "." and lists don't match "\n"; "^" and "$" match at it
inline constexpr int REG_NOSPEC = 16;  // every character is literal; not with REG_EXTENDED
inline constexpr int REG_PEND = 32;    // the pattern ends at `re_endp`, not at a zero byte

// For tv_regexec; other bits are dropped.
inline constexpr int REG_NOTBOL = 1;    // the start of the text is no start of a line
inline constexpr int REG_NOTEOL = 2;    // the end of the text is no end of a line
inline constexpr int REG_STARTEND = 4;  // the text lies between the offsets of pmatch[0]

// ---- Operations ----------------------------------------------------------------------------

struct RegexProgram;

// A compiled expression. Zero-initialise it before the first use; after tv_regcomp succeeded it
// owns memory that tv_regfree releases.
struct tv_regex_t {
    std::int32_t re_magic = 0;      // 62053 while compiled
    std::size_t re_nsub = 0;        // parenthesised subexpressions in the pattern
    const char* re_endp = nullptr;  // end of the pattern, read only under REG_PEND
    RegexProgram* re_g = nullptr;
    char* pattern = nullptr;  // private copy of the pattern, as it was compiled
};

// Offsets of a match from the start of the text, in bytes; -1 for a subexpression that took no
// part.
struct tv_regmatch_t {
    std::ptrdiff_t rm_so = -1;
    std::ptrdiff_t rm_eo = -1;
};

// Compiles `pattern` into `preg`. Gives REG_OKAY, or what is wrong with the pattern: nothing stays
// allocated then.
int tv_regcomp(tv_regex_t* preg, const char* pattern, int cflags);

// Looks for the leftmost longest match in `text`, which ends at its first zero byte. Gives
// REG_OKAY, REG_NOMATCH, REG_BADPAT for an expression that isn't compiled, REG_ESPACE (also where
// back-references would take too much work), or REG_INVARG for offsets that are no span. Fills
// `nmatch` entries: the whole match first, then the subexpressions by their opening parentheses.
// With nmatch 0, `pmatch` is read only under REG_STARTEND.
int tv_regexec(const tv_regex_t* preg, const char* text, std::size_t nmatch, tv_regmatch_t* pmatch,
               int eflags);

// Writes the text of a code, cut to size - 1 characters and ended by a zero byte; nothing if
// `size` is 0. Gives the size of the whole text, its zero byte included. `preg` is read for
// REG_ATOI only.
std::size_t tv_regerror(int code, const tv_regex_t* preg, char* buffer, std::size_t size);

// Releases what tv_regcomp has allocated. Does nothing for an expression that isn't compiled.
void tv_regfree(tv_regex_t* preg);
