// What is measured of a process that does a number of checks.
#pragma once

#include "CheckKind.h"

#include <cstddef>

#include <sys/types.h>

namespace bench {

struct Load {
    const CheckKind& kind;
    std::size_t atOnce;
    std::size_t total;

    // The dialogues that the service holds: the others are on their way to it or from it.
    std::size_t toHold() const { return atOnce - atOnce / 10 - 1; }
};

struct Measurement {
    double seconds = 0;
    double processorMicroseconds = 0;  // user and system, per check
    double peakMiB = 0;                // of resident memory; 0: not measured
};

// Waits for the end of a child process that has done `checks` in `seconds`. Throws
// std::runtime_error unless its exit code is 0.
Measurement collect(pid_t process, double seconds, std::size_t checks);

}  // namespace bench
