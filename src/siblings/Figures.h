// What a member has sent and received, and how that is shown.
#pragma once

#include <cstdint>
#include <string>

namespace siblings {

// Since the start of a member. Bytes are those of the bodies of messages.
struct Counts {
    std::uint64_t sent = 0;
    std::uint64_t sentBytes = 0;
    std::uint64_t received = 0;
    std::uint64_t receivedBytes = 0;
    std::uint64_t wrong = 0;  // times that something was not what it should be

    Counts& operator+=(const Counts& more);
};

// Counts at a moment. As it stands, it is the body of a report.
struct Figures {
    Counts counts;
    std::int64_t age = 0;  // of the member, in microseconds
};

// The lines of a table that shows rates.
std::string tableHead(double seconds);
std::string tableRow(const std::string& who, const Figures& now, const Figures& before);
std::string tableGap(const std::string& who);  // for one that has not told its figures

// What all have received, in words.
std::string summary(const Counts& all, double seconds);

}  // namespace siblings
