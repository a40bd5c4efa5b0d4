// The limit under which every wait of a test stands.
#pragma once

#include <chrono>
#include <stdexcept>

namespace support {

class LimitPassed : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

using Deadline = std::chrono::steady_clock::time_point;

// Generous: it ends a test that hangs, and judges nothing.
inline Deadline usualLimit()
{
    return std::chrono::steady_clock::now() + std::chrono::seconds(30);
}

}  // namespace support
