// Writes the post-mortem of a process from within its crash. Nothing here allocates, takes a lock
// or uses the standard streams. What could fail in a broken process comes last: the call stack.

#include "platform/Crash.h"
#include "platform/CrashReport.h"
#include "platform/ErrorCode.h"

#include <execinfo.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

// Set by the linker: where the code of this executable lies.
extern "C" const char __executable_start;
extern "C" const char etext;

namespace platform {

namespace {

// Collects text and writes it to a descriptor.
class Report {
public:
    explicit Report(int descriptor) : fd(descriptor) {}

    Report& text(const char* string) { return bytes(string, std::strlen(string)); }

    Report& decimal(long value)
    {
        char digits[24];
        std::size_t at = sizeof digits;
        unsigned long rest =
            value < 0 ? 0 - static_cast<unsigned long>(value) : static_cast<unsigned long>(value);
        do {
            digits[--at] = static_cast<char>('0' + rest % 10);
            rest /= 10;
        } while (rest != 0);
        if (value < 0)
            digits[--at] = '-';
        return bytes(digits + at, sizeof digits - at);
    }

    Report& address(std::uintptr_t value)
    {
        char digits[2 + 2 * sizeof value] = {'0', 'x'};
        for (std::size_t i = 0; i < 2 * sizeof value; ++i)
            digits[2 + i] = "0123456789abcdef"[(value >> (4 * (2 * sizeof value - 1 - i))) & 15];
        return bytes(digits, sizeof digits);
    }

    Report& bytes(const char* data, std::size_t count)
    {
        while (count > 0) {
            if (used == sizeof buffer)
                flush();
            const std::size_t piece = std::min(count, sizeof buffer - used);
            std::memcpy(buffer + used, data, piece);
            used += piece;
            data += piece;
            count -= piece;
        }
        return *this;
    }

    void flush()
    {
        std::size_t done = 0;
        while (done < used && error == 0) {
            const ssize_t written = write(fd, buffer + done, used - done);
            if (written >= 0)
                done += static_cast<std::size_t>(written);
            else if (errno != EINTR)
                error = errno;
        }
        used = 0;
    }

    int failure() const { return error; }  // an errno; 0: none

private:
    int fd;
    int error = 0;
    std::size_t used = 0;
    char buffer[1024];
};

bool hasFaultAddress(int signal)
{
    return signal == SIGSEGV || signal == SIGBUS || signal == SIGFPE || signal == SIGILL;
}

void writeCause(Report& report, const ExceptionPointers& pointers)
{
    report.text("process: ").decimal(getpid()).text("\n");
    const char* const name = sigabbrev_np(pointers.signal);
    report.text("signal: ").decimal(pointers.signal);
    if (name)
        report.text(" SIG").text(name);
    report.text("\n");
    if (pointers.info) {
        report.text("code: ").decimal(pointers.info->si_code).text("\n");
        // Codes above 0 come from the kernel, and carry the address of a fault.
        if (pointers.info->si_code > 0 && hasFaultAddress(pointers.signal))
            report.text("address: ")
                .address(reinterpret_cast<std::uintptr_t>(pointers.info->si_addr))
                .text("\n");
        else
            report.text("sent by process: ").decimal(pointers.info->si_pid).text("\n");
    }
    if (pointers.reason)
        report.text("reason: ").text(pointers.reason).text("\n");
    if (pointers.exceptionType)
        report.text("exception: ").text(pointers.exceptionType).text("\n");
    if (pointers.exceptionMessage && pointers.exceptionMessage[0] != '\0')
        report.text("message: ").text(pointers.exceptionMessage).text("\n");
}

void writeRegister(Report& report, const char* name, std::uintptr_t value)
{
    report.text("  ").text(name).text(" ").address(value).text("\n");
}

void writeRegisters(Report& report, const ExceptionPointers& pointers)
{
    report.text("\nregisters:\n");
    if (!pointers.context) {
        report.text("  none: no signal stopped the process\n");
        return;
    }
#if defined(__x86_64__)
    struct Register {
        const char* name;
        int index;
    };
    static constexpr Register registers[] = {
        {"rip", REG_RIP}, {"rsp", REG_RSP}, {"rbp", REG_RBP}, {"rax", REG_RAX},
        {"rbx", REG_RBX}, {"rcx", REG_RCX}, {"rdx", REG_RDX}, {"rsi", REG_RSI},
        {"rdi", REG_RDI}, {"r8 ", REG_R8},  {"r9 ", REG_R9},  {"r10", REG_R10},
        {"r11", REG_R11}, {"r12", REG_R12}, {"r13", REG_R13}, {"r14", REG_R14},
        {"r15", REG_R15}, {"efl", REG_EFL}, {"err", REG_ERR}, {"trapno", REG_TRAPNO},
        {"cr2", REG_CR2},
    };
    for (const Register& entry : registers)
        writeRegister(
            report, entry.name,
            static_cast<std::uintptr_t>(pointers.context->uc_mcontext.gregs[entry.index]));
#elif defined(__aarch64__)
    writeRegister(report, "pc", pointers.context->uc_mcontext.pc);
    writeRegister(report, "sp", pointers.context->uc_mcontext.sp);
    for (int i = 0; i < 31; ++i) {
        const char name[] = {'x', static_cast<char>('0' + i / 10), static_cast<char>('0' + i % 10),
                             '\0'};
        writeRegister(report, name, pointers.context->uc_mcontext.regs[i]);
    }
#else
    report.text("  not known for this machine; bytes of the context:\n");
    const auto* bytes = reinterpret_cast<const char*>(&pointers.context->uc_mcontext);
    for (std::size_t at = 0; at + sizeof(std::uintptr_t) <= sizeof pointers.context->uc_mcontext;
         at += sizeof(std::uintptr_t)) {
        std::uintptr_t word = 0;
        std::memcpy(&word, bytes + at, sizeof word);
        writeRegister(report, "-", word);
    }
#endif
}

void writeMemoryMap(Report& report)
{
    report.text("\nmemory map:\n");
    const int maps = open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
    if (maps < 0)
        return;
    char piece[1024];
    for (;;) {
        const ssize_t count = read(maps, piece, sizeof piece);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        report.bytes(piece, static_cast<std::size_t>(count));
    }
    close(maps);
}

void writeCallStack(Report& report)
{
    report.text("\ncall stack, innermost first (offsets are those within the executable):\n");
    // What is there so far must survive a crash in the unwinder.
    report.flush();
    void* frames[128];
    const int count = backtrace(frames, static_cast<int>(sizeof frames / sizeof frames[0]));
    const auto begin = reinterpret_cast<std::uintptr_t>(&__executable_start);
    const auto end = reinterpret_cast<std::uintptr_t>(&etext);
    for (int i = 0; i < count; ++i) {
        const auto address = reinterpret_cast<std::uintptr_t>(frames[i]);
        report.text("  ").address(address);
        if (address >= begin && address < end)
            report.text(" +").address(address - begin);
        report.text("\n");
    }
}

// A file of that name goes first: its owner and its mode would stay with it, and whoever has it
// open would read along.
int createPrivately(const char* path)
{
    struct stat status {};
    if (lstat(path, &status) == 0 && (S_ISREG(status.st_mode) || S_ISLNK(status.st_mode)))
        unlink(path);
    const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd >= 0 && fstat(fd, &status) == 0 && S_ISREG(status.st_mode))
        fchmod(fd, 0600);
    return fd;
}

}  // namespace

bool writePostMortem(const char* path, ExceptionPointers* pointers, bool* created)
{
    const int fd = createPrivately(path);
    *created = fd >= 0;
    if (fd < 0) {
        setLastError(errorCode(errno, ErrorSource::file));
        return false;
    }
    Report report(fd);
    writeCause(report, *pointers);
    writeRegisters(report, *pointers);
    writeMemoryMap(report);
    writeCallStack(report);
    report.flush();
    int failure = report.failure();
    if (close(fd) != 0 && failure == 0)
        failure = errno;
    if (failure == 0)
        return true;
    setLastError(errorCode(failure, ErrorSource::file));
    return false;
}

}  // namespace platform
