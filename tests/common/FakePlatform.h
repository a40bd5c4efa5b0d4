// A platform that answers as a test wants: clocks, error texts, and the operations of a crash.
//
// Its definitions stand in for those of the platform library in the program that they are linked
// into. reset() gives the defaults back: everything succeeds.
#pragma once

#include "platform/Crash.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace fake {

struct Platform {
    std::optional<std::uint64_t> wallClock = 0;  // ticks since 1601; nothing: can't be read
    std::optional<std::int64_t> counter = 0;
    std::optional<std::int64_t> frequency = 1000000000;

    std::uint32_t lastError = 0;
    std::map<std::uint32_t, std::string> texts;

    platform::ExceptionFilter filter = nullptr;
    std::optional<std::string> executable;
    bool postMortemCreated = true;
    bool postMortemWritten = true;
    std::uint32_t postMortemError = 0;
    platform::ExceptionPointers* postMortemPointers = nullptr;
    std::vector<std::string> postMortems;  // paths
    std::vector<std::string> events;       // "source: text"
};

extern Platform now;
void reset();

}  // namespace fake
