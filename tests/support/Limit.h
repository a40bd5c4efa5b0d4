// The limit under which every wait of a test stands.
#pragma once

#include <chrono>
#include <stdexcept>
#include <string>

namespace support {

// Generous: it ends a test that hangs, and judges nothing.
inline constexpr std::chrono::seconds usualLimit{30};

class Deadline {
public:
    explicit Deadline(std::chrono::milliseconds limit = usualLimit)
        : end(std::chrono::steady_clock::now() + limit)
    {}

    std::chrono::steady_clock::time_point at() const { return end; }

    // For poll(): milliseconds that are left, rounded up. Throws LimitPassed if there are none.
    int remaining(const std::string& whatFor) const;

private:
    std::chrono::steady_clock::time_point end;
};

class LimitPassed : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

inline int Deadline::remaining(const std::string& whatFor) const
{
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    if (left.count() <= 0)
        throw LimitPassed("the limit passed while waiting for " + whatFor);
    return static_cast<int>(left.count());
}

}  // namespace support
