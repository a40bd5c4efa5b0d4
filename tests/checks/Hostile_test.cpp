// The dialogue checks against services that keep to no rule, many at once in one worker.
#include "tests/checks/replaced.h"
#include "tests/support/Case.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/Worker.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

namespace {

using namespace support;
using namespace std::chrono_literals;
using Texts = std::vector<std::string>;

struct Kind {
    const char* name;
    std::int32_t service;
    Tls tls;
    std::vector<Setting> settings;
    Texts turns;  // of a good server, which begins; each but the last is followed by a request
};

const Setting user = textSetting(517, "u");
const Setting verify = boolSetting(541, true);
const Setting word = textSetting(543, "word");
const Setting ssl = boolSetting(559, true);
const Texts page = {"", "HTTP/1.0 200 a\r\n\r\nword"};
const Texts mailbox = {"+OK a\r\n", "+OK b\r\n", "+OK c\r\n", "+OK d\r\n"};
const Texts folders = {"* OK a\r\n", "* b\r\n0 OK c\r\n", "0 OK d\r\n"};

const Kind kinds[] = {
    {"SMTP", 4, Tls::none, {verify}, {"220 a\r\n", "250 b\r\n", "250 c\r\n", "221 d\r\n"}},
    {"FTP", 7, Tls::none, {user}, {"220 a\r\n", "331 b\r\n", "230 c\r\n", "221 d\r\n"}},
    {"HTTP", 1, Tls::none, {}, page},
    {"HTTP with content", 1, Tls::none, {word}, page},
    {"POP3", 5, Tls::none, {user}, mailbox},
    {"IMAP", 8, Tls::none, {user}, folders},
    {"HTTPS with content", 1, Tls::v13, {word, ssl}, page},
    {"POP3S", 5, Tls::v12, {user, ssl}, mailbox},
    {"IMAPS", 8, Tls::v13, {user, ssl}, folders},
};

// So many turns of the dialogue, said in pieces of this size, and then these steps. A line end is
// never cut, for SMTP and FTP wait for a whole one.
Script afterTurns(std::size_t count, const Kind& kind, const Script& then, std::size_t piece = 0)
{
    Script script;
    for (std::size_t i = 0; i < count; ++i) {
        const std::string& turn = kind.turns[i];
        const std::size_t end = turn.size() - std::min<std::size_t>(turn.size(), 2);
        script.push_back(step::send(turn.substr(0, end), piece, 1ms));
        script.push_back(step::send(turn.substr(end)));
        if (i + 1 < kind.turns.size())
            script.push_back(step::expectThrough("\r\n"));
    }
    script.insert(script.end(), then.begin(), then.end());
    return script;
}

// A result for each of the kinds; "-" is for a kind without this case. Checks that their limit is
// to end have one of a second.
TEST(Hostile, EachIsJudgedAndNoneHoldsUpTheOthers)
{
    struct Case {
        std::string name;
        std::int32_t result;
        std::unique_ptr<ScriptedServer> server;
    };
    std::vector<Case> cases;
    std::string requests;
    const Step silence = step::silence();
    const Step hello = step::expectThrough("\x16\x03\x01");
    const Script close = {step::halfClose(), step::expectEnd()};
    const Script much = {step::send(std::string(2 << 20, '+')), close[0], close[1]};
    std::string mebibyte = page[1];
    mebibyte.insert(mebibyte.size() - 4, (1 << 20) - mebibyte.size(), 'x');
    for (std::size_t k = 0; k < std::size(kinds); ++k) {
        const auto add = [&](const char* name, const char* results, const Kind& kind,
                             const Script& script) {
            if (results[k] == '-')
                return;
            const std::int32_t result = results[k] - '0';
            cases.push_back({kind.name + (" " + std::string(name)), result,
                             std::make_unique<ScriptedServer>(script, kind.tls)});
            requests += Request{.id = {static_cast<std::uint32_t>(cases.size() - 1)},
                                .service = kind.service,
                                .port = cases.back().server->port(),
                                .alertIfAbove = result == 9 ? -9000 : 600000,
                                .properties = kind.settings}
                            .encode();
        };
        const Kind& kind = kinds[k];
        const std::size_t all = kind.turns.size();
        Kind zeros = kind;
        std::string text;
        std::string noEnds;
        for (std::string& turn : zeros.turns) {
            text += turn;
            noEnds += replaced(turn, "\r\n", "");
            turn = replaced(turn, "\r\n", std::string("\0\r\n", 3));
        }
        Kind bare = kind;
        bare.tls = Tls::none;

        for (std::size_t state = 0; state < all; ++state) {
            add("stalls", "999999999", kind, afterTurns(state, kind, {silence}));
            add("closes", "556655655", kind, afterTurns(state, kind, close));
            add("resets", "555555555", kind, afterTurns(state, kind, {step::reset()}));
        }
        add("goes well", "000000000", kind, afterTurns(all, kind, {}));
        add("drips", "00-000000", kind, afterTurns(all, kind, {}, 1));
        add("drips for good", "996999999", kind, {step::drip("+", 5ms)});
        add("ends no line", "990999999", kind, {step::send(noEnds), silence});
        add("ends no line of 2 MiB", "556655655", kind, much);
        add("says all at once", "990999999", kind, {step::send(text), silence});
        add("says zeros", "000600600", kind, afterTurns(all, zeros, {}));
        add("sends 1 MiB", "---0-----", kind, {step::send(mebibyte), silence});
        add("sends less", "---9-----", kind, {step::send(mebibyte.substr(1)), silence});
        add("stalls before TLS", "------999", bare, {hello, step::send("\x16\x03\x03"), silence});
        add("closes before TLS", "------454", bare, {hello, close[0], close[1]});
        add("resets before TLS", "------454", bare, {hello, step::reset()});
    }

    Worker worker;
    worker.sendBytes(requests);
    for (std::size_t left = cases.size(); left > 0; --left) {
        const CheckResult result = worker.readResult();
        const Case& c = cases.at(result.check_id.at(0));
        EXPECT_EQ(result.result, c.result) << c.name;
    }
    // All over again, but the parent leaves while they run.
    worker.sendBytes(requests);
    worker.readResult();
    const ProcessEnd end = worker.stop();
    EXPECT_EQ(end.code, 0);
    EXPECT_EQ(end.errors, "");
}

TEST(Hostile, RepliesWithoutEndAreCutOff)
{
    constexpr std::size_t limit = 16 << 20;
    std::string untagged;
    while (untagged.size() < 65536)
        untagged += "* a\r\n";
    const struct {
        std::string name;
        std::int32_t service;
        Script script;
    } cases[] = {
        {"SMTP", 4, {step::flood()}},
        {"FTP", 7, {step::flood()}},
        {"POP3", 5, {step::send("+"), step::flood()}},
        {"IMAP", 8, {step::flood()}},
        {"IMAP", 8, {step::drip(untagged, 0ms)}},
    };
    // A process counts the memory of the one that starts it, so all start before that grows.
    const ProcessOptions options = {.environment = {"ASAN_OPTIONS=quarantine_size_mb=1"}};
    const long usual = Worker(options).stop().peakMemory;
    std::vector<std::unique_ptr<Worker>> workers;
    for (std::size_t i = 0; i < std::size(cases); ++i)
        workers.push_back(std::make_unique<Worker>(options));
    for (const auto& c : cases) {
        runCase(c.name, [&] {
            ScriptedServer server(c.script);
            Worker& worker = *workers[static_cast<std::size_t>(&c - cases)];
            worker.send({.service = c.service, .port = server.port(), .alertIfAbove = 600000});
            EXPECT_EQ(worker.readResult().result, 6);
            const Texts lines = worker.transcript();
            const std::string chunk = "1024 " + c.name + " reply: ";
            std::size_t taken = 0;
            for (const std::string& line : lines)
                taken += line.starts_with(chunk) ? line.size() - chunk.size() : 0;
            EXPECT_GT(taken, limit);
            EXPECT_LE(taken, limit + 4096);
            EXPECT_EQ(lines.rbegin()[1], "0 " + c.name + ": reply too long");
            // A reply of 16 MiB moves once more as it grows; that is all.
            EXPECT_LT(worker.stop().peakMemory, usual + 48L * 1024);
        });
    }
}

}  // namespace
