#include "common/Time.h"

#include "common/assertion.h"
#include "common/errors.h"
#include "common/text.h"
#include "platform/Clock.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <optional>

const char* const dayNames[7] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
const char* const monthNames[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                    "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
const char* const monthNamesInFull[12] = {"January",   "February", "March",    "April",
                                          "May",       "June",     "July",     "August",
                                          "September", "October",  "November", "December"};

namespace {

constexpr std::int32_t usecPerSecond = 1000000;
constexpr std::uint64_t ticksPerSecond = 10000000;            // of 100 nanoseconds
constexpr std::uint64_t ticksUpTo1970 = 116444736000000000u;  // from 1601

// Sums that wrap at 32 bits, as seconds do after 2038.
std::int32_t wrappingSum(std::int32_t left, std::int32_t right)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(left) +
                                     static_cast<std::uint32_t>(right));
}

std::int32_t wrappingDifference(std::int32_t left, std::int32_t right)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(left) -
                                     static_cast<std::uint32_t>(right));
}

std::string sixDigits(std::int32_t usec)
{
    std::string digits = intToString(usec);
    if (digits.size() < 6)
        digits.insert(0, 6 - digits.size(), '0');
    return digits;
}

// The value of TZ at the first call; nothing if it was not set. Never freed, since static objects
// may print times while the process ends.
const std::optional<std::string>& startupZone()
{
    static const std::optional<std::string>* const value = [] {
        const char* zone = std::getenv("TZ");
        return zone != nullptr ? new std::optional<std::string>(zone)
                               : new std::optional<std::string>();
    }();
    return *value;
}

std::string zoneText(TimeZone zone)
{
    if (zone.offset == TimeZone::systemOffset)
        return startupZone().value_or("");

    const std::int64_t distance = std::llabs(zone.offset);
    const auto hours = static_cast<std::int32_t>(distance / 3600);
    const auto minutes = static_cast<std::int32_t>(distance % 3600 / 60);
    const auto seconds = static_cast<std::int32_t>(distance % 60);
    // TZ counts westwards, so the sign runs against the offset's.
    std::string text = zone.offset >= 0 ? "GMT-" : "GMT";
    text += intToString(hours);
    if (minutes != 0)
        text += ":" + intToString(minutes, true);
    if (seconds != 0)
        text += ":" + intToString(seconds, true);
    return text;
}

}  // namespace

Time::Time(double seconds)
{
    using Limits = std::numeric_limits<std::int32_t>;
    const double whole = std::floor(seconds);
    if (std::isnan(whole))
        return;
    if (whole > Limits::max()) {
        *this = infinity;
        return;
    }
    if (whole < Limits::min()) {
        sec = Limits::min();
        return;
    }
    sec = static_cast<std::int32_t>(whole);
    usec = static_cast<std::int32_t>((seconds - whole) * usecPerSecond);
    // A value just below a whole second can round up to it in the subtraction.
    if (usec == usecPerSecond) {
        sec += 1;
        usec = 0;
    }
}

Time Time::now()
{
    std::uint64_t ticks = ticksUpTo1970;
    if (!platform::systemTimeAsFileTime(&ticks)) {
        std::fputs("(TIME) Error getting system time \n"
                   "(TIME) This may cause inaccurate measurements \n",
                   stderr);
    }
    ticks -= ticksUpTo1970;
    return Time(static_cast<std::int32_t>(ticks / ticksPerSecond),
                static_cast<std::int32_t>(ticks % ticksPerSecond / 10));
}

Time& Time::operator+=(const Time& other)
{
    Time sum(wrappingSum(sec, other.sec), wrappingSum(usec, other.usec));
    if (sum.usec >= usecPerSecond) {
        sum.sec = wrappingSum(sum.sec, 1);
        sum.usec -= usecPerSecond;
    }
    if (sum.usec >= usecPerSecond)
        assertion("Too big usec in +=");

    if (other.sec >= 0 && sum.sec < sec)
        *this = infinity;
    else if (other.sec < 0 && sum.sec > sec)
        *this = Time();
    else
        *this = sum;
    return *this;
}

Time operator-(const Time& left, const Time& right)
{
    Time difference(wrappingDifference(left.sec, right.sec),
                    wrappingDifference(left.usec, right.usec));
    if (difference.usec < 0) {
        difference.sec = wrappingDifference(difference.sec, 1);
        difference.usec += usecPerSecond;
    }
    if (difference.usec < 0)
        assertion("Negative usec");
    return difference;
}

Time operator+(const Time& left, const Time& right)
{
    Time sum = left;
    sum += right;
    return sum;
}

bool operator<(const Time& left, const Time& right)
{
    return left.sec != right.sec ? left.sec < right.sec : left.usec < right.usec;
}

bool operator>=(const Time& left, const Time& right)
{
    return !(left < right);
}

bool operator<=(const Time& left, const Time& right)
{
    return !(static_cast<double>(left) > static_cast<double>(right));
}

std::string Time::toString() const
{
    if (sec >= 0 || usec == 0)
        return intToString(sec) + "." + sixDigits(usec);
    return "-" + int64ToString(-std::int64_t{sec} - 1) + "." + sixDigits(usecPerSecond - usec);
}

std::string Time::format(const char* pattern, bool local) const
{
    const std::time_t seconds = sec;
    std::tm parts = {};
    if (seconds < 0 ||
        (local ? localtime_r(&seconds, &parts) : gmtime_r(&seconds, &parts)) == nullptr) {
        return "invalid time";
    }
    char text[1024];
    return std::string(text, std::strftime(text, sizeof text, pattern, &parts));
}

TimeZone::TimeZone(std::int32_t secondsEast) : offset(secondsEast)
{
    startupZone();
}

const TimeZone& TimeZone::system()
{
    static const TimeZone zone(systemOffset);
    return zone;
}

std::string time2str(std::int64_t seconds, TimeZone zone)
{
    if (seconds < 0)
        assertion("time2str(): Parameter less than 0");
    std::tm parts = {};
    timeToTm(zone, &parts, seconds);
    return int64ToString(std::int64_t{parts.tm_year} + 1900) + "-" +
           intToString(parts.tm_mon + 1, true) + "-" + intToString(parts.tm_mday, true) + " " +
           intToString(parts.tm_hour, true) + ":" + intToString(parts.tm_min, true) + ":" +
           intToString(parts.tm_sec, true);
}

void timeToTm(TimeZone zone, std::tm* out, std::int64_t seconds)
{
    setTimeZone(zone);
    const std::time_t time = seconds;
    if (localtime_r(&time, out) == nullptr)
        throw error::ESystemError("Couldn't get localtime for time " + int64ToString(seconds));
}

void setTimeZone(TimeZone zone)
{
    const std::string text = zoneText(zone);
    // An empty TZ would mean Greenwich; only without the variable the system's own zone holds.
    const int failed = text.empty() ? unsetenv("TZ") : setenv("TZ", text.c_str(), 1);
    if (failed != 0)
        throw error::ESystemError("Couldn't set TZ environment variable");
    tzset();
}
