// The generic TCP check against peers of all kinds.
#include "tests/support/Case.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/Wire.h"
#include "tests/support/Worker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <iterator>
#include <map>
#include <string>
#include <vector>

namespace {

using namespace support;
using namespace std::chrono_literals;
using testing::ElementsAre;

constexpr std::uint32_t connClose = 533;
// Gives a time limit of one second, and no threshold.
constexpr std::int32_t oneSecond = -9000;

// The lines of a check between "Scheduling" and its result.
const std::vector<std::string> connectedLines = {
    "1024 TCP connection esteblished",
    "1024 Will wait for remote peer to close connection",
};

std::vector<std::string> connectedAnd(const std::string& last)
{
    std::vector<std::string> lines = connectedLines;
    lines.push_back(last);
    return lines;
}

// Runs one check. Gives the result, and the lines in `lines`.
CheckResult runCheck(const Request& request, std::vector<std::string>* lines)
{
    Worker worker;
    worker.send(request);
    CheckResult result = worker.readResult();
    *lines = worker.transcript();
    const WorkerEnd end = worker.stop();
    EXPECT_EQ(end.code, 0);
    EXPECT_EQ(end.errorText, "");

    EXPECT_THAT(*lines, testing::SizeIs(testing::Ge(3U)));
    lines->erase(lines->begin(), lines->begin() + 2);
    lines->pop_back();
    return result;
}

TEST(GenTCP, ResultByPeer)
{
    const std::vector<std::string> closed = connectedAnd("1024 TCP connection closed");
    const std::vector<std::string> timedOut = connectedAnd("0 Net check timeout");
    const std::vector<std::string> broken =
        connectedAnd("0 Error waiting for connection close: Socket_IStream: "
                     "Connection reset by peer");
    const struct {
        const char* name;
        Script script;
        std::int32_t alertIfAbove;
        std::int32_t result;
        std::vector<std::string> lines;
    } cases[] = {
        {"closes at once", {step::close()}, 0, 0, closed},
        {"closes in answer", {step::expectEnd(), step::close()}, 0, 0, closed},
        {"ends its side only", {step::halfClose(), step::silence()}, 0, 0, closed},
        {"sends and closes", {step::send("hello\r\n"), step::close()}, 0, 0, closed},
        {"sends much and closes",
         {step::send(std::string(1 << 20, 'm')), step::close()},
         0,
         0,
         closed},
        {"sends in pieces and closes",
         {step::send("slow greeting", 1, 1ms), step::close()},
         0,
         0,
         closed},
        {"breaks off", {step::expectEnd(), step::reset()}, 0, 7, broken},
        {"sends and breaks off",
         {step::send("hello"), step::expectEnd(), step::reset()},
         0,
         7,
         broken},
        {"stays silent", {step::silence()}, oneSecond, 9, timedOut},
        {"drips", {step::drip("x", 10ms)}, oneSecond, 9, timedOut},
        {"floods", {step::flood()}, oneSecond, 9, timedOut},
    };
    for (const auto& c : cases) {
        runCase(c.name, [&] {
            ScriptedServer server(c.script);
            std::vector<std::string> lines;
            const CheckResult result =
                runCheck({.port = server.port(), .alertIfAbove = c.alertIfAbove}, &lines);
            EXPECT_EQ(result.result, c.result);
            EXPECT_EQ(lines, c.lines);
            if (c.result == 0)
                EXPECT_GE(result.replytime, 0);
            else
                EXPECT_EQ(result.replytime, -1);
        });
    }
}

// The end of the attempt and the reset can be seen together: the connection stood all the same.
TEST(GenTCP, ResetRightAfterTheConnectionIsNoFailureToConnect)
{
    ScriptedServer server({step::reset()});
    Worker worker;
    for (int i = 0; i < 200; ++i) {
        worker.send({.port = server.port()});
        ASSERT_EQ(worker.readResult().result, 7) << "attempt " << i;
    }
    EXPECT_EQ(worker.stop().code, 0);
}

TEST(GenTCP, NoConnection)
{
    RefusingPort refusing;
    SilentPort silent;
    const std::string nowhere(4, '\0');
    const std::vector<std::string> failed = {"1024 TCP connection failed"};
    const struct {
        const char* name;
        Request request;
        std::int32_t result;
        std::vector<std::string> lines;
    } cases[] = {
        {"refused", {.port = refusing.port()}, 3, failed},
        {"refused, without waiting for the close",
         {.port = refusing.port(), .properties = {boolSetting(connClose, false)}},
         3,
         failed},
        {"only 16 bits of the port count", {.port = 0x10000U + refusing.port()}, 3, failed},
        {"port 0", {.port = 0}, 3, failed},
        {"no address", {.addr = nowhere, .port = 80}, 3, failed},
        {"no answer",
         {.port = silent.port(), .alertIfAbove = oneSecond},
         9,
         {"0 Net check timeout"}},
        {"a limit that is over at the start",
         {.port = silent.port(), .alertIfAbove = -20000},
         9,
         {"0 Net check timeout"}},
    };
    for (const auto& c : cases) {
        runCase(c.name, [&] {
            std::vector<std::string> lines;
            const CheckResult result = runCheck(c.request, &lines);
            EXPECT_EQ(result.result, c.result);
            EXPECT_EQ(result.replytime, -1);
            EXPECT_EQ(lines, c.lines);
        });
    }
}

TEST(GenTCP, ConnCloseSaysWhetherToWait)
{
    const struct {
        const char* name;
        std::vector<Setting> properties;
        bool waits;
    } cases[] = {
        {"absent", {}, true},
        {"a key without a property", {absentSetting(connClose)}, true},
        {"without a value", {nullBoolSetting(connClose)}, true},
        {"true", {boolSetting(connClose, true)}, true},
        {"false", {boolSetting(connClose, false)}, false},
        {"false among others",
         {textSetting(517, "user"), boolSetting(connClose, false), boolSetting(559, true)},
         false},
    };
    for (const auto& c : cases) {
        runCase(c.name, [&] {
            ScriptedServer server({step::expectEnd(), step::close()});
            std::vector<std::string> lines;
            const CheckResult result =
                runCheck({.port = server.port(), .properties = c.properties}, &lines);
            EXPECT_EQ(result.result, 0);
            if (c.waits)
                EXPECT_EQ(lines, connectedAnd("1024 TCP connection closed"));
            else
                EXPECT_THAT(lines, ElementsAre("1024 TCP connection esteblished"));
        });
    }
}

// The peer takes its time, so a reply time has a lower bound. The thresholds that must not be
// reached are far away.
TEST(GenTCP, ThresholdsDecideTheResult)
{
    constexpr std::int32_t delay = 60;
    constexpr std::int32_t never = 600000;
    const struct {
        const char* name;
        std::int32_t warnIfAbove;
        std::int32_t alertIfAbove;
        std::int32_t result;
    } cases[] = {
        {"none", 0, 0, 0},
        {"negative ones are none", -1, -1, 0},
        {"both far away", never, never, 0},
        {"warning", delay / 2, never, 1},
        {"alert", delay / 2, delay / 2, 2},
        {"alert alone", 0, delay / 2, 2},
        {"alert before a far warning", never, delay / 2, 2},
    };
    for (const auto& c : cases) {
        runCase(c.name, [&] {
            ScriptedServer server(
                {step::expectEnd(), step::pause(std::chrono::milliseconds(delay)), step::close()});
            std::vector<std::string> lines;
            const CheckResult result = runCheck({.port = server.port(),
                                                 .warnIfAbove = c.warnIfAbove,
                                                 .alertIfAbove = c.alertIfAbove},
                                                &lines);
            EXPECT_EQ(result.result, c.result);
            EXPECT_GE(result.replytime, delay);
        });
    }
}

TEST(GenTCP, TimeLimitsFollowAlertIfAbove)
{
    ScriptedServer server({step::silence()});
    Worker worker;
    const std::int32_t values[] = {-8600, -9000, -20000};
    for (std::uint32_t i = 0; i < std::size(values); ++i)
        worker.send({.id = {i}, .port = server.port(), .alertIfAbove = values[i]});
    for (const std::uint32_t expected : {2U, 1U, 0U}) {
        const CheckResult result = worker.readResult();
        EXPECT_THAT(result.check_id, ElementsAre(expected));
        EXPECT_EQ(result.result, 9);
    }
    EXPECT_EQ(worker.stop().code, 0);
}

// Ten seconds are added to the alert threshold, so a slow reply is an alert, and no time-out.
TEST(GenTCP, TimeLimitIsTenSecondsBeyondAlertIfAbove)
{
    ScriptedServer silent({step::silence()});
    ScriptedServer slow({step::pause(10200ms), step::close()});
    Worker worker;
    const auto start = std::chrono::steady_clock::now();
    worker.send({.id = {1}, .port = silent.port()});
    worker.send({.id = {2}, .port = slow.port(), .warnIfAbove = 10000, .alertIfAbove = 20000});

    const CheckResult first = worker.readResult();
    EXPECT_THAT(first.check_id, ElementsAre(1));
    EXPECT_EQ(first.result, 9);
    // Less a little, for the limit is kept by another clock.
    EXPECT_GE(std::chrono::steady_clock::now() - start, 9900ms);

    const CheckResult second = worker.readResult();
    EXPECT_EQ(second.result, 1);
    EXPECT_GE(second.replytime, 10000);
    EXPECT_EQ(worker.stop().code, 0);
}

TEST(GenTCP, ManyLimitsPassTogether)
{
    constexpr int count = 200;
    ScriptedServer server({step::silence()});
    Worker worker;
    for (int i = 0; i < count; ++i)
        worker.send({.port = server.port(), .alertIfAbove = oneSecond});
    for (int i = 0; i < count; ++i)
        ASSERT_EQ(worker.readResult().result, 9);
    EXPECT_EQ(worker.stop().code, 0);
}

TEST(GenTCP, FloodingPeersDontHoldUpTheOthers)
{
    ScriptedServer flooding({step::flood()});
    ScriptedServer polite({step::expectEnd(), step::close()});
    Worker worker;
    for (std::uint32_t i = 0; i < 3; ++i)
        worker.send({.id = {9, i}, .port = flooding.port(), .alertIfAbove = oneSecond});
    flooding.waitForConnections(3);
    for (std::uint32_t i = 0; i < 20; ++i)
        worker.send({.id = {1, i}, .port = polite.port()});

    std::map<std::uint32_t, std::map<std::int32_t, int>> results;  // by the first of the identifier
    for (int i = 0; i < 23; ++i) {
        const CheckResult result = worker.readResult();
        ++results[result.check_id.at(0)][result.result];
    }
    EXPECT_EQ(results[1], (std::map<std::int32_t, int>{{0, 20}}));
    EXPECT_EQ(results[9], (std::map<std::int32_t, int>{{9, 3}}));
    EXPECT_EQ(worker.stop().code, 0);
}

}  // namespace
