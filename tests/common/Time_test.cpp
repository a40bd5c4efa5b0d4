#include "common/Time.h"

#include "common/errors.h"

#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <cstdlib>
#include <limits>

// How failing rows show a time. Found through the namespace of Time, the global one.
static std::ostream& operator<<(std::ostream& stream, const Time& time)
{
    return stream << "(" << time.sec << ", " << time.usec << ")";
}

namespace {

constexpr std::int32_t most = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t least = std::numeric_limits<std::int32_t>::min();

TEST(Time, Adds)
{
    struct Case {
        Time left, right, sum;
    };
    const Case cases[] = {
        {{5, 999999}, {0, 1}, {6, 0}},
        {{5, 500000}, {1, 499999}, {6, 999999}},
        {{5, 0}, {-1, 500000}, {4, 500000}},
        {{0, 500000}, {-1, 500000}, {0, 0}},
        {{-3, 0}, {1, 0}, {-2, 0}},
        {{most, 0}, {1, 0}, Time::infinity},
        {{most, 999999}, {0, 1}, Time::infinity},
        {{1, 0}, Time::infinity, Time::infinity},
        {{most - 1, 0}, {1, 0}, {most, 0}},
        {{least, 0}, {-1, 0}, {0, 0}},
        {{-2000000000, 0}, {-2000000000, 0}, {0, 0}},
        {{least, 0}, {60, 0}, {least + 60, 0}},  // past 2038
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.left + c.right, c.sum) << c.left << " + " << c.right;
        Time inPlace = c.left;
        EXPECT_EQ(&(inPlace += c.right), &inPlace);
        EXPECT_EQ(inPlace, c.sum);
    }
    Time doubled(2, 600000);
    doubled += doubled;
    EXPECT_EQ(doubled, Time(5, 200000));
}

TEST(Time, Subtracts)
{
    struct Case {
        Time left, right, difference;
    };
    const Case cases[] = {
        {{5, 0}, {0, 1}, {4, 999999}},       {{5, 7}, {5, 7}, {0, 0}},
        {{0, 0}, {0, 500000}, {-1, 500000}}, {{least + 10, 0}, {most - 10, 0}, {21, 0}},
        {{most, 0}, {-1, 0}, {least, 0}},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.left - c.right, c.difference) << c.left << " - " << c.right;
}

TEST(TimeDeathTest, RefusesWhatIsNotNormalised)
{
    const auto aborted = testing::KilledBySignal(SIGABRT);
    EXPECT_EXIT(Time(1, 0) - Time(0, 1000001), aborted, "^Assertion failed: Negative usec\n$");
    EXPECT_EXIT(Time(1, 999999) + Time(0, 1000001), aborted,
                "^Assertion failed: Too big usec in \\+=\n$");
    EXPECT_EXIT(time2str(-1, TimeZone::system()), aborted,
                "^Assertion failed: time2str\\(\\): Parameter less than 0\n$");
}

TEST(Time, Compares)
{
    const Time ascending[] = {{least, 0}, {-1, 0},     {-1, 500000}, {0, 0},
                              {0, 1},     {0, 999999}, {1, 0},       Time::infinity};
    const std::size_t count = std::size(ascending);
    for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t j = 0; j < count; ++j) {
            const Time& left = ascending[i];
            const Time& right = ascending[j];
            EXPECT_EQ(left < right, i < j) << left << " " << right;
            EXPECT_EQ(left >= right, i >= j) << left << " " << right;
            EXPECT_EQ(left <= right, i <= j) << left << " " << right;
            EXPECT_EQ(left == right, i == j) << left << " " << right;
        }
    }
}

TEST(Time, FromDouble)
{
    struct Case {
        double seconds;
        Time time;
    };
    const Case cases[] = {
        {1.5, {1, 500000}},
        {-0.5, {-1, 500000}},
        {-1.75, {-2, 250000}},
        {0.9999999, {0, 999999}},
        {-3.0, {-3, 0}},
        {-1e-20, {0, 0}},  // the fraction above -1 rounds to a whole second
        {2147483647.5, {most, 500000}},
        {2147483648.0, Time::infinity},
        {-2147483648.0, {least, 0}},
        {-1e300, {least, 0}},
        {std::nan(""), {0, 0}},
    };
    for (const Case& c : cases)
        EXPECT_EQ(Time(c.seconds), c.time) << c.seconds;
    EXPECT_EQ(static_cast<double>(Time(-2, 250000)), -1.75);
}

TEST(Time, DecimalText)
{
    struct Case {
        Time time;
        const char* text;
    };
    const Case cases[] = {
        {{0, 0}, "0.000000"},
        {{1, 500000}, "1.500000"},
        {{0, 7}, "0.000007"},
        {{-1, 500000}, "-0.500000"},
        {{-2, 250000}, "-1.750000"},
        {{-1, 999999}, "-0.000001"},
        {{-3, 0}, "-3.000000"},
        {{least, 0}, "-2147483648.000000"},
        {{least, 1}, "-2147483647.999999"},
        {Time::infinity, "2147483647.000000"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.time.toString(), c.text);
}

// Each test starts and ends in the zone of the process.
class Zones : public testing::Test {
protected:
    void SetUp() override { setTimeZone(TimeZone::system()); }
    void TearDown() override { setTimeZone(TimeZone::system()); }
};

TEST_F(Zones, PatternText)
{
    EXPECT_EQ(Time(0, 999999).format(timePattern, false), "Thu Jan 01 00:00:00 1970");
    EXPECT_EQ(Time(most, 0).format(timePattern, false), "Tue Jan 19 03:14:07 2038");
    EXPECT_EQ(Time(-1, 999999).format(timePattern, false), "invalid time");
    EXPECT_EQ(Time(-1, 0).format(timePattern, true), "invalid time");
    EXPECT_EQ(Time(0, 0).format(std::string(1023, 'x').c_str(), false), std::string(1023, 'x'));
    EXPECT_EQ(Time(0, 0).format(std::string(1024, 'x').c_str(), false), "");

    setTimeZone(TimeZone(5400));
    EXPECT_EQ(Time(0, 0).format("%H:%M", true), "01:30");
    EXPECT_EQ(Time(0, 0).format("%H:%M", false), "00:00");
}

TEST_F(Zones, HandTheZoneToTheEnvironment)
{
    struct Case {
        std::int32_t offset;
        const char* zone;
    };
    const Case cases[] = {
        {0, "GMT-0"},        {3600, "GMT-1"},       {-3600, "GMT1"},
        {-19800, "GMT5:30"}, {3661, "GMT-1:01:01"}, {-45296, "GMT12:34:56"},
        {36000, "GMT-10"},   {-59, "GMT0:59"},      {least, "GMT596523:14:08"},
    };
    for (const Case& c : cases) {
        setTimeZone(TimeZone(c.offset));
        EXPECT_STREQ(std::getenv("TZ"), c.zone) << c.offset;
    }
}

TEST_F(Zones, TextOfAPoint)
{
    struct Case {
        std::int64_t seconds;
        std::int32_t offset;
        const char* text;
    };
    const Case cases[] = {
        {0, 0, "1970-01-01 00:00:00"},
        {1089360300, 0, "2004-07-09 08:05:00"},
        {1089360300, 3600, "2004-07-09 09:05:00"},
        {0, -19800, "1969-12-31 18:30:00"},
        {1709164799, 0, "2024-02-28 23:59:59"},
        {1709164800, 0, "2024-02-29 00:00:00"},
        {4294967296, 0, "2106-02-07 06:28:16"},
        {253402300800, 0, "10000-01-01 00:00:00"},
        {67767976233532799, 0, "2147483647-12-31 23:59:59"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(time2str(c.seconds, TimeZone(c.offset)), c.text);

    try {
        time2str(std::numeric_limits<std::int64_t>::max(), TimeZone(0));
        ADD_FAILURE() << "no exception";
    } catch (const error::ESystemError& e) {
        EXPECT_EQ(e.text(), "Couldn't get localtime for time 9223372036854775807");
    }
}

// Runs in a fresh process: the zone of the start is read once in a process.
void startWithZone(const char* zone, const char* wantedAfterwards, const char* wantedText)
{
    if (zone != nullptr)
        setenv("TZ", zone, 1);
    else
        unsetenv("TZ");
    const TimeZone other(7200);
    setenv("TZ", "GMT-5", 1);  // comes too late to be the zone of the start
    setTimeZone(other);
    const std::string text = time2str(0, TimeZone::system());
    const char* now = std::getenv("TZ");
    const bool same = wantedAfterwards == nullptr
                          ? now == nullptr
                          : now != nullptr && std::string(now) == wantedAfterwards;
    std::exit(same && (wantedText == nullptr || text == wantedText) ? 0 : 1);
}

TEST(TimeZoneDeathTest, SystemIsTheZoneOfTheStart)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto fine = testing::ExitedWithCode(0);
    EXPECT_EXIT(startWithZone("XYZ-3", "XYZ-3", "1970-01-01 03:00:00"), fine, "");
    EXPECT_EXIT(startWithZone(nullptr, nullptr, nullptr), fine, "");
    EXPECT_EXIT(startWithZone("", nullptr, nullptr), fine, "");
}

TEST(Time, NamesInOrder)
{
    EXPECT_EQ(std::string(dayNames[0]) + dayNames[6], "SunSat");
    for (int month = 0; month < 12; ++month) {
        std::tm parts = {};
        parts.tm_mon = month;
        char text[32];
        std::strftime(text, sizeof text, "%b %B", &parts);
        EXPECT_EQ(std::string(monthNames[month]) + " " + monthNamesInFull[month], text);
    }
}

}  // namespace
