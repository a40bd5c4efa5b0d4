// How the benchmark gives up.
#pragma once

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>

#include <unistd.h>

namespace bench {

// A system call has failed: throws std::runtime_error with the text of errno.
[[noreturn]] inline void failCall(const std::string& call)
{
    throw std::runtime_error(call + ": " + std::strerror(errno));
}

// In a process of the benchmark's own: the work, and the end of the process. The exit code is 1
// if the work throws.
template <class Work>
[[noreturn]] void runAndExit(const char* name, const Work& work)
{
    try {
        work();
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s: %s\n", name, e.what());
        _exit(1);
    }
    _exit(0);
}

}  // namespace bench
