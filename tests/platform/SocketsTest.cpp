// Transfers on TCP and UDP sockets.

#include "Support.h"

namespace platform {
namespace {

constexpr std::uint32_t noError = 0;

// What a receive gives, whether at its start or in the end.
std::uint32_t codeOf(Receive& receive)
{
    if (!receive.started())
        return receive.code;
    EXPECT_TRUE(waitUntil([&] { return receive.ended(); }));
    return receive.ended() ? receive.ends[0].error : WAIT_FAILED;
}

std::uint32_t codeOf(Send& send)
{
    if (!send.started())
        return send.code;
    EXPECT_TRUE(waitUntil([&] { return send.ended(); }));
    return send.ended() ? send.ends[0].error : WAIT_FAILED;
}

void expectData(SocketHandle socket, const std::string& text)
{
    Receive receive(socket);
    EXPECT_EQ(codeOf(receive), noError);
    EXPECT_EQ(receive.text(), text);
}

void expectOrderlyEnd(SocketHandle socket)
{
    Receive receive(socket);
    EXPECT_EQ(codeOf(receive), noError);
    EXPECT_EQ(receive.ends.at(0).bytes, 0u);
}

void expectReset(SocketHandle socket)
{
    // Not once, but from now on, and in both directions.
    for (int i = 0; i < 2; ++i) {
        Receive receive(socket);
        EXPECT_EQ(codeOf(receive), WSAECONNRESET);
        Send send(socket, "x");
        EXPECT_EQ(codeOf(send), WSAECONNRESET);
    }
}

// Takes the events in that have come so far, without anything to wait for.
void takeEvents()
{
    sleepEx(0);
}

TEST(Sockets, ReceiveAndSend)
{
    Connection connection;
    Receive waiting(connection.socket);
    EXPECT_EQ(waiting.code, ERROR_IO_PENDING);
    connection.send("hello");
    EXPECT_EQ(codeOf(waiting), noError);
    EXPECT_EQ(waiting.text(), "hello");

    Send send(connection.socket, "answer");
    EXPECT_EQ(send.result, 0);
    EXPECT_FALSE(send.ended());
    EXPECT_EQ(codeOf(send), noError);
    char buffer[16];
    EXPECT_EQ(recv(connection.peer, buffer, sizeof buffer, 0), 6);
}

TEST(Sockets, ADescriptorKnownToBeDryIsNotTried)
{
    Connection connection;
    connection.send("abc");
    expectData(connection.socket, "abc");
    const std::uint64_t before = systemCallCounts().transfers;
    Receive dry(connection.socket);  // the short read has emptied it
    EXPECT_EQ(dry.code, ERROR_IO_PENDING);
    EXPECT_EQ(systemCallCounts().transfers, before);
    connection.send("more");
    EXPECT_EQ(codeOf(dry), noError);
    EXPECT_EQ(dry.text(), "more");
}

// Edges come once. Each row is a way in which the end could get lost behind the data.
TEST(Sockets, TheEndComesBehindTheData)
{
    struct Case {
        const char* name;
        bool eventsBeforeTheRead;
        std::uint32_t size;  // of the receives
    };
    const Case cases[] = {
        {"read at once", false, 4096},
        {"events taken in before the read", true, 4096},
        {"receives that are exactly full", true, 2},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.name);
        Connection connection;
        connection.send("abcd");
        shutdown(connection.peer, SHUT_WR);
        if (row.eventsBeforeTheRead)
            takeEvents();
        std::string all;
        for (;;) {
            Receive receive(connection.socket, row.size);
            ASSERT_EQ(codeOf(receive), noError);
            if (receive.ends[0].bytes == 0)
                break;
            all += receive.text();
        }
        EXPECT_EQ(all, "abcd");
        expectOrderlyEnd(connection.socket);
    }
}

TEST(Sockets, AResetIsNeverAnOrderlyEnd)
{
    struct Case {
        const char* name;
        void (*meet)(Connection&);
    };
    const Case cases[] = {
        {"met by a waiting receive",
         [](Connection& connection) {
             Receive receive(connection.socket);
             connection.resetByPeer();
             EXPECT_EQ(codeOf(receive), WSAECONNRESET);
         }},
        {"met by a receive",
         [](Connection& connection) {
             connection.resetByPeer();
             Receive receive(connection.socket);
             EXPECT_EQ(codeOf(receive), WSAECONNRESET);
         }},
        {"met by a send",
         [](Connection& connection) {
             connection.resetByPeer();
             Send send(connection.socket, "x");
             EXPECT_EQ(codeOf(send), WSAECONNRESET);
         }},
        {"met by a send, with data left to receive",
         [](Connection& connection) {
             connection.send("left");
             connection.resetByPeer();
             Send send(connection.socket, "x");
             EXPECT_EQ(codeOf(send), WSAECONNRESET);
             expectData(connection.socket, "left");
         }},
        {"met by a receive behind data",
         [](Connection& connection) {
             connection.send("left");
             connection.resetByPeer();
             takeEvents();
             expectData(connection.socket, "left");
         }},
        {"met by both directions at once",
         [](Connection& connection) {
             // The peer doesn't read, so that the sends fill up.
             std::vector<std::unique_ptr<Send>> sends;
             do {
                 sends.push_back(
                     std::make_unique<Send>(connection.socket, std::string(1 << 20, 's')));
                 takeEvents();
             } while (sends.back()->ended());
             Receive receive(connection.socket);
             connection.resetByPeer();
             EXPECT_EQ(codeOf(receive), WSAECONNRESET);
             EXPECT_EQ(codeOf(*sends.back()), WSAECONNRESET);
         }},
        {"met after an orderly end",
         [](Connection& connection) {
             shutdown(connection.peer, SHUT_WR);
             expectOrderlyEnd(connection.socket);
             connection.resetByPeer();
             Send send(connection.socket, "x");
             EXPECT_EQ(codeOf(send), WSAECONNRESET);
         }},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.name);
        Connection connection;
        row.meet(connection);
        expectReset(connection.socket);
    }
}

TEST(Sockets, AConnectionResetBeforeItsFirstLookWasAConnection)
{
    RawListener listener;
    Attempt attempt(listener.endpoint);
    reset(listener.accept());
    ASSERT_TRUE(attempt.finish());
    EXPECT_EQ(attempt.codes, std::vector<std::uint32_t>{0});
    expectReset(attempt.socket);
}

TEST(Sockets, ShutDownSendsTheEndAndReadsOn)
{
    Connection connection;
    EXPECT_EQ(shutdown(connection.socket, SD_SEND), 0);
    char byte = 0;
    EXPECT_EQ(recv(connection.peer, &byte, 1, 0), 0);
    Send send(connection.socket, "too late");
    EXPECT_EQ(codeOf(send), WSAESHUTDOWN);
    connection.send("still here");
    expectData(connection.socket, "still here");
}

TEST(Sockets, ShutDownEndsWhatIsUnderWay)
{
    Connection connection;
    Receive receive(connection.socket);
    EXPECT_EQ(receive.code, ERROR_IO_PENDING);
    EXPECT_EQ(shutdown(connection.socket, SD_RECEIVE), 0);
    EXPECT_FALSE(receive.ended());
    EXPECT_EQ(sleepEx(INFINITE), WAIT_IO_COMPLETION);
    EXPECT_TRUE(receive.endedWith(0, 0));

    const SocketHandle udp = udpSocket();
    Receive datagram(udp);
    EXPECT_EQ(datagram.code, ERROR_IO_PENDING);
    EXPECT_EQ(shutdown(udp, SD_RECEIVE), 0);
    EXPECT_EQ(sleepEx(INFINITE), WAIT_IO_COMPLETION);
    EXPECT_TRUE(datagram.endedWith(WSAESHUTDOWN, 0));
    closeSocket(udp);
}

TEST(Sockets, CloseEndsWhatIsUnderWay)
{
    Connection connection;
    connection.send("undelivered");
    const SocketHandle udp = udpSocket();
    Receive pending(udp);
    Send finished(connection.socket, "x");
    Receive received(connection.socket);
    ASSERT_TRUE(waitUntil([&] { return finished.ended() && received.ended(); }));
    connection.send("again");
    Receive undelivered(connection.socket);
    EXPECT_EQ(closeSocket(udp), 0);
    EXPECT_EQ(closeSocket(connection.socket), 0);
    EXPECT_EQ(sleepEx(INFINITE), WAIT_IO_COMPLETION);
    EXPECT_TRUE(pending.endedWith(ERROR_OPERATION_ABORTED, 0));
    EXPECT_TRUE(undelivered.endedWith(ERROR_OPERATION_ABORTED, 0));

    Receive stale(udp);
    EXPECT_EQ(stale.code, WSAENOTSOCK);
    EXPECT_EQ(closeSocket(udp), SOCKET_ERROR);
}

TEST(Sockets, AnUnconnectedSocketCanBeUsedLater)
{
    const SocketHandle socket = tcpSocket();
    Send send(socket, "x");
    EXPECT_EQ(send.code, WSAENOTCONN);
    Receive receive(socket);
    EXPECT_EQ(receive.code, WSAENOTCONN);

    RawListener listener;
    Attempt attempt(listener.endpoint, socket);
    const int peer = listener.accept();
    ASSERT_TRUE(attempt.finish());
    EXPECT_EQ(::send(peer, "now", 3, 0), 3);
    expectData(socket, "now");
    close(peer);
}

// ---- Datagrams

class Datagrams : public testing::Test {
protected:
    Datagrams() : here(udpSocket()), there(udpSocket())
    {
        EXPECT_EQ(bind(here, {loopback, 0}), 0);
        EXPECT_EQ(bind(there, {loopback, 0}), 0);
        EXPECT_EQ(getSockName(here, &hereName), 0);
        EXPECT_EQ(getSockName(there, &thereName), 0);
    }
    ~Datagrams() override
    {
        closeSocket(here);
        closeSocket(there);
    }

    void send(const std::string& data) const
    {
        Op op;
        ASSERT_EQ(wsaSendTo(there, data.data(), static_cast<std::uint32_t>(data.size()), hereName,
                            &op.overlapped, &Op::routine),
                  0);
        ASSERT_TRUE(waitUntil([&] { return op.ended(); }));
        ASSERT_TRUE(op.endedWith(0, static_cast<std::uint32_t>(data.size())));
    }

    SocketHandle here;
    SocketHandle there;
    Endpoint hereName;
    Endpoint thereName;
};

TEST_F(Datagrams, EachArrivesByItself)
{
    struct Case {
        const char* name;
        std::size_t size;
        Op::End end;
    };
    constexpr std::uint32_t room = 100;
    const Case cases[] = {
        {"small", 5, {0, 5}},
        {"empty", 0, {0, 0}},
        {"exactly the room", room, {0, room}},
        {"one byte too large", room + 1, {WSAEMSGSIZE, room}},
        {"small again", 6, {0, 6}},
    };
    for (const bool waiting : {false, true}) {
        for (const Case& row : cases) {
            SCOPED_TRACE(std::string(row.name) + (waiting ? ", waited for" : ""));
            if (!waiting)
                send(std::string(row.size, 'd'));
            char buffer[room];
            Endpoint from;
            Op op;
            const int result = wsaRecvFrom(here, buffer, room, &from, &op.overlapped, &Op::routine);
            EXPECT_TRUE(result == 0 || wsaGetLastError() == ERROR_IO_PENDING);
            if (waiting)
                send(std::string(row.size, 'd'));
            ASSERT_TRUE(waitUntil([&] { return op.ended(); }));
            EXPECT_EQ(op.ends[0], row.end);
            EXPECT_EQ(from, thereName);
        }
    }
}

TEST_F(Datagrams, AnErrorBelongsToOneDatagram)
{
    Op op;
    const std::string data = "x";
    EXPECT_EQ(wsaSendTo(here, data.data(), 1, {loopback, 0}, &op.overlapped, &Op::routine),
              SOCKET_ERROR);
    EXPECT_EQ(wsaGetLastError(), WSAEINVAL);
    const std::string large(70'000, 'x');
    EXPECT_EQ(wsaSendTo(here, large.data(), 70'000, thereName, &op.overlapped, &Op::routine),
              SOCKET_ERROR);
    EXPECT_EQ(wsaGetLastError(), WSAEMSGSIZE);
    EXPECT_EQ(sleepEx(0), 0u);
    EXPECT_FALSE(op.ended());
    EXPECT_EQ(wsaSendTo(here, data.data(), 1, thereName, &op.overlapped, &Op::routine), 0);
    EXPECT_EQ(sleepEx(INFINITE), WAIT_IO_COMPLETION);
    EXPECT_TRUE(op.endedWith(0, 1));
}

}  // namespace
}  // namespace platform
