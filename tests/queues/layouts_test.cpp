// The layouts of all events, as the types of their payloads tell them, against layouts.txt.
#include "queues/WireType.h"
#include "queues/event_t.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>

namespace {

using namespace queues;
using Form = WireType::Form;

// Points in time and spans differ in print alone.
std::string typeText(const WireType& type)
{
    return type.form == Form::time || type.form == Form::moment ? "Time" : type.description();
}

std::string fieldsText(const WireType& record)
{
    std::string text;
    for (const auto& [label, type] : record.fields)
        text += (text.empty() ? "" : "; ") + std::string(label) + ' ' + typeText(type());
    return text.empty() ? "no fields" : text;
}

// Adds the line of a record, and those of all that a type is made of. Pairs have no name and no
// line of their own.
void add(const std::string& name, const WireType& type, std::set<std::string>& lines)
{
    if (type.form == Form::record && !name.empty() &&
        !lines.insert(name + ": " + fieldsText(type)).second)
        return;
    for (const WireTypeRef part : {type.key, type.element}) {
        if (part != nullptr)
            add(part().name, part(), lines);
    }
    for (const WireField& field : type.fields)
        add(field.type().name, field.type(), lines);
    for (const auto& [tag, variant] : type.variants)
        add(type.name + ' ' + std::to_string(tag), variant(), lines);
}

TEST(layouts, areThoseOfTheList)
{
    std::set<std::string> types;
    for (std::int32_t number = INVALID_HEAD; number <= INVALID_TAIL; ++number) {
        if (const WireType* const type = payloadType(number)) {
            std::string line = std::to_string(number) + ' ' + eventName(event_t{number}) + ' ';
            if (type->form != Form::record)
                types.insert(line + typeText(*type));
            add(line.append(payloadTypeName(number)), *type, types);
        }
    }

    std::ifstream list(std::filesystem::path(__FILE__).replace_filename("layouts.txt"));
    std::string line;
    std::getline(list, line);  // what the list says of itself
    while (std::getline(list, line))
        EXPECT_TRUE(line.empty() || types.erase(line) == 1) << "only in the list: " << line;
    for (const std::string& left : types)
        ADD_FAILURE() << "not in the list: " << left;
}

}  // namespace
