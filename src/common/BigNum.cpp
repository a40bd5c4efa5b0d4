#include "common/BigNum.h"

#include "common/assertion.h"
#include "common/text.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <utility>

namespace {

constexpr std::size_t limbBytes = sizeof(std::uint32_t);
constexpr unsigned limbBits = 32;
constexpr std::uint32_t topBit = 0x80000000;
constexpr std::uint32_t mostOwners = 1000;

std::uint32_t& ownersOf(std::uint32_t* limbs)
{
    return limbs[-1];
}

// A block with one owner and all limbs 0.
std::uint32_t* allocate(std::size_t capacity)
{
    if (capacity >= std::numeric_limits<std::size_t>::max() / limbBytes)
        throw std::length_error("BigNum");
    auto* block = new std::uint32_t[capacity + 1]();
    block[0] = 1;
    return block + 1;
}

// Gives up one share of the block.
void release(std::uint32_t* limbs, std::size_t capacity)
{
    if (--ownersOf(limbs) != 0)
        return;
    // A plain store into memory that is freed next is the compiler's to drop; this one isn't.
    explicit_bzero(limbs, capacity * limbBytes);
    delete[](limbs - 1);
}

}  // namespace

BigNum::BigNum() : limbs(allocate(1)), length(0), capacity(1)
{}

BigNum::BigNum(std::uint32_t value) : BigNum()
{
    limbs[0] = value;
    length = value != 0 ? 1 : 0;
}

BigNum::BigNum(const BigNum& other)
    : limbs(other.limbs), length(other.length), capacity(other.capacity)
{
    std::uint32_t& owners = ownersOf(limbs);
    if (owners < 1 || owners > mostOwners)
        std::abort();
    ++owners;
}

BigNum& BigNum::operator=(const BigNum& other)
{
    if (this != &other) {
        BigNum copy(other);
        swap(copy);
    }
    return *this;
}

BigNum::~BigNum()
{
    release(limbs, capacity);
}

bool BigNum::operator==(const BigNum& other) const
{
    return length == other.length && std::equal(limbs, limbs + length, other.limbs);
}

bool BigNum::operator<(const BigNum& other) const
{
    if (length != other.length)
        return length < other.length;
    for (std::size_t i = length; i-- > 0;) {
        if (limbs[i] != other.limbs[i])
            return limbs[i] < other.limbs[i];
    }
    return false;
}

BigNum BigNum::operator+(const BigNum& other) const
{
    const BigNum& longer = length >= other.length ? *this : other;
    const BigNum& shorter = length >= other.length ? other : *this;

    // Only a top bit in the highest place can carry beyond it. A shorter operand has none there.
    std::uint32_t top = 0;
    if (longer.length > 0)
        top = longer.limbs[longer.length - 1];
    if (longer.length > 0 && shorter.length == longer.length)
        top |= shorter.limbs[shorter.length - 1];

    BigNum sum;
    sum.resize(longer.length + ((top & topBit) != 0 ? 1 : 0));
    std::uint64_t carry = 0;
    for (std::size_t i = 0; i < sum.length; ++i) {
        if (i < longer.length)
            carry += longer.limbs[i];
        if (i < shorter.length)
            carry += shorter.limbs[i];
        sum.limbs[i] = static_cast<std::uint32_t>(carry);
        carry >>= limbBits;
    }
    sum.normalise();
    return sum;
}

void BigNum::shiftLeft(int count)
{
    if (count <= 0 || length == 0)
        return;

    // Whole limbs are moved at once: the value is that of shifting a bit at a time, in linear
    // time.
    const auto bits = static_cast<unsigned>(count);
    const std::size_t whole = bits / limbBits;
    const unsigned rest = bits % limbBits;
    const std::size_t oldLength = length;
    const std::uint64_t overflow = (std::uint64_t{limbs[length - 1]} << rest) >> limbBits;
    resize(length + whole + (overflow != 0 ? 1 : 0));

    std::uint64_t carry = 0;  // what the limb below pushes up, in the low half
    std::memmove(limbs + whole, limbs, oldLength * limbBytes);
    std::memset(limbs, 0, std::min(whole, length) * limbBytes);
    for (std::size_t i = whole; i < length; ++i) {
        // Above the moved limbs lies the one that takes the overflow, if any.
        const std::uint64_t limb = i < whole + oldLength ? limbs[i] : 0;
        carry |= limb << rest;
        limbs[i] = static_cast<std::uint32_t>(carry);
        carry >>= limbBits;
    }
    if (carry != 0)
        assertion("Shift error in BigNum");
    normalise();
}

void BigNum::resize(std::size_t newLength)
{
    if (newLength < length)
        assertion("Bad reallocation in BigNum");
    if (ownersOf(limbs) == 1 && newLength <= capacity) {
        std::fill(limbs + length, limbs + newLength, 0);
    } else {
        std::uint32_t* wider = allocate(newLength);
        std::copy(limbs, limbs + length, wider);
        release(limbs, capacity);
        limbs = wider;
        capacity = newLength;
    }
    length = newLength;
}

std::string BigNum::toString() const
{
    constexpr std::uint32_t billion = 1000000000;

    // A block of its own, not a copy: a value that is shared to the limit prints as well.
    BigNum rest;
    rest.resize(length);
    std::copy(limbs, limbs + length, rest.limbs);
    rest.normalise();

    // Nine digits a pass, the last ones first.
    std::string reversed;
    while (rest.length > 0) {
        std::uint64_t remainder = 0;
        for (std::size_t i = rest.length; i-- > 0;) {
            remainder = remainder << limbBits | rest.limbs[i];
            rest.limbs[i] = static_cast<std::uint32_t>(remainder / billion);
            remainder %= billion;
        }
        rest.normalise();
        for (int digit = 0; digit < 9 && (remainder != 0 || rest.length > 0); ++digit) {
            reversed += static_cast<char>('0' + remainder % 10);
            remainder /= 10;
        }
    }
    if (reversed.empty())
        return "0";
    return std::string(reversed.rbegin(), reversed.rend());
}

void BigNum::bn_get_data(char* buffer, std::size_t* size) const
{
    if (*size < limbBytes * length) {
        assertion("Buffer given to bn_get_data is too small (wanted " +
                  sizeToString(limbBytes * length) + ")");
    }
    const std::size_t count = byteCount();
    for (std::size_t i = 0; i < count; ++i)
        buffer[i] = static_cast<char>(byteAt(count - 1 - i));
    std::fill(buffer + count, buffer + *size, '\0');
    *size = count;
}

void BigNum::bn_set_data(const char* bytes, std::size_t count)
{
    BigNum value;
    value.resize(count / limbBytes + (count % limbBytes != 0 ? 1 : 0));
    for (std::size_t i = 0; i < count; ++i)
        value.setByteAt(count - 1 - i, bytes[i]);
    value.normalise();
    swap(value);
}

void BigNum::toBytes(std::string* out, std::size_t minimum) const
{
    const std::size_t count = byteCount();
    out->assign(std::max(count, minimum), '\0');
    for (std::size_t i = 0; i < count; ++i)
        (*out)[i] = static_cast<char>(byteAt(i));
}

void BigNum::fromBytes(std::string_view text)
{
    BigNum value;
    value.resize(text.size() / limbBytes + (text.size() % limbBytes != 0 ? 1 : 0));
    for (std::size_t i = 0; i < text.size(); ++i)
        value.setByteAt(i, text[i]);
    value.normalise();
    swap(value);
}

// Drops zero limbs from the top. The limbs themselves stay untouched, and so may be shared.
void BigNum::normalise()
{
    while (length > 0 && limbs[length - 1] == 0)
        --length;
}

void BigNum::swap(BigNum& other) noexcept
{
    std::swap(limbs, other.limbs);
    std::swap(length, other.length);
    std::swap(capacity, other.capacity);
}

std::size_t BigNum::byteCount() const
{
    std::size_t count = length * limbBytes;
    while (count > 0 && byteAt(count - 1) == 0)
        --count;
    return count;
}

std::uint8_t BigNum::byteAt(std::size_t index) const
{
    return static_cast<std::uint8_t>(limbs[index / limbBytes] >> index % limbBytes * 8);
}

void BigNum::setByteAt(std::size_t index, char byte)
{
    limbs[index / limbBytes] |= std::uint32_t{static_cast<unsigned char>(byte)}
                                << index % limbBytes * 8;
}
