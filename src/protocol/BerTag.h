// Tags and lengths, as numbers and as bytes (ITU-T X.690, 8.1).
//
// Inside the program a tag is the tag number shifted left by three, with the class in bits 2 and 1
// and the constructed flag in bit 0. These three are the high bits of the identifier byte, so a tag
// with a number below 31 is that byte, rotated. SEQUENCE, number 16, constructed:
//
//     tag 129 = 16 * 8 + 1        identifier byte 0x30 = 001 10000
//
// A higher number follows the identifier byte in base 128, most significant digit first, bit 7 set
// on all but the last: application 32, constructed, is 259 and 7F 20.
#pragma once

#include <cstddef>
#include <cstdint>

namespace protocol {

using BerTag = std::uint32_t;

enum : BerTag {
    BE_BOOLEAN = 8,
    BE_INTEGER = 16,
    BE_STRING_CURRENT = 32,  // OCTET STRING
    BE_STRING_LEGACY = 176,  // IA5String
    BE_NULL = 40,
    BE_REAL = 72,
    BE_ENUMERATED = 80,
    BE_SEQ_CURRENT = 129,  // SEQUENCE
    BE_SEQ_LEGACY = 1,     // universal 0, constructed
    BE_SET_CURRENT = 137,  // SET
    BE_SET_LEGACY = 9,     // universal 1, constructed
};

constexpr bool isConstructed(BerTag tag)
{
    return (tag & 1U) != 0;
}
// Constructed tags of the application and the context-specific class.
constexpr BerTag applicationTag(std::uint32_t number)
{
    return number * 8 + 3;
}
constexpr BerTag contextTag(std::uint32_t number)
{
    return number * 8 + 5;
}

// Of a tag and a length together, in bytes.
inline constexpr std::size_t mostHeadBytes = 11;

// Put a tag, or a definite length in the fewest bytes, at `to`, and give the place behind it. A
// length has at most 32 bits.
char* putLongTag(char* to, BerTag tag);
char* putLongLength(char* to, std::size_t length);
// Of a number below 31.
constexpr char shortTag(BerTag tag)
{
    return static_cast<char>(static_cast<unsigned char>(tag >> 3U | tag << 5U));
}
[[gnu::always_inline]] inline char* putTag(char* to, BerTag tag)
{
    if (tag >= 31 * 8)
        return putLongTag(to, tag);
    *to = shortTag(tag);
    return to + 1;
}
inline char* putLength(char* to, std::size_t length)
{
    if (length >= 128)
        return putLongLength(to, length);
    *to = static_cast<char>(length);
    return to + 1;
}
// The content of a constructed value has no length: it stands between these two.
[[gnu::always_inline]] inline char* putBeginning(char* to, BerTag tag)
{
    to = putTag(to, tag);
    *to = '\x80';
    return to + 1;
}
[[gnu::always_inline]] inline char* putEndOfContents(char* to)
{
    to[0] = '\0';
    to[1] = '\0';
    return to + 2;
}

}  // namespace protocol
