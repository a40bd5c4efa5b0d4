// The worker process as its parent sees it: the link, the log, the ways to stop.
#include "tests/support/Case.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/Wire.h"
#include "tests/support/Worker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <set>

namespace {

using namespace support;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* aliveLine = "0 netcheck is alive";
constexpr const char* shutdownLine = "0 netcheck is going to shutdown";

// The peer of a check that goes well: it answers the end of the stream with its own.
const Script polite = {step::expectEnd(), step::close()};

Request requestTo(const ScriptedServer& server)
{
    Request request;
    request.port = server.port();
    return request;
}

void expectOrderlyEnd(const WorkerEnd& end)
{
    EXPECT_FALSE(end.signalled);
    EXPECT_EQ(end.code, 0);
    EXPECT_EQ(end.errorText, "");
    EXPECT_EQ(end.partOfFrame, "");
}

void expectAssertion(const WorkerEnd& end, const std::string& text)
{
    EXPECT_TRUE(end.signalled);
    EXPECT_EQ(end.code, SIGABRT);
    EXPECT_EQ(end.errorText, "Assertion failed: " + text + "\n");
}

TEST(Process, TranscriptOfAWholeRun)
{
    ScriptedServer server({step::expectEnd(), step::send("bye"), step::close()});
    Worker worker;
    const std::int64_t before = std::time(nullptr);
    worker.send(requestTo(server));
    const CheckResult result = worker.readResult();
    const std::int64_t after = std::time(nullptr);
    expectOrderlyEnd(worker.stop());

    EXPECT_THAT(worker.transcript(),
                ElementsAre(aliveLine, "1024 Scheduling check of type 6",
                            "1024 TCP connection esteblished",
                            "1024 Will wait for remote peer to close connection",
                            "1024 TCP connection closed", "result 0", shutdownLine));
    EXPECT_GE(result.ctime, before);
    EXPECT_LE(result.ctime, after);
    EXPECT_THAT(result.check_id, ElementsAre(1, 2));
    EXPECT_GE(result.replytime, 0);
    EXPECT_EQ(result.attempts, 0U);
    EXPECT_THAT(result.result_strings, IsEmpty());

    std::int32_t serial = 2;
    for (const Frame& frame : worker.frames()) {
        SCOPED_TRACE(transcriptLine(frame));
        if (frame.logLine() != nullptr) {
            EXPECT_EQ(frame.dest, 0);
            EXPECT_EQ(frame.inresponse, serial++);
        } else {
            EXPECT_EQ(frame.dest, -1);
            EXPECT_EQ(frame.inresponse, 0);
        }
    }
}

TEST(Process, FramesByteForByte)
{
    ScriptedServer server(polite);
    Worker worker;
    Request request = requestTo(server);
    request.id = {1, 0x80000000, 0xFFFFFFFF};
    worker.send(request);
    const CheckResult result = worker.readResult();
    expectOrderlyEnd(worker.stop());

    Encoder alive;
    alive.int32(4).int32(0).int32(2).int32(0).text("netcheck is alive").int32(0);
    EXPECT_EQ(worker.frames().front().bytes, alive.bytes());

    Encoder expected;
    expected.int32(135).int32(-1).int32(0).int32(0).int64(result.ctime).identifier(request.id);
    expected.int32(0).int32(result.replytime).int32(0).int32(0);
    EXPECT_EQ(worker.frames()[worker.frames().size() - 2].bytes, expected.bytes());
}

TEST(Process, NeitherArgumentsNorEnvironmentMatter)
{
    const WorkerOptions starts[] = {
        {},
        {.arguments = {"--help"}},
        {.arguments = {"-x", "", "2", "/dev/null"}},
        {.environment = {"TZ=Nowhere/Town", "LC_ALL=de_DE.UTF-8", "OPENSSL_CONF=/nonexistent"}},
    };
    for (const WorkerOptions& start : starts) {
        Worker worker(start);
        expectOrderlyEnd(worker.stop());
        EXPECT_THAT(worker.transcript(), ElementsAre(aliveLine, shutdownLine));
    }
}

TEST(Process, EndOfInputIsAnOrderlyStop)
{
    const std::string frame = Request{.properties = {boolSetting(533, true)}}.encode();
    for (const std::size_t length : {1, 4, 15, 16, 20, 25, 31, 68, 72, 76, 80, 92}) {
        runCase(std::to_string(length) + " bytes of a frame", [&] {
            ASSERT_LT(length, frame.size());
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
    worker.send(requestTo(server));
    worker.send(Request{.port = silent.port()});
    worker.readLogLine("Will wait for remote peer to close connection");
    expectOrderlyEnd(worker.stop());

    EXPECT_EQ(worker.transcript().back(), shutdownLine);
    for (const Frame& frame : worker.frames())
        EXPECT_EQ(frame.result(), nullptr);
}

// The peer sends all the time, so it learns of the end of the connection by a reset. While the
// worker can't get rid of its last line, none may come.
TEST(Process, LastLineComesBeforeTheConnectionsEnd)
{
    ScriptedServer server({step::expectEnd(), step::drip("x", 1ms)});
    Worker worker({.keepWorkerEnds = true});
    worker.send(requestTo(server));
    worker.readLogLine("Will wait for remote peer to close connection");

    // Fill the output up. What is no frame stays behind the frames, where the test finds it.
    const int output = open(("/proc/self/fd/" + std::to_string(worker.outputOfWorker())).c_str(),
                            O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(output, 0);
    std::size_t filling = 0;
    while (write(output, "", 1) == 1)
        ++filling;
    close(output);
    worker.closeInput();

    const std::uint64_t sent = server.waitForPeerEnd().sent;
    const Conversation later = server.waitFor(0, "more drips", [sent](const Conversation& talk) {
        return talk.closed || talk.sent >= sent + 100;
    });
    EXPECT_FALSE(later.closed) << "the connection ended before the last line was out";

    worker.skipBytes(filling);
    worker.readLogLine("netcheck is going to shutdown");
    EXPECT_TRUE(server.waitForClosed().peerReset);
    expectOrderlyEnd(worker.waitForEnd());
}

// Input that ends the process at once, by exception or assertion.
TEST(Process, BadInputEndsTheProcess)
{
    const std::string request = Request{}.encode();
    const std::string overlongId = Request{.id = {1, 2, 3, 4}}.encode();
    const std::string wrongType = Request{.properties = {textSetting(533, "no")}}.encode();
    const std::string result = Encoder()
                                   .raw(frameHeader(135, -1, 0, 0))
                                   .int64(1)
                                   .identifier({1})
                                   .int32(0)
                                   .int32(0)
                                   .int32(0)
                                   .int32(0)
                                   .bytes();
    const auto exception = [](std::int32_t number) {
        return Encoder().raw(frameHeader(number, 0, 9, 1)).text("x").bytes();
    };
    const auto header = [](std::int32_t number) {
        return frameHeader(number, 0, 0, 0);
    };
    const auto unknown = [](std::int32_t number) {
        return "Assertion failed: fdio >> event: unknown type index: " + std::to_string(number) +
               " old was 0 dest 0\n";
    };
    const std::string wrongEvent = "Assertion failed: Wrong event received from parent\n";
    const std::string unknownCheck = "Assertion failed: Unknown check type\n";
    const struct {
        const char* name;
        std::string input;
        int signal;  // or 0: exit code 1
        std::string errorText;
        std::vector<std::string> lines;  // behind the first one
    } cases[] = {
        {"service 0",
         Request{.service = 0}.encode(),
         SIGABRT,
         unknownCheck,
         {"1024 Scheduling check of type 0"}},
        {"service 2",
         Request{.service = 2}.encode(),
         SIGABRT,
         unknownCheck,
         {"1024 Scheduling check of type 2"}},
        {"service 99",
         Request{.service = 99}.encode(),
         SIGABRT,
         unknownCheck,
         {"1024 Scheduling check of type 99"}},
        {"service -1",
         Request{.service = -1}.encode(),
         SIGABRT,
         unknownCheck,
         {"1024 Scheduling check of type -1"}},
        {"another event", result, SIGABRT, wrongEvent, {}},
        {"a request to stop",
         header(2) + Encoder().int32(0).int32(0).text("").bytes(),
         SIGABRT,
         wrongEvent,
         {}},
        {"an exception", exception(195), SIGABRT, wrongEvent, {}},
        {"an exception for a request", exception(134), SIGABRT, wrongEvent, {}},
        {"an exception event without exception",
         header(195),
         SIGABRT,
         "Assertion failed: Found exevent with .exception == 0\n",
         {}},
        {"event 0", header(0), SIGABRT, unknown(0), {}},
        {"event 70, not assigned", header(70), SIGABRT, unknown(70), {}},
        {"event 196", header(196), SIGABRT, unknown(196), {}},
        {"event -1", header(-1), SIGABRT, unknown(-1), {}},
        {"an identifier of four elements",
         overlongId,
         0,
         "Caught: small vector resize overflow 4 > 3\n",
         {}},
        {"a property of the wrong type",
         wrongType,
         0,
         "Caught: Type mismatch for property_boolean_t: connClose\n",
         {"1024 Scheduling check of type 6"}},
    };
    for (const auto& c : cases) {
        runCase(c.name, [&] {
            Worker worker;
            worker.sendBytes(c.input);
            const WorkerEnd end = worker.waitForEnd();
            EXPECT_EQ(end.signalled, c.signal != 0);
            EXPECT_EQ(end.code, c.signal != 0 ? c.signal : 1);
            EXPECT_EQ(end.errorText, c.errorText);
            std::vector<std::string> lines = c.lines;
            lines.insert(lines.begin(), aliveLine);
            EXPECT_EQ(worker.transcript(), lines);
        });
    }
}

TEST(Process, UnknownEventNamesTheLastGoodOne)
{
    ScriptedServer server(polite);
    Worker worker;
    worker.send(requestTo(server));
    worker.readResult();
    worker.sendBytes(frameHeader(196, 0, 0, 0));
    expectAssertion(worker.waitForEnd(),
                    "fdio >> event: unknown type index: 196 old was 134 dest 3");
}

// A text that no memory can hold is no error::Exception: it ends in the crash handling, which
// leaves a post-mortem beside the executable.
TEST(Process, ImpossibleLengthCrashesWithoutTakingMemory)
{
    TemporaryDirectory directory;
    const std::string program = directory.path("netcheck");
    std::filesystem::copy(workerProgram(), program);

    Worker idle;
    const long usualMemory = idle.stop().peakMemory;
    for (const int power : {60, 63}) {
        runCase("2 to the power of " + std::to_string(power), [&] {
            Worker worker({.program = program});
            worker.sendBytes(frameHeader(134, 0, 0, 0) +
                             Encoder().int64(std::int64_t{1} << power).bytes() + "abc");
            const WorkerEnd end = worker.waitForEnd();
            EXPECT_TRUE(end.signalled);
            EXPECT_THAT(end.errorText, testing::Not(testing::HasSubstr("Caught:")));
            EXPECT_LT(end.peakMemory, usualMemory + 65536);
            EXPECT_TRUE(std::filesystem::remove(directory.path("netcheck.dmp")));
        });
    }
}

TEST(Process, DeadOutputEndsTheProcess)
{
    ScriptedServer server(polite);
    Worker worker;
    worker.readFrame();
    worker.closeOutput();
    worker.send(requestTo(server));
    worker.send(requestTo(server));
    const WorkerEnd end = worker.waitForEnd();
    EXPECT_FALSE(end.signalled);
    EXPECT_EQ(end.code, 1);
    EXPECT_EQ(end.errorText, "Caught: PipeOStream(stdout) write: Broken pipe\n");
}

TEST(Process, ServesEveryKindOfLink)
{
    const struct {
        const char* name;
        Channel input;
        Channel output;
    } cases[] = {
        {"pipes", Channel::pipe, Channel::pipe},
        {"socket pairs", Channel::socketPair, Channel::socketPair},
        {"terminals", Channel::terminal, Channel::terminal},
        {"a terminal and a pipe", Channel::terminal, Channel::pipe},
    };
    for (const auto& c : cases) {
        runCase(c.name, [&] {
            ScriptedServer server(polite);
            Worker worker({.input = c.input, .output = c.output, .keepWorkerEnds = true});
            worker.send(requestTo(server));
            EXPECT_EQ(worker.readResult().result, 0);
            // The parent may share these with others, so the worker must leave them as they are.
            EXPECT_EQ(fcntl(worker.inputOfWorker(), F_GETFL) & O_NONBLOCK, 0);
            EXPECT_EQ(fcntl(worker.outputOfWorker(), F_GETFL) & O_NONBLOCK, 0);
            expectOrderlyEnd(worker.stop());
        });
    }
}

TEST(Process, StandardStreamsOfEveryKind)
{
    const std::vector<std::string> twoLines = {aliveLine, shutdownLine};
    const struct {
        const char* name;
        WorkerOptions options;
        int code;
        std::string errorText;
        std::vector<std::string> lines;
    } cases[] = {
        {"null device to file",
         {.input = Channel::nullDevice, .output = Channel::file},
         0,
         "",
         twoLines},
        {"null device to pipe", {.input = Channel::nullDevice}, 0, "", twoLines},
        {"null device to null device",
         {.input = Channel::nullDevice, .output = Channel::nullDevice},
         0,
         "",
         {}},
        {"empty file", {.input = Channel::file}, 0, "", twoLines},
        {"file with part of a frame",
         {.input = Channel::file, .inputFile = Request{}.encode().substr(0, 30)},
         0,
         "",
         twoLines},
        {"no input",
         {.input = Channel::closed},
         1,
         "Caught: Error in PipeIStream(PipeIStream(stdin)): Bad file descriptor\n",
         {aliveLine}},
        {"no output",
         {.input = Channel::nullDevice, .output = Channel::closed},
         1,
         "Caught: PipeOStream(stdout) write: Bad file descriptor\n",
         {}},
        {"nothing at all",
         {.input = Channel::closed, .output = Channel::closed, .error = Channel::closed},
         1,
         "",
         {}},
    };
    for (const auto& c : cases) {
        runCase(c.name, [&] {
            Worker worker(c.options);
            const WorkerEnd end = worker.waitForEnd();
            EXPECT_FALSE(end.signalled);
            EXPECT_EQ(end.code, c.code);
            EXPECT_EQ(end.errorText, c.errorText);
            EXPECT_EQ(worker.transcript(), c.lines);
        });
    }
}

// A file as input ends right behind the request, so its check is dropped; the request was read.
TEST(Process, ReadsRequestsFromAFile)
{
    RefusingPort refusing;
    Worker worker({.input = Channel::file, .inputFile = Request{.port = refusing.port()}.encode()});
    expectOrderlyEnd(worker.waitForEnd());
    EXPECT_THAT(worker.transcript(), testing::Contains("1024 Scheduling check of type 6"));
    EXPECT_EQ(worker.transcript().back(), shutdownLine);
}

TEST(Process, RequestsArriveInPieces)
{
    ScriptedServer server(polite);
    Worker worker;
    Request request = requestTo(server);
    request.properties = {boolSetting(533, true), textSetting(534, std::string(10000, 'u'))};
    const std::string bytes = request.encode();
    // Byte by byte up to the long text, which takes several reads, then the rest.
    for (std::size_t i = 0; i < 120; ++i)
        worker.sendBytes(bytes.substr(i, 1));
    worker.sendBytes(bytes.substr(120));
    EXPECT_EQ(worker.readResult().result, 0);
    expectOrderlyEnd(worker.stop());
}

TEST(Process, RequestsBackToBackRunTogether)
{
    // Each peer answers only when the test says so, the second one first.
    const Script onRelease = {step::expectEnd(), step::waitForRelease(), step::close()};
    ScriptedServer first(onRelease);
    ScriptedServer second(onRelease);
    Worker worker;
    Request one = requestTo(first);
    one.id = {1};
    Request two = requestTo(second);
    two.id = {2};
    worker.sendBytes(one.encode() + two.encode());
    first.waitForPeerEnd();
    second.waitForPeerEnd();
    second.release();
    EXPECT_THAT(worker.readResult().check_id, ElementsAre(2));
    first.release();
    EXPECT_THAT(worker.readResult().check_id, ElementsAre(1));
    expectOrderlyEnd(worker.stop());
}

TEST(Process, OneIdentifierTwiceGivesTwoResults)
{
    ScriptedServer server({step::expectEnd(), step::waitForRelease(), step::close()});
    Worker worker;
    worker.sendBytes(requestTo(server).encode() + requestTo(server).encode());
    server.waitForConnections(2);
    server.release();
    EXPECT_THAT(worker.readResult().check_id, ElementsAre(1, 2));
    EXPECT_THAT(worker.readResult().check_id, ElementsAre(1, 2));
    expectOrderlyEnd(worker.stop());
}

TEST(Process, ThousandsOfChecksAtOnce)
{
    constexpr std::uint32_t count = 2000;
    ScriptedServer server({step::expectEnd(), step::waitForRelease(), step::close()});
    Worker worker;
    std::string requests;
    for (std::uint32_t i = 0; i < count; ++i) {
        Request request = requestTo(server);
        request.id = {7, i};
        request.alertIfAbove = 600000;
        requests += request.encode();
    }
    worker.sendBytes(requests);
    server.waitForConnections(count);
    for (const Frame& frame : worker.frames())
        ASSERT_EQ(frame.result(), nullptr) << "a check ended before its peer answered";
    server.release();

    std::set<std::uint32_t> seen;
    for (std::uint32_t i = 0; i < count; ++i) {
        const CheckResult result = worker.readResult();
        ASSERT_EQ(result.result, 0);
        ASSERT_THAT(result.check_id, SizeIs(2));
        seen.insert(result.check_id[1]);
    }
    EXPECT_THAT(seen, SizeIs(count));
    expectOrderlyEnd(worker.stop());
}

TEST(Process, UsesAllDescriptorsThatItMayHave)
{
    constexpr std::uint32_t count = 100;
    ScriptedServer server({step::expectEnd(), step::waitForRelease(), step::close()});
    Worker worker({.descriptors = {{32, 1024}}});
    for (std::uint32_t i = 0; i < count; ++i)
        worker.send(requestTo(server));
    server.waitForConnections(count);
    server.release();
    for (std::uint32_t i = 0; i < count; ++i)
        ASSERT_EQ(worker.readResult().result, 0);
    expectOrderlyEnd(worker.stop());
}

TEST(Process, WithoutADescriptorOnlyTheCheckFails)
{
    Worker worker({.denySockets = true});
    for (int i = 0; i < 3; ++i) {
        worker.send(Request{.port = 80});
        const CheckResult result = worker.readResult();
        EXPECT_EQ(result.result, 3);
        EXPECT_EQ(result.replytime, -1);
        EXPECT_EQ(transcriptLine(worker.frames()[worker.frames().size() - 2]),
                  "0 Failed to create TCP socket: Inavlid socket returned from socket(): "
                  "Too many open files");
    }
    expectOrderlyEnd(worker.stop());
}

}  // namespace
