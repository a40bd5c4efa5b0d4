// The selectors and streams on real pipes and sockets.
#include "common/errors.h"
#include "common/systemError.h"
#include "io/Pipe.h"
#include "io/Selector.h"
#include "io/Tcp.h"
#include "io/Timer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace {

constexpr std::uint32_t loopback = 0x0100007f;  // 127.0.0.1 as it lies on the wire

struct PipeEnds {
    PipeEnds()
    {
        if (pipe(ends) != 0)
            throw std::runtime_error("no pipe");
    }
    platform::Handle reader() const { return platform::adoptDescriptor(ends[0]); }
    platform::Handle writer() const { return platform::adoptDescriptor(ends[1]); }
    int ends[2];
};

std::string failure(const std::function<void()>& operation)
{
    try {
        operation();
    } catch (const error::Exception& e) {
        return e.text();
    }
    return "";
}

std::uint64_t put(io::OStream& stream, const std::string& bytes)
{
    char* space = nullptr;
    const std::uint64_t count = std::min<std::uint64_t>(stream.writeBegin(&space), bytes.size());
    std::copy_n(bytes.data(), count, space);
    stream.writeCommit(count);
    return count;
}

std::string take(io::IStream& stream)
{
    char* data = nullptr;
    const std::uint64_t count = stream.readBegin(&data);
    std::string taken(data, count);
    stream.readCommit(count);
    return taken;
}

std::size_t openDescriptors()
{
    platform::sleepEx(0);  // the platform's own come with the first wait
    std::size_t count = 0;
    DIR* const directory = opendir("/proc/self/fd");
    while (readdir(directory))
        ++count;
    closedir(directory);
    return count;
}

// A listener on a free port of the loopback address; accepts by plain calls.
class Listener {
public:
    Listener() : fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = loopback;
        auto* const plain = reinterpret_cast<sockaddr*>(&address);
        socklen_t length = sizeof address;
        if (bind(fd, plain, length) != 0 || listen(fd, 100) != 0 ||
            getsockname(fd, plain, &length) != 0)
            throw std::runtime_error("no listener");
        port = ntohs(address.sin_port);
    }
    ~Listener() { close(fd); }
    int accepted() const { return accept(fd, nullptr, nullptr); }

    int fd;
    std::uint16_t port = 0;
};

void awaitAttempt(io::SocketConnector& connector)
{
    io::Selector<int> selector;
    selector.add(&connector, 1);
    EXPECT_EQ(selector.poll().first, &connector);
}

struct Connection {
    Connection()
    {
        io::SocketConnector connector(loopback, listener.port);
        awaitAttempt(connector);
        socket = std::make_unique<io::Socket>(connector);
        peer = listener.accepted();
    }
    ~Connection() { closePeer(false); }

    void closePeer(bool withReset)
    {
        if (peer < 0)
            return;
        const linger abrupt{1, 0};
        if (withReset)
            setsockopt(peer, SOL_SOCKET, SO_LINGER, &abrupt, sizeof abrupt);
        close(peer);
        peer = -1;
    }

    Listener listener;
    int peer;
    std::unique_ptr<io::Socket> socket;
};

TEST(Pipes, CarryMoreThanTheirBuffersHold)
{
    const PipeEnds ends;
    io::PipeIStream in("in", ends.reader());
    auto out = std::make_unique<io::PipeOStream>("out", ends.writer());
    io::Selector<int> selector;
    selector.add(&in, 0);
    selector.add(out.get(), 1);
    std::string sent;
    while (sent.size() < 300000)
        sent += std::to_string(sent.size()) + ",";
    std::string received;
    std::size_t placed = 0;
    try {
        for (;;) {
            if (selector.poll().second == 0)
                received += take(in);
            else if (placed < sent.size())
                placed += put(*out, sent.substr(placed));
            else
                out.reset();
        }
    } catch (const io::EEndOfStream& e) {
        EXPECT_EQ(e.text(), "EOS from PipeIStream(in)");
    }
    EXPECT_EQ(received, sent);
}

TEST(Pipes, ADeadOneFailsTheNextWriteAndNeverSpins)
{
    const PipeEnds ends;
    io::PipeOStream out("out", ends.writer());
    close(ends.ends[0]);
    const auto before = platform::systemCallCounts();
    put(out, "abc");
    out.waitReady();
    const std::string text = "PipeOStream(out) write: " + systemErrorText(109);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(failure([&] { put(out, "x"); }), text);
        out.waitReady();
    }
    const auto after = platform::systemCallCounts();
    EXPECT_LE(after.waits - before.waits, 2u);
    EXPECT_LE(after.transfers - before.transfers, 2u);
}

TEST(Pipes, AWaitForOneWriteCostsOneWriteAndOneLook)
{
    const PipeEnds ends;
    io::PipeOStream out("out", ends.writer());
    put(out, "warm-up");
    out.waitReady();
    const auto before = platform::systemCallCounts();
    put(out, "line");
    out.waitReady();
    out.waitReady();
    const auto after = platform::systemCallCounts();
    EXPECT_EQ(after.transfers - before.transfers, 1u);
    EXPECT_EQ(after.waits - before.waits, 1u);
    EXPECT_EQ(fcntl(ends.ends[1], F_GETFL) & O_NONBLOCK, 0);
    close(ends.ends[0]);
}

TEST(Pipes, DieWhileAnOperationIsUnderWay)
{
    const std::size_t before = openDescriptors();
    for (int i = 0; i < 3; ++i) {
        const PipeEnds ends;
        io::PipeIStream in("in", ends.reader());
        io::PipeOStream out("out", ends.writer());
        io::Selector<int> selector;
        io::Timer timer;
        timer.when = Time::now();
        selector.add(&in, 0);
        selector.add(&timer, 1);
        EXPECT_EQ(selector.poll().second, 1);  // the read is under way now
        if (i == 1) {
            in.close();
            in.waitReady();  // which tries to read once more
            EXPECT_EQ(failure([&] { take(in); }),
                      "Error in PipeIStream(PipeIStream(in)): " + systemErrorText(6));
        }
        put(out, std::string(4096, 'x'));
        out.issueOverlapped();
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(Sockets, ConnectAndCarryBothWays)
{
    Connection connection;
    io::Socket& socket = *connection.socket;
    EXPECT_EQ(socket.peer, "127.0.0.1:" + std::to_string(connection.listener.port));
    std::thread echo([peer = connection.peer] {
        char bytes[1000];
        for (ssize_t n; (n = read(peer, bytes, sizeof bytes)) > 0;)
            for (ssize_t done = 0; done < n;)
                done += write(peer, bytes + done, static_cast<std::size_t>(n - done));
        shutdown(peer, SHUT_WR);
    });
    io::Selector<int> selector;
    selector.add(&socket.istream, 0);
    selector.add(&socket.ostream, 1);
    std::string received;
    int batches = 0;
    const std::string end = failure([&] {
        for (;;) {
            if (selector.poll().second == 0) {
                received += take(socket.istream);
            } else if (batches++ < 50) {
                put(socket.ostream, std::string(4096, static_cast<char>('a' + batches % 26)));
            } else {
                selector.remove(&socket.ostream);
                socket.ostream.close();  // the peer sees the end, and its last bytes still come
            }
        }
    });
    echo.join();
    EXPECT_EQ(end, "EOS from Socket_IStream(" + socket.peer + ")");
    EXPECT_EQ(received.size(), 50u * 4096u);
}

TEST(Sockets, TellAResetFromAnEnd)
{
    const struct {
        const char* name;
        const char* data;  // sent before
        bool reset;
        bool writesFirst;  // our side writes before it reads
        bool extraScan;    // another read is tried between the failure and readBegin
    } cases[] = {
        {"end", "", false, false, false},
        {"bytes, end", "abc", false, false, false},
        {"reset", "", true, false, false},
        {"bytes, reset", "abc", true, false, false},
        {"reset, seen by a write first", "", true, true, false},
        {"reset, tried again", "", true, false, true},
        {"reset, written and tried again", "", true, true, true},
        {"end, tried again", "", false, false, true},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.name);
        Connection connection;
        io::Socket& socket = *connection.socket;
        const std::string data = one.data;
        EXPECT_EQ(send(connection.peer, data.data(), data.size(), 0),
                  static_cast<ssize_t>(data.size()));
        connection.closePeer(one.reset);
        if (one.writesFirst) {
            put(socket.ostream, "x");
            socket.ostream.waitReady();
        }
        std::string received;
        while (received.size() < data.size()) {
            socket.istream.waitReady();
            received += take(socket.istream);
        }
        EXPECT_EQ(received, data);
        socket.istream.waitReady();
        if (one.extraScan) {
            io::Selector<int> selector;
            io::Timer timer;
            timer.when = Time::now();
            selector.add(&socket.istream, 0);
            selector.add(&timer, 1);
            for (int i = 0; i < 3; ++i)
                selector.poll();
        }
        const std::string text = one.reset ? "Socket_IStream: " + systemErrorText(10054)
                                           : "EOS from Socket_IStream(" + socket.peer + ")";
        for (int i = 0; i < 2; ++i)
            EXPECT_EQ(failure([&] { take(socket.istream); }), text);
        if (one.reset) {
            failure([&] { put(socket.ostream, "x"); });
            socket.ostream.waitReady();
            EXPECT_EQ(failure([&] { put(socket.ostream, "x"); }),
                      "Socket_Ostream(" + socket.ostream.name() + "): " + systemErrorText(10054));
        }
    }
}

TEST(Sockets, AFloodDoesNotHoldTheTimerUp)
{
    Connection connection;
    std::atomic<bool> stop = false;
    std::thread flood([&, peer = connection.peer] {
        const std::string bytes(65536, 'x');
        while (!stop && send(peer, bytes.data(), bytes.size(), MSG_NOSIGNAL) > 0) {
        }
    });
    io::Selector<int> selector;
    io::Timer timer;
    timer.when = Time::now() + Time(0, 50000);
    selector.add(&connection.socket->istream, 0);
    selector.add(&timer, 1);
    std::uint64_t bytes = 0;
    while (selector.poll().second == 0)
        bytes += take(connection.socket->istream).size();
    EXPECT_GT(bytes, 0u);
    stop = true;
    connection.socket.reset();  // ends a send that blocks
    flood.join();
}

TEST(Connectors, RefusedAbandonedAndTakenTwice)
{
    std::uint16_t closedPort = 0;
    {
        const Listener listener;
        closedPort = listener.port;
    }
    const std::size_t before = openDescriptors();
    const auto text = [](std::uint16_t port, std::uint32_t code) {
        return "Error connecting to 127.0.0.1:" + std::to_string(port) + ": " +
               systemErrorText(code);
    };
    {
        io::SocketConnector connector(loopback, closedPort);
        EXPECT_EQ(failure([&] { io::Socket socket(connector); }), text(closedPort, 10036));
        awaitAttempt(connector);
        EXPECT_EQ(failure([&] { io::Socket socket(connector); }), text(closedPort, 10061));
    }
    {
        const Listener listener;
        {
            const io::SocketConnector abandoned(loopback, listener.port);
        }
        io::Selector<int> selector;
        std::vector<std::unique_ptr<io::SocketConnector>> connectors;
        for (int i = 0; i < 50; ++i) {
            connectors.push_back(std::make_unique<io::SocketConnector>(loopback, listener.port));
            selector.add(connectors.back().get(), i);
        }
        // Half of them are given up while they stand in the selector.
        for (std::size_t i = 0; i < 50; i += 2)
            connectors[i].reset();
        for (int left = 25; left > 0; --left) {
            const int number = selector.poll().second;
            EXPECT_EQ(number % 2, 1);
            auto& connector = *connectors[static_cast<std::size_t>(number)];
            const io::Socket socket(connector);
            EXPECT_EQ(connector.takeSocket(), platform::SocketHandle::invalid);
            connectors[static_cast<std::size_t>(number)].reset();
        }
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(Scale, IdleStreamsAndTimersCostNoSystemCalls)
{
    const PipeEnds shared;  // all the idle streams read from duplicates of it
    const PipeEnds ends;
    const std::size_t idle = std::min<std::uint64_t>(10000, platform::raiseDescriptorLimit() - 200);
    io::PipeIStream in("in", ends.reader());
    std::vector<std::unique_ptr<io::PipeIStream>> streams;
    std::vector<io::Timer> timers(idle);
    io::Selector<int> selector;
    selector.add(&in, 1);
    const auto cost = [&] {
        const auto before = platform::systemCallCounts();
        for (int i = 0; i < 100; ++i) {
            EXPECT_EQ(write(ends.ends[1], "x", 1), 1);
            EXPECT_EQ(selector.poll().second, 1);
            EXPECT_EQ(take(in), "x");
        }
        const auto after = platform::systemCallCounts();
        return std::pair(after.waits - before.waits, after.transfers - before.transfers);
    };
    cost();
    const auto alone = cost();
    for (std::size_t i = 0; i < idle; ++i) {
        streams.push_back(std::make_unique<io::PipeIStream>(
            "idle", platform::adoptDescriptor(dup(shared.ends[0]))));
        timers[i].when = Time::now() + Time(3600, 0);
        selector.add(streams.back().get(), 2);
        selector.add(&timers[i], 3);
    }
    // The first hand-out starts all the reads.
    EXPECT_EQ(write(ends.ends[1], "x", 1), 1);
    EXPECT_EQ(selector.poll().second, 1);
    EXPECT_EQ(take(in), "x");
    io::OsSelector::shadowScan = false;  // it would take its time, though not system calls
    EXPECT_EQ(cost(), alone);
    for (int fd : {shared.ends[0], shared.ends[1], ends.ends[1]})
        close(fd);
}

}  // namespace
