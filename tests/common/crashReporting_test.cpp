// Crashes of a real program, a copy of this one, from the fault to the dump and the message.

#include "common/crashReporting.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

void report(const char* text)
{
    if (write(2, text, std::strlen(text)) < 0)
        _exit(99);
}

// With CRASH set this program crashes at its start; the value says whether somebody reports it.
const int crash = [] {
    const char* how = std::getenv("CRASH");
    if (how == nullptr)
        return 0;
    installCrashHandler(std::strcmp(how, "reported") == 0 ? report : nullptr);
    return std::raise(SIGSEGV);
}();

TEST(CrashReporting, FromTheFaultToTheMessage)
{
    std::string directory = "/tmp/crash.d.XXXXXX";
    ASSERT_NE(mkdtemp(directory.data()), nullptr);
    fs::path program = directory + "/first";
    fs::copy_file("/proc/self/exe", program);
    const std::string longest(260 - directory.size() - 1, 'd');
    const std::string detected = "An application error has been detected. Please report this error "
                                 "and submit the dump file in '";
    const std::string end = "' along with your error report";
    struct Case {
        std::string name, dump, shell, before, after;
    };
    const Case cases[] = {
        {"probe.1.2", directory + "/probe.1.dmp", "CRASH=reported", detected, end},
        {longest, directory + "/" + longest + ".dmp", "CRASH=reported", detected, end},
        {longest + "d", "harnwell.dmp", "CRASH=reported", detected, end},
        {"q", directory + "/q.dmp", "CRASH=silent", "Dump generated: " + detected, end + "\n"},
        {"u", directory + "/u.dmp", "mkdir u.dmp; CRASH=reported", "Failed to create dump file '",
         "' (error 5)"},
        // No byte fits the file.
        {"v", directory + "/v.dmp", "trap '' XFSZ; ulimit -f 0; CRASH=reported",
         "Failed to save dump file to '", "' (error 536870939)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        fs::rename(program, fs::path(directory) / c.name);
        program.replace_filename(c.name);
        const std::string command =
            "cd " + directory + "; ulimit -c 0; " + c.shell + " exec ./" + c.name + " 2>&1";
        std::FILE* said = popen(command.c_str(), "r");
        char text[1000];
        const std::string seen(text, std::fread(text, 1, sizeof text, said));
        EXPECT_EQ(seen, c.before + c.dump + c.after);
        const int status = pclose(said);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV) << status;
        EXPECT_TRUE(fs::exists(fs::path(directory) / c.dump));
    }
    fs::remove_all(directory);
}

}  // namespace
