// The two constant tables behind vocabulary.h, which is their only reader.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tql {

inline constexpr std::size_t class_positions = 95;

// The name at each class number; null where a number is not assigned.
extern const char* const class_table[class_positions];

struct property_entry {
    std::uint32_t number;
    const char* name;
};

// In ascending order of the numbers, ended by an entry with a null name.
extern const property_entry property_table[];

}  // namespace tql
