// A program for the tests to start. Its first argument says what to do.

#include "platform/Crash.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

// Visible everywhere, and called through a variable, so that the compiler can't know which pure()
// is meant.
struct Base {
    Base() { callBack(this); }
    virtual ~Base() = default;
    virtual void pure() = 0;
    static void (*volatile callBack)(Base*);
};
void (*volatile Base::callBack)(Base*) = [](Base* self) {
    self->pure();
};

struct Derived : Base {
    void pure() override {}
};

namespace {

using namespace platform;

void showPath()
{
    char path[4096];
    if (moduleFileName(path, sizeof path))
        std::printf("%s ", path);
}

const char* dumpPath = nullptr;

int writeDump(ExceptionPointers* pointers)
{
    bool created = false;
    const bool written = writePostMortem(dumpPath, pointers, &created);
    return written && write(STDOUT_FILENO, "written ", 8) == 8;
}

[[gnu::noinline]] long overflow(volatile char* outer, long depth)
{
    volatile char inner[4096];
    inner[0] = *outer;
    return depth == 0 ? 0 : overflow(inner, depth - 1) + inner[0];
}

void crash(const std::string& how)
{
    if (how == "fault") {
        volatile int* volatile nowhere = reinterpret_cast<int*>(0x40);
        *nowhere = 1;
    } else if (how == "overflow") {
        volatile char first = 0;
        overflow(&first, 1'000'000);
    } else if (how == "exception") {
        throw std::length_error("a message of its own");
    } else if (how == "pure") {
        Derived derived;
    } else {
        std::abort();
    }
}

}  // namespace

// NOLINTNEXTLINE(bugprone-exception-escape): one of the crashes is an exception
int main(int argc, char** argv)
{
    const std::string what = argc > 1 ? argv[1] : "";
    if (what == "path" || (what == "upgraded" && unlink(argv[2]) == 0)) {
        showPath();
    } else if (what == "crash") {
        dumpPath = argv[3];
        setUnhandledExceptionFilter(writeDump);
        crash(argv[2]);
    }
    return 0;
}
