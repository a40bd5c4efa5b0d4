// Child processes: how they start, end and crash.

#include "platform/Process.h"

#include "Support.h"

#include <filesystem>
#include <fstream>
#include <iterator>

namespace platform {
namespace {

// All that comes until the end of the stream.
std::string readAll(Handle handle)
{
    std::string all;
    for (;;) {
        const Read read(handle);
        if (read.end().first != 0)
            return all;
        all += read.text();
    }
}

// Runs a program to its end. Gives what it wrote to standard output, then to standard error, and
// how it ended.
std::string run(const std::string& path, const std::vector<std::string>& arguments)
{
    ChildProcess child;
    if (!startProcess(path, arguments, &child))
        return "error " + std::to_string(getLastError());
    Write(child.standardInput, "input ").end();
    closeHandle(child.standardInput);
    std::string said = readAll(child.standardOutput);
    said += readAll(child.standardError);
    WaitList list;
    list.append(child.exited);
    EXPECT_EQ(waitForMultipleObjectsEx(list, 20'000), 0u);
    killProcess(child.pid);  // or the failed test would hang
    const ExitStatus status = collectExit(child.pid);
    EXPECT_EQ(collectExit(child.pid).code, -1);
    for (const Handle handle : {child.exited, child.standardOutput, child.standardError})
        closeHandle(handle);
    return said + (status.signalled ? "signal " : "exit ") + std::to_string(status.code);
}

TEST(Processes, StartTalkAndEnd)
{
    // What children must not get: a descriptor that was never marked for closing, and SIGPIPE
    // ignored.
    const Pair leaky;
    const char* const runCopy = "cp $0 \"$1\"; exec \"$1\" $2 \"$1\"";
    const std::string probe = PLATFORM_PROBE;
    const std::string copy = testing::TempDir() + "platform_" + std::to_string(getpid());
    const std::string other = copy + " (deleted)";
    struct Case {
        const char* path;
        std::vector<std::string> arguments;
        std::string result;
    };
    const Case cases[] = {
        {"/bin/sh", {"-c", "exit 7"}, "exit 7"},
        {"/bin/sh", {"-c", "kill -KILL $$"}, "signal 9"},
        {"/bin/sh", {"-c", "cat; echo $0 >&2", "two words"}, "input two words\nexit 0"},
        {"/nonexistent/program", {}, "error 2"},
        {"/etc/passwd", {}, "error 5"},
        {"/bin/ls", {"/proc/self/fd"}, "0\n1\n2\n3\nexit 0"},  // the last one is its own
        {"/bin/grep", {"-c", "SigIgn:.*[02468ace]...$", "/proc/self/status"}, "1\nexit 0"},
        {"/bin/sh", {"-c", runCopy, probe, copy, "path"}, copy + " exit 0"},
        {"/bin/sh", {"-c", runCopy, probe, copy, "upgraded"}, copy + " exit 0"},
        {"/bin/sh", {"-c", runCopy, probe, other, "path"}, other + " exit 0"},
    };
    for (const Case& row : cases)
        EXPECT_EQ(run(row.path, row.arguments), row.result)
            << testing::PrintToString(row.arguments);
    std::filesystem::remove(other);
}

TEST(Crashes, EndInThePostMortemAndWithTheirSignal)
{
    const std::string dump = testing::TempDir() + "platform_" + std::to_string(getpid()) + ".dmp";
    struct Case {
        const char* how;
        const char* result;
        const char* part;  // of the post-mortem; null: there is none
    };
    const Case cases[] = {
        {"fault", "written signal 11", "address: 0x0000000000000040\n"},
        {"overflow", "written signal 11", "signal: 11 SIGSEGV\n"},
        {"pure", "written signal 11", "reason: a pure virtual function was called\n"},
        {"exception", "written signal 6",
         "reason: an exception was not caught\nexception: std::length_error\n"
         "message: a message of its own\n"},
        {"abort", "signal 6", nullptr},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.how);
        // Somebody may have left a file that all can read.
        std::ofstream(dump) << "old";
        std::filesystem::permissions(dump, std::filesystem::perms(0666));
        EXPECT_EQ(run(PLATFORM_PROBE, {"crash", row.how, dump}), row.result);
        std::ifstream file(dump);
        const std::string text(std::istreambuf_iterator<char>(file), {});
        if (row.part) {
            EXPECT_NE(text.find(row.part), text.npos) << row.part << "\nin\n" << text;
            // A frame of the executable itself.
            EXPECT_NE(text.find(" +0x", text.find("call stack")), text.npos) << text;
            EXPECT_EQ(std::filesystem::status(dump).permissions(), std::filesystem::perms(0600));
        } else {
            EXPECT_EQ(text, "old");
        }
    }
    std::filesystem::remove(dump);
}

}  // namespace
}  // namespace platform
