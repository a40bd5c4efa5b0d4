#include "queues/fields.h"

#include "common/assertion.h"

namespace queues {

void printForm(Place at, bool value)
{
    at.stream << (value ? "true\n" : "false\n");
}

void printForm(Place at, std::uint16_t value)
{
    at.stream << uintToString(value) << '\n';
}

void printForm(Place at, std::int32_t value)
{
    at.stream << intToString(value) << '\n';
}

void printForm(Place at, std::uint32_t value)
{
    at.stream << uintToString(value) << '\n';
}

void printForm(Place at, std::int64_t value)
{
    at.stream << int64ToString(value) << '\n';
}

void printForm(Place at, std::uint64_t value)
{
    at.stream << uint64ToString(value) << '\n';
}

void printForm(Place at, double value)
{
    at.stream << doubleToString(value, -1, -1) << '\n';
}

void printForm(Place at, float value)
{
    printForm(at, static_cast<double>(value));
}

void printForm(Place at, const std::string& value)
{
    at.stream << quoteString(value) << '\n';
}

void printForm(Place at, const Time& value)
{
    at.stream << value.toString() << '\n';
}

void printForm(Place at, queue_t value)
{
    at.stream << queueName(value) << '\n';
}

void refuseInvalid(const char* direction, const char* name, const std::string& description)
{
    assertion(std::string("Trying to ") + direction + " invalid " + name + " (" + description +
              ")");
}

}  // namespace queues
