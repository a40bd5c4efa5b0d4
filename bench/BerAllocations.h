// Counts what the program takes from the heap by operator new.
#pragma once

#include <cstddef>

namespace bench {

// Since the start of the program.
std::size_t allocations();

}  // namespace bench
