// The generic TCP check against peers of all kinds.
#include "tests/support/Case.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/Worker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

namespace {

using namespace support;
using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

constexpr std::uint32_t connClose = 533;
// Gives a time limit of one second, and no threshold.
constexpr std::int32_t oneSecond = -9000;

const Lines timedOut = {"0 Net check timeout"};

// The lines of a check that gets its connection.
Lines connectedAnd(const std::string& last)
{
    return {"1024 TCP connection esteblished", "1024 Will wait for remote peer to close connection",
            last};
}

// Runs one check. Gives the result, and the lines between "Scheduling" and it in `lines`.
CheckResult runCheck(const Request& request, Lines* lines)
{
    Worker worker;
    worker.send(request);
    CheckResult result = worker.readResult();
    *lines = worker.transcript();
    const ProcessEnd end = worker.stop();
    EXPECT_EQ(end.code, 0);
    EXPECT_EQ(end.errors, "");
    lines->erase(lines->begin(), lines->begin() + 2);
    lines->pop_back();
    return result;
}

TEST(GenTCP, ResultByPeer)
{
    const Lines closed = connectedAnd("1024 TCP connection closed");
    const Lines limit = connectedAnd(timedOut[0]);
    const Lines broken = connectedAnd("0 Error waiting for connection close: Socket_IStream: "
                                      "Connection reset by peer");
    const std::string much(1 << 20, 'm');
    const struct {
        const char* name;
        Script script;
        std::int32_t alertIfAbove;
        std::int32_t result;
        Lines lines;
    } cases[] = {
        {"closes at once", {}, 0, 0, closed},
        {"closes in answer", {step::expectEnd()}, 0, 0, closed},
        {"ends its side only", {step::halfClose(), step::silence()}, 0, 0, closed},
        {"sends much and closes", {step::send(much)}, 0, 0, closed},
        {"sends in pieces and closes", {step::send("greeting", 1, 1ms)}, 0, 0, closed},
        {"breaks off", {step::expectEnd(), step::reset()}, 0, 7, broken},
        {"stays silent", {step::silence()}, oneSecond, 9, limit},
        {"closes after the limit", {step::pause(5s)}, oneSecond, 9, limit},
        {"drips", {step::drip("x", 10ms)}, oneSecond, 9, limit},
        {"floods", {step::flood()}, oneSecond, 9, limit},
    };
    for (const auto& c : cases) {
        runCase(c.name, [&] {
            ScriptedServer server(c.script);
            Lines lines;
            const CheckResult result =
                runCheck({.port = server.port(), .alertIfAbove = c.alertIfAbove}, &lines);
            EXPECT_EQ(result.result, c.result);
            EXPECT_EQ(result.replytime < 0 ? -1 : 0, c.result == 0 ? 0 : -1);
            EXPECT_EQ(lines, c.lines);
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
}

TEST(GenTCP, NoConnection)
{
    RefusingPort refusing;
    SilentPort silent;
    const std::uint32_t port = refusing.port();
    const Lines failed = {"1024 TCP connection failed"};
    const struct {
        const char* name;
        Request request;
        std::int32_t result;
        Lines lines;
    } cases[] = {
        {"refused", {.port = port}, 3, failed},
        {"no wait", {.port = port, .properties = {boolSetting(connClose, false)}}, 3, failed},
        {"only 16 bits of the port count", {.port = 0x10000U + port}, 3, failed},
        {"no address", {.addr = std::string(4, '\0'), .port = 80}, 3, failed},
        {"no answer", {.port = silent.port(), .alertIfAbove = oneSecond}, 9, timedOut},
        {"over at the start", {.port = silent.port(), .alertIfAbove = -20000}, 9, timedOut},
    };
    for (const auto& c : cases) {
        runCase(c.name, [&] {
            Lines lines;
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
        Setting setting;
        bool waits;
    } cases[] = {
        {"a key without a property", absentSetting(connClose), true},
        {"without a value", nullBoolSetting(connClose), true},
        {"true", boolSetting(connClose, true), true},
        {"false", boolSetting(connClose, false), false},
    };
    for (const auto& c : cases) {
        runCase(c.name, [&] {
            ScriptedServer server({step::expectEnd()});
            Lines lines;
            const CheckResult result = runCheck(
                {.port = server.port(), .properties = {textSetting(517, "user"), c.setting}},
                &lines);
            EXPECT_EQ(result.result, 0);
            EXPECT_EQ(lines, c.waits ? connectedAnd("1024 TCP connection closed")
                                     : Lines{"1024 TCP connection esteblished"});
        });
    }
}

// The peer takes its time, so a reply time has a lower bound. The thresholds that must not be
// reached are far away.
TEST(GenTCP, ThresholdsDecideTheResult)
{
    constexpr std::int32_t never = 600000;
    const std::vector<std::vector<std::int32_t>> cases = {
        {never, never, 0}, {30, never, 1}, {30, 30, 2}, {0, 30, 2}};
    ScriptedServer server({step::expectEnd(), step::pause(60ms)});
    Worker worker;
    for (const auto& c : cases) {
        worker.send({.port = server.port(), .warnIfAbove = c[0], .alertIfAbove = c[1]});
        const CheckResult result = worker.readResult();
        EXPECT_EQ(result.result, c[2]);
        EXPECT_GE(result.replytime, 60);
    }
}

TEST(GenTCP, TimeLimitsFollowAlertIfAbove)
{
    ScriptedServer server({step::silence()});
    Worker worker;
    const auto start = std::chrono::steady_clock::now();
    for (const std::uint32_t tenths : {14U, 10U, 0U}) {
        worker.send({.id = {tenths},
                     .port = server.port(),
                     .alertIfAbove = static_cast<std::int32_t>(tenths) * 100 - 10000});
    }
    for (const std::uint32_t tenths : {0U, 10U, 14U}) {
        const CheckResult result = worker.readResult();
        EXPECT_THAT(result.check_id, testing::ElementsAre(tenths));
        EXPECT_EQ(result.result, 9);
        // Less a little, for the limit is kept by another clock.
        EXPECT_GE(std::chrono::steady_clock::now() - start + 50ms, tenths * 100ms);
    }
}

TEST(GenTCP, FloodingPeersDontHoldUpTheOthers)
{
    ScriptedServer flooding({step::flood()});
    ScriptedServer polite({step::expectEnd()});
    Worker worker;
    for (std::uint32_t i = 0; i < 3; ++i)
        worker.send({.id = {9}, .port = flooding.port(), .alertIfAbove = oneSecond});
    flooding.waitForConnections(3);
    for (std::uint32_t i = 0; i < 20; ++i)
        worker.send({.id = {0}, .port = polite.port()});
    for (int i = 0; i < 23; ++i) {
        const CheckResult result = worker.readResult();
        EXPECT_EQ(result.check_id.at(0), static_cast<std::uint32_t>(result.result));
    }
}

}  // namespace
