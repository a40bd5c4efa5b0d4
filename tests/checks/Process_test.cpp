// The worker process as its parent sees it: the link, the log, the ways to stop.
#include "tests/support/Case.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/Worker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <ctime>
#include <fstream>
#include <map>
#include <set>

namespace {

using namespace support;
using namespace std::chrono_literals;
using testing::ElementsAre;
using Lines = std::vector<std::string>;

constexpr const char* aliveLine = "0 netcheck is alive";
constexpr const char* waitingLine = "1024 Will wait for remote peer to close connection";
constexpr const char* shutdownLine = "0 netcheck is going to shutdown";

// The peer of a check that goes well: it answers the end of the stream with its own.
const Script polite = {step::expectEnd()};
const Script onRelease = {step::expectEnd(), step::waitForRelease()};

void expectOrderlyEnd(const ProcessEnd& end)
{
    EXPECT_EQ(end.code, 0);
    EXPECT_EQ(end.errors, "");
    EXPECT_EQ(end.output, "") << "part of a frame";
}

TEST(Process, TranscriptOfAWholeRun)
{
    ScriptedServer server({step::expectEnd(), step::send("bye")});
    Worker worker;
    const std::int64_t before = std::time(nullptr);
    const Request request = {.id = {1, 0x80000000, 0xFFFFFFFF}, .port = server.port()};
    worker.send(request);
    const CheckResult result = worker.readResult();
    const std::int64_t after = std::time(nullptr);
    expectOrderlyEnd(worker.stop());

    EXPECT_THAT(worker.transcript(),
                ElementsAre(aliveLine, "1024 Scheduling check of type 6",
                            "1024 TCP connection esteblished", waitingLine,
                            "1024 TCP connection closed", "result 0", shutdownLine));
    EXPECT_GE(result.ctime, before);
    EXPECT_LE(result.ctime, after);
    EXPECT_GE(result.replytime, 0);

    ASSERT_EQ(worker.frames().size(), 7U);
    EXPECT_EQ(worker.frames()[0].bytes,
              frameHeader(4, 0, 2, 0) + Encoder().text("netcheck is alive").int32(0).bytes());
    const CheckResult expected = {
        .ctime = result.ctime, .check_id = request.id, .replytime = result.replytime};
    EXPECT_EQ(worker.frames()[5].bytes, expected.encode());
    std::int32_t serial = 2;
    for (const Frame& frame : worker.frames()) {
        EXPECT_EQ(frame.dest, frame.result ? -1 : 0) << frame.line;
        EXPECT_EQ(frame.inresponse, frame.result ? 0 : serial++) << frame.line;
    }
}

TEST(Process, EndOfInputIsAnOrderlyStop)
{
    const std::string frame = Request{.properties = {boolSetting(533, true)}}.encode();
    for (std::size_t length = 0; length < frame.size(); length += 4) {
        runCase(std::to_string(length) + " bytes of a frame", [&] {
            Worker worker;
            worker.sendBytes(std::string_view(frame).substr(0, length));
            expectOrderlyEnd(worker.stop());
            EXPECT_THAT(worker.transcript(), ElementsAre(aliveLine, shutdownLine));
        });
    }
}

TEST(Process, EndOfInputDropsRunningChecks)
{
    // One check whose peer never closes, one whose peer never answers the attempt.
    ScriptedServer server({step::silence()});
    SilentPort silent;
    Worker worker;
    worker.send({.port = server.port()});
    worker.send({.port = silent.port()});
    worker.readLine(waitingLine);
    expectOrderlyEnd(worker.stop());
    EXPECT_EQ(worker.transcript().back(), shutdownLine);
    for (const Frame& frame : worker.frames())
        EXPECT_FALSE(frame.result);
}

// The peer sends all the time, so it learns of the end of the connection by a reset. While the
// worker can't get rid of its last line, none may come.
TEST(Process, LastLineComesBeforeTheConnectionsEnd)
{
    ScriptedServer server({step::expectEnd(), step::drip("x", 1ms)});
    Worker worker;
    worker.send({.port = server.port()});
    worker.readLine(waitingLine);

    // Fill the output up, with frames that are smaller than the line.
    const int output = open(("/proc/self/fd/" + std::to_string(worker.outputEnd())).c_str(),
                            O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(output, 0);
    const std::string filling = frameHeader(4, 0, 0, 0) + Encoder().text("").int32(0).bytes();
    while (write(output, filling.data(), filling.size()) > 0) {
    }
    close(output);
    worker.closeInput();

    const std::uint64_t sent = server.waitForPeerEnd().sent;
    const Conversation later = server.waitFor(0, "more drips", [sent](const Conversation& talk) {
        return talk.closed || talk.sent >= sent + 100;
    });
    EXPECT_FALSE(later.closed) << "the connection ended before the last line was out";
    worker.readLine(shutdownLine);
    EXPECT_TRUE(server.waitForClosed().peerReset);
    expectOrderlyEnd(worker.waitForEnd());
}

// Input that ends the process at once, by exception or assertion.
TEST(Process, BadInputEndsTheProcess)
{
    const auto service = [](std::int32_t number) {
        return Request{.service = number}.encode();
    };
    const auto exception = [](std::int32_t number) {
        return frameHeader(number, 0, 9, 1) + Encoder().text("x").bytes();
    };
    const std::string result = CheckResult{.check_id = {1}}.encode();
    const std::string stop = frameHeader(2, 0, 0, 0) + Encoder().int32(0).int32(0).text("").bytes();
    const std::string overlongId = Request{.id = {1, 2, 3, 4}}.encode();
    const std::string wrongType = Request{.properties = {textSetting(533, "no")}}.encode();
    const std::string failed = "Assertion failed: ";
    const std::string wrongEvent = failed + "Wrong event received from parent\n";
    const std::string noService = failed + "Unknown check type\n";
    const std::string noException = failed + "Found exevent with .exception == 0\n";
    const std::string unknown = failed + "fdio >> event: unknown type index: ";
    const struct {
        const char* name;
        std::string input;
        int code;
        std::string errors;
        Lines lines;  // behind the first one
    } cases[] = {
        {"service 0", service(0), -SIGABRT, noService, {"1024 Scheduling check of type 0"}},
        {"service 2", service(2), -SIGABRT, noService, {"1024 Scheduling check of type 2"}},
        {"service -1", service(-1), -SIGABRT, noService, {"1024 Scheduling check of type -1"}},
        {"another event", result, -SIGABRT, wrongEvent, {}},
        {"a request to stop", stop, -SIGABRT, wrongEvent, {}},
        {"an exception for a request", exception(134), -SIGABRT, wrongEvent, {}},
        {"no exception", frameHeader(195, 0, 0, 0), -SIGABRT, noException, {}},
        {"0", frameHeader(0, 0, 0, 0), -SIGABRT, unknown + "0 old was 0 dest 0\n", {}},
        {"70", frameHeader(70, 0, 0, 0), -SIGABRT, unknown + "70 old was 0 dest 0\n", {}},
        {"196", frameHeader(196, 0, 0, 0), -SIGABRT, unknown + "196 old was 0 dest 0\n", {}},
        {"identifier", overlongId, 1, "Caught: small vector resize overflow 4 > 3\n", {}},
        {"property",
         wrongType,
         1,
         "Caught: Type mismatch for property_boolean_t: connClose\n",
         {"1024 Scheduling check of type 6"}},
    };
    for (const auto& c : cases) {
        runCase(c.name, [&] {
            Worker worker;
            worker.sendBytes(c.input);
            const ProcessEnd end = worker.waitForEnd();
            EXPECT_EQ(end.code, c.code);
            EXPECT_EQ(end.errors, c.errors);
            Lines lines = c.lines;
            lines.insert(lines.begin(), aliveLine);
            EXPECT_EQ(worker.transcript(), lines);
        });
    }
}

TEST(Process, UnknownEventNamesTheLastGoodOne)
{
    ScriptedServer server(polite);
    Worker worker;
    worker.send({.port = server.port()});
    worker.readResult();
    worker.sendBytes(frameHeader(196, 0, 0, 0));
    EXPECT_EQ(worker.waitForEnd().errors, "Assertion failed: fdio >> event: unknown type index: "
                                          "196 old was 134 dest 3\n");
}

// A text that no memory can hold is no error::Exception: it ends in the crash handling, which
// leaves a post-mortem beside the executable.
TEST(Process, ImpossibleLengthCrashesWithoutTakingMemory)
{
    TemporaryDirectory directory;
    const std::string program = directory.path("netcheck");
    std::filesystem::copy(ProcessOptions().program, program);
    const long usualMemory = Worker().stop().peakMemory;
    Worker worker({.program = program});
    worker.sendBytes(frameHeader(134, 0, 0, 0) + Encoder().int64(1LL << 60).bytes() + "abc");
    const ProcessEnd end = worker.waitForEnd();
    EXPECT_LT(end.code, 0);
    EXPECT_THAT(end.errors, testing::Not(testing::HasSubstr("Caught:")));
    EXPECT_LT(end.peakMemory, usualMemory + 65536);
    EXPECT_TRUE(std::filesystem::exists(directory.path("netcheck.dmp")));
}

TEST(Process, DeadOutputEndsTheProcess)
{
    Worker worker;
    worker.readFrame();
    worker.closeOutput();
    worker.send({});
    const ProcessEnd end = worker.waitForEnd();
    EXPECT_EQ(end.code, 1);
    EXPECT_EQ(end.errors, "Caught: PipeOStream(stdout) write: Broken pipe\n");
}

TEST(Process, ServesEveryKindOfLink)
{
    for (const Channel channel : {Channel::pipe, Channel::socketPair, Channel::terminal}) {
        runCase("channel " + std::to_string(static_cast<int>(channel)), [&] {
            ScriptedServer server(polite);
            Worker worker({.input = channel, .output = channel});
            worker.send({.port = server.port()});
            EXPECT_EQ(worker.readResult().result, 0);
            // The parent may share these with others, so the worker must leave them as they are.
            for (const char* number : {"0", "1"}) {
                std::ifstream info("/proc/" + std::to_string(worker.id()) + "/fdinfo/" + number);
                unsigned flags = O_NONBLOCK;
                info.ignore(1000, '\n') >> std::oct;
                info.ignore(1000, ':') >> flags;
                EXPECT_EQ(flags & O_NONBLOCK, 0U);
            }
            expectOrderlyEnd(worker.stop());
        });
    }
}

TEST(Process, StandardStreamsOfEveryKind)
{
    using enum Channel;
    const Lines twoLines = {aliveLine, shutdownLine};
    const std::string part = Request{}.encode().substr(0, 30);
    const std::string badInput =
        "Caught: Error in PipeIStream(PipeIStream(stdin)): Bad file descriptor\n";
    const std::string badOutput = "Caught: PipeOStream(stdout) write: Bad file descriptor\n";
    const struct {
        const char* name;
        ProcessOptions options;
        int code;
        std::string errors;
        Lines lines;
    } cases[] = {
        {"null to file", {.input = nullDevice, .output = file}, 0, "", twoLines},
        {"null to null", {.input = nullDevice, .output = nullDevice}, 0, "", {}},
        {"part of a frame", {.input = file, .inputFile = part}, 0, "", twoLines},
        {"no input", {.input = closed}, 1, badInput, {aliveLine}},
        {"no output", {.input = nullDevice, .output = closed}, 1, badOutput, {}},
        {"nothing", {.input = closed, .output = closed, .error = closed}, 1, "", {}},
    };
    for (const auto& c : cases) {
        runCase(c.name, [&] {
            Worker worker(c.options);
            const ProcessEnd end = worker.waitForEnd();
            EXPECT_EQ(end.code, c.code);
            EXPECT_EQ(end.errors, c.errors);
            EXPECT_EQ(worker.transcript(), c.lines);
        });
    }
}

TEST(Process, RequestsArriveInPieces)
{
    ScriptedServer server(polite);
    Worker worker;
    const std::string text(10000, 'u');
    const std::string bytes =
        Request{.port = server.port(), .properties = {textSetting(534, text)}}.encode();
    // Byte by byte up to the long text, which takes several reads, then the rest.
    for (std::size_t i = 0; i < 120; ++i)
        worker.sendBytes(bytes.substr(i, 1));
    worker.sendBytes(bytes.substr(120));
    EXPECT_EQ(worker.readResult().result, 0);
}

TEST(Process, ChecksEndInTheOrderOfTheirPeersEvenWithOneIdentifier)
{
    ScriptedServer first(onRelease);
    ScriptedServer second(onRelease);
    Worker worker;
    worker.sendBytes(Request{.id = {1}, .port = first.port()}.encode() +
                     Request{.id = {2}, .port = second.port()}.encode() +
                     Request{.id = {2}, .port = second.port()}.encode());
    first.waitForPeerEnd();
    second.waitForPeerEnd(1);
    second.release();
    EXPECT_THAT(worker.readResult().check_id, ElementsAre(2));
    EXPECT_THAT(worker.readResult().check_id, ElementsAre(2));
    first.release();
    EXPECT_THAT(worker.readResult().check_id, ElementsAre(1));
}

TEST(Process, ThousandsOfChecksAtOnce)
{
    constexpr std::uint32_t count = 2000;
    ScriptedServer server(onRelease);
    // The worker may have more descriptors than it is given at first.
    Worker worker({.descriptors = {{32, 4096}}});
    std::string requests;
    for (std::uint32_t i = 0; i < count; ++i)
        requests += Request{.id = {7, i}, .port = server.port(), .alertIfAbove = 600000}.encode();
    worker.sendBytes(requests);
    server.waitForConnections(count);
    server.release();

    std::set<std::uint32_t> seen;
    for (std::uint32_t i = 0; i < count; ++i) {
        const CheckResult result = worker.readResult();
        ASSERT_EQ(result.result, 0);
        seen.insert(result.check_id.at(1));
    }
    EXPECT_THAT(seen, testing::SizeIs(count));
    expectOrderlyEnd(worker.stop());
}

TEST(Process, WithoutADescriptorOnlyTheCheckFails)
{
    ScriptedServer server(onRelease);
    Worker worker({.descriptors = {{24, 24}}});
    for (int i = 0; i < 30; ++i)
        worker.send({.port = server.port()});
    const CheckResult failed = worker.readResult();
    EXPECT_EQ(failed.result, 3);
    EXPECT_EQ(failed.replytime, -1);
    worker.readLine("0 Failed to create TCP socket: Inavlid socket returned from socket(): "
                    "Too many open files");
    server.release();
    std::map<std::int32_t, int> results;
    for (int i = 2; i < 30; ++i)
        ++results[worker.readResult().result];
    EXPECT_GT(results[0], 1);
    EXPECT_GT(results[3], 1);
    expectOrderlyEnd(worker.stop());
}

}  // namespace
