#include "protocol/Message.h"

#include "common/text.h"

#include <cstdlib>
#include <cxxabi.h>
#include <typeinfo>

namespace protocol {

namespace {

constexpr std::size_t longestVariantText = 65536;

void* addressOf(const Field& field, const Message& message)
{
    // The table serves readers too. Through it, a message that is const is only read.
    return field.member(const_cast<Message&>(message));
}

bool sameClass(const BerValue& a, const BerValue& b)
{
    return typeid(a) == typeid(b);
}

bool allLess(const Message& a, const Message& b)
{
    const Schema& schema = a.schema();
    for (std::size_t i = 0; i < schema.fieldCount; ++i) {
        const Field& field = schema.fields[i];
        if (!field.kind->less(addressOf(field, a), addressOf(field, b)))
            return false;
    }
    return true;
}

[[noreturn]] void refuseTag(BerTag tag, const std::string& expected)
{
    throw EBer("Tag mismatch, got " + uintToString(tag) + " expected " + expected);
}

[[noreturn]] void refuseUnionTag(BerTag tag, const char* owner, const char* field)
{
    throw EBer("Unexpected tag " + uintToString(tag) + " received in Union " + owner + ".this->" +
               field);
}

}  // namespace

void requireTag(BerTag tag, BerTag expected, const char* name)
{
    if (tag != expected)
        refuseTag(tag, name);
}

void requireNumberedTag(BerTag tag, BerTag expected, const char* name, bool legacy)
{
    if (tag != expected)
        refuseTag(tag, std::string(name) + (legacy ? "_LEGACY" : "_CURRENT"));
}

bool Message::operator==(const BerValue& other) const
{
    if (!sameClass(*this, other))
        return false;
    const auto& that = static_cast<const Message&>(other);
    for (std::size_t i = 0; i < schema().fieldCount; ++i) {
        const Field& field = schema().fields[i];
        if (!field.kind->equal(addressOf(field, *this), addressOf(field, that)))
            return false;
    }
    return true;
}

bool Message::operator<(const BerValue& other) const
{
    return sameClass(*this, other) && allLess(*this, static_cast<const Message&>(other));
}

bool Message::operator>(const BerValue& other) const
{
    return sameClass(*this, other) && allLess(static_cast<const Message&>(other), *this);
}

void refuseNullCopy(const std::type_info& element)
{
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(element.name(), nullptr, nullptr, &status), &std::free);
    assertion(std::string("checked_cast failed, (null) should have been ") +
              (status == 0 ? name.get() : element.name()));
}

BerChild TextKind::child(const Field& field, std::string& value, BerTag tag, bool legacy,
                         const char* /*owner*/)
{
    requireNumberedTag(tag, legacy ? BE_STRING_LEGACY : BE_STRING_CURRENT, "BE_STRING", legacy);
    return std::make_unique<BerString>(&value, field.maxLength, tag);
}

template <class T>
bool NumberKind<T>::read(const Field& field, T& value, BerTag tag, bool /*legacy*/,
                         std::string_view content)
{
    T number;
    if (tag != BE_INTEGER || !readInteger(content, &number))
        return false;
    if constexpr (std::is_same_v<T, std::int32_t>) {
        if (number < field.minimum || number > field.maximum)
            return false;
    }
    value = number;
    return true;
}

template <class T>
BerChild NumberKind<T>::child(const Field& field, T& value, BerTag tag, bool /*legacy*/,
                              const char* /*owner*/)
{
    requireTag(tag, BE_INTEGER, "BE_INTEGER");
    if constexpr (std::is_same_v<T, std::int32_t>)
        return std::make_unique<BerIntegerTemplate<T>>(&value, field.minimum, field.maximum);
    else
        return std::make_unique<BerIntegerTemplate<T>>(&value);
}

template <>
const char* NumberKind<std::int32_t>::description()
{
    return "int32";
}
template <>
const char* NumberKind<std::uint32_t>::description()
{
    return "uint32";
}
template <>
const char* NumberKind<std::int64_t>::description()
{
    return "int64";
}
template <>
const char* NumberKind<std::uint64_t>::description()
{
    return "uint64";
}

template struct NumberKind<std::int32_t>;
template struct NumberKind<std::uint32_t>;
template struct NumberKind<std::int64_t>;
template struct NumberKind<std::uint64_t>;

template <class T>
char* NullableKind<T>::put(const Field& field, const Nullable<T>& value, BerOutput& output,
                           char* to, bool legacy)
{
    if (value.present)
        return NumberKind<T>::put(field, value.number, output, to, legacy);
    return putNull(output, to, BE_NULL);
}

template <class T>
BerChild NullableKind<T>::child(const Field& field, Nullable<T>& value, BerTag tag, bool legacy,
                                const char* owner)
{
    if (tag == BE_NULL) {
        value.present = false;
        return std::make_unique<BerNull>();
    }
    BerChild number = NumberKind<T>::child(field, value.number, tag, legacy, owner);
    value.present = true;
    return number;
}

template <>
const char* NullableKind<std::int32_t>::description()
{
    return "nullable int32";
}
template <>
const char* NullableKind<std::uint32_t>::description()
{
    return "nullable uint32";
}

template struct NullableKind<std::int32_t>;
template struct NullableKind<std::uint32_t>;

template <>
BerChild BooleanKind::child(const Field& /*field*/, bool& value, BerTag tag, bool /*legacy*/,
                            const char* /*owner*/)
{
    requireTag(tag, BE_BOOLEAN, "BE_BOOLEAN");
    return std::make_unique<BerBoolean>(&value);
}
template <>
const char* BooleanKind::description()
{
    return "boolean";
}

template <>
BerChild RealKind::child(const Field& /*field*/, double& value, BerTag tag, bool /*legacy*/,
                         const char* /*owner*/)
{
    requireTag(tag, BE_REAL, "BE_REAL");
    return std::make_unique<BerReal>(&value);
}
template <>
const char* RealKind::description()
{
    return "real";
}

template <>
BerChild BigNumKind::child(const Field& /*field*/, BigNum& value, BerTag tag, bool /*legacy*/,
                           const char* /*owner*/)
{
    requireTag(tag, BE_INTEGER, "BE_INTEGER");
    return std::make_unique<BerBigNum>(&value);
}
template <>
const char* BigNumKind::description()
{
    return "bignum";
}

bool equalOwned(const BerValue* a, const BerValue* b)
{
    return a == nullptr || b == nullptr ? a == b : *a == *b;
}

bool lessOwned(const BerValue* a, const BerValue* b)
{
    return a != nullptr && b != nullptr && *a < *b;
}

void refuseNull(const char* name)
{
    assertion((name == nullptr ? std::string("(*it)") : std::string("this->") + name) +
              " is NULL during BER write");
}

BerChild UnionKind::child(const Field& field, Held<BerValue>& value, BerTag tag, bool legacy,
                          const char* owner)
{
    for (std::size_t i = 0; i < field.alternativeCount; ++i) {
        const Alternative& alternative = field.alternatives[i];
        const BerTag expected =
            legacy ? applicationTag(alternative.number) : contextTag(alternative.number);
        if (tag == expected) {
            value.reset(alternative.make());
            return lend(*value);
        }
    }
    refuseUnionTag(tag, owner, field.name);
}

BerChild VariantKind::child(const Field& field, Held<BerValue>& value, BerTag tag, bool legacy,
                            const char* owner)
{
    if (tag == BE_INTEGER)
        value.reset(std::make_unique<BerIntegerTemplate<std::int32_t>>(0));
    else if (tag == (legacy ? BE_STRING_LEGACY : BE_STRING_CURRENT))
        value.reset(std::make_unique<BerString>("", longestVariantText));
    else if (tag == BE_NULL)
        value.reset(std::make_unique<BerNull>());
    else if (tag == BE_REAL)
        value.reset(std::make_unique<BerReal>(0.0));
    else
        refuseUnionTag(tag, owner, field.name);
    return lend(*value);
}

}  // namespace protocol
