// Values as they lie on the wire, in the text that people and programs read: JSON.
//
//   numbers, enumerations   numbers; a double or float that is none as "nan", "inf" or "-inf"
//   bool                    true or false
//   queue                   its name: "rmch"
//   address                 "10.0.0.1"
//   times                   seconds with six decimals; {"sec":1,"usec":-1} if it isn't normalised
//   version, identifier     "7.1.9", "1.20.3"
//   big number              decimal in quotes: "4711"; above 4096 bytes as bytes
//   text                    a string if it is UTF-8, otherwise as bytes
//   bytes                   {"hex":"ff00"}, in the order of the wire
//
// All of it is ASCII without control characters, so it can go to any terminal.
#pragma once

#include "queues/WireType.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace dump {

// Of a value that is neither made of others nor an event. The bytes are those that a
// queues::FrameSink is told.
std::string jsonValue(const queues::WireType& type, std::string_view bytes);
std::string jsonText(std::string_view text);

// Two digits a byte, with the separator between them.
std::string hexBytes(std::string_view bytes, std::string_view separator = "");

// Empty if no property has the number.
std::string propertyNameOf(std::uint32_t number);

// "tql::property_string_t" without the namespace.
std::string_view plainName(std::string_view name);

}  // namespace dump
