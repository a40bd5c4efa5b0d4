// Points in time and spans, the text forms of times, and the switch of the time zone.
#pragma once

#include <compare>
#include <cstdint>
#include <ctime>
#include <string>

// A point in time (seconds since 1970-01-01 00:00:00 UTC) or a span. `usec` is 0 to 999999 in
// every normalised value, in negative ones too: minus half a second is (-1, 500000).
struct Time {
    std::int32_t sec = 0;
    std::int32_t usec = 0;  // microseconds

    constexpr Time() = default;
    constexpr Time(std::int32_t seconds, std::int32_t microseconds)
        : sec(seconds), usec(microseconds)
    {
    }
    explicit Time(double seconds);
    explicit operator double() const { return usec / 1000000.0 + sec; }

    // The wall clock. Seconds beyond 32 bits wrap.
    static Time now();

    // 2147483647 s: no deadline at all.
    static const Time infinity;
    static const Time second;
    static const Time minute;
    static const Time hour;
    static const Time day;
    static const Time millisecond;
    static const Time microsecond;

    // Overflow gives infinity; underflow (0, 0).
    Time& operator+=(const Time& other);

    bool operator==(const Time&) const = default;

    std::string toString() const;  // "-0.500000"
    // A strftime pattern, at most 1023 characters; "invalid time" if the time can't be broken
    // down. Local time or UTC.
    std::string format(const char* pattern, bool local) const;
};

Time operator-(const Time& left, const Time& right);
Time operator+(const Time& left, const Time& right);
bool operator<(const Time& left, const Time& right);
bool operator>=(const Time& left, const Time& right);
bool operator<=(const Time& left, const Time& right);

// The pattern in which logs and printers show a point in time.
inline constexpr const char* timePattern = "%a %b %d %H:%M:%S %Y";

// An offset in seconds east of Greenwich. The first construction in the process keeps the value
// that TZ has then.
struct TimeZone {
    std::int32_t offset;
    explicit TimeZone(std::int32_t secondsEast);
    static const TimeZone& system();  // the zone with which the process was started

    static constexpr std::int32_t systemOffset = 0xffffff;
};

// "2004-07-09 08:05:00". Seconds since 1970; below 0 is an assertion.
std::string time2str(std::int64_t seconds, TimeZone zone);
// Both throw error::ESystemError.
void timeToTm(TimeZone zone, std::tm* out, std::int64_t seconds);
void setTimeZone(TimeZone zone);

extern const char* const dayNames[7];           // "Sun" to "Sat"
extern const char* const monthNames[12];        // "Jan" to "Dec"
extern const char* const monthNamesInFull[12];  // "January" to "December"
