// Time, its texts and zones, and the stop-watch, over a clock that the tests set.

#include "common/Time.h"

#include "common/StopWatch.h"
#include "common/errors.h"
#include "tests/common/outcome.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <optional>

static std::optional<std::timespec> systemClock = std::timespec{};  // nothing: can't be read

// Stands in for that of the C library in this program.
extern "C" int clock_gettime(clockid_t /*clock*/, std::timespec* now) noexcept
{
    errno = EINVAL;
    *now = systemClock.value_or(std::timespec{});
    return systemClock ? 0 : -1;
}

namespace {

constexpr std::int32_t most = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t least = std::numeric_limits<std::int32_t>::min();

// Before anything asks for the zone of the start.
const int zoneOfTheStart = setenv("TZ", "XYZ-3", 1);

TEST(Time, ArithmeticAndDecimalText)
{
    struct Case {
        Time time;
        const char* text;
    };
    const Case cases[] = {
        {{0, 7}, "0.000007"},
        {{-1, 999999}, "-0.000001"},
        {Time(5, 999999) + Time(0, 1), "6.000000"},
        {Time(5, 0) + Time(-1, 500000), "4.500000"},
        {Time(most, 999999) + Time(0, 1), "2147483647.000000"},
        {Time(least, 0) + Time(-1, 0), "0.000000"},
        {Time(least, 0) + Time(60, 0), "-2147483588.000000"},  // past 2038
        {Time(5, 0) - Time(0, 1), "4.999999"},
        {Time(0, 0) - Time(0, 250000), "-0.250000"},
        {Time(least + 10, 0) - Time(most - 10, 0), "21.000000"},
        {Time(-1.75), "-1.750000"},
        {Time(-1e-20), "0.000000"},  // the fraction above -1 rounds to a whole second
        {Time(2147483648.5), "2147483647.000000"},
        {Time(-1e300), "-2147483648.000000"},
        {Time(std::nan("")), "0.000000"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.time.toString(), c.text);
}

TEST(Time, Compares)
{
    const Time ascending[] = {{least, 0}, {-1, 0}, {-1, 500000}, {0, 0}, {0, 1}, Time::infinity};
    for (std::size_t i = 1; i < std::size(ascending); ++i) {
        const Time& left = ascending[i - 1];
        const Time& right = ascending[i];
        EXPECT_TRUE(left < right && left <= right && left <= left && left >= left) << i;
        EXPECT_FALSE(right < left || right <= left || left >= right || left < left) << i;
    }
}

TEST(TimeZone, ShiftsTextsAndGoesToTheEnvironment)
{
    struct Case {
        std::int64_t seconds;
        std::int32_t offset;
        const char* zone;
        const char* text;
    };
    const Case cases[] = {
        {1089360300, 3600, "GMT-1", "2004-07-09 09:05:00"},
        {0, -19800, "GMT5:30", "1969-12-31 18:30:00"},
        {0, 3661, "GMT-1:01:01", "1970-01-01 01:01:01"},
        {0, -59, "GMT0:59", "1969-12-31 23:01:00"},
        {253402300800, 0, "GMT-0", "10000-01-01 00:00:00"},
        {0, TimeZone::systemOffset, "XYZ-3", "1970-01-01 03:00:00"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(time2str(c.seconds, TimeZone(c.offset)), c.text);
        EXPECT_STREQ(std::getenv("TZ"), c.zone) << c.offset;
    }
    EXPECT_EQ(outcome<error::ESystemError>([] { return time2str(most * 4294967296, TimeZone(0)); }),
              "Couldn't get localtime for time 9223372032559808512");

    setTimeZone(TimeZone(5400));
    EXPECT_EQ(Time(0, 0).format("%H:%M", true), "01:30");
    EXPECT_EQ(Time(most, 0).format(timePattern, false), "Tue Jan 19 03:14:07 2038");
    EXPECT_EQ(Time(-1, 999999).format(timePattern, false), "invalid time");
}

TEST(Clocks, MeasureOrFailWithTheirTexts)
{
    systemClock = {2147483649, 1999};  // past 2038
    EXPECT_EQ(Time::now().toString(), "-2147483646.999999");
    systemClock = {1, 0};
    StopWatch watch;
    systemClock = {4, 999999};
    watch.stop();
    watch.restart();  // leaves the measurement alone
    EXPECT_EQ(watch.seconds(), 3);
    EXPECT_EQ(watch.microseconds(), 999);

    systemClock.reset();
    EXPECT_EQ(outcome<error::syserror>([&] { return watch.restart(), ""; }),
              "Error reading performance time counter!: Invalid argument");
    EXPECT_EQ(outcome<error::syserror>([&] { return watch.stop(), ""; }),
              "Error reading performance stop time counter!: Invalid argument");
    testing::internal::CaptureStderr();
    Time::now();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "(TIME) Error getting system time \n"
              "(TIME) This may cause inaccurate measurements \n");
}

}  // namespace
