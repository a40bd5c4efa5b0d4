// The DNS check against servers of all kinds.
#include "tests/support/UdpServer.h"
#include "tests/support/Worker.h"

#include <gtest/gtest.h>

#include <map>

namespace {

using namespace support;
using namespace std::string_literals;
using Lines = std::vector<std::string>;

// With a time limit of one second.
Request request(std::uint16_t port, std::vector<Setting> properties = {})
{
    Request one = {.service = 3, .port = port, .warnIfAbove = 30, .alertIfAbove = -9000};
    one.properties = std::move(properties);
    return one;
}

Setting dnsHost(const std::string& host)
{
    return textSetting(518, host);
}

TEST(DNSNetCheck, TranscriptOfAGoodRun)
{
    UdpServer server, stranger;
    Worker worker;
    worker.send(request(server.port()));
    const UdpServer::Query query = server.waitForQuery(0);
    const std::string name = "\3www\7example\3com\0\0\1\0\1"s;
    EXPECT_EQ(query.bytes, "\0\x75\1\0\0\1\0\0\0\0\0\0"s + name);
    std::this_thread::sleep_for(std::chrono::milliseconds(60));  // bounds the reply time below
    stranger.reply(query, "\0\x76\0\0\0\0\0\0\0\0\0\0"s);
    worker.readLine("1024 Will wait for next reply");
    stranger.reply(query, "\0\x75\x80\0\0\0\0\1\0\0\0\0"s + name + "\0\0\0\0\0\1x"s);
    const CheckResult result = worker.readResult();
    EXPECT_GE(result.replytime, 60);
    EXPECT_TRUE(result.result_strings.empty());
    EXPECT_EQ(
        worker.transcript(),
        (Lines{"0 netcheck is alive", "1024 Scheduling check of type 3",
               "1024 Will wait for output to become ready", "1024 Sending DNS request",
               "1024 DNS: request sent, will wait for reply", "1024 Reading DNS server reply",
               "1024 Will wait for next reply", "1024 Reading DNS server reply", "result 1"}));
}

// One worker for all: no datagram stops it, no check keeps its descriptor.
TEST(DNSNetCheck, ResultByReply)
{
    // Records of the name of the question, www.A, at offset 12; and of b.A, its alias.
    const std::string www = "\xC0\x0C\0\1\0\1\0\0\0\x3C\0\4\x0A\0\0\xFF"s;
    const std::string alias = "\xC0\x0C\0\5\0\1\0\0\0\x3C\0\4\1b\xC0\x10"s;
    const std::string bA = "\1b\1A\0\0\1\0\1\0\0\0\x3C\0"s;  // without data
    const std::string b = bA + "\4\x0A\0\0\1"s;
    const auto reply = [](const std::string& flags, char answers, const std::string& records) {
        return "\0\x75"s + flags + "\0\1\0"s + answers + "\0\0\0\0\3www\1A\0\0\1\0\1"s + records;
    };
    const auto good = [&](char answers, const std::string& records) {
        return reply("\x80\0"s, answers, records);
    };
    const std::string ok = "1024 Reading DNS server reply", bad = "0 Bad reply from dns server";
    const std::string flags = bad + " (flags)", tokens = bad + " (tokens)";
    const std::string overrun = "0 Read beyond end of DNS datagram";
    const std::string cases[][4] = {
        // The name, the expected addresses, the datagram, the last line.
        {"www.A", "", good(1, www), ok},
        {"www.A.", "", good(1, www), ok},
        {"www.a", "", good(1, www), bad},
        {"www..A", "", good(1, www), bad},
        {"", "", "\0\x75\x80\0\0\0\0\1\0\0\0\0\0\0\1\0\1\0\0\0\0\0\1x"s, ok},
        {"www.A", "1.2.3.4, 10.0.0.1;10.0.0.255:9", good(1, www), ok},
        {"www.A", "1.2.3.4 10.0.0.255,9", good(1, www), ok},
        {"www.A", "10.0.0.25 110.0.0.255", good(1, www), tokens},
        {"www.A", ",", good(1, www), tokens},
        {"www.A", "10.0.0.1", good(2, alias + b), ok},
        {"www.A", "", good(2, b + alias), bad},
        {"www.A", "10.0.0.255", good(2, www + alias), ok},
        {"b.A", "10.0.0.1", good(2, b + www), ok},
        {"b.A", "97.98", good(2, b + bA + "\2ab"s), ok},
        {"b.A", "", good(2, b + bA + "\0"s), bad},
        {"www.A", "", good(1, "\xC0\x0C\0\1\0\3\0\0\0\0\0\4abcd"s), bad},
        {"www.A", "", good(1, "\xC0\x0C\0\x1C\0\1\0\0\0\0\0\4abcd"s), bad},
        {"www.A", "", reply("\xFF\xF0", 1, www + std::string(1497, '.')), ok},
        {"www.A", "", reply("\x80\3", 1, www), flags},
        {"www.A", "", reply("\x80\x08", 1, www), flags},
        {"www.A", "", reply("\x7F\0"s, 1, www), flags},
        {"www.A", "", "\0\x75\x80\0\0\0\0\0\0\0\0\0"s, bad},
        {"www.A", "", "\0\x76\0\0\0\0\0\0\0\0\0"s, bad + " (length)"},
        {"www.A", "", "\0\x75\x80\0\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s, overrun},
        {"www.A", "", good(1, "\xC0\x1E\xC0\x1C"s), overrun},
    };
    std::string datagram;
    UdpServer server([&](const std::string&) { return Lines{datagram}; });
    Worker worker({.descriptors = {{24, 24}}});
    for (const auto& [host, expected, bytes, line] : cases) {
        datagram = bytes;
        worker.send(request(server.port(), {dnsHost(host), textSetting(519, expected)}));
        const CheckResult result = worker.readResult();
        EXPECT_EQ(result.result <= 1 ? 0 : result.result, line == ok ? 0 : 6);
        EXPECT_GE(result.replytime, 0);
        EXPECT_EQ(worker.transcript().rbegin()[1], line) << testing::PrintToString(bytes);
    }
}

TEST(DNSNetCheck, WithoutAReply)
{
    UdpServer silent;
    UdpServer useless([](const std::string&) {
        return Lines{"\0\x76"s + std::string(10, 0), std::string(1537, 0)};
    });
    Worker worker;
    for (const std::uint16_t port : {silent.port(), useless.port(), std::uint16_t(0)})
        worker.send(request(port));
    worker.send(request(silent.port(), {dnsHost(std::string(226, '.'))}));
    worker.send(request(silent.port(), {dnsHost(std::string(64, 'x'))}));
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(worker.readResult().replytime, -1);
    Lines lines = worker.transcript();
    std::erase_if(lines, [](const std::string& line) { return line.starts_with("1024"); });
    const std::string timeout = "0 Net check timeout";
    EXPECT_EQ(lines, (Lines{"0 netcheck is alive", "0 DNS name too long", "result 3",
                            "0 DNS label too long", "result 3", timeout, "result 9", timeout,
                            "result 9", timeout, "result 9"}));
}

TEST(DNSNetCheck, WithoutADescriptorOnlyTheCheckFails)
{
    UdpServer server;
    Worker worker({.descriptors = {{24, 24}}});
    const Request one = {.service = 3, .port = server.port(), .properties = {dnsHost("a")}};
    for (int i = 0; i < 30; ++i)
        worker.send(one);
    std::map<std::string, std::size_t> lines;
    const std::size_t& waiting = lines["1024 DNS: request sent, will wait for reply"];
    const std::size_t& failed = lines["0 Failed to create UDP socket: Could not create UDP socket: "
                                      "Too many open files"];
    while (waiting + failed < 30)
        ++lines[worker.readFrame().line];
    for (std::size_t i = 0; i < waiting; ++i)
        server.reply(server.waitForQuery(i),
                     "\0\x75\x80\0\0\0\0\1\0\0\0\0\1a\0\0\1\0\1\0\0\0\0\0\1x"s);
    while (lines["result 0"] + lines["result 3"] < 30)
        ++lines[worker.readFrame().line];
    EXPECT_GT(waiting, 1U);
    EXPECT_GT(failed, 1U);
    EXPECT_EQ(lines["result 3"], failed);
}

}  // namespace
