// The real netcheckctl with the real worker and with false ones.

#include "tests/parent/Program.h"
#include "tests/support/Case.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/Worker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <sys/stat.h>

namespace {

using support::Encoder;
using support::frameHeader;
using support::netcheckctl;
using support::Program;
using support::ProgramEnd;
using support::RefusingPort;
using support::ScriptedServer;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

std::string target(std::uint16_t port, const std::string& query = "")
{
    return "tcp://127.0.0.1:" + std::to_string(port) + query;
}

std::vector<std::string> lines(const std::string& text)
{
    std::vector<std::string> all;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        all.push_back(line);
    return all;
}

// The words of a row, without those of the target.
std::string rowOf(const std::string& output, const std::string& target)
{
    for (const std::string& line : lines(output)) {
        if (line.rfind(target + " ", 0) == 0)
            return line.substr(line.find_first_not_of(' ', target.size()));
    }
    return "no row of " + target + " in:\n" + output;
}

// A worker that is a shell script, in a directory of its own.
class FalseWorker {
public:
    explicit FalseWorker(const std::string& text)
    {
        std::ofstream(path()) << "#!/bin/sh\ncd " << directory.path("") << "\n" << text << "\n";
        chmod(path().c_str(), 0755);
    }
    std::string path() const { return directory.path("worker"); }
    std::string file(const std::string& name) const { return directory.path(name); }
    void write(const std::string& name, const std::string& bytes) const
    {
        std::ofstream(file(name)) << bytes;
    }

private:
    support::TemporaryDirectory directory;
};

std::string okResult(std::uint32_t id)
{
    return frameHeader(135, -1, 0, 0) +
           Encoder().int64(1).identifier({id}).int32(0).int32(3).int32(0).int32(0).bytes();
}

TEST(Netcheckctl, TellsGoodAndBadServicesApart)
{
    ScriptedServer good(support::Script{});
    ScriptedServer slow({support::step::pause(std::chrono::milliseconds(60))});
    ScriptedServer rude({support::step::expectEnd(), support::step::reset()});
    const RefusingPort refused;
    struct Case {
        std::vector<std::string> arguments;
        const char* row;  // of the last argument
        int exitCode;
    };
    const Case cases[] = {
        {{target(good.port())}, "OK +[0-9]+ ms", 0},
        {{target(good.port(), "?connClose=false")}, "OK +[0-9]+ ms", 0},
        {{target(refused.port())}, "CONNECT FAILED +-  no connection could be made", 2},
        {{"--warn", "20", target(slow.port())}, "WARNING +[0-9]+ ms  slower than 20 ms", 1},
        {{"--warn", "10", "--alert", "20", target(slow.port())},
         "ALERT +[0-9]+ ms  slower than 20 ms",
         2},
        {{target(rude.port())},
         "CLOSE FAILED +-  the connection broke before the service closed it",
         2},
        {{target(good.port()), "tcp://a..b:1"}, "RESOLVE FAILED +-  .+", 3},
        {{target(good.port()), "tcp://a..b:1", target(refused.port())}, "CONNECT FAILED .*", 2},
    };
    for (const Case& one : cases) {
        support::runCase(one.row, [&] {
            std::vector<std::string> arguments = {"check"};
            arguments.insert(arguments.end(), one.arguments.begin(), one.arguments.end());
            const ProgramEnd end = netcheckctl(arguments);
            EXPECT_THAT(rowOf(end.output, one.arguments.back()), MatchesRegex(one.row));
            EXPECT_EQ(end.exitCode, one.exitCode);
            EXPECT_EQ(end.errors, "");
        });
    }
}

struct UsageCase {
    const char* name;
    std::vector<std::string> arguments;  // in front of a worker that leaves a mark
    const char* errors;                  // a part of them
};

const UsageCase usageCases[] = {
    {"no target", {}, "netcheckctl: TARGET is required\n"},
    {"all bad targets are named",
     {"http://a", "tcp://h:1", "tcp://h", "x"},
     "netcheckctl: http://a: unknown kind of target 'http'; known forms: "
     "tcp://HOST:PORT[?connClose=true|false]\n"
     "netcheckctl: tcp://h: no port; form: tcp://HOST:PORT[?connClose=true|false]\n"
     "netcheckctl: x: no kind of target in front; known forms: "
     "tcp://HOST:PORT[?connClose=true|false]\n"},
    {"an escape sequence in a target is not acted on",
     {"\x1b[31m://h"},
     "netcheckctl: \\x1b[31m://h: unknown kind of target '\\x1b[31m'"},
    {"a negative threshold",
     {"--warn", "-5", "tcp://h:1"},
     "netcheckctl: --warn: '-5' is no number of milliseconds from 0 to 2147483647\n"},
    {"no number", {"--alert", "1s", "tcp://h:1"}, "--alert: '1s' is no number of milliseconds"},
    {"an empty number", {"--alert", "", "tcp://h:1"}, "'' is no number"},
    {"beyond 31 bits", {"--alert", "2147483648", "tcp://h:1"}, "'2147483648' is no number"},
    {"a negative interval", {"--interval", "-1", "tcp://h:1"}, "--interval: '-1' is no number"},
    {"a point alone", {"--interval", ".", "tcp://h:1"}, "--interval: '.' is no number"},
    {"an interval of years",
     {"--interval", "1000001", "tcp://h:1"},
     "'1000001' is no number of seconds from 0 to 1000000"},
    {"an unknown form",
     {"--format", "xml", "tcp://h:1"},
     "--format: 'xml' is none of table, json, plugin"},
    {"thresholds that exclude each other",
     {"--warn", "11", "--alert", "10", "tcp://h:1"},
     "--warn is above --alert, so there could never be a WARNING"},
    {"a plugin makes one round",
     {"--format", "plugin", "--repeat", "2", "tcp://h:1"},
     "--format plugin makes one round"},
};

TEST(Netcheckctl, StartsNothingOnBadArguments)
{
    const FalseWorker worker("touch mark");
    for (const UsageCase& one : usageCases) {
        support::runCase(one.name, [&] {
            std::vector<std::string> arguments = {"check", "--worker", worker.path()};
            arguments.insert(arguments.end(), one.arguments.begin(), one.arguments.end());
            const ProgramEnd end = netcheckctl(arguments);
            EXPECT_THAT(end.errors, HasSubstr(one.errors));
            EXPECT_EQ(end.output, "");
            EXPECT_EQ(end.exitCode, 3);
            EXPECT_FALSE(std::filesystem::exists(worker.file("mark")));
        });
    }
    EXPECT_EQ(netcheckctl({}).exitCode, 3);
    EXPECT_EQ(netcheckctl({"frobnicate"}).exitCode, 3);
}

TEST(Netcheckctl, TellsAPluginsCallerOfBadTargetsOnStandardOutput)
{
    const ProgramEnd end = netcheckctl({"check", "--format", "plugin", "x://y"});
    EXPECT_EQ(end.output, "NETCHECK UNKNOWN - x://y: unknown kind of target 'x'; known forms: "
                          "tcp://HOST:PORT[?connClose=true/false]\n");
    EXPECT_EQ(end.exitCode, 3);
}

TEST(Netcheckctl, HelpsAndNamesItsVersion)
{
    const ProgramEnd help = netcheckctl({"check", "--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_THAT(help.output, HasSubstr("tcp://HOST:PORT[?connClose=true|false]"));
    EXPECT_THAT(help.output, HasSubstr("130"));
    const ProgramEnd version = netcheckctl({"--version"});
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_THAT(version.output, MatchesRegex("netcheckctl [0-9.]+\n"));
}

struct DeathCase {
    const char* script;
    std::string ending;                   // of "the worker "
    std::vector<std::string> words = {};  // the last ones, as they are shown
};

const DeathCase deathCases[] = {
    {"echo one >&2; printf 'two\\033[2J' >&2; exit 3",
     "ended with exit code 3",
     {"one", "two\\x1b[2J"}},
    {"i=0; while [ $i -lt 3000 ]; do i=$((i+1)); echo line $i; done >&2; exit 1",
     "ended with exit code 1",
     {"line 2993", "line 2994", "line 2995", "line 2996", "line 2997", "line 2998", "line 2999",
      "line 3000"}},
    {"kill -ABRT $$", "was killed by signal 6 (SIGABRT)"},
    {"exit 0", "ended with exit code 0"},
    {"cat request; exec sleep 1000", "was stopped: it sent what no worker sends, event number 134"},
    {"echo this is no event at all; exec sleep 1000",
     "was stopped: it sent what no worker sends, event number 1936287860"},
    {"cat unasked; exec sleep 1000", "was stopped: it sent a result that nothing waits for"},
    {"cat exception; exec sleep 1000", "was stopped: it sent the exception \"why\""},
};

TEST(Netcheckctl, ReportsADeadWorkerAndTriesOnceMore)
{
    for (const DeathCase& one : deathCases) {
        support::runCase(one.script, [&] {
            const FalseWorker worker(std::string("echo >> starts\n") + one.script);
            worker.write("request", frameHeader(134, 0, 0, 0));
            worker.write("unasked", okResult(4711));
            worker.write("exception", frameHeader(195, 0, 0, 1) + Encoder().text("why").bytes());
            std::string report = "netcheckctl: the worker " + one.ending;
            report += one.words.empty() ? "\n" : "; its last words:\n";
            for (const std::string& line : one.words)
                report.append("    ").append(line).append("\n");
            const ProgramEnd end =
                netcheckctl({"check", "--worker", worker.path(), "tcp://127.0.0.1:9"});
            const std::string again =
                "netcheckctl: 1 check in progress is sent again to a new worker\n";
            EXPECT_EQ(end.errors, std::string(report).append(again).append(report));
            EXPECT_EQ(std::filesystem::file_size(worker.file("starts")), 2U);
            EXPECT_EQ(rowOf(end.output, "tcp://127.0.0.1:9"),
                      "NO RESULT                -  the worker " + one.ending +
                          (one.words.empty() ? "" : ": " + one.words.back()));
            EXPECT_EQ(end.exitCode, 3);
        });
    }
}

TEST(Netcheckctl, GetsItsResultsFromASecondWorker)
{
    ScriptedServer good(support::Script{});
    const RefusingPort refused;
    const FalseWorker worker("if [ -e mark ]; then exec " + support::workerProgram() +
                             "; fi\ntouch mark\necho help >&2\nexit 9");
    const ProgramEnd end = netcheckctl({"check", "--format", "json", "--worker", worker.path(),
                                        target(good.port()), target(refused.port())});
    EXPECT_THAT(end.errors, HasSubstr("2 checks in progress are sent again to a new worker"));
    std::map<std::string, std::string> results;
    for (const std::string& line : lines(end.output)) {
        const nlohmann::json object = nlohmann::json::parse(line);
        EXPECT_EQ(object["attempt"], 2);
        results[object["target"]] = object["result"];
    }
    EXPECT_EQ(results[target(good.port())], "OK");
    EXPECT_EQ(results[target(refused.port())], "CONNECT FAILED");
    EXPECT_EQ(end.exitCode, 2);
}

TEST(Netcheckctl, CountsAResultThatAWorkerSendsWithItsLastBreath)
{
    const FalseWorker worker("cat result; exit 5");
    worker.write("result", okResult(1));
    const ProgramEnd end = netcheckctl({"check", "--worker", worker.path(), "tcp://127.0.0.1:9"});
    EXPECT_EQ(rowOf(end.output, "tcp://127.0.0.1:9"), "OK                    3 ms");
    EXPECT_THAT(end.errors, HasSubstr("the worker ended with exit code 5"));
    EXPECT_THAT(end.errors, Not(HasSubstr("sent again")));
    EXPECT_EQ(end.exitCode, 0);
}

TEST(Netcheckctl, GivesUpOnWorkersThatAllDie)
{
    const FalseWorker worker("exit 1");
    const ProgramEnd end = netcheckctl({"check", "--worker", worker.path(), "--repeat", "0",
                                        "--interval", "0", "tcp://127.0.0.1:9"});
    EXPECT_THAT(end.errors,
                HasSubstr("netcheckctl: 3 workers have died one after the other without a single "
                          "result\n"));
    EXPECT_EQ(end.exitCode, 3);
}

TEST(Netcheckctl, SaysWhyThereIsNoWorker)
{
    const ProgramEnd missing =
        netcheckctl({"check", "--worker", "/nonexistent/worker", "tcp://127.0.0.1:9"});
    EXPECT_THAT(missing.errors, HasSubstr("the worker /nonexistent/worker can't be started: "));
    EXPECT_EQ(missing.exitCode, 3);
    const ProgramEnd plugin = netcheckctl(
        {"check", "--format", "plugin", "--worker", "/nonexistent/worker", "tcp://127.0.0.1:9"});
    EXPECT_THAT(plugin.output,
                MatchesRegex("TCP UNKNOWN - the worker /nonexistent/worker can't be started: .*, "
                             "127.0.0.1:9 NO RESULT .* \\| 'tcp://127.0.0.1:9'=U;;;0\n"));
    EXPECT_EQ(plugin.exitCode, 3);
}

TEST(Netcheckctl, EndsAtAnInterruptWithTheResultsSoFar)
{
    ScriptedServer silent({support::step::silence()});
    const RefusingPort refused;
    Program program({"check", target(silent.port()), target(refused.port())});
    program.waitForOutput("CONNECT FAILED");
    program.signal(SIGINT);
    const ProgramEnd end = program.waitForEnd();
    EXPECT_THAT(lines(end.output).back(),
                MatchesRegex("interrupted after [0-9.]+ s: 1 of 2 checks done: 1 CONNECT FAILED"));
    EXPECT_EQ(end.errors, "");
    EXPECT_EQ(end.exitCode, 130);
    silent.waitForPeerEnd();  // the worker has gone, too
}

TEST(Netcheckctl, EndsAtAnInterruptAsAPlugin)
{
    ScriptedServer silent({support::step::silence()});
    Program program({"check", "--format", "plugin", target(silent.port())});
    silent.waitForConnections(1);
    program.signal(SIGTERM);
    const ProgramEnd end = program.waitForEnd();
    EXPECT_THAT(end.output, MatchesRegex("TCP UNKNOWN - interrupted, .*\n"));
    EXPECT_EQ(end.exitCode, 3);
}

TEST(Netcheckctl, IsNotHeldUpByAWorkerThatStopsInAFrame)
{
    // The line tells when the part of the frame has come.
    const FalseWorker worker("cat frames; exec sleep 1000");
    worker.write("frames", frameHeader(4, 0, 2, 0) + Encoder().text("half way").int32(0).bytes() +
                               okResult(1).substr(0, 30));
    Program program({"check", "--verbose", "--worker", worker.path(), "tcp://127.0.0.1:9"});
    program.waitForErrors("worker: half way\n");
    program.signal(SIGINT);
    const ProgramEnd end = program.waitForEnd();
    EXPECT_THAT(end.output, HasSubstr("0 of 1 check done"));
    EXPECT_EQ(end.exitCode, 130);
}

TEST(Netcheckctl, RepeatsUntilInterrupted)
{
    ScriptedServer good(support::Script{});
    Program program({"check", "--interval", "0.01", target(good.port())});
    program.waitForOutput("\n    3  tcp://");
    program.signal(SIGINT);
    const ProgramEnd end = program.waitForEnd();
    EXPECT_THAT(end.output, HasSubstr("\n    1  tcp://"));
    EXPECT_EQ(end.exitCode, 130);
}

TEST(Netcheckctl, RepeatsAsOftenAsToldWithOneWorker)
{
    ScriptedServer good(support::Script{});
    const ProgramEnd end = netcheckctl(
        {"check", "--repeat", "3", "--interval", ".01", "--verbose", target(good.port())});
    EXPECT_THAT(end.output, HasSubstr("\n    3  tcp://"));
    EXPECT_THAT(end.output, HasSubstr("3 checks in "));
    // Each worker says this once.
    EXPECT_EQ(end.errors.find("netcheck is alive"), end.errors.rfind("netcheck is alive"));
    EXPECT_THAT(end.errors, HasSubstr("worker (trace): TCP connection esteblished\n"));
    EXPECT_EQ(end.exitCode, 0);
}

TEST(Netcheckctl, ChecksAThousandTargetsAtOnce)
{
    ScriptedServer good(support::Script{});
    const RefusingPort refused;
    std::vector<std::string> arguments = {"check", "--format", "json", "--verbose"};
    for (int i = 0; i < 500; ++i) {
        arguments.push_back(target(good.port()));
        arguments.push_back(target(refused.port()));
    }
    const ProgramEnd end = netcheckctl(arguments);
    std::map<std::string, int> counts;
    for (const std::string& line : lines(end.output))
        ++counts[nlohmann::json::parse(line)["result"]];
    EXPECT_EQ(counts, (std::map<std::string, int>{{"CONNECT FAILED", 500}, {"OK", 500}}));
    EXPECT_THAT(end.errors, HasSubstr("\n1000 checks in "));
    EXPECT_EQ(end.exitCode, 2);
}

TEST(Netcheckctl, EndsWhenItsReaderHasGone)
{
    ScriptedServer good(support::Script{});
    Program program({"check", "--interval", "0.01", target(good.port())});
    program.waitForOutput("\n    1  tcp://");
    program.closeOutput();
    const ProgramEnd end = program.waitForEnd();
    EXPECT_THAT(end.errors, HasSubstr("the results can't be written to standard output"));
    EXPECT_EQ(end.exitCode, 3);
}

TEST(Netcheckctl, ShowsProgressAndColourOnATerminal)
{
    ScriptedServer good(support::Script{});
    struct Case {
        const char* name;
        std::vector<std::string> environment;
        const char* row;
    };
    const Case cases[] = {
        {"colour", {"TERM=xterm", "NO_COLOR="}, "\x1b[32mOK\x1b[0m"},
        {"declined", {"TERM=xterm", "NO_COLOR=1"}, "  OK  "},
        {"a terminal without colour", {"TERM=dumb", "NO_COLOR="}, "  OK  "},
    };
    for (const Case& one : cases) {
        support::runCase(one.name, [&] {
            ScriptedServer late({support::step::waitForRelease()});
            Program program({"check", target(good.port()), target(late.port())},
                            {.terminal = true, .environment = one.environment});
            program.waitForOutput("1 of 2 done, 1 running, 0 s");
            late.release();
            const ProgramEnd end = program.waitForEnd();
            EXPECT_THAT(end.output, HasSubstr("\r\x1b[Ktcp://"));  // erased before a row
            EXPECT_THAT(end.output, HasSubstr(one.row));
            EXPECT_EQ(end.exitCode, 0);
        });
    }
}

TEST(Netcheckctl, DemoFindsWhatItExpects)
{
    const ProgramEnd end = netcheckctl({"demo"});
    EXPECT_EQ(lines(end.output).back(), "8 of 8 as expected");
    EXPECT_EQ(end.errors, "");
    EXPECT_EQ(end.exitCode, 0);
}

TEST(Netcheckctl, DemoSaysWhatItDidNotExpect)
{
    const FalseWorker worker("cat result; cat > /dev/null");
    std::string results;
    for (std::uint32_t id = 1; id <= 8; ++id)
        results += okResult(id);
    worker.write("result", results);
    const ProgramEnd end = netcheckctl({"demo", "--worker", worker.path()});
    EXPECT_THAT(end.output, HasSubstr("expected TIMEOUT, came OK\n"));
    EXPECT_EQ(lines(end.output).back(), "3 of 8 as expected");
    EXPECT_EQ(end.exitCode, 2);
}

}  // namespace
