// The wire and print forms of the types of tql and tsdb and of BigNum.
//
// Identifiers, origins, references, objects and select expressions are records: their lists of
// fields say all (see fields.h). Here stand the forms of what they are made of.
//
//   small_vector<N>   int32 count, then so many uint32
//   version_t         two uint64
//   BigNum            a string: the number, least significant byte first, at least 4 bytes
//   property          uint32 type tag, then header and value; the tag 0 alone is a null pointer
//     0  uint32   tag, 7 to 25
//     4  uint32   name
//     8  bool     is_null; the value follows in any case
//    12  uint32   modifiers
//    16           the value
//
// For example the string property 542 "^2.." is
//   07 00 00 00  1E 02 00 00  00 00 00 00  00 00 00 00  04 00 00 00 00 00 00 00  5E 32 2E 2E
//
// A property prints its header alone, whatever its class.
//
//   interval          uint32 type number, then the fields of its class; 0 alone is a null pointer
#pragma once

#include "common/BigNum.h"
#include "common/Held.h"
#include "queues/fields.h"
#include "queues/ioprim.h"
#include "types/id.h"
#include "types/interval.h"
#include "types/object.h"
#include "types/property.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace protocol {

template <std::size_t N>
ioprim& operator<<(ioprim& stream, const tql::small_vector<N>& value)
{
    stream << static_cast<std::int32_t>(value.size());
    for (const std::uint32_t number : value)
        stream << number;
    return stream;
}

// Throws error::ERange for a count above N. A negative count is extended to the width of a size,
// and fails in the same way.
template <std::size_t N>
ioprim& operator>>(ioprim& stream, tql::small_vector<N>& value)
{
    std::int32_t count = 0;
    stream >> count;
    value.resize(static_cast<std::size_t>(count));
    for (std::uint32_t& number : value)
        stream >> number;
    return stream;
}

ioprim& operator<<(ioprim& stream, const tql::version_t& value);
ioprim& operator>>(ioprim& stream, tql::version_t& value);

ioprim& operator<<(ioprim& stream, const BigNum& value);
ioprim& operator>>(ioprim& stream, BigNum& value);

// Writes a property with its tag, or the tag 0 for a null pointer.
void writeProperty(ioprim& stream, const tql::property_t* property);
// Gives a null pointer for the tag 0 and for any tag that no class has; nothing but the tag has
// been read then. Such a property's fields, if there are any, are the sender's fault: they are
// taken for what comes next.
std::unique_ptr<tql::property_t> readProperty(ioprim& stream);

ioprim& operator<<(ioprim& stream, const Held<tql::property_t>& value);
ioprim& operator>>(ioprim& stream, Held<tql::property_t>& value);

// Gives a null pointer for a type number that no class has, as for 0.
ioprim& operator<<(ioprim& stream, const Held<tsdb::data_interval_t>& value);
ioprim& operator>>(ioprim& stream, Held<tsdb::data_interval_t>& value);

}  // namespace protocol

namespace queues {

template <>
inline constexpr bool printsAsRecord<tql::property_t> = true;
template <>
inline constexpr bool printsAsRecord<Held<tql::property_t>> = true;

template <std::size_t N>
void printForm(Place at, const tql::small_vector<N>& value)
{
    at.stream << "small_vector<" << sizeToString(N) << "> {\n";
    for (const std::uint32_t number : value)
        printLine(at.deeper(), number);
    at.pad();
    at.stream << "}\n";
}

// The numbers stand one level deeper than those of a container behind its label.
void printForm(Place at, const tql::id_t& value);
void printForm(Place at, const tql::version_t& value);
void printForm(Place at, const BigNum& value);
void printForm(Place at, const tql::property_t& property);
// A null pointer prints one line, "(null)".
void printForm(Place at, const Held<tql::property_t>& property);
// The interval's text in one line, control characters escaped; "(null)" for a null pointer.
void printForm(Place at, const Held<tsdb::data_interval_t>& interval);

}  // namespace queues
