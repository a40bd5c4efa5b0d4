#include "common/assertion.h"

#include <cstdio>
#include <cstdlib>

void assertion(const std::string& text)
{
    const std::string line = "Assertion failed: " + text + "\n";
    // Standard error has no buffer, so the line leaves in one piece and doesn't mix with what
    // other processes write there. The stream of C is used because that of C++ would flush the
    // standard output first.
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fflush(stderr);
    std::abort();
}
