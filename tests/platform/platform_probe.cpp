// A program for the tests to start. Its first argument says what to do.

#include "platform/Crash.h"
#include "platform/Overlapped.h"
#include "platform/Process.h"

#include <csignal>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
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

// Writes the numbers of all open descriptors.
void listDescriptors()
{
    std::set<int> open;
    DIR* const directory = opendir("/proc/self/fd");
    while (const dirent* entry = readdir(directory)) {
        if (entry->d_name[0] != '.')
            open.insert(std::atoi(entry->d_name));
    }
    open.erase(dirfd(directory));
    closedir(directory);
    for (const int fd : open)
        std::printf("%d ", fd);
}

void showSignals()
{
    struct sigaction action {};
    sigaction(SIGPIPE, nullptr, &action);
    sigset_t blocked;
    sigprocmask(SIG_SETMASK, nullptr, &blocked);
    std::printf("SIGPIPE %s, mask %s", action.sa_handler == SIG_DFL ? "default" : "not default",
                sigisemptyset(&blocked) ? "empty" : "not empty");
}

// Which standard handles there are, and whether the numbers of the others are taken.
void showStandardHandles()
{
    dup(STDERR_FILENO);  // what a library might do before anybody uses the platform
    const bool input = getStdHandle(STD_INPUT_HANDLE) != Handle::none;
    const bool output = getStdHandle(STD_OUTPUT_HANDLE) != Handle::none;
    const SocketHandle socket = udpSocket();
    std::string sockets;
    for (int fd = 0; fd < 3; ++fd) {
        struct stat status {};
        const bool taken = fstat(fd, &status) == 0 && !S_ISSOCK(status.st_mode);
        sockets += taken ? "taken " : "free ";
    }
    closeSocket(socket);
    std::fprintf(stderr, "input %s, output %s, numbers %s", input ? "yes" : "no",
                 output ? "yes" : "no", sockets.c_str());
}

// Closes the standard input, and shows what a new descriptor gets instead of its number.
void closeInput()
{
    const Handle input = getStdHandle(STD_INPUT_HANDLE);
    const bool same = input == getStdHandle(STD_INPUT_HANDLE);
    const bool closed = closeHandle(input);
    const bool gone = getStdHandle(STD_INPUT_HANDLE) == Handle::none;
    const int next = dup(2);
    std::printf("%s %s %s %s", same ? "same" : "another", closed ? "closed" : "open",
                gone ? "gone" : "there", next > 2 ? "kept" : "reused");
}

void waitForInterrupt()
{
    WaitList list;
    list.append(interruptRequested());
    std::puts("ready");
    std::fflush(stdout);
    const std::uint32_t result = waitForMultipleObjectsEx(list, INFINITE);
    std::printf("interrupted %u\n", result);
    std::fflush(stdout);
    list.removeSwapLast(0);
    waitForMultipleObjectsEx(list, INFINITE);
}

const char* dumpPath = nullptr;

int writeDump(ExceptionPointers* pointers)
{
    bool created = false;
    const bool written = writePostMortem(dumpPath, pointers, &created);
    const char* const text = written ? "written" : created ? "created" : "nothing";
    return write(STDOUT_FILENO, text, std::strlen(text)) > 0;
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
    } else if (how == "foreign") {
        throw 42;
    } else if (how == "pure") {
        Derived derived;
    } else if (how == "abort") {
        std::abort();
    } else {
        raise(std::atoi(how.c_str()));
    }
}

int crashAgain(ExceptionPointers* pointers)
{
    writeDump(pointers);
    crash("fault");
    return 0;
}

}  // namespace

// NOLINTNEXTLINE(bugprone-exception-escape): one of the crashes is an exception
int main(int argc, char** argv)
{
    const std::string what = argc > 1 ? argv[1] : "";
    if (what == "descriptors")
        listDescriptors();
    else if (what == "signals")
        showSignals();
    else if (what == "standard")
        showStandardHandles();
    else if (what == "close-input")
        closeInput();
    else if (what == "interrupt")
        waitForInterrupt();
    else if (what == "crash" || what == "crash-twice") {
        dumpPath = argv[3];
        setUnhandledExceptionFilter(what == "crash" ? writeDump : crashAgain);
        crash(argv[2]);
    }
    return 0;
}
