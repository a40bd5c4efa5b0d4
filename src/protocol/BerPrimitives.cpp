#include "protocol/BerPrimitives.h"

#include "common/assertion.h"
#include "common/text.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <concepts>
#include <cstdlib>
#include <cxxabi.h>
#include <system_error>
#include <typeinfo>
#include <utility>

namespace protocol {

namespace {

constexpr std::size_t longestBigNum = 1040;  // bytes
constexpr std::size_t longestReal = 60;      // bytes
constexpr std::size_t longestEnumerated = sizeof(std::int32_t);

// Of a signed number all its bytes, of an unsigned one a byte 0 in front of them.
template <class T>
constexpr std::size_t longestInteger = sizeof(T) + (std::is_unsigned_v<T> ? 1 : 0);

// The first byte of a real number's content.
constexpr unsigned char realText = 0x00;
constexpr unsigned char realPlusInfinity = 0x40;
constexpr unsigned char realMinusInfinity = 0x41;
constexpr unsigned char realNaN = 0x60;

// The content of a short value, built on the stack.
template <std::size_t Size>
class Content {
public:
    std::string_view view() const { return {bytes, used}; }
    void add(std::uint64_t byte)
    {
        bytes[used++] = static_cast<char>(static_cast<unsigned char>(byte));
    }
    // The low bytes of a number, most significant first.
    void addBytes(std::uint64_t number, std::size_t count)
    {
        for (; count > 0; --count)
            add(number >> (8 * (count - 1)));
    }

    char bytes[Size];
    std::size_t used = 0;
};

unsigned char firstByte(std::string_view content)
{
    return static_cast<unsigned char>(content[0]);
}

// The most significant byte first, its top bit the sign of a signed number.
template <std::integral T>
T decodeInteger(std::string_view content)
{
    std::uint64_t number = 0;
    if (std::is_signed_v<T> && !content.empty() && (firstByte(content) & 0x80U) != 0)
        number = ~std::uint64_t{0};
    for (const char c : content)
        number = number << 8U | static_cast<unsigned char>(c);
    return static_cast<T>(number);
}

// Zero has no byte. A number with the top bit of its first byte set reads negative, so all that
// have more than 31 bits do.
Content<longestEnumerated> encodeEnumerated(std::int32_t value)
{
    const auto number = static_cast<std::uint32_t>(value);
    Content<longestEnumerated> content;
    if (number > 0x7FFFFF)
        content.addBytes(number, 4);
    else if (number > 0x7FFF)
        content.addBytes(number, 3);
    else if (number > 0x7F)
        content.addBytes(number, 2);
    else if (number != 0)
        content.addBytes(number, 1);
    return content;
}

Content<longestBigNum> encodeBigNum(const BigNum& value)
{
    Content<longestBigNum> content;
    std::size_t size = std::min(longestBigNum, 4 * value.limbCount());  // whose rest it would clear
    value.bn_get_data(content.bytes, &size);
    content.used = size;
    return content;
}

Content<longestReal> encodeReal(double value)
{
    Content<longestReal> content;
    if (std::isnan(value)) {
        content.add(realNaN);
    } else if (std::isinf(value)) {
        content.add(value > 0 ? realPlusInfinity : realMinusInfinity);
    } else if (value != 0) {
        content.add(realText);
        // As "%e" does it, in the "C" locale.
        const auto [end, failure] =
            std::to_chars(content.bytes + content.used, content.bytes + longestReal, value,
                          std::chars_format::scientific, 6);
        if (failure != std::errc())
            assertion("String representation of double larger than buffer");
        content.used = static_cast<std::size_t>(end - content.bytes);
    }
    return content;
}

double decodeReal(const std::string& content)
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

template <std::integral T>
std::string numberText(T value)
{
    if constexpr (std::is_signed_v<T>)
        return int64ToString(value);
    else
        return uint64ToString(value);
}

// The fewest bytes whose top bit tells the sign.
template <std::integral T>
char* putInteger(char* to, T value)
{
    const auto number = static_cast<std::uint64_t>(value);  // with the sign in all bits above
    const std::uint64_t digits = std::is_signed_v<T> && value < 0 ? ~number : number;
    if (digits < 0x80) {
        *to = static_cast<char>(number);
        return to + 1;
    }
    auto count = static_cast<std::size_t>(std::bit_width(digits)) / 8 + 1;
    if (count > sizeof number) {
        *to++ = 0;
        --count;
    }
    for (; count > 0; --count)
        *to++ = static_cast<char>(static_cast<unsigned char>(number >> (8 * (count - 1))));
    return to;
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
[[noreturn]] void refuseNumber(T number, T minimum, T maximum, const char* operation)
{
    throw EBer("data out of range in BerIntegerTemplate<" + typeName<T>() + ">::" + operation +
               " " + numberText(minimum) + " <= " + numberText(number) +
               " <= " + numberText(maximum));
}

template <class T>
void requireBounds(T number, T minimum, T maximum, const char* operation)
{
    if (number < minimum || number > maximum)
        refuseNumber(number, minimum, maximum, operation);
}

std::string beyondMaximum(const char* what, std::size_t length, std::size_t maximum)
{
    return what + sizeToString(length) + " > " + sizeToString(maximum);
}

void writePrimitive(BerOutput& output, BerTag tag, std::string_view content)
{
    char* const begin = output.begin();
    char* to = putLength(putTag(begin, tag), content.size());
    if (content.size() > BerOutput::shortMost - mostHeadBytes) {
        output.finish(begin, to);
        output.put(content.data(), content.size());
        return;
    }
    to = std::copy(content.begin(), content.end(), to);
    output.finish(begin, to);
}

[[noreturn]] void refuseTextLength(std::size_t length, std::size_t maximum)
{
    throw EBer(beyondMaximum("String exceeds allowed length ", length, maximum));
}

void requireTextLength(std::size_t length, std::size_t maximum)
{
    if (length > maximum)
        refuseTextLength(length, maximum);
}

}  // namespace

BerString::BerString(std::string* text, std::size_t maximum, BerTag tag)
    : value(text), maxLength(maximum), ownTag(tag)
{}

BerString::BerString(std::string initial, std::size_t maximum, BerTag tag)
    : owned(std::make_unique<std::string>(std::move(initial))),
      value(owned.get()),
      maxLength(maximum),
      ownTag(tag)
{}

BerString::BerString(const BerString& other)
    : BerPrimitive(other),
      owned(other.value != nullptr ? std::make_unique<std::string>(*other.value) : nullptr),
      value(owned.get()),
      maxLength(other.maxLength),
      ownTag(other.ownTag)
{}

std::unique_ptr<BerValue> BerString::clone() const
{
    return std::make_unique<BerString>(*this);
}

bool BerString::operator==(const BerValue& other) const
{
    const auto* const that = dynamic_cast<const BerString*>(&other);
    return that != nullptr && (value == that->value || (bothSet(*that) && *value == *that->value));
}

bool BerString::operator<(const BerValue& other) const
{
    const auto* const that = dynamic_cast<const BerString*>(&other);
    return that != nullptr && bothSet(*that) && *value < *that->value;
}

bool BerString::operator>(const BerValue& other) const
{
    const auto* const that = dynamic_cast<const BerString*>(&other);
    return that != nullptr && bothSet(*that) && *value > *that->value;
}

bool BerString::bothSet(const BerString& other) const
{
    return value != nullptr && other.value != nullptr;
}

void writeText(BerOutput& output, BerTag tag, const std::string& text, std::size_t maxLength)
{
    const std::size_t length = text.size();
    requireTextLength(length, maxLength);
    char* const begin = output.begin();
    if (length > BerOutput::shortMost - mostHeadBytes) {
        writePrimitive(output, tag, text);
        return;
    }
    char* const content = putTag(begin, tag) + 1;
    content[-1] = static_cast<char>(length);
    output.finish(begin, std::copy_n(text.data(), length, content));
}

void BerString::write(BerOutput& output, bool legacy) const
{
    writeText(output, tag(legacy), *value, maxLength);
}

void BerString::prepare(std::size_t length)
{
    requireTextLength(length, maxLength);
    value->reserve(value->size() + length);
}

void BerString::append(const char* bytes, std::size_t count)
{
    value->append(bytes, count);
}

bool BerShortValue::operator==(const BerValue& other) const
{
    return typeid(*this) == typeid(other) &&
           buffer == static_cast<const BerShortValue&>(other).buffer;
}

bool BerShortValue::operator<(const BerValue& other) const
{
    return typeid(*this) == typeid(other) &&
           length() < static_cast<const BerShortValue&>(other).length();
}

bool BerShortValue::operator>(const BerValue& other) const
{
    return typeid(*this) == typeid(other) &&
           length() > static_cast<const BerShortValue&>(other).length();
}

void BerShortValue::requireLength(std::size_t length) const
{
    if (length > maxLength)
        throw EBer(beyondMaximum("Data value exceeds maximum allowed length ", length, maxLength));
}

void BerShortValue::prepare(std::size_t length)
{
    requireLength(length);
    buffer.clear();  // of a wrapper that was made with a value: that one is gone now
    buffer.reserve(length);
}

void BerShortValue::append(const char* bytes, std::size_t count)
{
    buffer.append(bytes, count);
}

void BerShortValue::writeContent(BerOutput& output, std::string_view content) const
{
    writePrimitive(output, ownTag, content);
}

BerBoolean::BerBoolean(bool* field, BerTag tag) : BerShortField(field, 1, tag)
{}

BerBoolean::BerBoolean(bool initial, BerTag tag) : BerShortField(initial, 1, tag)
{
    buffer.assign(1, initial ? '\1' : '\0');
}

std::unique_ptr<BerValue> BerBoolean::clone() const
{
    return std::make_unique<BerBoolean>(*this);
}

void BerBoolean::readDone()
{
    *value = !buffer.empty() && buffer[0] != '\0';
}

void BerBoolean::write(BerOutput& output, bool /*legacy*/) const
{
    writeContent(output, *value ? std::string_view("\1", 1) : std::string_view("\0", 1));
}

template <class T>
BerIntegerTemplate<T>::BerIntegerTemplate(T* field, T least, T greatest, BerTag tag)
    : BerShortField<T>(field, longestInteger<T>, tag), minimum(least), maximum(greatest)
{}

template <class T>
BerIntegerTemplate<T>::BerIntegerTemplate(T initial, T least, T greatest, BerTag tag)
    : BerShortField<T>(initial, longestInteger<T>, tag), minimum(least), maximum(greatest)
{
    char content[longestInteger<T>];
    this->buffer.assign(content, putInteger(content, initial));
}

template <class T>
std::unique_ptr<BerValue> BerIntegerTemplate<T>::clone() const
{
    return std::make_unique<BerIntegerTemplate>(*this);
}

template <class T>
void BerIntegerTemplate<T>::readDone()
{
    const std::string& content = this->buffer;
    if (std::is_unsigned_v<T> && content.size() == longestInteger<T> && content[0] != '\0')
        throw EBer("data out of range in BerIntegerTemplate");
    *this->value = decodeInteger<T>(content);
    requireBounds(*this->value, minimum, maximum, "readDone");
}

template <class T>
bool readInteger(std::string_view content, T* value)
{
    if (content.size() > longestInteger<T> || (content.size() > sizeof(T) && content[0] != '\0'))
        return false;
    *value = decodeInteger<T>(content);
    return true;
}
template bool readInteger(std::string_view, std::int32_t*);
template bool readInteger(std::string_view, std::uint32_t*);
template bool readInteger(std::string_view, std::int64_t*);
template bool readInteger(std::string_view, std::uint64_t*);

template <class T>
void writeInteger(BerOutput& output, BerTag tag, T value, T minimum, T maximum)
{
    requireBounds(value, minimum, maximum, "write");
    char* const begin = output.begin();
    char* const length = putTag(begin, tag);
    char* const content = length + 1;
    char* const behind = putInteger(content, value);
    *length = static_cast<char>(behind - content);
    output.finish(begin, behind);
}

template <class T>
void BerIntegerTemplate<T>::write(BerOutput& output, bool legacy) const
{
    writeInteger(output, this->tag(legacy), *this->value, minimum, maximum);
}

template void writeInteger(BerOutput&, BerTag, std::int32_t, std::int32_t, std::int32_t);
template void writeInteger(BerOutput&, BerTag, std::uint32_t, std::uint32_t, std::uint32_t);
template void writeInteger(BerOutput&, BerTag, std::int64_t, std::int64_t, std::int64_t);
template void writeInteger(BerOutput&, BerTag, std::uint64_t, std::uint64_t, std::uint64_t);
template class BerIntegerTemplate<std::int32_t>;
template class BerIntegerTemplate<std::uint32_t>;
template class BerIntegerTemplate<std::int64_t>;
template class BerIntegerTemplate<std::uint64_t>;

BerEnumerated::BerEnumerated(std::int32_t* field)
    : BerShortField(field, longestEnumerated, BE_ENUMERATED)
{}

BerEnumerated::BerEnumerated(std::int32_t initial)
    : BerShortField(initial, longestEnumerated, BE_ENUMERATED)
{
    buffer = encodeEnumerated(initial).view();
}

void BerEnumerated::readDone()
{
    *value = decodeInteger<std::int32_t>(buffer);
}

void BerEnumerated::write(BerOutput& output, bool /*legacy*/) const
{
    writeContent(output, encodeEnumerated(*value).view());
}

BerBigNum::BerBigNum(BigNum* field, BerTag tag) : BerShortField(field, longestBigNum, tag)
{}

BerBigNum::BerBigNum(const BigNum& initial, BerTag tag) : BerShortField(initial, longestBigNum, tag)
{
    buffer = encodeBigNum(initial).view();
}

std::unique_ptr<BerValue> BerBigNum::clone() const
{
    return std::make_unique<BerBigNum>(*this);
}

void BerBigNum::readDone()
{
    value->bn_set_data(buffer.data(), buffer.size());
}

void BerBigNum::write(BerOutput& output, bool /*legacy*/) const
{
    writeContent(output, encodeBigNum(*value).view());
}

BerReal::BerReal(double* field, BerTag tag) : BerShortField(field, longestReal, tag)
{}

BerReal::BerReal(double initial, BerTag tag) : BerShortField(initial, longestReal, tag)
{
    buffer = encodeReal(initial).view();
}

std::unique_ptr<BerValue> BerReal::clone() const
{
    return std::make_unique<BerReal>(*this);
}

void BerReal::readDone()
{
    *value = decodeReal(buffer);
}

void BerReal::write(BerOutput& output, bool /*legacy*/) const
{
    writeContent(output, encodeReal(*value).view());
}

std::unique_ptr<BerValue> BerNull::clone() const
{
    return std::make_unique<BerNull>(*this);
}

void BerNull::write(BerOutput& output, bool /*legacy*/) const
{
    writeContent(output, "");
}

}  // namespace protocol
