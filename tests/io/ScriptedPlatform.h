// A platform that does what a test says, and a clock that stands still until the test moves it.
//
// Its definitions take the place of the real ones in the program that links them. Operations are
// only noted; the test ends them by calling complete(). Waits are answered by a function of the
// test.
#pragma once

#include "common/Time.h"
#include "platform/Overlapped.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <set>
#include <string>
#include <vector>

namespace scripted {

struct Operation {
    std::string kind;  // "read", "write", "recv", "send"
    std::uint64_t target = 0;
    char* buffer = nullptr;
    std::uint32_t count = 0;
    platform::Overlapped* overlapped = nullptr;
    platform::CompletionRoutine routine = nullptr;
};

// What the next start of an operation answers: whether it succeeds, and the error code left.
struct Start {
    bool succeeds = true;
    std::uint32_t code = 0;
};

struct Connect {
    void (*ended)(void* context, std::uint32_t code) = nullptr;
    void* context = nullptr;
};

using Wait = std::function<std::uint32_t(const std::vector<platform::Handle>& handles,
                                         std::uint32_t timeoutMs)>;

// All of it, put back by reset().
struct State {
    Time now = Time(1000, 0);
    std::vector<std::string> calls;    // in order, as "read 5 4096"; waits are left out
    std::deque<Operation> operations;  // under way, oldest first
    std::deque<Start> starts;          // answers to starts; success when there are none
    std::uint64_t started = 0;         // operations, failed ones included
    std::uint64_t waits = 0;
    Wait wait;                          // none: a wait fails the test
    std::set<std::uint64_t> signalled;  // handles, for those who ask without a wait
    std::vector<Connect> connects;      // those begun, oldest first; the first has the handle 101
    std::uint32_t socketError = 0;      // not 0: no socket is to be had
    std::uint32_t shutdownError = 0;    // not 0: shutdown fails
    int startupResult = 0;              // of wsaStartup
};
extern State state;
void reset();

// Ends the oldest operation, with bytes for a read.
void complete(std::uint32_t error, std::uint32_t bytes);
void complete(const std::string& bytes);

// A wait that ends the oldest operation of its time with the code 995, as a close does.
Wait abortingWait();

}  // namespace scripted
