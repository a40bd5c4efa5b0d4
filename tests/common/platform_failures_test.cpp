#include "common/StopWatch.h"
#include "common/Time.h"
#include "common/crashReporting.h"
#include "common/errors.h"
#include "common/log.h"
#include "common/systemError.h"
#include "tests/common/FakePlatform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

namespace {

constexpr std::uint64_t ticksUpTo1970 = 116444736000000000u;

class Faked : public testing::Test {
protected:
    void SetUp() override { fake::reset(); }
};

using WallClock = Faked;

TEST_F(WallClock, CountsFrom1970)
{
    struct Case {
        std::uint64_t ticks;  // since 1970
        Time time;
    };
    const Case cases[] = {
        {0, {0, 0}},
        {9, {0, 0}},
        {10, {0, 1}},
        {15000000, {1, 500000}},
        {9999999, {0, 999999}},
        {21474836479999999u, {2147483647, 999999}},
        {21474836480000000u, {-2147483647 - 1, 0}},  // 2038
        {42949672970000010u, {1, 1}},
    };
    for (const Case& c : cases) {
        fake::now.wallClock = ticksUpTo1970 + c.ticks;
        EXPECT_EQ(Time::now(), c.time) << c.ticks;
    }
}

TEST_F(WallClock, FailureIsTwoLinesAndNoException)
{
    fake::now.wallClock.reset();
    testing::internal::CaptureStderr();
    Time::now();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "(TIME) Error getting system time \n"
              "(TIME) This may cause inaccurate measurements \n");
}

using Watch = Faked;

TEST_F(Watch, MeasuresFromTheLastStartToTheLastStop)
{
    struct Case {
        std::int64_t frequency, ticks, seconds, microseconds;
    };
    const Case cases[] = {
        {1000000000, 0, 0, 0},
        {1000000000, 1500000000, 1, 500000},
        {1000000000, 999999999, 0, 999999},
        {1000000000, 999, 0, 0},
        {3, 5, 1, 666666},
        {10000000, 315360000000000, 31536000, 0},
    };
    for (const Case& c : cases) {
        fake::now.frequency = c.frequency;
        fake::now.counter = 1;
        StopWatch watch;
        fake::now.counter = 1000;
        watch.restart();
        fake::now.counter = 1000 + c.ticks;
        watch.stop();
        EXPECT_EQ(watch.seconds(), c.seconds);
        EXPECT_EQ(watch.microseconds(), c.microseconds);
    }
}

TEST_F(Watch, RestartLeavesTheMeasurementAlone)
{
    fake::now.counter = 0;
    StopWatch watch;
    EXPECT_EQ(watch.seconds(), 0);
    fake::now.counter = 2000000000;
    watch.stop();
    watch.restart();
    EXPECT_EQ(watch.seconds(), 2);
    fake::now.counter = 2000001000;
    watch.stop();
    EXPECT_EQ(watch.seconds(), 0);
    EXPECT_EQ(watch.microseconds(), 1);
}

std::string sysErrorText(const std::function<void()>& action)
{
    try {
        action();
    } catch (const error::syserror& e) {
        return e.text();
    }
    return "no exception";
}

TEST_F(Watch, FailsWithTheSystemsText)
{
    const char* const start = "Error reading performance time counter!: Bad clock";
    const char* const stop = "Error reading performance stop time counter!: Bad clock";
    fake::now.texts[87] = "Bad clock";
    fake::now.lastError = 87;
    StopWatch watch;
    fake::now.counter.reset();
    EXPECT_EQ(sysErrorText([] { StopWatch(); }), start);
    EXPECT_EQ(sysErrorText([&] { watch.restart(); }), start);
    EXPECT_EQ(sysErrorText([&] { watch.stop(); }), stop);
    fake::now.counter = 0;
    fake::now.frequency.reset();
    EXPECT_EQ(sysErrorText([] { StopWatch(); }), start);
}

using ErrorText = Faked;

TEST_F(ErrorText, IsCutAndStripped)
{
    struct Case {
        const char* name;
        std::string text;
        std::string wanted;
    };
    const Case cases[] = {
        {"as it is", "Access is denied.", "Access is denied."},
        {"one end of line", "Access is denied.\r\n", "Access is denied."},
        {"several", "a\r\nb\n\r\r\n\n", "a\r\nb"},
        {"blanks stay", "a \n", "a "},
        {"nothing", "", "7"},
        {"nothing but ends of line", "\r\n\r\n", "7"},
        {"the longest", std::string(255, 'a'), std::string(255, 'a')},
        {"too long", std::string(256, 'a'), std::string(255, 'a')},
        {"cut before it is stripped", std::string(254, 'a') + "\nb", std::string(254, 'a')},
    };
    for (const Case& c : cases) {
        fake::now.texts[7] = c.text;
        EXPECT_EQ(systemErrorText(7), c.wanted) << c.name;
    }
    EXPECT_EQ(fake::now.lastError, 0u);
}

TEST_F(ErrorText, UnknownCodeTellsTheNewLastError)
{
    fake::now.lastError = 4294967295u;
    EXPECT_EQ(lastSystemErrorText(), "4294967295 (FormatMessage: 317)");
    EXPECT_EQ(fake::now.lastError, 317u);
}

std::vector<std::string> reports;

void keepReport(const char* text)
{
    reports.emplace_back(text);
}

class Crash : public Faked {
protected:
    void SetUp() override
    {
        Faked::SetUp();
        reports.clear();
    }
};

constexpr const char* detected =
    "An application error has been detected. Please report this error and submit the dump file in ";
constexpr const char* afterwards = " along with your error report";

TEST_F(Crash, PostMortemStandsBesideTheExecutable)
{
    struct Case {
        std::optional<std::string> executable;
        std::string path;
    };
    const std::string deep = "/" + std::string(258, 'd');
    const Case cases[] = {
        {"/usr/bin/netcheck", "/usr/bin/netcheck.dmp"},
        {"/usr/bin/netcheck.exe", "/usr/bin/netcheck.dmp"},
        {"/opt/a.b/netcheck", "/opt/a.b/netcheck.dmp"},
        {"/opt/a.b/netcheck.1.2", "/opt/a.b/netcheck.1.dmp"},
        {"/opt/netcheck.", "/opt/netcheck.dmp"},
        {"/opt/.netcheck", "/opt/.dmp"},
        {"netcheck.bin", "netcheck.dmp"},
        {deep + "e", deep + "e.dmp"},
        {deep + "ee", "harnwell.dmp"},  // longer than 260
        {std::nullopt, "harnwell.dmp"},
    };
    installCrashHandler(keepReport);
    for (const Case& c : cases) {
        fake::now.executable = c.executable;
        auto* const pointers = reinterpret_cast<platform::ExceptionPointers*>(&reports);
        EXPECT_EQ(fake::now.filter(pointers), 1);
        EXPECT_EQ(fake::now.postMortems.back(), c.path);
        EXPECT_EQ(fake::now.postMortemPointers, pointers);
        EXPECT_EQ(reports.back(), detected + ("'" + c.path + "'") + afterwards);
    }
}

TEST_F(Crash, FailuresAreReportedToo)
{
    struct Case {
        bool created;
        std::uint32_t code;
        const char* message;
    };
    const Case cases[] = {
        {false, 5, "Failed to create dump file '/bin/x.dmp' (error 5)"},
        {true, 112, "Failed to save dump file to '/bin/x.dmp' (error 112)"},
        {true, 0, "Failed to save dump file to '/bin/x.dmp' (error 0)"},
        {false, 0x20000000 + 40, "Failed to create dump file '/bin/x.dmp' (error 536870952)"},
        {false, 0x80000000, "Failed to create dump file '/bin/x.dmp' (error -2147483648)"},
        {false, 0xffffffff, "Failed to create dump file '/bin/x.dmp' (error -1)"},
    };
    installCrashHandler(keepReport);
    fake::now.executable = "/bin/x";
    fake::now.postMortemWritten = false;
    for (const Case& c : cases) {
        fake::now.postMortemCreated = c.created;
        fake::now.postMortemError = c.code;
        EXPECT_EQ(fake::now.filter(nullptr), 0);
        EXPECT_EQ(reports.back(), c.message);
    }
}

TEST_F(Crash, WithoutReporterTheMessageIsALine)
{
    installCrashHandler(nullptr);
    fake::now.executable = "/bin/x.y";
    testing::internal::CaptureStderr();
    fake::now.filter(nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              std::string("Dump generated: ") + detected + "'/bin/x.dmp'" + afterwards + "\n");
}

TEST_F(Crash, ReachesTheEventLog)
{
    const CrashReporting reporting(reportToEventLog);
    fake::now.executable = "/bin/x";
    fake::now.filter(nullptr);
    EXPECT_THAT(fake::now.events, testing::ElementsAre(std::string("Tolvan: ") + detected +
                                                       "'/bin/x.dmp'" + afterwards));
}

}  // namespace
