// A platform that does what a test says, and a clock that only waits and the test move.
//
// Its definitions take the place of the real ones in the program that links them.
#pragma once

#include "common/Time.h"
#include "platform/Overlapped.h"

#include <cstdint>
#include <deque>
#include <set>
#include <vector>

namespace scripted {

struct Operation {
    const char* bytes = nullptr;
    std::uint32_t count = 0;
    platform::Overlapped* overlapped = nullptr;
    platform::CompletionRoutine routine = nullptr;
};

struct State {
    Time now = Time(1000, 0);
    std::deque<Operation> operations;  // under way, oldest first
    int arrivals = 0;                  // how many operations waits may end, with one byte each
    std::set<platform::Handle> signalled;
    std::vector<std::uint32_t> timeouts;  // of the waits so far, milliseconds
};
extern State state;

}  // namespace scripted
