#include "dump/EventList.h"

#include "common/errors.h"
#include "common/shown.h"
#include "common/text.h"
#include "queues/WireType.h"
#include "queues/event_t.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string_view>

namespace dump {

namespace {

using queues::WireField;
using queues::WireType;
using Form = WireType::Form;

const struct {
    Form form;
    const char* name;
    const char* bytes;
} forms[] = {
    {Form::int32, "int32", "4 bytes, little-endian as all numbers"},
    {Form::uint32, "uint32", "4 bytes"},
    {Form::int64, "int64", "8 bytes"},
    {Form::uint64, "uint64", "8 bytes"},
    {Form::real, "double", "8 bytes, IEEE 754"},
    {Form::single, "float", "4 bytes, IEEE 754"},
    {Form::boolean, "bool", "4 bytes, 0 or 1; any other value reads as true"},
    {Form::uint16, "uint16", "4 bytes, of which the low two count"},
    {Form::queue, "queue_t", "int32, a queue number; -1 for none"},
    {Form::address, "address", "4 bytes, IPv4 in its usual order: 10.0.0.1 is 0a 00 00 01"},
    {Form::time, "time span", "int32 seconds, int32 microseconds"},
    {Form::moment, "point in time", "int32 seconds since 1970 UTC, int32 microseconds"},
    {Form::version, "version", "two uint64"},
    {Form::text, "string", "uint64 count of bytes, then these"},
    {Form::bigNumber, "big number",
     "uint64 count of bytes, 4 at least, then these, the least significant first"},
    {Form::identifier, "identifier", "int32 count of numbers, 3 at most, then these as uint32"},
    {Form::list, "list", "int32 count of elements, then these"},
    {Form::set, "set", "int32 count of elements, then these, ascending"},
    {Form::array, "vector", "int32 count of elements, then these"},
    {Form::map, "map", "int32 count of entries, then key and value of each, keys ascending"},
    {Form::event, "event", "a whole frame"},
};

void writeFields(std::ostream& out, const std::vector<WireField>& fields)
{
    std::size_t width = 0;
    for (const WireField& field : fields)
        width = std::max(width, std::string_view(field.label).size());
    for (const WireField& field : fields) {
        out << "    " << field.label
            << std::string(width - std::string_view(field.label).size() + 2, ' ')
            << field.type().description() << '\n';
    }
}

// The types that are reached from others, each once, in the order in which they are met.
class Explained {
public:
    void add(const WireType& type)
    {
        if (!met.insert(&type).second)
            return;
        usedForms.insert(type.form);
        if (!type.name.empty())
            named.push_back(&type);
        for (const WireField& field : type.fields)
            add(field.type());
        if (type.key != nullptr)
            add(type.key());
        if (type.element != nullptr)
            add(type.element());
        for (const auto& [tag, variant] : type.variants)
            add(variant());
    }

    void write(std::ostream& out) const
    {
        for (const WireType* type : named) {
            out << type->name << '\n';
            if (type->form == Form::tagged)
                writeVariants(out, *type);
            else
                writeFields(out, type->fields);
            out << '\n';
        }
        for (const auto& form : forms) {
            const std::string name = form.name;
            if (usedForms.count(form.form) != 0)
                out << name << std::string(16 - name.size(), ' ') << form.bytes << '\n';
        }
    }

private:
    static void writeVariants(std::ostream& out, const WireType& type)
    {
        out << "    uint32 tag, then\n";
        for (const auto& [tag, variant] : type.variants)
            out << "    " << (tag < 10 ? " " : "") << uintToString(tag) << "  "
                << variant().description() << '\n';
        out << "    nothing for any other tag; 0 says that there is none\n";
    }

    std::set<const WireType*> met;
    // From the start those of the frame itself.
    std::set<Form> usedForms = {Form::int32, Form::queue, Form::boolean, Form::text, Form::uint64};
    std::vector<const WireType*> named;
};

// Null for a name or number that isn't known.
std::int32_t numberOf(const std::string& text)
{
    for (std::int32_t number = queues::INVALID_HEAD + 1; number < queues::INVALID_TAIL; ++number) {
        if (queues::payloadType(number) != nullptr &&
            (text == intToString(number) || text == eventName(static_cast<event_t>(number))))
            return number;
    }
    throw error::EParseError("there is no event '" + shown(text) +
                             "'; see --events for all names and numbers");
}

}  // namespace

void listEvents(std::ostream& out, const std::vector<std::string>& wanted)
{
    std::vector<std::int32_t> numbers;
    numbers.reserve(wanted.size());
    for (const std::string& text : wanted)
        numbers.push_back(numberOf(text));
    for (std::int32_t number = queues::INVALID_HEAD + 1;
         wanted.empty() && number < queues::INVALID_TAIL; ++number) {
        if (queues::payloadType(number) != nullptr)
            numbers.push_back(number);
    }

    Explained explained;
    for (const std::int32_t number : numbers) {
        const WireType& type = *queues::payloadType(number);
        out << intToString(number) << ' ' << eventName(static_cast<event_t>(number)) << "  "
            << queues::payloadTypeName(number) << '\n';
        if (type.form == Form::record) {
            writeFields(out, type.fields);
            for (const WireField& field : type.fields)
                explained.add(field.type());
        } else {
            out << "    " << type.description() << '\n';
            explained.add(type);
        }
        out << '\n';
    }
    explained.write(out);
    out << "\nEach event goes in a frame: int32 type, its number; queue_t dest; int32 inresponse; "
           "bool\nexception; then the payload, or a string in its place if exception is true.\n";
}

}  // namespace dump
