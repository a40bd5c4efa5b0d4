// The clocks of the platform.
#pragma once

#include <cstdint>

namespace platform {

// The wall clock in ticks of 100 nanoseconds since 1601-01-01 UTC. False if it can't be read.
bool systemTimeAsFileTime(std::uint64_t* ticks);

// The wall clock in whole seconds since 1970-01-01 UTC.
std::int64_t time64();

// A counter that never goes back, and its ticks per second. False with getLastError() set if it
// can't be read.
bool queryPerformanceCounter(std::int64_t* count);
bool queryPerformanceFrequency(std::int64_t* ticksPerSecond);

}  // namespace platform
