// Children, interrupts, standard handles, names.

#include "platform/Process.h"

#include "Support.h"

#include <csignal>
#include <fcntl.h>

#include <algorithm>

namespace platform {
namespace {

// A started child and its end.
struct Child {
    Child(const std::string& path, const std::vector<std::string>& arguments)
    {
        started = startProcess(path, arguments, &process);
        code = started ? 0 : getLastError();
    }
    ~Child()
    {
        if (started && !collected) {
            killProcess(process.pid);
            collectExit(process.pid);
        }
        for (const Handle handle :
             {process.exited, process.standardInput, process.standardOutput, process.standardError})
            closeHandle(handle);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    ExitStatus end()
    {
        WaitList list;
        list.append(process.exited);
        EXPECT_EQ(waitForMultipleObjectsEx(list, 20'000), 0u);
        EXPECT_EQ(waitForMultipleObjectsEx(list, 0), 0u);  // and stays so
        killProcess(process.pid);                          // or the failed test would hang
        collected = true;
        return collectExit(process.pid);
    }

    ChildProcess process;
    bool started = false;
    std::uint32_t code = 0;
    bool collected = false;
};

// Runs the probe under a shell, so that its descriptors can be redirected.
std::string shellProbe(const std::string& argument, const std::string& redirection, bool readError)
{
    Child child("/bin/sh", {"-c", "exec \"$0\" " + argument + " " + redirection, PLATFORM_PROBE});
    EXPECT_TRUE(child.started);
    return readAll(readError ? child.process.standardError : child.process.standardOutput);
}

TEST(Processes, EndWithACodeOrASignal)
{
    struct Case {
        const char* script;
        ExitStatus status;
    };
    const Case cases[] = {
        {"exit 0", {false, 0}},
        {"exit 7", {false, 7}},
        {"kill -KILL $$", {true, SIGKILL}},
        {"kill -SEGV $$", {true, SIGSEGV}},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.script);
        Child child("/bin/sh", {"-c", row.script});
        ASSERT_TRUE(child.started);
        const ExitStatus status = child.end();
        EXPECT_EQ(status.signalled, row.status.signalled);
        EXPECT_EQ(status.code, row.status.code);
    }
}

TEST(Processes, TalkThroughTheirStandardDescriptors)
{
    Child child("/bin/sh", {"-c", "cat; echo to error >&2; echo $1-$2", "sh", "one", "two words"});
    ASSERT_TRUE(child.started);
    Write write(child.process.standardInput, "from the parent\n");
    ASSERT_TRUE(waitUntil([&] { return write.ended(); }));
    closeHandle(child.process.standardInput);
    EXPECT_EQ(readAll(child.process.standardOutput), "from the parent\none-two words\n");
    EXPECT_EQ(readAll(child.process.standardError), "to error\n");
    EXPECT_EQ(child.end().code, 0);
}

TEST(Processes, ReportWhatCannotBeExecuted)
{
    struct Case {
        const char* path;
        std::uint32_t code;
    };
    const Case cases[] = {
        {"/nonexistent/program", ERROR_FILE_NOT_FOUND},
        {"/etc/passwd", ERROR_ACCESS_DENIED},
        {"/etc/passwd/program", ERROR_PATH_NOT_FOUND},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.path);
        const Child child(row.path, {});
        EXPECT_FALSE(child.started);
        EXPECT_EQ(child.code, row.code);
    }
}

TEST(Processes, GetNothingButTheirStandardDescriptors)
{
    // One that was never marked for closing, and a socket of ours.
    const int leaky = open("/dev/null", O_RDONLY);
    ASSERT_EQ(fcntl(leaky, F_GETFD), 0);
    const SocketHandle socket = tcpSocket();
    Child child(PLATFORM_PROBE, {"descriptors"});
    EXPECT_EQ(readAll(child.process.standardOutput), "0 1 2 ");
    closeSocket(socket);
    close(leaky);
}

TEST(Processes, GetTheirSignalsBack)
{
    sleepEx(0);  // SIGPIPE is ignored here by now
    sigset_t some;
    sigset_t before;
    sigemptyset(&some);
    sigaddset(&some, SIGUSR1);
    sigprocmask(SIG_BLOCK, &some, &before);
    // Shows what it was started with: it has not used the platform's waits.
    Child child(PLATFORM_PROBE, {"signals"});
    EXPECT_EQ(readAll(child.process.standardOutput), "SIGPIPE default, mask empty");
    sigprocmask(SIG_SETMASK, &before, nullptr);
}

TEST(Processes, AnInterruptIsSeenAndTheNextOneEndsTheProcess)
{
    struct Case {
        const char* name;
        const char* before;  // of the shell that starts it
        std::vector<int> unseen;
        int last;  // ends it after the interrupt
    };
    const Case cases[] = {
        {"the other signal", "", {}, SIGINT},
        {"the same signal", "", {}, SIGTERM},
        {"started in the background", "trap '' INT; ", {SIGINT}, SIGTERM},
    };
    // Tests that run in the background have it ignored.
    const auto before = std::signal(SIGINT, SIG_DFL);
    for (const Case& row : cases) {
        SCOPED_TRACE(row.name);
        Child child("/bin/sh",
                    {"-c", std::string(row.before) + "exec \"$0\" interrupt", PLATFORM_PROBE});
        ASSERT_TRUE(child.started);
        Read ready(child.process.standardOutput);
        ASSERT_TRUE(waitUntil([&] { return ready.ended(); }));
        for (const int signal : row.unseen)
            kill(child.process.pid, signal);
        kill(child.process.pid, SIGTERM);
        Read seen(child.process.standardOutput);
        ASSERT_TRUE(waitUntil([&] { return seen.ended(); }));
        EXPECT_EQ(seen.text(), "interrupted 0\n");
        for (const int signal : row.unseen)
            kill(child.process.pid, signal);
        kill(child.process.pid, row.last);
        const ExitStatus status = child.end();
        EXPECT_TRUE(status.signalled);
        EXPECT_EQ(status.code, row.last);
    }
    std::signal(SIGINT, before);
}

TEST(Processes, ACollectedChildIsCollectedOnce)
{
    Child child("/bin/true", {});
    EXPECT_EQ(child.end().code, 0);
    EXPECT_EQ(collectExit(child.process.pid).code, -1);
    EXPECT_EQ(collectExit(-1).code, -1);
}

TEST(StandardHandles, AreThereUnlessTheProcessWasStartedWithoutThem)
{
    struct Case {
        const char* redirection;
        const char* expected;
    };
    const Case cases[] = {
        {"", "input yes, output yes, numbers taken taken taken "},
        {"<&-", "input no, output yes, numbers taken taken taken "},
        {">&-", "input yes, output no, numbers taken taken taken "},
        {"<&- >&-", "input no, output no, numbers taken taken taken "},
        {"</dev/null >/dev/null", "input yes, output yes, numbers taken taken taken "},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.redirection);
        EXPECT_EQ(shellProbe("standard", row.redirection, true), row.expected);
    }
}

TEST(StandardHandles, KeepTheirNumbersWhenClosed)
{
    EXPECT_EQ(shellProbe("close-input", "", false), "same closed gone kept");
    EXPECT_EQ(getStdHandle(5), Handle::none);
}

TEST(Surroundings, NamesAndAddresses)
{
    std::string why;
    EXPECT_EQ(resolveIpv4("127.0.0.1", &why), std::vector<std::uint32_t>{loopback});
    EXPECT_EQ(why, "");
    // None that a name server would have to be asked for.
    for (const std::string& bad : {std::string(), std::string("::1"), std::string(300, 'a')}) {
        why.clear();
        EXPECT_TRUE(resolveIpv4(bad, &why).empty()) << bad;
        EXPECT_NE(why, "") << bad;
    }
}

TEST(Surroundings, SignalNames)
{
    struct Case {
        int signal;
        const char* name;
    };
    const Case cases[] = {{SIGSEGV, "SIGSEGV"}, {SIGKILL, "SIGKILL"}, {SIGINT, "SIGINT"},
                          {0, "signal"},        {-1, "signal"},       {1000, "signal"}};
    for (const Case& row : cases)
        EXPECT_STREQ(signalName(row.signal), row.name);
}

}  // namespace
}  // namespace platform
