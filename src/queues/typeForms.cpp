#include "queues/typeForms.h"

#include "common/shown.h"

#include <memory>
#include <string>
#include <utility>

namespace protocol {

namespace {

constexpr std::uint32_t noProperty = 0;
constexpr std::uint32_t noInterval = 0;
constexpr std::size_t minimumBigNumBytes = 4;

}  // namespace

ioprim& operator<<(ioprim& stream, const tql::version_t& value)
{
    return stream << value.first << value.second;
}

ioprim& operator>>(ioprim& stream, tql::version_t& value)
{
    return stream >> value.first >> value.second;
}

ioprim& operator<<(ioprim& stream, const BigNum& value)
{
    std::string bytes;
    value.toBytes(&bytes, minimumBigNumBytes);
    return stream << bytes;
}

ioprim& operator>>(ioprim& stream, BigNum& value)
{
    std::string bytes;
    stream >> bytes;
    value.fromBytes(bytes);
    return stream;
}

void writeProperty(ioprim& stream, const tql::property_t* property)
{
    if (property == nullptr) {
        stream << noProperty;
        return;
    }
    stream << property->type();
    queues::FieldWriter writer(stream);
    tql::property_t::header(*property, writer);
    tql::withPropertyClass(
        property->type(), [&]<class C>() { C::content(static_cast<const C&>(*property), writer); });
}

std::unique_ptr<tql::property_t> readProperty(ioprim& stream)
{
    std::uint32_t tag = noProperty;
    stream >> tag;
    std::unique_ptr<tql::property_t> result;
    tql::withPropertyClass(tag, [&]<class C>() {
        auto property = std::make_unique<C>();
        queues::FieldReader reader(stream);
        tql::property_t::header(*property, reader);
        C::content(*property, reader);
        result = std::move(property);
    });
    return result;
}

ioprim& operator<<(ioprim& stream, const Held<tql::property_t>& value)
{
    writeProperty(stream, value.get());
    return stream;
}

ioprim& operator>>(ioprim& stream, Held<tql::property_t>& value)
{
    value.reset(readProperty(stream));
    return stream;
}

ioprim& operator<<(ioprim& stream, const Held<tsdb::data_interval_t>& value)
{
    if (!value)
        return stream << noInterval;
    stream << value->kind();
    tsdb::withIntervalClass(value->kind(), [&]<class C>() {
        const typename C::fields_t& fields = static_cast<const C&>(*value);
        stream << fields;
    });
    return stream;
}

ioprim& operator>>(ioprim& stream, Held<tsdb::data_interval_t>& value)
{
    std::uint32_t kind = noInterval;
    stream >> kind;
    value.reset();
    tsdb::withIntervalClass(kind, [&]<class C>() {
        typename C::fields_t fields;
        stream >> fields;
        value.reset(std::make_unique<C>(std::move(fields)));
    });
    return stream;
}

}  // namespace protocol

namespace queues {

void printForm(Place at, const tql::id_t& value)
{
    at.pad();
    at.stream << "val: ";
    printForm(at.deeper(), value.val);
}

void printForm(Place at, const tql::version_t& value)
{
    at.stream << value.toString() << '\n';
}

void printForm(Place at, const BigNum& value)
{
    // Decimal digits cost the square of the length, and the length is the sender's word.
    constexpr std::size_t longestDecimal = 4096;  // bytes

    std::string bytes;
    value.toBytes(&bytes, 0);
    if (bytes.size() <= longestDecimal)
        at.stream << value.toString() << '\n';
    else
        at.stream << "(" << sizeToString(bytes.size()) << " bytes)\n";
}

void printForm(Place at, const tql::property_t& property)
{
    FieldPrinter printer(at);
    tql::property_t::header(property, printer);
}

void printForm(Place at, const Held<tql::property_t>& property)
{
    if (property) {
        printForm(at, *property);
    } else {
        at.pad();
        at.stream << "(null)\n";
    }
}

void printForm(Place at, const Held<tsdb::data_interval_t>& interval)
{
    at.stream << (interval ? printable(interval->toString()) : "(null)") << '\n';
}

}  // namespace queues
