// Connecting and listening, and transfers on TCP and UDP sockets.

#include "Support.h"

#include <optional>

namespace platform {
namespace {

using Codes = std::vector<std::uint32_t>;

// Both ends of a connection.
struct Connection : Fixed {
    Connection() : attempt(listener.local)
    {
        EXPECT_TRUE(waitUntil([this] { return attempt.codes == Codes{0}; }));
        peer = accept(listener.socket, nullptr);
    }
    ~Connection() { closeSocket(peer); }
    void send(const std::string& text) const { EXPECT_EQ(Write(peer, text).end().first, 0u); }
    Listener listener;
    Attempt attempt;
    SocketHandle peer;
    const SocketHandle& socket = attempt.socket;
};

// Edges come once: an end could get lost behind the data, with receives that are exactly full, or
// with events that were taken in before the read.
TEST(Sockets, TheEndComesBehindTheData)
{
    for (const std::uint32_t room : {4096, 2}) {
        for (const bool eventsBefore : {false, true}) {
            SCOPED_TRACE(std::to_string(room) + (eventsBefore ? ", events taken in before" : ""));
            const Connection connection;
            const Read waiting(connection.socket);
            EXPECT_EQ(waiting.code, ERROR_IO_PENDING);
            connection.send("first");
            EXPECT_EQ(waiting.text(), "first");
            connection.send("abcd");
            EXPECT_EQ(shutdown(connection.peer, SD_SEND), 0);
            if (eventsBefore)
                sleepEx(0);
            for (std::string all; all != "abcd"; all += Read(connection.socket, room).text())
                ASSERT_EQ(all, std::string("abcd").substr(0, all.size()));
            EXPECT_EQ(Read(connection.socket).end(), End(0, 0));
            EXPECT_EQ(Write(connection.peer, "x").end(), End(WSAESHUTDOWN, 0));
            EXPECT_EQ(Write(connection.socket, "answer").end(), End(0, 6));
            EXPECT_EQ(Read(connection.peer).text(), "answer");
        }
    }
}

TEST(Sockets, AResetIsNeverAnOrderlyEnd)
{
    enum Before { receiveUnderWay, dataLeft, orderlyEnd };
    for (const Before before : {receiveUnderWay, dataLeft, orderlyEnd}) {
        for (const bool sendFirst : {false, true}) {
            SCOPED_TRACE(std::to_string(before) + (sendFirst ? ", met by a send" : ""));
            const Connection connection;
            std::optional<Read> underWay;
            if (before == receiveUnderWay)
                underWay.emplace(connection.socket);
            if (before == dataLeft)
                connection.send("left");
            if (before == orderlyEnd) {
                EXPECT_EQ(shutdown(connection.peer, SD_SEND), 0);
                EXPECT_EQ(Read(connection.socket).end(), End(0, 0));
            }
            // What the peer leaves unread makes its close a reset.
            EXPECT_EQ(Write(connection.socket, "unread").end(), End(0, 6));
            closeSocket(connection.peer);
            sleepEx(0);
            EXPECT_TRUE(!underWay || underWay->end() == End(WSAECONNRESET, 0));
            // What was an orderly end to receives stays one until a send meets the reset.
            if (sendFirst || before == orderlyEnd) {
                EXPECT_EQ(Write(connection.socket, "x").end(), End(WSAECONNRESET, 0));
            }
            EXPECT_TRUE(before != dataLeft || Read(connection.socket).text() == "left");
            // Not once, but from now on, and in both directions.
            for (int i = 0; i < 2; ++i) {
                EXPECT_EQ(Read(connection.socket).end().first, WSAECONNRESET);
                EXPECT_EQ(Write(connection.socket, "x").end().first, WSAECONNRESET);
            }
        }
    }
}

TEST(Sockets, ClosingOrShuttingDownEndsWhatIsUnderWay)
{
    const Connection connection;
    const Read shut(connection.peer);
    EXPECT_EQ(shutdown(connection.peer, SD_RECEIVE), 0);
    EXPECT_EQ(shut.end(), End(0, 0));

    const SocketHandle udp = udpSocket();
    const Read pending(udp);
    connection.send("data");
    const Read undelivered(connection.socket);
    EXPECT_EQ(closeSocket(udp), 0);
    EXPECT_EQ(closeSocket(connection.socket), 0);
    EXPECT_EQ(pending.end(), End(ERROR_OPERATION_ABORTED, 0));
    EXPECT_EQ(undelivered.end(), End(ERROR_OPERATION_ABORTED, 0));
    EXPECT_EQ(Read(udp).code, WSAENOTSOCK);
    EXPECT_EQ(closeSocket(udp), SOCKET_ERROR);
}

TEST(Sockets, EachDatagramArrivesByItself)
{
    const SocketHandle udp = udpSocket();
    Endpoint name;
    EXPECT_EQ(bind(udp, {loopback, 0}), 0);
    EXPECT_EQ(getSockName(udp, &name), 0);
    const auto send = [&](std::size_t size) {
        Op op(std::string(size, 'd'));
        op.begun(wsaSendTo(udp, op.buffer.data(), op.size(), name, &op.overlapped, Op::routine));
        return op.end();
    };
    constexpr std::uint32_t room = 100;
    for (const bool waiting : {false, true}) {
        for (const std::uint32_t size : {5u, 0u, room, room + 1, 6u}) {
            SCOPED_TRACE(std::to_string(size) + (waiting ? " bytes, waited for" : " bytes"));
            EXPECT_EQ(send(70'000), End(WSAEMSGSIZE, 0));  // its own error, and not kept
            const End sent = waiting ? End(0, size) : send(size);
            Endpoint from;
            Op op(std::string(room, '\0'));
            op.begun(wsaRecvFrom(udp, op.buffer.data(), room, &from, &op.overlapped, Op::routine));
            EXPECT_EQ(waiting ? send(size) : sent, End(0, size));
            EXPECT_EQ(op.end(), size > room ? End(WSAEMSGSIZE, room) : End(0, size));
            EXPECT_EQ(from, name);
        }
    }
    Op nowhere("d");
    EXPECT_EQ(
        wsaSendTo(udp, nowhere.buffer.data(), 1, {0, name.port}, &nowhere.overlapped, Op::routine),
        SOCKET_ERROR);
    EXPECT_EQ(wsaGetLastError(), static_cast<int>(WSAEADDRNOTAVAIL));
    closeSocket(udp);
}

TEST(Connects, EndWithTheirResultInAWait)
{
    const Listener listener;
    const Endpoint closedPort = Listener().local;
    const SocketHandle itself = tcpSocket();
    Endpoint itsName;
    EXPECT_EQ(bind(itself, {loopback, 0}), 0);
    EXPECT_EQ(getSockName(itself, &itsName), 0);
    struct Case {
        const char* name;
        Endpoint peer;
        std::uint32_t code;
        SocketHandle socket = tcpSocket();
    };
    const Case cases[] = {
        {"accepted", listener.local, 0},
        {"refused", closedPort, WSAECONNREFUSED},
        {"no address", {0, listener.local.port}, WSAEADDRNOTAVAIL},
        {"met itself", itsName, WSAECONNREFUSED, itself},
        {"no socket", listener.local, WSAENOTSOCK, SocketHandle::invalid},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.name);
        const Attempt attempt(row.peer, row.socket);
        EXPECT_TRUE(attempt.codes.empty());
        WaitList list;
        list.append(attempt.handle);
        // Told before the object was signalled, and it stays signalled.
        for (const std::uint32_t limit : {10'000, 0}) {
            EXPECT_EQ(waitForMultipleObjectsEx(list, limit), 0u);
            EXPECT_EQ(attempt.codes, Codes{row.code});
        }
    }
    WaitList ready;
    ready.append(acceptReady(listener.socket));
    EXPECT_EQ(waitForMultipleObjectsEx(ready, 10'000), 0u);
    closeSocket(accept(listener.socket, nullptr));
    EXPECT_EQ(accept(listener.socket, nullptr), SocketHandle::invalid);
    EXPECT_EQ(wsaGetLastError(), ERROR_IO_PENDING);
    EXPECT_EQ(waitForMultipleObjectsEx(ready, 0), WAIT_TIMEOUT);
}

TEST(Connects, CanBeAbandoned)
{
    // A full queue, so that further connects stay without an answer.
    const Listener silent(0);
    const Attempt inTheQueue(silent.local);
    EXPECT_TRUE(waitUntil([&] { return inTheQueue.codes == Codes{0}; }));
    const Attempt byObject(silent.local), bySocket(silent.local), atOnce(Endpoint{0, 80});
    EXPECT_TRUE(closeHandle(atOnce.handle));  // although its result is there
    EXPECT_EQ(sleepEx(0), 0u);
    EXPECT_TRUE(byObject.codes.empty() && bySocket.codes.empty());
    EXPECT_TRUE(closeHandle(byObject.handle));
    EXPECT_EQ(closeSocket(bySocket.socket), 0);
    EXPECT_TRUE(byObject.codes.size() == 1 && bySocket.codes.empty());
    WaitList list;
    list.append(bySocket.handle);
    EXPECT_EQ(waitForMultipleObjectsEx(list, INFINITE), 0u);
    for (const Attempt* attempt : {&byObject, &bySocket, &atOnce})
        EXPECT_EQ(attempt->codes, Codes{ERROR_OPERATION_ABORTED});
}

}  // namespace
}  // namespace platform
