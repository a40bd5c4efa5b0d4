#include "EventsPeer.h"

#include "queues/records/alert.h"
#include "queues/records/control.h"
#include "queues/records/dbms.h"
#include "queues/records/remcheck.h"
#include "queues/records/scheduler.h"
#include "queues/records/tsdb.h"
#include "queues/typeForms.h"

#include <concepts>
#include <cstdint>
#include <list>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "events.pb.h"
#include <google/protobuf/util/message_differencer.h>

namespace bench {

namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

void require(bool condition, const std::string& complaint)
{
    if (!condition)
        throw std::runtime_error("Protocol Buffers: " + complaint);
}

// The fields of one message, which are filled by their labels or numbers.
class Fields {
public:
    explicit Fields(Message& filled) : message(filled) {}

    // A record's visitor.
    template <class T>
    void operator()(const char* label, const T& value)
    {
        put(named(label), value);
        ++visited;
    }

    // The alternative with the number.
    template <class T>
    void putAlternative(std::uint32_t number, const T& value)
    {
        put(numbered(number), value);
    }

    // A message of its own for the field; of a repeated one, one more.
    Fields child(const FieldDescriptor* field)
    {
        return Fields(field->is_repeated() ? *reflection().AddMessage(&message, field)
                                           : *reflection().MutableMessage(&message, field));
    }

    const FieldDescriptor* numbered(std::uint32_t number) const
    {
        const FieldDescriptor* const field =
            message.GetDescriptor()->FindFieldByNumber(static_cast<int>(number));
        require(field != nullptr, message.GetTypeName() + " lacks " + std::to_string(number));
        return field;
    }

    // For records, that the message has no field that the record lacks.
    void requireAllVisited() const
    {
        require(message.GetDescriptor()->field_count() == visited,
                message.GetTypeName() + " has more fields than its record");
    }

private:
    const google::protobuf::Reflection& reflection() const { return *message.GetReflection(); }

    const FieldDescriptor* named(const char* label) const
    {
        const FieldDescriptor* const field = message.GetDescriptor()->FindFieldByName(label);
        require(field != nullptr, message.GetTypeName() + " lacks " + label);
        return field;
    }

#define PUT_SCALAR(Type, Suffix)                                                                   \
    void put(const FieldDescriptor* field, Type value)                                             \
    {                                                                                              \
        if (field->is_repeated())                                                                  \
            reflection().Add##Suffix(&message, field, value);                                      \
        else                                                                                       \
            reflection().Set##Suffix(&message, field, value);                                      \
    }
    PUT_SCALAR(bool, Bool)
    PUT_SCALAR(std::int32_t, Int32)
    PUT_SCALAR(std::uint32_t, UInt32)
    PUT_SCALAR(std::int64_t, Int64)
    PUT_SCALAR(std::uint64_t, UInt64)
    PUT_SCALAR(float, Float)
    PUT_SCALAR(double, Double)
    PUT_SCALAR(const std::string&, String)
#undef PUT_SCALAR

    void put(const FieldDescriptor* field, std::uint16_t value)
    {
        put(field, std::uint32_t{value});
    }
    void put(const FieldDescriptor* field, const BigNum& value)
    {
        std::string bytes;
        value.toBytes(&bytes, 0);
        put(field, bytes);
    }
    void put(const FieldDescriptor* field, queues::Ipv4Field<const std::uint32_t> value)
    {
        put(field, value.address);
    }
    void put(const FieldDescriptor* field, queues::PointInTimeField<const Time> value)
    {
        put(field, value.time);
    }

    void put(const FieldDescriptor* field, const Time& value)
    {
        Fields fields = child(field);
        fields("sec", value.sec);
        fields("usec", value.usec);
    }
    void put(const FieldDescriptor* field, const tql::version_t& value)
    {
        Fields fields = child(field);
        fields("first", value.first);
        fields("second", value.second);
    }
    template <queues::Record T>
    void put(const FieldDescriptor* field, const T& value)
    {
        Fields fields = child(field);
        T::fields(value, fields);
        fields.requireAllVisited();
    }
    template <class A, class B>
    void put(const FieldDescriptor* field, const std::pair<A, B>& value)
    {
        Fields fields = child(field);
        fields("first", value.first);
        fields("second", value.second);
    }

    template <std::size_t N>
    void put(const FieldDescriptor* field, const tql::small_vector<N>& value)
    {
        putElements(field, value);
    }
    template <class T>
    void put(const FieldDescriptor* field, const std::vector<T>& value)
    {
        putElements(field, value);
    }
    template <class T>
    void put(const FieldDescriptor* field, const std::set<T>& value)
    {
        putElements(field, value);
    }
    template <class T>
    void put(const FieldDescriptor* field, const std::list<T>& value)
    {
        putElements(field, value);
    }
    template <class T>
    void put(const FieldDescriptor* field, const std::list<std::list<T>>& value)
    {
        for (const std::list<T>& inner : value)
            child(field)("elements", inner);
    }
    template <class K, class V>
    void put(const FieldDescriptor* field, const std::map<K, V>& value)
    {
        for (const auto& [key, mapped] : value) {
            Fields entry = child(field);
            entry("key", key);
            entry("value", mapped);
        }
    }
    // A container that is no field but an alternative has a message of its own around it.
    template <class Container>
    void putElements(const FieldDescriptor* field, const Container& elements)
    {
        if (!field->is_repeated()) {
            child(field)("elements", elements);
            return;
        }
        for (const auto& element : elements)
            put(field, element);
    }

    void put(const FieldDescriptor* field, const Held<tql::property_t>& value)
    {
        Fields fields = child(field);
        if (!value)
            return;
        tql::property_t::header(*value, fields);
        tql::withPropertyClass(value->type(), [&]<class C>() {
            const C& property = static_cast<const C&>(*value);
            if constexpr (std::same_as<C, tql::property_enum_t>) {
                Fields content = fields.child(fields.numbered(C::tag));
                C::content(property, content);
            } else {
                fields.putAlternative(C::tag, property.value);
            }
        });
    }
    void put(const FieldDescriptor* field, const Held<tsdb::data_interval_t>& value)
    {
        Fields fields = child(field);
        if (!value)
            return;
        tsdb::withIntervalClass(value->kind(), [&]<class C>() {
            const typename C::fields_t& interval = static_cast<const C&>(*value);
            fields.putAlternative(C::tag, interval);
        });
    }
    void put(const FieldDescriptor* field, const Held<queues::event>& value);

    Message& message;
    int visited = 0;
};

template <std::int32_t Number, class Payload>
bool putPayload(Fields& fields, const queues::event& e)
{
    if (e.type != Number)
        return false;
    fields.putAlternative(Number, static_cast<const queues::devent<Number, Payload>&>(e).data);
    return true;
}

void fill(Fields& fields, const queues::event& e)
{
    using namespace queues;

    fields("dest", static_cast<std::int32_t>(e.dest));
    fields("inresponse", e.inresponse);
    fields("exception", e.exception);
    const bool known =
        putPayload<SERVER_CONFIGURATION, control::Server_Configuration_Fields>(fields, e) ||
        putPayload<RETURN_LIST_METRICS, control::Metric_Group>(fields, e) ||
        putPayload<RETURN_GET_DATA, tsdb::Return_Get_Data_Data>(fields, e) ||
        putPayload<DATA_AGENTCHECK, dbms::Data_AgentCheck_Data>(fields, e) ||
        putPayload<TQL_SELECT, dbms::Tql_Select_Data>(fields, e) ||
        putPayload<RETURN_TQL_SELECT, dbms::Return_Tql_Select_Data>(fields, e) ||
        putPayload<TQL_CREATE, dbms::Tql_Create_Data>(fields, e) ||
        putPayload<RETURN_NODECLASS_TRANSLATE, dbms::Return_NodeClass_Translate_Data>(fields, e) ||
        putPayload<SCHEDULE_EVENT_ABSOLUTE, scheduler::Schedule_Event_Absolute_Data>(fields, e) ||
        putPayload<CHECK_REQUEST, remcheck::remcheck_conf>(fields, e) ||
        putPayload<MAILER_MAIL, alert::Mailer_Mail_Data>(fields, e);
    require(known, "no message for " + eventName(e.type));
}

void Fields::put(const FieldDescriptor* field, const Held<queues::event>& value)
{
    Fields fields = child(field);
    fill(fields, *value);
}

}  // namespace

struct EventsPeer::Messages {
    peer::Event given;
    peer::Event reused;
    std::string encoded;

    int size() const { return static_cast<int>(encoded.size()); }
};

EventsPeer::EventsPeer(const queues::event& e) : messages(std::make_unique<Messages>())
{
    Fields fields(messages->given);
    fill(fields, e);
    messages->encoded.resize(messages->given.ByteSizeLong());
    encode();
    decodeReused();
    require(google::protobuf::util::MessageDifferencer::Equals(messages->given, messages->reused),
            eventName(e.type) + " decodes to something else");
}

EventsPeer::~EventsPeer() = default;

std::size_t EventsPeer::encodedSize() const
{
    return messages->encoded.size();
}

void EventsPeer::encode()
{
    require(messages->given.SerializeToArray(messages->encoded.data(), messages->size()),
            "not encoded");
}

void EventsPeer::decodeFresh() const
{
    peer::Event fresh;
    require(fresh.ParseFromArray(messages->encoded.data(), messages->size()), "not decoded");
}

void EventsPeer::decodeReused()
{
    require(messages->reused.ParseFromArray(messages->encoded.data(), messages->size()),
            "not decoded");
}

}  // namespace bench
