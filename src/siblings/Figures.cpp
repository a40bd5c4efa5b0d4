#include "siblings/Figures.h"

#include "common/text.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace siblings {

namespace {

template <class... Values>
std::string print(const char* pattern, Values... values)
{
    std::array<char, 160> line{};
    std::snprintf(line.data(), line.size(), pattern, values...);
    return line.data();
}

constexpr double mega = 1e6;  // also microseconds in a second

}  // namespace

Counts& Counts::operator+=(const Counts& more)
{
    sent += more.sent;
    sentBytes += more.sentBytes;
    received += more.received;
    receivedBytes += more.receivedBytes;
    wrong += more.wrong;
    return *this;
}

std::string tableHead(double seconds)
{
    return print("%8.1f s          sent/s       MB/s   received/s       MB/s", seconds);
}

std::string tableRow(const std::string& who, const Figures& now, const Figures& before)
{
    const double seconds =
        static_cast<double>(std::max<std::int64_t>(now.age - before.age, 1)) / mega;
    const auto rate = [seconds](std::uint64_t later, std::uint64_t earlier) {
        return static_cast<double>(later - earlier) / seconds;
    };
    return print("  %-12s %12.0f %10.2f %12.0f %10.2f", who.c_str(),
                 rate(now.counts.sent, before.counts.sent),
                 rate(now.counts.sentBytes, before.counts.sentBytes) / mega,
                 rate(now.counts.received, before.counts.received),
                 rate(now.counts.receivedBytes, before.counts.receivedBytes) / mega);
}

std::string tableGap(const std::string& who)
{
    return print("  %-12s %12s %10s %12s %10s", who.c_str(), "-", "-", "-", "-");
}

std::string summary(const Counts& all, double seconds)
{
    return print("%.1f s: ", seconds) + uint64ToString(all.received) + " messages received, " +
           print("%.1f MB, ", static_cast<double>(all.receivedBytes) / mega) +
           (all.wrong == 0 ? "all in order and whole"
                           : "and " + uint64ToString(all.wrong) + " times something was wrong");
}

}  // namespace siblings
