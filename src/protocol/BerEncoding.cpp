#include "protocol/BerEncoding.h"

#include "common/assertion.h"
#include "common/text.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <limits>
#include <memory>
#include <system_error>
#include <typeinfo>

namespace protocol {

namespace {

// Lengths from here on have more than one byte.
constexpr std::size_t longLength = 128;
static_assert(mostHeadBytes + longLength <= BerOutput::roomAtOnce);
static_assert(mostHeadBytes + longestReal <= BerOutput::roomAtOnce);

// The first byte of a real number's content.
constexpr unsigned char realText = 0x00;
constexpr unsigned char realPlusInfinity = 0x40;
constexpr unsigned char realMinusInfinity = 0x41;
constexpr unsigned char realNaN = 0x60;

unsigned char firstByte(std::string_view content)
{
    return static_cast<unsigned char>(content[0]);
}

char charOf(unsigned byte)
{
    return static_cast<char>(static_cast<unsigned char>(byte));
}

template <class T>
std::string typeName()
{
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(typeid(T).name(), nullptr, nullptr, &status), &std::free);
    return status == 0 ? name.get() : typeid(T).name();
}

template <class T>
std::string numberText(T value)
{
    if constexpr (std::is_signed_v<T>)
        return int64ToString(value);
    else
        return uint64ToString(value);
}

// From `Size` to twice as many bytes: as many from either end, which may overlap.
template <std::size_t Size>
[[gnu::always_inline]] inline void copyEnds(char* to, const char* from, std::size_t count)
{
    char first[Size];
    char last[Size];
    std::memcpy(first, from, Size);
    std::memcpy(last, from + count - Size, Size);
    std::memcpy(to, first, Size);
    std::memcpy(to + count - Size, last, Size);
}

// Most texts are short: too short for a call to be worth it.
[[gnu::always_inline]] inline char* copyShort(char* to, const char* from, std::size_t count)
{
    if (count > 32)
        std::memcpy(to, from, count);
    else if (count >= 16)
        copyEnds<16>(to, from, count);
    else if (count >= 8)
        copyEnds<8>(to, from, count);
    else if (count >= 4)
        copyEnds<4>(to, from, count);
    else if (count >= 2)
        copyEnds<2>(to, from, count);
    else if (count == 1)
        *to = *from;
    return to + count;
}

char* putLongContent(BerOutput& output, char* to, BerTag tag, std::string_view content)
{
    to = putLength(putTag(output.reserve(to), tag), content.size());
    return output.put(to, content.data(), content.size());
}

[[gnu::always_inline]] inline char* putContent(BerOutput& output, char* to, BerTag tag,
                                               std::string_view content)
{
    if (content.size() >= longLength)
        return putLongContent(output, to, tag, content);
    to = putTag(output.reserve(to), tag);
    *to = charOf(static_cast<unsigned>(content.size()));
    return copyShort(to + 1, content.data(), content.size());
}

// A value whose content is put in place, and short: its length has one byte.
template <class PutContent>
[[gnu::always_inline]] inline char* putShort(BerOutput& output, char* to, BerTag tag,
                                             PutContent putContentAt)
{
    char* const length = putTag(output.reserve(to), tag);
    char* const content = length + 1;
    char* const behind = putContentAt(content);
    *length = charOf(static_cast<unsigned>(behind - content));
    return behind;
}

// How many bytes a number has at the least if its top bit tells the sign. `digits` is the number,
// or its complement if it is negative.
[[gnu::always_inline]] inline std::size_t byteCount(std::uint64_t digits)
{
    return static_cast<std::size_t>(std::bit_width(digits | 1U)) / 8 + 1;
}

// The low bytes of a number, from 1 to 8, most significant first. Writes 8 bytes in any case.
[[gnu::always_inline]] inline char* putBytes(char* to, std::uint64_t number, std::size_t count)
{
    number <<= 8 * (sizeof number - count);
    if constexpr (std::endian::native == std::endian::little)
        number = __builtin_bswap64(number);
    std::memcpy(to, &number, sizeof number);
    return to + count;
}

// The powers of ten that a double can hold.
constexpr int mostPower = 22;
constexpr double powersOfTen[mostPower + 1] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                               1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                               1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr int decimals = 6;  // behind the point

// A number as "%e" shows it in the "C" locale, put at `to`. Null if that takes more than one
// rounding.
//
// A number with d digits before the point is multiplied or divided by the power of ten that leaves
// it with seven. That operation is the one that rounds: the result is off by at most 2^-53 of less
// than 10^7, about 10^-9. So unless it is near the middle between two whole numbers, it is rounded
// to the same one as the number itself. A number that seems to have one digit more or less than it
// has comes out right, too: it is that near to a power of ten.
char* putScientific(char* to, double value)
{
    const double magnitude = std::fabs(value);
    if (!(magnitude >= 1e-15 && magnitude < 1e22))
        return nullptr;
    // From the binary exponent: 1233 / 4096 is log10(2). May be one too small.
    const auto binary = static_cast<int>(std::bit_cast<std::uint64_t>(magnitude) >> 52U) - 1023;
    int exponent = binary * 1233 >> 12;
    const auto scaledBy = [magnitude](int power) {
        return power >= 0 ? magnitude * powersOfTen[power] : magnitude / powersOfTen[-power];
    };
    double scaled = scaledBy(decimals - exponent);
    if (scaled >= powersOfTen[decimals + 1]) {
        ++exponent;
        scaled = scaledBy(decimals - exponent);
    }
    auto digits = static_cast<std::uint32_t>(scaled);
    const double rest = scaled - digits;
    if (std::fabs(rest - 0.5) < 1e-6)
        return nullptr;
    digits += rest > 0.5 ? 1 : 0;
    if (digits == 10'000'000) {
        digits = 1'000'000;
        ++exponent;
    }
    if (value < 0)
        *to++ = '-';
    for (char* digit = to + 1 + decimals; digit != to + 1; --digit) {
        *digit = charOf('0' + digits % 10);
        digits /= 10;
    }
    to[0] = charOf('0' + digits);
    to[1] = '.';
    to += 2 + decimals;
    const auto shown = static_cast<unsigned>(std::abs(exponent));
    to[0] = 'e';
    to[1] = exponent < 0 ? '-' : '+';
    to[2] = charOf('0' + shown / 10);
    to[3] = charOf('0' + shown % 10);
    return to + 4;
}

template <class T>
[[gnu::always_inline]] inline char* putIntegerContent(char* to, T value)
{
    const auto number = static_cast<std::uint64_t>(value);  // with the sign in all bits above
    std::size_t count = byteCount(std::is_signed_v<T> && value < 0 ? ~number : number);
    if (count > sizeof number) {
        *to++ = '\0';
        --count;
    }
    return putBytes(to, number, count);
}

// Zero has no byte. A number with the top bit of its first byte set reads negative, so all that
// have more than 31 bits do.
[[gnu::always_inline]] inline char* putEnumeratedContent(char* to, std::int32_t value)
{
    const auto number = static_cast<std::uint32_t>(value);
    return number == 0 ? to : putBytes(to, number, std::min(byteCount(number), longestEnumerated));
}

[[gnu::always_inline]] inline char* putBooleanContent(char* to, bool value)
{
    *to = value ? '\1' : '\0';
    return to + 1;
}

char* putRealContent(char* to, double value)
{
    if (std::isnan(value)) {
        *to = charOf(realNaN);
    } else if (std::isinf(value)) {
        *to = charOf(value > 0 ? realPlusInfinity : realMinusInfinity);
    } else if (value != 0) {
        *to = charOf(realText);
        if (char* const behind = putScientific(to + 1, value))
            return behind;
        const auto [behind, failure] =
            std::to_chars(to + 1, to + longestReal, value, std::chars_format::scientific, decimals);
        if (failure != std::errc())
            assertion("String representation of double larger than buffer");
        return behind;
    } else {
        return to;
    }
    return to + 1;
}

// A number that is longer is an assertion.
std::string_view putBigNumContent(char (&to)[longestBigNum], const BigNum& value)
{
    std::size_t size = std::min(longestBigNum, 4 * value.limbCount());  // whose rest it would clear
    value.bn_get_data(to, &size);
    return {to, size};
}

}  // namespace

char* putText(BerOutput& output, char* to, BerTag tag, const std::string& text,
              std::size_t maxLength)
{
    if (text.size() > maxLength) {
        output.end(to);
        refuseTextLength(text.size(), maxLength);
    }
    return putContent(output, to, tag, text);
}

template <class T>
char* putInteger(BerOutput& output, char* to, BerTag tag, T value, T minimum, T maximum)
{
    if (value < minimum || value > maximum) {
        output.end(to);
        refuseNumber(value, minimum, maximum, "write");
    }
    return putShort(output, to, tag, [&](char* at) { return putIntegerContent(at, value); });
}

char* putEnumerated(BerOutput& output, char* to, BerTag tag, std::int32_t value)
{
    return putShort(output, to, tag, [&](char* at) { return putEnumeratedContent(at, value); });
}

char* putBoolean(BerOutput& output, char* to, BerTag tag, bool value)
{
    return putShort(output, to, tag, [&](char* at) { return putBooleanContent(at, value); });
}

char* putReal(BerOutput& output, char* to, BerTag tag, double value)
{
    return putShort(output, to, tag, [&](char* at) { return putRealContent(at, value); });
}

char* putBigNum(BerOutput& output, char* to, BerTag tag, const BigNum& value)
{
    char bytes[longestBigNum];
    return putContent(output, to, tag, putBigNumContent(bytes, value));
}

char* putNull(BerOutput& output, char* to, BerTag tag)
{
    return putShort(output, to, tag, [](char* at) { return at; });
}

template <class T>
std::string integerContent(T value)
{
    char content[longestReal];
    return {content, putIntegerContent(content, value)};
}

std::string enumeratedContent(std::int32_t value)
{
    char content[longestReal];
    return {content, putEnumeratedContent(content, value)};
}

std::string booleanContent(bool value)
{
    char content[longestReal];
    return {content, putBooleanContent(content, value)};
}

std::string realContent(double value)
{
    char content[longestReal];
    return {content, putRealContent(content, value)};
}

std::string bigNumContent(const BigNum& value)
{
    char bytes[longestBigNum];
    return std::string(putBigNumContent(bytes, value));
}

// The most significant byte first, its top bit the sign of a signed number.
template <class T>
T integerOf(std::string_view content)
{
    std::uint64_t number = 0;
    if (std::is_signed_v<T> && !content.empty() && (firstByte(content) & 0x80U) != 0)
        number = ~std::uint64_t{0};
    for (const char c : content)
        number = number << 8U | static_cast<unsigned char>(c);
    return static_cast<T>(number);
}

double realOf(const std::string& content)
{
    if (content.empty())
        return 0;
    switch (firstByte(content)) {
    case realText:
        try {
            return stringToDouble(content.substr(1));
        } catch (const error::EParseError&) {
            throw EBer("Parse error in real number");
        }
    case realPlusInfinity:
        return std::numeric_limits<double>::infinity();
    case realMinusInfinity:
        return -std::numeric_limits<double>::infinity();
    case realNaN:
        return 0;
    default:
        throw EBer("Unsupported real number format revceived");
    }
}

template <class T>
bool readInteger(std::string_view content, T* value)
{
    if (content.size() > longestInteger<T> || (content.size() > sizeof(T) && content[0] != '\0'))
        return false;
    *value = integerOf<T>(content);
    return true;
}

void refuseTextLength(std::size_t length, std::size_t maximum)
{
    throw EBer("String exceeds allowed length " + sizeToString(length) + " > " +
               sizeToString(maximum));
}

template <class T>
void refuseNumber(T number, T minimum, T maximum, const char* operation)
{
    throw EBer("data out of range in BerIntegerTemplate<" + typeName<T>() + ">::" + operation +
               " " + numberText(minimum) + " <= " + numberText(number) +
               " <= " + numberText(maximum));
}

template char* putInteger(BerOutput&, char*, BerTag, std::int32_t, std::int32_t, std::int32_t);
template char* putInteger(BerOutput&, char*, BerTag, std::uint32_t, std::uint32_t, std::uint32_t);
template char* putInteger(BerOutput&, char*, BerTag, std::int64_t, std::int64_t, std::int64_t);
template char* putInteger(BerOutput&, char*, BerTag, std::uint64_t, std::uint64_t, std::uint64_t);
template std::string integerContent(std::int32_t);
template std::string integerContent(std::uint32_t);
template std::string integerContent(std::int64_t);
template std::string integerContent(std::uint64_t);
template bool readInteger(std::string_view, std::int32_t*);
template bool readInteger(std::string_view, std::uint32_t*);
template bool readInteger(std::string_view, std::int64_t*);
template bool readInteger(std::string_view, std::uint64_t*);
template std::int32_t integerOf(std::string_view);
template std::uint32_t integerOf(std::string_view);
template std::int64_t integerOf(std::string_view);
template std::uint64_t integerOf(std::string_view);
template void refuseNumber(std::int32_t, std::int32_t, std::int32_t, const char*);
template void refuseNumber(std::uint32_t, std::uint32_t, std::uint32_t, const char*);
template void refuseNumber(std::int64_t, std::int64_t, std::int64_t, const char*);
template void refuseNumber(std::uint64_t, std::uint64_t, std::uint64_t, const char*);

}  // namespace protocol
