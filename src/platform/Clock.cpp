#include "platform/Clock.h"

#include "platform/ErrorCode.h"

#include <cerrno>
#include <ctime>

namespace platform {

namespace {

constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;

// 1970-01-01 in ticks of 100 nanoseconds since 1601-01-01.
constexpr std::uint64_t unixEpochTicks = 116'444'736'000'000'000;
constexpr std::uint64_t ticksPerSecond = 10'000'000;

bool readClock(clockid_t clock, timespec* now)
{
    if (clock_gettime(clock, now) == 0)
        return true;
    setLastError(errorCode(errno, ErrorSource::file));
    return false;
}

}  // namespace

bool systemTimeAsFileTime(std::uint64_t* ticks)
{
    timespec now{};
    if (!readClock(CLOCK_REALTIME, &now))
        return false;
    // Unsigned, so that a clock set before 1970 comes out right, too.
    *ticks = unixEpochTicks + static_cast<std::uint64_t>(now.tv_sec) * ticksPerSecond +
             static_cast<std::uint64_t>(now.tv_nsec) / 100;
    return true;
}

std::int64_t time64()
{
    return std::time(nullptr);
}

bool queryPerformanceCounter(std::int64_t* count)
{
    timespec now{};
    if (!readClock(CLOCK_MONOTONIC, &now))
        return false;
    *count = now.tv_sec * nanosecondsPerSecond + now.tv_nsec;
    return true;
}

bool queryPerformanceFrequency(std::int64_t* frequency)
{
    *frequency = nanosecondsPerSecond;
    return true;
}

}  // namespace platform
