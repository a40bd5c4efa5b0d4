#include "dump/Value.h"

#include "common/BigNum.h"
#include "common/Time.h"
#include "common/text.h"
#include "queues/event_t.h"
#include "types/id.h"
#include "types/vocabulary.h"

#include <nlohmann/json.hpp>

#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstring>

namespace dump {

namespace {

using Form = queues::WireType::Form;

// Decimal digits cost the square of the length.
constexpr std::size_t longestDecimal = 4096;  // bytes

template <class Number>
Number numberIn(std::string_view bytes, std::size_t index = 0)
{
    Number number{};
    std::memcpy(&number, bytes.data() + index * sizeof number, sizeof number);
    return number;
}

std::string inQuotes(const std::string& plain)
{
    return "\"" + plain + "\"";
}

// The shortest digits that give the same value again.
template <class Real>
std::string realText(Real value)
{
    if (std::isnan(value))
        return inQuotes("nan");
    if (std::isinf(value))
        return inQuotes(value < 0 ? "-inf" : "inf");
    std::array<char, 32> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
    return {digits.data(), end};
}

std::string timeText(std::string_view bytes)
{
    const Time time(numberIn<std::int32_t>(bytes), numberIn<std::int32_t>(bytes, 1));
    if (time.usec >= 0 && time.usec <= 999'999)
        return time.toString();
    return R"({"sec":)" + intToString(time.sec) + R"(,"usec":)" + intToString(time.usec) + "}";
}

std::string identifierText(std::string_view bytes)
{
    std::string text;
    for (std::size_t i = 0; i < bytes.size() / sizeof(std::uint32_t); ++i)
        text += (i == 0 ? "" : ".") + uintToString(numberIn<std::uint32_t>(bytes, i));
    return inQuotes(text);
}

std::string bytesText(std::string_view bytes)
{
    return R"({"hex":")" + hexBytes(bytes) + "\"}";
}

std::string bigNumberText(std::string_view bytes)
{
    if (bytes.size() > longestDecimal)
        return bytesText(bytes);
    BigNum number;
    number.fromBytes(bytes);
    return inQuotes(number.toString());
}

}  // namespace

std::string jsonValue(const queues::WireType& type, std::string_view bytes)
{
    switch (type.form) {
    case Form::int32:
        return intToString(numberIn<std::int32_t>(bytes));
    case Form::uint32:
        return uintToString(numberIn<std::uint32_t>(bytes));
    case Form::int64:
        return int64ToString(numberIn<std::int64_t>(bytes));
    case Form::uint64:
        return uint64ToString(numberIn<std::uint64_t>(bytes));
    case Form::real:
        return realText(numberIn<double>(bytes));
    case Form::single:
        return realText(numberIn<float>(bytes));
    case Form::boolean:
        return numberIn<std::uint32_t>(bytes) != 0 ? "true" : "false";
    case Form::uint16:
        return uintToString(numberIn<std::uint16_t>(bytes));
    case Form::queue:
        return inQuotes(queueName(numberIn<queues::queue_t>(bytes)));
    case Form::address:
        return inQuotes(dottedAddress(numberIn<std::uint32_t>(bytes)));
    case Form::time:
    case Form::moment:
        return timeText(bytes);
    case Form::version:
        return inQuotes(
            tql::version_t{numberIn<std::uint64_t>(bytes), numberIn<std::uint64_t>(bytes, 1)}
                .toString());
    case Form::text:
        return jsonText(bytes);
    case Form::bigNumber:
        return bigNumberText(bytes);
    case Form::identifier:
        return identifierText(bytes);
    default:
        return bytesText(bytes);
    }
}

std::string jsonText(std::string_view text)
{
    try {
        return nlohmann::json(text).dump(-1, ' ', true);
    } catch (const nlohmann::json::type_error&) {  // it isn't UTF-8
        return bytesText(text);
    }
}

std::string hexBytes(std::string_view bytes, std::string_view separator)
{
    std::string text;
    text.reserve(bytes.size() * (2 + separator.size()));
    for (const char byte : bytes) {
        if (!text.empty())
            text += separator;
        text += hexToString(static_cast<unsigned char>(byte), 2);
    }
    return text;
}

std::string propertyNameOf(std::uint32_t number)
{
    const auto found = tql::propertyNames().find(number);
    return found == tql::propertyNames().end() ? "" : found->second;
}

std::string_view plainName(std::string_view name)
{
    const std::size_t colon = name.rfind(':');
    return colon == std::string_view::npos ? name : name.substr(colon + 1);
}

}  // namespace dump
