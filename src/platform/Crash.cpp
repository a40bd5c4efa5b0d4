#include "platform/Crash.h"

#include "platform/CrashReport.h"
#include "platform/ErrorCode.h"

#include <csignal>
#include <cxxabi.h>
#include <execinfo.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <string_view>
#include <typeinfo>

namespace platform {

namespace {

constexpr int faultSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL};

std::atomic<ExceptionFilter> installedFilter{nullptr};
std::atomic<pid_t> crashingThread{0};
std::atomic<int> firstSignal{0};
std::atomic<bool> pureVirtualCalled{false};

[[noreturn]] void dieBySignal(int signal)
{
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigaction(signal, &action, nullptr);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, signal);
    pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    raise(signal);
    _exit(128 + signal);
}

// Returns once the filter has run.
void enterFilter(ExceptionPointers* pointers)
{
    const pid_t self = gettid();
    pid_t nobody = 0;
    if (crashingThread.compare_exchange_strong(nobody, self)) {
        firstSignal = pointers->signal;
        if (const ExceptionFilter filter = installedFilter)
            filter(pointers);
        return;
    }
    // The filter itself crashed: the process ends with the signal of the first fault.
    if (crashingThread == self)
        dieBySignal(firstSignal);
    // Another thread is writing already, and ends the process.
    for (;;)
        pause();
}

void handleFault(int signal, siginfo_t* info, void* context)
{
    ExceptionPointers pointers;
    pointers.signal = signal;
    pointers.info = info;
    pointers.context = static_cast<ucontext_t*>(context);
    if (pureVirtualCalled)
        pointers.reason = "a pure virtual function was called";
    enterFilter(&pointers);
    dieBySignal(signal);
}

// The message of the exception that is being handled, if it has one in the usual way.
void copyMessage(char* text, std::size_t size)
{
    try {
        throw;
    } catch (const std::exception& exception) {
        const char* const what = exception.what();
        std::size_t length = 0;
        while (length + 1 < size && what[length] != '\0') {
            text[length] = what[length];
            ++length;
        }
        text[length] = '\0';
    } catch (...) {
        text[0] = '\0';  // of a kind that has no message
    }
}

[[noreturn]] void handleTerminate()
{
    ExceptionPointers pointers;
    pointers.signal = SIGABRT;
    pointers.reason = "the process was terminated";
    char* demangled = nullptr;
    char message[512] = "";
    if (const std::type_info* type = abi::__cxa_current_exception_type()) {
        pointers.reason = "an exception was not caught";
        int status = 0;
        demangled = abi::__cxa_demangle(type->name(), nullptr, nullptr, &status);
        pointers.exceptionType = demangled ? demangled : type->name();
        copyMessage(message, sizeof message);
        pointers.exceptionMessage = message;
    }
    enterFilter(&pointers);
    std::free(demangled);
    dieBySignal(SIGABRT);
}

// A stack overflow leaves no room for the handler on the stack it happened on.
void installHandlerStack()
{
    // What the kernel needs for its own part depends on the machine.
    const auto usual = static_cast<std::size_t>(std::max<long>(sysconf(_SC_SIGSTKSZ), 0));
    const std::size_t size = std::max(std::size_t{256} * 1024, 4 * usual);
    void* const memory =
        mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (memory == MAP_FAILED)
        return;
    stack_t stack{};
    stack.ss_sp = memory;
    stack.ss_size = size;
    sigaltstack(&stack, nullptr);
}

}  // namespace

void setUnhandledExceptionFilter(ExceptionFilter filter)
{
    const bool first = installedFilter.exchange(filter) == nullptr;
    if (!first)
        return;
    installHandlerStack();
    // The first call loads a library and allocates; those in the handler don't.
    void* frame = nullptr;
    backtrace(&frame, 1);

    struct sigaction action {};
    action.sa_sigaction = handleFault;
    // A fault in the handler must come back to it: that is how it learns to stop.
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
    sigemptyset(&action.sa_mask);
    for (const int signal : faultSignals)
        sigaction(signal, &action, nullptr);
    std::set_terminate(handleTerminate);
}

constexpr std::string_view replacedSuffix = " (deleted)";

bool moduleFileName(char* path, std::size_t size)
{
    const ssize_t length = size == 0 ? 0 : readlink("/proc/self/exe", path, size);
    if (length < 0) {
        setLastError(errorCode(errno, ErrorSource::file));
        return false;
    }
    if (static_cast<std::size_t>(length) >= size) {
        setLastError(ERROR_FILENAME_EXCED_RANGE);
        return false;
    }
    path[length] = '\0';
    // The kernel says so of a file that was removed or replaced. A file may also be called that.
    const std::string_view whole(path, static_cast<std::size_t>(length));
    if (whole.ends_with(replacedSuffix) && access(path, F_OK) != 0 && errno == ENOENT)
        path[whole.size() - replacedSuffix.size()] = '\0';
    return true;
}

}  // namespace platform

// The compilers put this into the vtables of classes with pure virtual functions.
extern "C" void __cxa_pure_virtual()
{
    platform::pureVirtualCalled = true;
    raise(SIGSEGV);
    abort();
}
