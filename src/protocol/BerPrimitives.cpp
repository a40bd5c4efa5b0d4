#include "protocol/BerPrimitives.h"

#include "common/text.h"
#include "protocol/BerEncoding.h"

#include <typeinfo>
#include <utility>

namespace protocol {

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

void BerString::write(BerOutput& output, bool legacy) const
{
    output.end(putText(output, output.begin(), tag(legacy), *value, maxLength));
}

void BerString::prepare(std::size_t length)
{
    if (length > maxLength)
        refuseTextLength(length, maxLength);
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
        throw EBer("Data value exceeds maximum allowed length " + sizeToString(length) + " > " +
                   sizeToString(maxLength));
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

BerBoolean::BerBoolean(bool* field, BerTag tag) : BerShortField(field, 1, tag)
{}

BerBoolean::BerBoolean(bool initial, BerTag tag) : BerShortField(initial, 1, tag)
{
    buffer = booleanContent(initial);
}

std::unique_ptr<BerValue> BerBoolean::clone() const
{
    return std::make_unique<BerBoolean>(*this);
}

void BerBoolean::readDone()
{
    *value = !buffer.empty() && buffer[0] != '\0';
}

void BerBoolean::write(BerOutput& output, bool legacy) const
{
    output.end(putBoolean(output, output.begin(), tag(legacy), *value));
}

template <class T>
BerIntegerTemplate<T>::BerIntegerTemplate(T* field, T least, T greatest, BerTag tag)
    : BerShortField<T>(field, longestInteger<T>, tag), minimum(least), maximum(greatest)
{}

template <class T>
BerIntegerTemplate<T>::BerIntegerTemplate(T initial, T least, T greatest, BerTag tag)
    : BerShortField<T>(initial, longestInteger<T>, tag), minimum(least), maximum(greatest)
{
    this->buffer = integerContent(initial);
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
    *this->value = integerOf<T>(content);
    if (*this->value < minimum || *this->value > maximum)
        refuseNumber(*this->value, minimum, maximum, "readDone");
}

template <class T>
void BerIntegerTemplate<T>::write(BerOutput& output, bool legacy) const
{
    output.end(
        putInteger(output, output.begin(), this->tag(legacy), *this->value, minimum, maximum));
}

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
    buffer = enumeratedContent(initial);
}

void BerEnumerated::readDone()
{
    *value = integerOf<std::int32_t>(buffer);
}

void BerEnumerated::write(BerOutput& output, bool legacy) const
{
    output.end(putEnumerated(output, output.begin(), tag(legacy), *value));
}

BerBigNum::BerBigNum(BigNum* field, BerTag tag) : BerShortField(field, longestBigNum, tag)
{}

BerBigNum::BerBigNum(const BigNum& initial, BerTag tag) : BerShortField(initial, longestBigNum, tag)
{
    buffer = bigNumContent(initial);
}

std::unique_ptr<BerValue> BerBigNum::clone() const
{
    return std::make_unique<BerBigNum>(*this);
}

void BerBigNum::readDone()
{
    value->bn_set_data(buffer.data(), buffer.size());
}

void BerBigNum::write(BerOutput& output, bool legacy) const
{
    output.end(putBigNum(output, output.begin(), tag(legacy), *value));
}

BerReal::BerReal(double* field, BerTag tag) : BerShortField(field, longestReal, tag)
{}

BerReal::BerReal(double initial, BerTag tag) : BerShortField(initial, longestReal, tag)
{
    buffer = realContent(initial);
}

std::unique_ptr<BerValue> BerReal::clone() const
{
    return std::make_unique<BerReal>(*this);
}

void BerReal::readDone()
{
    *value = realOf(buffer);
}

void BerReal::write(BerOutput& output, bool legacy) const
{
    output.end(putReal(output, output.begin(), tag(legacy), *value));
}

std::unique_ptr<BerValue> BerNull::clone() const
{
    return std::make_unique<BerNull>(*this);
}

void BerNull::write(BerOutput& output, bool legacy) const
{
    output.end(putNull(output, output.begin(), tag(legacy)));
}

}  // namespace protocol
