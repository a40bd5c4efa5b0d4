// Points in time and spans, the text forms of times, and the switch of the time zone.
//
// Everything here serves the single thread of the process: the switch of the zone changes the
// environment and the zone of the C library.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

// A point in time (seconds since 1970-01-01 00:00:00 UTC) or a span. `usec` is 0 to 999999 in
// every normalised value, in negative ones too: minus half a second is (-1, 500000).
//
// Points after 2038 wrap to negative seconds; sums and comparisons among them work again.
struct Time {
    std::int32_t sec = 0;
    std::int32_t usec = 0;  // microseconds

    constexpr Time() = default;
    constexpr Time(std::int32_t seconds, std::int32_t microseconds)
        : sec(seconds), usec(microseconds)
    {}
    // Microseconds are cut towards minus infinity. Beyond 32 bits of seconds it gives infinity
    // or the lowest second; not a number gives 0.
    explicit Time(double seconds);
    explicit operator double() const { return usec / 1000000.0 + sec; }

    // The wall clock, cut to microseconds. Seconds beyond 32 bits wrap.
    static Time now();

    static const Time infinity;  // no deadline at all
    static const Time second;
    static const Time minute;
    static const Time hour;
    static const Time day;
    static const Time millisecond;
    static const Time microsecond;

    // Overflow gives infinity, underflow (0, 0). An operand that isn't normalised is an
    // assertion.
    Time& operator+=(const Time& other);

    bool operator==(const Time&) const = default;

    std::string toString() const;  // seconds with six decimals: "-0.500000"
    // A strftime pattern, in local time or UTC. Gives the empty text if the result would be
    // longer than 1023 characters, "invalid time" for a time before 1970.
    std::string format(const char* pattern, bool local) const;
};

inline constexpr Time Time::infinity(2147483647, 0);
inline constexpr Time Time::second(1, 0);
inline constexpr Time Time::minute(60, 0);
inline constexpr Time Time::hour(3600, 0);
inline constexpr Time Time::day(86400, 0);
inline constexpr Time Time::millisecond(0, 1000);
inline constexpr Time Time::microsecond(0, 1);

// Seconds wrap at 32 bits. An operand that isn't normalised is an assertion.
Time operator-(const Time& left, const Time& right);
// Like +=.
Time operator+(const Time& left, const Time& right);
bool operator<(const Time& left, const Time& right);
bool operator>=(const Time& left, const Time& right);
bool operator<=(const Time& left, const Time& right);  // compares the values as doubles

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

// "2004-07-09 08:05:00". Seconds since 1970; below 0 is an assertion. Throws what timeToTm throws.
std::string time2str(std::int64_t seconds, TimeZone zone);
// Breaks seconds since 1970 down, and leaves the zone as the current one. Throws
// error::ESystemError if the year doesn't fit, and what setTimeZone throws.
void timeToTm(TimeZone zone, std::tm* out, std::int64_t seconds);
// Makes the zone the current one, in the environment too. Throws error::ESystemError.
void setTimeZone(TimeZone zone);

extern const char* const dayNames[7];           // "Sun" to "Sat"
extern const char* const monthNames[12];        // "Jan" to "Dec"
extern const char* const monthNamesInFull[12];  // "January" to "December"
