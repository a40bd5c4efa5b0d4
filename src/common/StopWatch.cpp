#include "common/StopWatch.h"

#include "common/errors.h"
#include "common/systemError.h"
#include "platform/Clock.h"

namespace {

constexpr const char* startFailed = "Error reading performance time counter!";
constexpr const char* stopFailed = "Error reading performance stop time counter!";

std::int64_t readCounter(const char* failure)
{
    std::int64_t count = 0;
    if (!platform::queryPerformanceCounter(&count))
        throw error::syserror(failure + (": " + lastSystemErrorText()));
    return count;
}

}  // namespace

StopWatch::StopWatch()
{
    if (!platform::queryPerformanceFrequency(&frequency))
        throw error::syserror(startFailed + (": " + lastSystemErrorText()));
    restart();
}

void StopWatch::restart()
{
    startCount = readCounter(startFailed);
    startWall = platform::time64();
}

void StopWatch::stop()
{
    stopCount = readCounter(stopFailed);
    elapsed = stopCount - startCount;
}

std::int64_t StopWatch::seconds() const
{
    return elapsed / frequency;
}

std::int64_t StopWatch::microseconds() const
{
    return elapsed % frequency * 1000000 / frequency;
}
