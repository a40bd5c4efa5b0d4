// Attempts to connect, and listening sockets.

#include "Support.h"

namespace platform {
namespace {

// A port at which nobody listens.
Endpoint closedPort()
{
    const RawListener listener;
    return listener.endpoint;
}

TEST(Connects, EndsWithItsResultInAWait)
{
    struct Case {
        const char* name;
        Endpoint peer;
        std::uint32_t code;
    };
    const RawListener listener;
    const Case cases[] = {
        {"accepted", listener.endpoint, 0},
        {"refused", closedPort(), WSAECONNREFUSED},
        {"no address", {0, listener.endpoint.port}, WSAEADDRNOTAVAIL},
        {"no port", {loopback, 0}, WSAECONNREFUSED},
        {"broadcast address", {0xFFFFFFFF, 80}, WSAENETUNREACH},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.name);
        Attempt attempt(row.peer);
        EXPECT_FALSE(attempt.isOver());
        WaitList list;
        list.append(attempt.handle);
        EXPECT_EQ(waitForMultipleObjectsEx(list, 10'000), 0u);
        // Told before the object was signalled, and it stays signalled.
        ASSERT_EQ(attempt.codes.size(), 1u);
        EXPECT_EQ(attempt.codes[0], row.code);
        EXPECT_EQ(waitForMultipleObjectsEx(list, 0), 0u);
    }
}

TEST(Connects, ASocketThatMeetsItselfIsRefused)
{
    const Endpoint port = closedPort();
    const SocketHandle socket = tcpSocket();
    ASSERT_EQ(bind(socket, port), 0);
    Attempt attempt(port, socket);
    ASSERT_TRUE(attempt.finish());
    EXPECT_EQ(attempt.codes, std::vector<std::uint32_t>{WSAECONNREFUSED});
}

TEST(Connects, AnAttemptThatFailedDoesNotReadAsAnEnd)
{
    Attempt attempt(closedPort());
    ASSERT_TRUE(attempt.finish());
    Receive receive(attempt.socket);
    EXPECT_FALSE(receive.started());
}

// Fills the queue of a listener, so that further connects stay without an answer.
struct Silence {
    Silence() : listener(0), first(listener.endpoint) { EXPECT_TRUE(first.finish()); }
    RawListener listener;
    Attempt first;
};

TEST(Connects, ClosingTheObjectGivesUpAtOnce)
{
    Silence silence;
    Attempt attempt(silence.listener.endpoint);
    EXPECT_EQ(sleepEx(0), 0u);
    ASSERT_FALSE(attempt.isOver());
    EXPECT_TRUE(closeHandle(attempt.handle));
    EXPECT_EQ(attempt.codes, std::vector<std::uint32_t>{ERROR_OPERATION_ABORTED});
    EXPECT_FALSE(closeHandle(attempt.handle));
    EXPECT_EQ(closeSocket(attempt.socket), 0);
    EXPECT_EQ(sleepEx(0), 0u);
    EXPECT_EQ(attempt.codes.size(), 1u);
}

TEST(Connects, AResultThatWasNotToldYetIsGivenUpToo)
{
    Attempt attempt(Endpoint{0, 80});  // fails at once
    EXPECT_TRUE(closeHandle(attempt.handle));
    EXPECT_EQ(attempt.codes, std::vector<std::uint32_t>{ERROR_OPERATION_ABORTED});
    EXPECT_EQ(sleepEx(0), 0u);
    EXPECT_EQ(attempt.codes.size(), 1u);
}

TEST(Connects, ClosingTheSocketEndsTheAttemptInAWait)
{
    Silence silence;
    Attempt attempt(silence.listener.endpoint);
    EXPECT_EQ(shutdown(attempt.socket, SD_BOTH), SOCKET_ERROR);  // not connected yet
    EXPECT_EQ(closeSocket(attempt.socket), 0);
    EXPECT_FALSE(attempt.isOver());
    WaitList list;
    list.append(attempt.handle);
    EXPECT_EQ(waitForMultipleObjectsEx(list, INFINITE), 0u);
    EXPECT_EQ(attempt.codes, std::vector<std::uint32_t>{ERROR_OPERATION_ABORTED});
}

TEST(Connects, WhatIsNoSocketFailsThroughTheObject)
{
    Attempt attempt({loopback, 80}, SocketHandle::invalid);
    EXPECT_FALSE(attempt.isOver());
    ASSERT_TRUE(attempt.finish());
    EXPECT_EQ(attempt.codes, std::vector<std::uint32_t>{WSAENOTSOCK});
}

TEST(Connects, TransfersStartedEarlyWaitForTheConnection)
{
    RawListener listener;
    Attempt attempt(listener.endpoint);
    Receive receive(attempt.socket);
    EXPECT_TRUE(receive.started());
    Send send(attempt.socket, "early");
    EXPECT_TRUE(send.started());
    const int peer = listener.accept();
    EXPECT_EQ(::send(peer, "late", 4, 0), 4);
    ASSERT_TRUE(waitUntil([&] { return receive.ended() && send.ended(); }));
    EXPECT_EQ(receive.text(), "late");
    close(peer);
}

// ---- Listening

TEST(Listening, IsReadyWhileConnectionsWait)
{
    const SocketHandle listener = listen({loopback, 0}, 16);
    ASSERT_NE(listener, SocketHandle::invalid);
    Endpoint local;
    ASSERT_EQ(getSockName(listener, &local), 0);
    WaitList list;
    list.append(acceptReady(listener));
    EXPECT_EQ(waitForMultipleObjectsEx(list, 0), WAIT_TIMEOUT);
    EXPECT_EQ(accept(listener, nullptr), SocketHandle::invalid);
    EXPECT_EQ(wsaGetLastError(), ERROR_IO_PENDING);

    for (int round = 0; round < 2; ++round) {
        Attempt one(local);
        Attempt two(local);
        ASSERT_TRUE(one.finish() && two.finish());
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(waitForMultipleObjectsEx(list, 10'000), 0u);
            Endpoint peer;
            const SocketHandle accepted = accept(listener, &peer);
            ASSERT_NE(accepted, SocketHandle::invalid);
            EXPECT_EQ(peer.address, loopback);
            Send send(accepted, "welcome");
            EXPECT_TRUE(waitUntil([&] { return send.endedWith(0, 7); }));
            closeSocket(accepted);
        }
        EXPECT_EQ(accept(listener, nullptr), SocketHandle::invalid);
        EXPECT_EQ(waitForMultipleObjectsEx(list, 0), WAIT_TIMEOUT);
        for (const SocketHandle socket : {one.socket, two.socket}) {
            Receive receive(socket);
            EXPECT_TRUE(waitUntil([&] { return receive.ended(); }));
            EXPECT_EQ(receive.text(), "welcome");
        }
    }
    list.removeSwapLast(0);
    EXPECT_EQ(closeSocket(listener), 0);
}

TEST(Listening, APortInUseIsRefused)
{
    const RawListener other;
    EXPECT_EQ(listen(other.endpoint, 1), SocketHandle::invalid);
    EXPECT_EQ(wsaGetLastError(), WSAEADDRINUSE);
}

}  // namespace
}  // namespace platform
