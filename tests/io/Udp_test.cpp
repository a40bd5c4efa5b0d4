// Datagrams out and in, on real sockets.
#include "io/Udp.h"
#include "tests/io/Fakes.h"
#include "tests/support/UdpServer.h"

#include <gtest/gtest.h>

#include <csignal>

namespace {

using fakes::put;
using fakes::take;

constexpr std::uint32_t loopback = 0x0100007f;  // 127.0.0.1 as it lies on the wire

struct Udp : testing::Test {
    void expectNotReady()
    {
        EXPECT_EQ(fakes::thrown([&] { selector.pollImpl(true); }),
                  "Selectable <unknown> not ready");
    }

    support::UdpServer server;
    io::UDPClientSocket client{8};
    io::Selector<int> selector;
};

TEST_F(Udp, SendsABatchAsOneDatagram)
{
    selector.add(&client.sender, 0);
    for (const char* part : {"ab", "cd", "", "e"})
        put(client.sender, part);
    client.sender.setDestination(loopback, 0);  // fails at the start, at every pass
    for (int i = 0; i < 3; ++i)
        expectNotReady();
    client.sender.setDestination(loopback, server.port());
    selector.poll();
    selector.poll();  // with nothing to send
    EXPECT_EQ(put(client.sender, "next batch"), 8U);
    EXPECT_EXIT(client.sender.writeCommit(1), testing::KilledBySignal(SIGABRT),
                "^Assertion failed: Overcommit in UDPSender\n$");
    selector.poll();
    EXPECT_EQ(server.waitForQuery(0).bytes, "abcde");
    EXPECT_EQ(server.waitForQuery(1).bytes, "next bat");
}

TEST_F(Udp, ShowsOneDatagramAtATime)
{
    client.sender.setDestination(loopback, server.port());
    put(client.sender, "hello");
    client.sender.waitReady();
    selector.add(&client.receiver, 0);
    expectNotReady();
    EXPECT_EQ(client.receiver.source(), platform::Endpoint());
    // An empty one, and one that doesn't fit, are dropped without a trace.
    for (const char* datagram : {"first", "", "too long.", "it fits.", "last"})
        server.reply(server.waitForQuery(0), datagram);
    selector.poll();
    client.receiver.readCommit(3);
    for (const char* unread : {"st", "it fits.", "last"}) {
        selector.poll();
        EXPECT_EQ(take(client.receiver), unread);
    }
    EXPECT_EQ(client.receiver.source(), (platform::Endpoint{loopback, server.port()}));
    EXPECT_EXIT(client.receiver.readCommit(1), testing::KilledBySignal(SIGABRT),
                "^Assertion failed: Overcommit in UDPReceiver\n$");
}

TEST_F(Udp, ClosingEitherStreamEndsBoth)
{
    io::UDPClientSocket other(8);
    for (io::UDPClientSocket* socket : {&client, &other}) {
        selector.add(&socket->receiver, 0);
        expectNotReady();  // a receive is under way
        socket == &client ? socket->receiver.close() : socket->sender.close();
        put(socket->sender, "x");
        selector.add(&socket->sender, 0);
        expectNotReady();
        EXPECT_EQ(take(socket->receiver), "");
        socket == &client ? socket->sender.close() : socket->receiver.close();
    }
    io::UDPClientSocket(8).receiver.issueOverlapped();  // dies while it runs
}

}  // namespace
