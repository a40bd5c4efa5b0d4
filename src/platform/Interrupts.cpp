// Interrupts by the user, and the names of signals.

#include "platform/Proactor.h"
#include "platform/Process.h"

#include <csignal>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

namespace platform {

namespace {

struct Interrupt {
    int signal;
    bool takenOver;
};
Interrupt interrupts[] = {{SIGINT, false}, {SIGTERM, false}};

// What the handler writes to.
int interruptEvent = -1;

void noteInterrupt(int)
{
    const int saved = errno;
    for (const Interrupt& interrupt : interrupts) {
        if (interrupt.takenOver)
            std::signal(interrupt.signal, SIG_DFL);
    }
    const std::uint64_t one = 1;
    // It can't be full: the handler runs once, or once more for the other signal.
    [[maybe_unused]] const ssize_t written = write(interruptEvent, &one, sizeof one);
    errno = saved;
}

void takeOver(Interrupt& interrupt)
{
    struct sigaction action {};
    // A signal that is ignored from the start stays so: the shell does that for programs in the
    // background, which an interrupt at the terminal is not meant for.
    if (sigaction(interrupt.signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN)
        return;
    action = {};
    action.sa_handler = noteInterrupt;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (const Interrupt& other : interrupts)
        sigaddset(&action.sa_mask, other.signal);
    interrupt.takenOver = true;
    sigaction(interrupt.signal, &action, nullptr);
}

}  // namespace

Handle interruptRequested()
{
    static Token object = 0;
    if (object != 0)
        return static_cast<Handle>(object);
    Proactor& proactor = Proactor::instance();
    interruptEvent = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (interruptEvent < 0) {
        setLastError(errorCode(errno, ErrorSource::file));
        return Handle::none;
    }
    std::uint32_t code = 0;
    object = proactor.insertNotifier(interruptEvent, &code);
    if (object == 0) {
        setLastError(code);
        return Handle::none;
    }
    for (Interrupt& interrupt : interrupts)
        takeOver(interrupt);
    return static_cast<Handle>(object);
}

const char* signalName(int signal)
{
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all;
        for (int number = 0; number < NSIG; ++number) {
            const char* const name = sigabbrev_np(number);
            all.push_back(name && number != 0 ? std::string("SIG") + name : "signal");
        }
        return all;
    }();
    const bool known = signal >= 0 && static_cast<std::size_t>(signal) < names.size();
    return names[known ? static_cast<std::size_t>(signal) : 0].c_str();
}

}  // namespace platform
