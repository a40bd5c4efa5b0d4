#include "common/text.h"

#include "common/errors.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

template <class... Arguments>
std::string formatted(const char* pattern, Arguments... arguments)
{
    char buffer[128];
    std::snprintf(buffer, sizeof buffer, pattern, arguments...);
    return buffer;
}

std::string widened(std::string digits, std::size_t width)
{
    if (digits.size() < width)
        digits.insert(0, width - digits.size(), '0');
    return digits;
}

// Where a parser stopped, against the whole text: a zero byte inside it is no end.
bool isEnd(const char* stop, const std::string& text)
{
    return stop == text.c_str() + text.size();
}

template <class Pieces, class IsSeparator>
Pieces splitBy(std::string_view text, IsSeparator isSeparator, bool keepEmpty)
{
    Pieces pieces;
    std::size_t start = 0;
    for (std::size_t at = 0; at <= text.size(); ++at) {
        if (at < text.size() && !isSeparator(text[at]))
            continue;
        if (at > start || keepEmpty)
            pieces.emplace_back(text.substr(start, at - start));
        start = at + 1;
    }
    return pieces;
}

}  // namespace

std::string uintToString(std::uint32_t value, bool pad)
{
    return pad ? formatted("%02u", value) : std::to_string(value);
}

std::string intToString(std::int32_t value, bool pad)
{
    return pad ? formatted("%02i", value) : std::to_string(value);
}

std::string uint64ToString(std::uint64_t value)
{
    return std::to_string(value);
}

std::string int64ToString(std::int64_t value)
{
    return std::to_string(value);
}

std::string sizeToString(std::size_t value)
{
    return std::to_string(value);
}

std::string hexToString(std::uint32_t value, std::size_t width)
{
    return hex64ToString(value, width);
}

std::string hex64ToString(std::uint64_t value, std::size_t width)
{
    return widened(formatted("%llx", static_cast<unsigned long long>(value)), width);
}

std::string doubleToString(double value, int width, int precision)
{
    if (std::isnan(value))
        return "nan";
    if (std::isinf(value))
        return value > 0 ? "inf" : "-inf";
    std::string pattern = "%";
    if (width >= 0)
        pattern += intToString(width);
    if (precision >= 0)
        pattern += "." + intToString(precision);
    pattern += "f";
    return formatted(pattern.c_str(), value);
}

std::int32_t stringToLong(const std::string& text)
{
    using Limits = std::numeric_limits<std::int32_t>;
    char* stop = nullptr;
    const long long value = std::strtoll(text.c_str(), &stop, 10);
    if (!isEnd(stop, text))
        throw error::EParseError("Error parsing: " + quoteString(text));
    return static_cast<std::int32_t>(std::clamp<long long>(value, Limits::min(), Limits::max()));
}

std::uint32_t stringToULong(const std::string& text)
{
    constexpr std::uint32_t most = std::numeric_limits<std::uint32_t>::max();
    char* stop = nullptr;
    const unsigned long long value = std::strtoull(text.c_str(), &stop, 10);
    if (!isEnd(stop, text))
        throw error::EParseError("Error parsing: " + quoteString(text));
    // A minus sign negates in unsigned arithmetic, of 64 bits here and of 32 in the result: the
    // bound is one of the digits behind the sign. Digits beyond 64 bits saturate whatever the
    // sign, and end as the same value on both roads.
    const bool negative = text.find('-') != std::string::npos;
    const unsigned long long digits = negative ? 0 - value : value;
    if (digits > most)
        return most;
    return static_cast<std::uint32_t>(value);
}

double stringToDouble(const std::string& text)
{
    char* stop = nullptr;
    const double value = std::strtod(text.c_str(), &stop);
    if (isEnd(stop, text))
        return value;
    if (text == "nan")
        return std::numeric_limits<double>::quiet_NaN();
    if (text == "inf")
        return std::numeric_limits<double>::infinity();
    if (text == "-inf")
        return -std::numeric_limits<double>::infinity();
    throw error::EParseError("Error parsing: \"" + text + "\"");
}

std::string toLower(std::string_view text)
{
    std::string lower(text);
    for (char& character : lower)
        character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    return lower;
}

std::string quoteString(std::string_view text)
{
    constexpr std::string_view special = "\a\b\t\n\v\f\r\"'\\";
    constexpr std::string_view letters = "abtnvfr\"'\\";

    std::string quoted = "\"";
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        const std::size_t at = special.find(character);
        if (at != std::string_view::npos) {
            quoted += '\\';
            quoted += letters[at];
        } else if (byte < 32) {
            quoted += formatted("\\%03o", static_cast<unsigned>(byte));
        } else {
            quoted += character;
        }
    }
    return quoted + '"';
}

std::list<std::string> split(std::string_view text, char separator, bool keepEmpty)
{
    return splitBy<std::list<std::string>>(
        text, [separator](char character) { return character == separator; }, keepEmpty);
}

std::list<std::string> split(std::string_view text, std::string_view separators, bool keepEmpty)
{
    return splitBy<std::list<std::string>>(
        text,
        [separators](char character) {
            return separators.find(character) != std::string_view::npos;
        },
        keepEmpty);
}

std::vector<std::string> splitToVector(std::string_view text, char separator, bool keepEmpty)
{
    return splitBy<std::vector<std::string>>(
        text, [separator](char character) { return character == separator; }, keepEmpty);
}

std::string dottedAddress(std::uint32_t address)
{
    std::array<unsigned char, 4> bytes;
    std::memcpy(bytes.data(), &address, sizeof address);
    return formatted("%u.%u.%u.%u", bytes[0], bytes[1], bytes[2], bytes[3]);
}
