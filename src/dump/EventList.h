// The list of the known events, for those who encode or decode them: number, name, and the fields
// of the payload in wire order with their types; below, what the types are made of.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace dump {

// Lists the events with these names or numbers; all if there are none. Throws error::EParseError,
// before anything is written, for one that isn't known.
void listEvents(std::ostream& out, const std::vector<std::string>& wanted);

}  // namespace dump
