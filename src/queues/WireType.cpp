#include "queues/WireType.h"

#include "common/text.h"
#include "io/Memory.h"
#include "queues/event_t.h"
#include "queues/fields.h"
#include "queues/records/all.h"
#include "queues/typeForms.h"

#include <array>
#include <cstdlib>
#include <cxxabi.h>
#include <memory>
#include <type_traits>
#include <typeinfo>
#include <utility>

namespace queues {

namespace {

using Form = WireType::Form;

template <class T>
const WireType& wireTypeOf();

// The fields of a record, or of a part of one.
class FieldCollector {
public:
    explicit FieldCollector(std::vector<WireField>& collected) : fields(collected) {}
    template <class T>
    void operator()(const char* label, const T& /*value*/)
    {
        fields.push_back({label, wireTypeOf<T>});
    }

private:
    std::vector<WireField>& fields;
};

template <class T>
std::string nameOf()
{
    if constexpr (CheckedRecord<T>)
        return T::recordName();
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(typeid(T).name(), nullptr, nullptr, &status), &std::free);
    return status == 0 ? name.get() : typeid(T).name();
}

// Decodes the record as the codec does, but for the rule.
template <CheckedRecord T>
std::string faultOf(std::string_view bytes)
{
    io::MemoryIStream source;
    source.setBytes(bytes);
    protocol::ioprim link(&source, nullptr);
    T record;
    FieldReader reader(link);
    T::fields(record, reader);
    if (record.isValid())
        return "";
    return std::string("invalid ") + T::recordName() + " (" + record.description() + ")";
}

template <class C>
const WireType& propertyVariant()
{
    static const WireType type = [] {
        WireType variant{.form = Form::record, .name = nameOf<C>()};
        FieldCollector collector(variant.fields);
        const C property;
        tql::property_t::header(property, collector);
        C::content(property, collector);
        return variant;
    }();
    return type;
}

template <class C>
const WireType& intervalVariant()
{
    static const WireType type = [] {
        WireType variant = wireTypeOf<typename C::fields_t>();
        variant.name = nameOf<C>();
        return variant;
    }();
    return type;
}

// What makes a type other than by its name: one function a kind of types.
WireType simple(Form form)
{
    return {.form = form};
}

WireType make(const bool*)
{
    return simple(Form::boolean);
}
WireType make(const std::int32_t*)
{
    return simple(Form::int32);
}
WireType make(const std::uint32_t*)
{
    return simple(Form::uint32);
}
WireType make(const std::int64_t*)
{
    return simple(Form::int64);
}
WireType make(const std::uint64_t*)
{
    return simple(Form::uint64);
}
WireType make(const std::uint16_t*)
{
    return simple(Form::uint16);
}
WireType make(const double*)
{
    return simple(Form::real);
}
WireType make(const float*)
{
    return simple(Form::single);
}
WireType make(const std::string*)
{
    return simple(Form::text);
}
WireType make(const Time*)
{
    return simple(Form::time);
}
WireType make(const queue_t*)
{
    return simple(Form::queue);
}
WireType make(const BigNum*)
{
    return simple(Form::bigNumber);
}
WireType make(const tql::version_t*)
{
    return simple(Form::version);
}
WireType make(const tql::id_t*)
{
    return {.form = Form::identifier, .nests = true};
}
WireType make(const Held<event>*)
{
    return simple(Form::event);
}

template <class Number>
WireType make(const Ipv4Field<Number>*)
{
    return simple(Form::address);
}

template <class Moment>
WireType make(const PointInTimeField<Moment>*)
{
    return simple(Form::moment);
}

WireType make(const Held<tql::property_t>*)
{
    WireType type{.form = Form::tagged, .name = "tql::property_t"};
    for (std::uint32_t tag = 0; tag < 256; ++tag)
        tql::withPropertyClass(tag, [&]<class C>() { type.variants[tag] = propertyVariant<C>; });
    return type;
}

WireType make(const Held<tsdb::data_interval_t>*)
{
    WireType type{.form = Form::tagged, .name = "tsdb::data_interval_t"};
    for (std::uint32_t tag = 0; tag < 256; ++tag) {
        tsdb::withIntervalClass(tag, [&]<class C>() { type.variants[tag] = intervalVariant<C>; });
    }
    return type;
}

template <class T>
WireType make(const std::list<T>*)
{
    return {.form = Form::list, .element = wireTypeOf<T>};
}

template <class T>
WireType make(const std::vector<T>*)
{
    return {.form = Form::array, .element = wireTypeOf<T>};
}

template <class T>
WireType make(const std::set<T>*)
{
    return {.form = Form::set, .element = wireTypeOf<T>};
}

template <class K, class V>
WireType make(const std::map<K, V>*)
{
    return {.form = Form::map, .key = wireTypeOf<K>, .element = wireTypeOf<V>};
}

template <class A, class B>
WireType make(const std::pair<A, B>*)
{
    return {.form = Form::record, .fields = {{"first", wireTypeOf<A>}, {"second", wireTypeOf<B>}}};
}

template <Record T>
WireType make(const T*)
{
    WireType type{.form = Form::record, .name = nameOf<T>()};
    FieldCollector collector(type.fields);
    const T record{};
    T::fields(record, collector);
    type.nests = true;
    if constexpr (CheckedRecord<T>)
        type.fault = faultOf<T>;
    return type;
}

template <class T>
const WireType& wireTypeOf()
{
    static const WireType type = make(static_cast<const T*>(nullptr));
    return type;
}

struct Payload {
    WireTypeRef type = nullptr;
    std::string_view name;
};

constexpr std::array<Payload, INVALID_TAIL> payloads = [] {
    std::array<Payload, INVALID_TAIL> table{};
#define EVENT(number, name, ...) table[number] = {wireTypeOf<__VA_ARGS__>, #__VA_ARGS__};
#define EVENT_EXCEPTION(number, name) table[number] = {wireTypeOf<std::string>, "std::string"};
#include "queues/EventTable.inc"
    return table;
}();

const Payload* payloadOf(std::int32_t number)
{
    if (number <= INVALID_HEAD || number >= INVALID_TAIL)
        return nullptr;
    const Payload& payload = payloads[static_cast<std::size_t>(number)];
    return payload.type == nullptr ? nullptr : &payload;
}

}  // namespace

std::string WireType::description() const
{
    switch (form) {
    case Form::int32:
        return "int32";
    case Form::uint32:
        return "uint32";
    case Form::int64:
        return "int64";
    case Form::uint64:
        return "uint64";
    case Form::real:
        return "double";
    case Form::single:
        return "float";
    case Form::boolean:
        return "bool";
    case Form::uint16:
        return "uint16";
    case Form::queue:
        return "queue_t";
    case Form::address:
        return "address";
    case Form::time:
        return "time span";
    case Form::moment:
        return "point in time";
    case Form::version:
        return "version";
    case Form::text:
        return "string";
    case Form::bigNumber:
        return "big number";
    case Form::identifier:
        return "identifier";
    case Form::list:
        return "list of " + element().description();
    case Form::set:
        return "set of " + element().description();
    case Form::array:
        return "vector of " + element().description();
    case Form::map:
        return "map of " + key().description() + " to " + element().description();
    case Form::record:
        if (name.empty())
            return "pair of " + fields[0].type().description() + " and " +
                   fields[1].type().description();
        return name;
    case Form::tagged:
        return name;
    case Form::event:
        return "event";
    }
    return "";
}

const WireType* payloadType(std::int32_t number)
{
    const Payload* const payload = payloadOf(number);
    return payload == nullptr ? nullptr : &payload->type();
}

std::string_view payloadTypeName(std::int32_t number)
{
    const Payload* const payload = payloadOf(number);
    return payload == nullptr ? std::string_view() : payload->name;
}

}  // namespace queues
