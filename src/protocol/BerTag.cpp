#include "protocol/BerTag.h"

#include "common/assertion.h"

#include <algorithm>
#include <string>

namespace protocol {

namespace {

constexpr std::uint32_t longFormNumber = 31;
constexpr unsigned digitBits = 7;
constexpr std::size_t mostDigits = 5;  // of 29 bits
constexpr std::size_t longestLength = 0xFFFFFFFF;

char byteOf(std::uint32_t value)
{
    return static_cast<char>(static_cast<unsigned char>(value));
}

}  // namespace

char* putLongTag(char* to, BerTag tag)
{
    char bytes[mostDigits];
    char* first = bytes + sizeof bytes;
    std::uint32_t more = 0;
    std::uint32_t number = tag >> 3U;
    for (; number != 0 && first != bytes; number >>= digitBits) {
        *--first = byteOf((number & 0x7FU) | more);
        more = 0x80;
    }
    if (number != 0)
        assertion("Tag encoding failed");
    *to++ = byteOf((tag & 7U) << 5U | longFormNumber);
    return std::copy(first, bytes + sizeof bytes, to);
}

char* putLongLength(char* to, std::size_t length)
{
    if (length > longestLength)
        assertion("A BER length of more than 32 bits");
    char bytes[1 + sizeof(std::uint32_t)];
    char* first = bytes + sizeof bytes;
    auto rest = static_cast<std::uint32_t>(length);
    do {
        *--first = byteOf(rest);
        rest >>= 8U;
    } while (rest != 0);
    const auto count = static_cast<std::uint32_t>(bytes + sizeof bytes - first);
    *to++ = byteOf(0x80U | count);
    return std::copy(first, bytes + sizeof bytes, to);
}

}  // namespace protocol
