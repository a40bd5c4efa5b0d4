// What the crash handler hands to the post-mortem writer.
#pragma once

#include <csignal>
#include <ucontext.h>

namespace platform {

struct ExceptionPointers {
    int signal = 0;
    const siginfo_t* info = nullptr;      // null for an exception that nobody caught
    const ucontext_t* context = nullptr;  // the registers at the fault; likewise
    const char* reason = nullptr;         // null if the signal says it all
    const char* exceptionType = nullptr;
    const char* exceptionMessage = nullptr;
};

}  // namespace platform
