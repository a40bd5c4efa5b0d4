// All but the installing runs in a signal handler: no memory is taken, no lock, and nothing is
// thrown.

#include "common/crashReporting.h"

#include "platform/Crash.h"
#include "platform/ErrorCode.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

// A text in a buffer of its own; what doesn't fit is cut.
template <std::size_t Capacity>
class FixedText {
public:
    void append(const char* text) { append(text, std::strlen(text)); }

    void append(const char* text, std::size_t count)
    {
        if (count > Capacity - size)
            count = Capacity - size;
        std::memcpy(characters + size, text, count);
        size += count;
        characters[size] = '\0';
    }

    void appendNumber(std::int32_t value)
    {
        // Counted up from the negative side, where the lowest number has its digits as well.
        char digits[11];
        std::size_t start = sizeof digits;
        std::int32_t rest = value > 0 ? -value : value;
        do {
            digits[--start] = static_cast<char>('0' - rest % 10);
            rest /= 10;
        } while (rest != 0);
        if (value < 0)
            digits[--start] = '-';
        append(digits + start, sizeof digits - start);
    }

    const char* text() const { return characters; }
    std::size_t length() const { return size; }

private:
    char characters[Capacity + 1] = {};
    std::size_t size = 0;
};

constexpr std::size_t longestExecutable = 260;
constexpr std::size_t longestMessage = 520;

using DumpPath = FixedText<longestExecutable + 4>;
using Message = FixedText<longestMessage>;

CrashReporter crashReporter = nullptr;

void appendDumpPath(DumpPath& out)
{
    char executable[longestExecutable + 1];
    if (!platform::moduleFileName(executable, sizeof executable)) {
        out.append("harnwell.dmp");
        return;
    }
    // A "." in a directory's name says nothing about the file.
    const char* slash = std::strrchr(executable, '/');
    const char* name = slash != nullptr ? slash + 1 : executable;
    const char* dot = std::strrchr(name, '.');
    const std::size_t kept =
        dot != nullptr ? static_cast<std::size_t>(dot - executable) : std::strlen(executable);
    out.append(executable, kept);
    out.append(".dmp");
}

void appendFailure(Message& out, const char* what, const DumpPath& path, std::uint32_t code)
{
    out.append(what);
    out.append(" '");
    out.append(path.text());
    out.append("' (error ");
    out.appendNumber(static_cast<std::int32_t>(code));
    out.append(")");
}

int crashFilter(platform::ExceptionPointers* pointers)
{
    DumpPath path;
    appendDumpPath(path);

    bool created = false;
    const bool written = platform::writePostMortem(path.text(), pointers, &created);
    const std::uint32_t code = platform::getLastError();

    Message message;
    if (written) {
        message.append(
            "An application error has been detected. Please report this error and submit the "
            "dump file in '");
        message.append(path.text());
        message.append("' along with your error report");
    } else if (created) {
        appendFailure(message, "Failed to save dump file to", path, code);
    } else {
        appendFailure(message, "Failed to create dump file", path, code);
    }

    if (crashReporter != nullptr) {
        crashReporter(message.text());
    } else {
        FixedText<longestMessage + 32> line;
        line.append("Dump generated: ");
        line.append(message.text());
        line.append("\n");
        // Standard error has no buffer, and the lock is left alone: the fault may have happened
        // inside it.
        fwrite_unlocked(line.text(), 1, line.length(), stderr);
    }
    return written ? 1 : 0;
}

}  // namespace

void installCrashHandler(CrashReporter reporter)
{
    crashReporter = reporter;
    platform::setUnhandledExceptionFilter(crashFilter);
}
