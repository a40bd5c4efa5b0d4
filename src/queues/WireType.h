// The wire forms of all payloads as data: for those who walk over frames without making events.
//
// A WireType says how the bytes of a value go; payloadType() gives that of an event's payload. All
// of it is derived from the payload types and their lists of fields, as the codec is, and names
// what it is made of by functions, so a record can hold itself.
//
// For example the payload of RETURN_METRIC_ERROR is {.form = text}, and a list of numbers is
// {.form = list, .element = wireTypeOf<std::uint32_t>}.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace queues {

struct WireType;
// A type is good until the end of the process.
using WireTypeRef = const WireType& (*)();

struct WireField {
    const char* label;
    WireTypeRef type;
};

struct WireType {
    enum class Form {
        // Of fixed size, as ioprim.h tells.
        int32,
        uint32,
        int64,
        uint64,
        real,     // 8 bytes
        single,   // 4 bytes
        boolean,  // 4 bytes
        uint16,   // 4 bytes
        queue,    // queue_t
        address,  // uint32, IPv4 in network byte order
        time,     // Time, a span
        moment,   // Time, a point in time
        version,  // two uint64
        // Of varying size.
        text,        // a count of bytes, then these
        bigNumber,   // as text: the least significant byte first
        identifier,  // a count of numbers, at most 3, then these
        list,        // a count of elements, then these; `set` and `array` (a vector) alike
        set,
        array,
        map,     // a count of entries, then key and value of each
        record,  // its fields
        tagged,  // uint32 tag, then the variant of the tag; nothing more if there is none
        event,   // a whole frame
    };

    Form form;
    std::string name{};               // of a record or a variant: "tql::object_t"; otherwise empty
    std::vector<WireField> fields{};  // of a record
    WireTypeRef key = nullptr;        // of a map
    WireTypeRef element = nullptr;    // of a list, set or array; the value of a map
    std::map<std::uint32_t, WireTypeRef> variants{};  // of a tagged type, by tag

    // Whether readers count it as a level of nesting, of which there are ioprim::maximumDepth.
    bool nests = false;

    // Of a record with a rule of validity: empty if the record with these bytes keeps it,
    // otherwise what the codec would end the process with. Null for records without a rule.
    std::string (*fault)(std::string_view bytes) = nullptr;

    // What users call the type: "int32", "list of string", "tql::object_t".
    std::string description() const;
};

// Null if no event has the number. The payload of MESSAGE_EXCEPTION, as that of any event with the
// exception flag, is a text.
const WireType* payloadType(std::int32_t number);

// The name of the payload type as the table of events has it: "remcheck::remcheck_conf",
// "std::int32_t"; empty if no event has the number.
std::string_view payloadTypeName(std::int32_t number);

}  // namespace queues
