#include "protocol/BerTag.h"

#include "common/assertion.h"
#include "protocol/BerValue.h"

#include <string>

namespace protocol {

namespace {

constexpr std::uint32_t longFormNumber = 31;
constexpr unsigned digitBits = 7;
constexpr std::size_t mostDigits = 5;  // of 29 bits
constexpr std::size_t shortLength = 128;
constexpr std::size_t longestLength = 0xFFFFFFFF;

char byteOf(std::uint32_t value)
{
    return static_cast<char>(static_cast<unsigned char>(value));
}

}  // namespace

void writeTag(BerOutput& output, BerTag tag)
{
    const std::uint32_t classAndForm = (tag & 7U) << 5U;
    std::uint32_t number = tag >> 3U;
    if (number < longFormNumber) {
        const char identifier = byteOf(classAndForm | number);
        output.write(&identifier, 1);
        return;
    }
    char bytes[1 + mostDigits];
    char* first = bytes + sizeof bytes;
    std::uint32_t more = 0;
    for (; number != 0 && first != bytes + 1; number >>= digitBits) {
        *--first = byteOf((number & 0x7FU) | more);
        more = 0x80;
    }
    if (number != 0)
        assertion("Tag encoding failed");
    *--first = byteOf(classAndForm | longFormNumber);
    output.write(first, static_cast<std::size_t>(bytes + sizeof bytes - first));
}

void writeLength(BerOutput& output, std::size_t length)
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
    if (length >= shortLength) {
        const auto count = static_cast<std::uint32_t>(bytes + sizeof bytes - first);
        *--first = byteOf(0x80U | count);
    }
    output.write(first, static_cast<std::size_t>(bytes + sizeof bytes - first));
}

void beginContents(BerOutput& output)
{
    output.write("\x80", 1);
}

void endContents(BerOutput& output)
{
    output.write("\0\0", 2);
}

}  // namespace protocol
