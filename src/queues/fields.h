// What a record's list of fields stands for: its wire form and its print form.
//
// A record names its fields once, in wire order:
//
//     template <class Self, class Visitor>
//     static void fields(Self& self, Visitor& visit)
//     {
//         visit("ctime", self.ctime);
//         visit("addr", ipv4(self.addr));
//     }
//
// and has operator<<, operator>> and a print form by that alone. Each field type brings the same
// three pieces:
//   protocol::operator<<(ioprim&, const T&)   its wire form
//   protocol::operator>>(ioprim&, T&)
//   queues::printForm(Place, const T&)        its print form
// Here they stand for numbers, texts, times, enumerations, pairs, containers and records; the
// types of tql and tsdb bring theirs in typeForms.h, events in event.h. They are found when a record
// is compiled, through the namespaces of ioprim and Place, so the order of the headers doesn't
// matter.
//
// The print form, with `pad` for two spaces a level:
//   a field       pad, label, ": ", its value
//   a value       in one line: number, quoted text, true or false
//   a record      a line a field, at the next level; its first line follows the label directly,
//                 with a pad of its own
//   a container   "list {", its elements at the next level, pad and "}"
//   a map         "map {", then "  key: " and "  value: " lines in turn
#pragma once

#include "common/Time.h"
#include "common/assertion.h"
#include "common/text.h"
#include "queues/event_t.h"
#include "queues/ioprim.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <list>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace queues {

// A visitor that only counts.
class FieldCounter {
public:
    template <class T>
    void operator()(const char* /*label*/, T&& /*value*/)
    {
        ++count;
    }
    unsigned count = 0;
};

template <class T>
concept Record = requires(T& record, FieldCounter& visit)
{
    T::fields(record, visit);
};

// A record with a rule of validity. A broken one must not come about: it is an assertion on
// writing, printing and reading.
template <class T>
concept CheckedRecord = Record<T> && requires(const T& record)
{
    record.isValid();
    T::recordName();
    record.description();
};

// Enumerations with a fixed 32-bit type, of which any value can be read.
template <class T>
concept WireEnum = std::is_enum_v<T> && sizeof(T) == 4 && requires
{
    T{0};
};

// A place in a printout: the level of the line that is being printed. The start of the line has
// been printed already for all forms but those of records.
struct Place {
    std::ostream& stream;
    int indent;

    void pad() const { stream << std::string(2 * static_cast<std::size_t>(indent), ' '); }
    Place deeper() const { return {stream, indent + 1}; }
};

// True for types whose print form begins each of its lines, the first one too, with a pad.
// To be specialised beside the print form of such a type that is no Record.
template <class T>
inline constexpr bool printsAsRecord = Record<T>;
template <class A, class B>
inline constexpr bool printsAsRecord<std::pair<A, B>> = true;

// A value behind its label.
template <class T>
void printBehindLabel(Place at, const T& value)
{
    if constexpr (printsAsRecord<T>)
        printForm(at.deeper(), value);
    else
        printForm(at, value);
}

// A value that begins a line.
template <class T>
void printLine(Place at, const T& value)
{
    if constexpr (!printsAsRecord<T>)
        at.pad();
    printForm(at, value);
}

class FieldWriter {
public:
    explicit FieldWriter(protocol::ioprim& link) : stream(link) {}
    template <class T>
    void operator()(const char* /*label*/, const T& value)
    {
        stream << value;
    }

private:
    protocol::ioprim& stream;
};

class FieldReader {
public:
    explicit FieldReader(protocol::ioprim& link) : stream(link) {}
    template <class T>
    void operator()(const char* /*label*/, T&& value)
    {
        stream >> value;
    }

private:
    protocol::ioprim& stream;
};

class FieldPrinter {
public:
    explicit FieldPrinter(Place where) : at(where) {}
    template <class T>
    void operator()(const char* label, const T& value)
    {
        at.pad();
        at.stream << label << ": ";
        printBehindLabel(at, value);
    }

private:
    Place at;
};

// A member that holds an IPv4 address in network byte order: the number on the wire, dotted in
// print.
template <class Number>
struct Ipv4Field {
    Number& address;
};
template <class Number>
Ipv4Field<Number> ipv4(Number& address)
{
    static_assert(std::same_as<std::remove_const_t<Number>, std::uint32_t>);
    return {address};
}

// A member that holds a point in time, not a span: in print, a date in UTC.
template <class Moment>
struct PointInTimeField {
    Moment& time;
};
template <class Moment>
PointInTimeField<Moment> pointInTime(Moment& time)
{
    static_assert(std::same_as<std::remove_const_t<Moment>, Time>);
    return {time};
}

void printForm(Place at, bool value);
void printForm(Place at, std::uint16_t value);
void printForm(Place at, std::int32_t value);
void printForm(Place at, std::uint32_t value);
void printForm(Place at, std::int64_t value);
void printForm(Place at, std::uint64_t value);
void printForm(Place at, double value);
void printForm(Place at, float value);
void printForm(Place at, const std::string& value);
void printForm(Place at, const Time& value);
void printForm(Place at, queue_t value);

template <WireEnum E>
void printForm(Place at, E value)
{
    printForm(at, static_cast<std::int32_t>(value));
}

template <class Number>
void printForm(Place at, Ipv4Field<Number> value)
{
    at.stream << dottedAddress(value.address) << '\n';
}

template <class Moment>
void printForm(Place at, PointInTimeField<Moment> value)
{
    at.stream << value.time.format(timePattern, false) << '\n';
}

// `direction` is "output" or "input".
[[noreturn]] void refuseInvalid(const char* direction, const char* name,
                                const std::string& description);

template <Record T>
void requireValid(const T& record, const char* direction)
{
    if constexpr (CheckedRecord<T>) {
        if (!record.isValid())
            refuseInvalid(direction, T::recordName(), record.description());
    }
}

template <Record T>
void printForm(Place at, const T& record)
{
    requireValid(record, "output");
    FieldPrinter printer(at);
    T::fields(record, printer);
}

template <class A, class B>
void printForm(Place at, const std::pair<A, B>& value)
{
    FieldPrinter printer(at);
    printer("first", value.first);
    printer("second", value.second);
}

template <class Container>
void printElements(Place at, const char* opening, const Container& elements)
{
    at.stream << opening << '\n';
    for (const auto& element : elements)
        printLine(at.deeper(), element);
    at.pad();
    at.stream << "}\n";
}

template <class T>
void printForm(Place at, const std::list<T>& value)
{
    printElements(at, "list {", value);
}

template <class T>
void printForm(Place at, const std::vector<T>& value)
{
    printElements(at, "vector {", value);
}

template <class T>
void printForm(Place at, const std::set<T>& value)
{
    printElements(at, "set {", value);
}

template <class K, class V>
void printForm(Place at, const std::map<K, V>& value)
{
    at.stream << "map {\n";
    FieldPrinter printer(at.deeper());
    for (const auto& [key, mapped] : value) {
        printer("key", key);
        printer("value", mapped);
    }
    at.pad();
    at.stream << "}\n";
}

// A payload: a record's fields, or one line with a value, each at the given level.
template <class T>
void printPayloadValue(std::ostream& stream, int indent, const T& value)
{
    printLine(Place{stream, indent}, value);
}

}  // namespace queues

namespace protocol {

template <queues::WireEnum E>
ioprim& operator<<(ioprim& stream, E value)
{
    return stream << static_cast<std::int32_t>(value);
}

template <queues::WireEnum E>
ioprim& operator>>(ioprim& stream, E& value)
{
    std::int32_t number = 0;
    stream >> number;
    value = static_cast<E>(number);
    return stream;
}

template <class Number>
ioprim& operator<<(ioprim& stream, queues::Ipv4Field<Number> value)
{
    return stream << value.address;
}

template <class Number>
ioprim& operator>>(ioprim& stream, queues::Ipv4Field<Number> value)
{
    return stream >> value.address;
}

template <class Moment>
ioprim& operator<<(ioprim& stream, queues::PointInTimeField<Moment> value)
{
    return stream << value.time;
}

template <class Moment>
ioprim& operator>>(ioprim& stream, queues::PointInTimeField<Moment> value)
{
    return stream >> value.time;
}

template <queues::Record T>
ioprim& operator<<(ioprim& stream, const T& record)
{
    queues::requireValid(record, "output");
    queues::FieldWriter writer(stream);
    T::fields(record, writer);
    return stream;
}

template <queues::Record T>
ioprim& operator>>(ioprim& stream, T& record)
{
    const ioprim::Nesting level(stream);
    queues::FieldReader reader(stream);
    T::fields(record, reader);
    queues::requireValid(record, "input");
    return stream;
}

template <class A, class B>
ioprim& operator<<(ioprim& stream, const std::pair<A, B>& value)
{
    return stream << value.first << value.second;
}

template <class A, class B>
ioprim& operator>>(ioprim& stream, std::pair<A, B>& value)
{
    return stream >> value.first >> value.second;
}

// The count in front of a container's elements.
inline void writeCount(ioprim& stream, std::size_t count)
{
    if (count > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max()))
        assertion("fdio << container: too many elements: " + sizeToString(count));
    stream << static_cast<std::int32_t>(count);
}

template <class Container>
ioprim& writeElements(ioprim& stream, const Container& elements)
{
    writeCount(stream, elements.size());
    for (const auto& element : elements)
        stream << element;
    return stream;
}

// The announced count is the sender's word only: containers grow by what arrives.
template <class Container>
ioprim& readElements(ioprim& stream, Container& elements)
{
    elements.clear();
    std::int32_t count = 0;
    stream >> count;
    for (; count > 0; --count) {
        stream >> elements.emplace_back();
    }
    return stream;
}

template <class T>
ioprim& operator<<(ioprim& stream, const std::list<T>& value)
{
    return writeElements(stream, value);
}

template <class T>
ioprim& operator>>(ioprim& stream, std::list<T>& value)
{
    return readElements(stream, value);
}

template <class T>
ioprim& operator<<(ioprim& stream, const std::vector<T>& value)
{
    return writeElements(stream, value);
}

template <class T>
ioprim& operator>>(ioprim& stream, std::vector<T>& value)
{
    return readElements(stream, value);
}

template <class T>
ioprim& operator<<(ioprim& stream, const std::set<T>& value)
{
    return writeElements(stream, value);
}

template <class T>
ioprim& operator>>(ioprim& stream, std::set<T>& value)
{
    value.clear();
    std::int32_t count = 0;
    stream >> count;
    for (; count > 0; --count) {
        T element{};
        stream >> element;
        value.insert(value.end(), std::move(element));
    }
    return stream;
}

template <class K, class V>
ioprim& operator<<(ioprim& stream, const std::map<K, V>& value)
{
    writeCount(stream, value.size());
    for (const auto& [key, mapped] : value)
        stream << key << mapped;
    return stream;
}

// Of two entries with the same key, the later one stays.
template <class K, class V>
ioprim& operator>>(ioprim& stream, std::map<K, V>& value)
{
    value.clear();
    std::int32_t count = 0;
    stream >> count;
    for (; count > 0; --count) {
        K key{};
        stream >> key;
        V mapped{};
        stream >> mapped;
        value.insert_or_assign(value.end(), std::move(key), std::move(mapped));
    }
    return stream;
}

}  // namespace protocol
