// The last resort: post-mortems of children that crash, and the event log.

#include "platform/Crash.h"
#include "platform/Process.h"

#include "Support.h"

#include <csignal>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace platform {
namespace {

class Crashes : public testing::Test {
protected:
    Crashes()
    {
        char name[] = "/tmp/netcheck_crash_XXXXXX";
        directory = mkdtemp(name);
        dump = directory + "/post.dmp";
    }
    ~Crashes() override { std::filesystem::remove_all(directory); }

    // Runs the probe to its death, and gives what its filter said.
    std::string run(const std::string& mode, const std::string& how, const std::string& path)
    {
        ChildProcess child;
        EXPECT_TRUE(startProcess(PLATFORM_PROBE, {mode, how, path}, &child));
        std::string said = readAll(child.standardOutput);
        readAll(child.standardError);
        status = collectExit(child.pid);
        for (const Handle handle :
             {child.exited, child.standardInput, child.standardOutput, child.standardError})
            closeHandle(handle);
        std::ifstream file(dump);
        std::stringstream content;
        content << file.rdbuf();
        text = content.str();
        return said;
    }

    std::string directory;
    std::string dump;
    std::string text;  // of the post-mortem
    ExitStatus status;
};

TEST_F(Crashes, EndInThePostMortemAndWithTheirSignal)
{
    struct Case {
        const char* how;
        int signal;
        std::vector<const char*> parts;  // of the post-mortem
    };
    const std::string bus = std::to_string(SIGBUS);
    const std::string division = std::to_string(SIGFPE);
    const std::string illegal = std::to_string(SIGILL);
    const Case cases[] = {
        {"fault", SIGSEGV, {"SIGSEGV", "address: 0x0000000000000040\n"}},
        {"overflow", SIGSEGV, {"SIGSEGV"}},
        {"pure", SIGSEGV, {"SIGSEGV", "reason: a pure virtual function was called\n"}},
        {bus.c_str(), SIGBUS, {"SIGBUS", "sent by process: "}},
        {division.c_str(), SIGFPE, {"SIGFPE"}},
        {illegal.c_str(), SIGILL, {"SIGILL"}},
        {"exception",
         SIGABRT,
         {"SIGABRT", "reason: an exception was not caught\n", "exception: std::length_error\n",
          "message: a message of its own\n"}},
        {"foreign", SIGABRT, {"exception: int\n"}},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.how);
        // Somebody may have left a file that all can read, and have it open.
        std::ofstream(dump) << "old";
        std::filesystem::permissions(dump, std::filesystem::perms(0666));
        std::ifstream reader(dump);
        EXPECT_EQ(run("crash", row.how, dump), "written");
        EXPECT_TRUE(status.signalled);
        EXPECT_EQ(status.code, row.signal);
        for (const char* part : row.parts)
            EXPECT_NE(text.find(part), std::string::npos) << part << "\nin\n" << text;
        for (const char* part : {"registers:\n", "memory map:\n", "platform_probe", "call stack"})
            EXPECT_NE(text.find(part), std::string::npos) << part;
        // At least one frame of the executable itself.
        EXPECT_NE(text.find(" +0x", text.find("call stack")), std::string::npos) << text;
        std::string seen;
        EXPECT_TRUE(std::getline(reader, seen));
        EXPECT_EQ(seen, "old");
        EXPECT_EQ(std::filesystem::status(dump).permissions(), std::filesystem::perms(0600));
    }
}

TEST_F(Crashes, AnAbortDoesNotReachTheFilter)
{
    EXPECT_EQ(run("crash", "abort", dump), "");
    EXPECT_TRUE(status.signalled);
    EXPECT_EQ(status.code, SIGABRT);
    EXPECT_FALSE(std::filesystem::exists(dump));
}

TEST_F(Crashes, ACrashInTheFilterEndsWithTheFirstSignal)
{
    EXPECT_EQ(run("crash-twice", std::to_string(SIGFPE), dump), "written");
    EXPECT_TRUE(status.signalled);
    EXPECT_EQ(status.code, SIGFPE);
}

TEST_F(Crashes, AFileThatCannotBeWrittenIsReported)
{
    EXPECT_EQ(run("crash", "fault", directory + "/no/such/directory"), "nothing");
    EXPECT_EQ(status.code, SIGSEGV);
    EXPECT_EQ(run("crash", "fault", "/dev/full"), "created");
    EXPECT_EQ(status.code, SIGSEGV);
    EXPECT_TRUE(std::filesystem::exists("/dev/full"));
}

TEST(ModuleFile, IsThisProgram)
{
    char path[PATH_MAX];
    ASSERT_TRUE(moduleFileName(path, sizeof path));
    EXPECT_EQ(std::filesystem::path(path).filename(), "test_platform");
    const std::size_t length = std::strlen(path);
    EXPECT_TRUE(moduleFileName(path, length + 1));
    EXPECT_FALSE(moduleFileName(path, length));  // no room for the zero byte
    EXPECT_EQ(getLastError(), ERROR_FILENAME_EXCED_RANGE);
}

TEST(EventLog, GetsOneErrorLine)
{
    const int log = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "/dev/log");
    if (::bind(log, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        close(log);
        reportEvent("Ident", "text");  // whatever is there, it returns
        GTEST_SKIP() << "/dev/log belongs to somebody else";
    }
    // Somebody else may report something meanwhile.
    const std::string ident = "Ident" + std::to_string(getpid());
    reportEvent(ident.c_str(), "some text");
    std::vector<std::string> lines;
    char line[100];
    for (ssize_t length = 0; (length = recv(log, line, sizeof line, MSG_DONTWAIT)) > 0;)
        lines.emplace_back(line, static_cast<std::size_t>(length));
    unlink(address.sun_path);
    close(log);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "<11>" + ident + ": some text"), 1);
    reportEvent("Ident", "nobody listens");
}

}  // namespace
}  // namespace platform
