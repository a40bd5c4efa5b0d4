// The high-resolution stop-watch of a check.
#pragma once

#include <cstdint>

class StopWatch {
public:
    // Starts. Throws error::syserror if the counter can't be read, like restart and stop.
    StopWatch();
    void restart();  // leaves the last measurement alone
    void stop();

    // The time between the last start and the last stop, cut towards zero: whole seconds, and
    // the rest in microseconds (0 to 999999). Both are 0 before the first stop.
    std::int64_t seconds() const;
    std::int64_t microseconds() const;

private:
    std::int64_t startWall = 0;   // wall clock at the last start, seconds since 1970
    std::int64_t elapsed = 0;     // ticks
    std::int64_t frequency = 1;   // ticks per second
    std::int64_t startCount = 0;  // ticks
    std::int64_t stopCount = 0;   // ticks
};
