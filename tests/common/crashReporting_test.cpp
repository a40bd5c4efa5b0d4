// A real program's crash, from the fault to the message. The cases of the filter itself stand in
// platform_failures_test.cpp.

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/wait.h>

namespace {

namespace fs = std::filesystem;

std::string contents(const fs::path& path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

TEST(CrashReporting, FromTheFaultToTheMessage)
{
    std::string pattern = (fs::temp_directory_path() / "crash.d.XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    const fs::path directory = pattern;
    const fs::path report = directory / "stderr";
    const fs::path dump = directory / "probe.dmp";
    fs::copy_file(CRASH_PROBE, directory / "probe.bin");

    const std::string message =
        "An application error has been detected. Please report this error and submit the dump "
        "file in '" +
        dump.string() + "' along with your error report\n";
    struct Case {
        const char* how;
        std::string report;
        int signal;
        bool dumped;
    };
    const Case cases[] = {
        {"fault", "reported: " + message, SIGSEGV, true},
        {"silent fault", "Dump generated: " + message, SIGSEGV, true},
        {"assertion", "Assertion failed: on purpose\n", SIGABRT, false},
        {"orderly", "", 0, false},
    };
    for (const Case& c : cases) {
        const std::string command = "ulimit -c 0; exec '" + pattern + "/probe.bin' '" + c.how +
                                    "' 2>'" + report.string() + "'";
        const int status = std::system(command.c_str());
        EXPECT_EQ(WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status), c.signal) << c.how;
        EXPECT_EQ(contents(report), c.report) << c.how;
        EXPECT_EQ(!contents(dump).empty(), c.dumped) << c.how;
        fs::remove(dump);
    }
    fs::remove_all(directory);
}

}  // namespace
