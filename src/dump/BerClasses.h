// The list of the classes of the client protocol, from their tables alone.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace dump {

// Writes what the classes are made of: those with the names, or all. Throws error::EParseError for
// a name that no class has.
void listBerClasses(std::ostream& out, const std::vector<std::string>& wanted);

}  // namespace dump
