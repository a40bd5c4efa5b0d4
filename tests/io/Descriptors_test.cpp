// The selectors and streams on real pipes and sockets, and the broken rules that they find.
#include "common/systemError.h"
#include "io/Pipe.h"
#include "io/Tcp.h"
#include "io/Timer.h"
#include "tests/io/Fakes.h"
#include "tests/support/ScriptedServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <memory>

namespace {

using fakes::put;
using fakes::take;
using fakes::thrown;
using support::step;

constexpr std::uint32_t loopback = 0x0100007f;  // 127.0.0.1 as it lies on the wire

struct Pipe {
    int ends[2];
    int made = pipe(ends);
    io::PipeIStream in{"in", platform::adoptDescriptor(ends[0])};
    io::PipeOStream out{"out", platform::adoptDescriptor(ends[1])};
};

std::unique_ptr<io::Socket> connectTo(std::uint16_t port)
{
    io::SocketConnector connector(loopback, port);
    connector.waitReady();
    return std::make_unique<io::Socket>(connector);
}

std::ptrdiff_t openDescriptors()
{
    platform::sleepEx(0);  // the platform's own come with the first wait
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

TEST(Pipes, ShowUnreadBytesThenTheEndOrTheError)
{
    const std::string invalid = "Error in PipeIStream(PipeIStream(in)): " + systemErrorText(6);
    for (const bool endsItself : {true, false}) {
        std::make_unique<Pipe>()->in.issueOverlapped();  // dies while its read is under way
        Pipe pipe;
        put(pipe.out, "unread");
        EXPECT_TRUE(pipe.out.flush());
        pipe.in.waitReady();
        endsItself ? pipe.in.close() : pipe.out.close();
        EXPECT_EQ(take(pipe.in), "unread");
        pipe.in.waitReady();
        for (int i = 0; i < 2; ++i)
            EXPECT_EQ(thrown([&] { take(pipe.in); }),
                      endsItself ? invalid : "EOS from PipeIStream(in)");
    }
}

TEST(Pipes, ADeadOneFailsTheNextWriteAndNeverSpins)
{
    Pipe pipe;
    pipe.in.close();
    const auto before = platform::systemCallCounts();
    put(pipe.out, "abc");
    for (int i = 0; i < 3; ++i) {
        pipe.out.waitReady();
        EXPECT_EQ(thrown([&] { put(pipe.out, "x"); }),
                  "PipeOStream(out) write: " + systemErrorText(109));
    }
    const auto after = platform::systemCallCounts();
    EXPECT_LE(after.waits - before.waits, 2u);
    EXPECT_LE(after.transfers - before.transfers, 2u);
}

TEST(Sockets, TellAResetFromAnEnd)
{
    const struct {
        const char* name;
        const char* data;  // sent before
        bool reset;
        bool writesFirst;  // our side writes before it reads
    } cases[] = {
        {"end", "", false, false},
        {"bytes, end", "abc", false, false},
        {"reset", "", true, false},
        {"bytes, reset", "abc", true, false},
        {"reset, seen by a write first", "", true, true},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.name);
        support::ScriptedServer server({step::waitForRelease(), step::send(one.data),
                                        one.reset ? step::reset() : step::halfClose(),
                                        step::silence()});
        const auto socket = connectTo(server.port());
        server.release();
        if (one.reset)
            server.waitForClosed();
        if (one.writesFirst) {
            put(socket->ostream, "x");
            socket->ostream.waitReady();
        }
        std::string received;
        const std::string text = thrown([&] {
            for (;; socket->istream.waitReady())
                received += take(socket->istream);
        });
        const std::string reset = systemErrorText(10054);
        EXPECT_EQ(received, one.data);
        EXPECT_EQ(text, one.reset ? "Socket_IStream: " + reset
                                  : "EOS from Socket_IStream(" + socket->peer + ")");
        EXPECT_EQ(thrown([&] { take(socket->istream); }), text);
        thrown([&] { put(socket->ostream, "x"); });
        socket->ostream.waitReady();
        EXPECT_EQ(thrown([&] { put(socket->ostream, "x"); }),
                  one.reset ? "Socket_Ostream(" + socket->ostream.name() + "): " + reset : "");
    }
}

// A peer that takes nothing before all buffers are full: the last batch leaves in parts.
struct SlowPeer : support::RefusingPort {
    SlowPeer() { EXPECT_EQ(listen(descriptor, 1), 0); }
    int accepted() const { return accept(descriptor, nullptr, nullptr); }
};

TEST(Sockets, SendInPartsAndCloseOneDirection)
{
    const SlowPeer peer;
    const auto socket = connectTo(peer.port());
    const int fd = peer.accepted();
    io::Selector<int> selector;
    selector.add(&socket->ostream, 0);
    std::string sent;
    std::string received;
    thrown([&] {
        for (;; selector.pollImpl(true)) {
            const std::string bytes(3999, static_cast<char>('a' + sent.size() % 26));
            sent += bytes.substr(0, put(socket->ostream, bytes));
        }
    });
    char bytes[65536];
    const Time limit = Time::now() + Time(30, 0);
    while (received.size() < sent.size() && Time::now() < limit) {
        const ssize_t count = recv(fd, bytes, sizeof bytes, MSG_DONTWAIT);
        received.append(bytes, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        thrown([&] { selector.pollImpl(true); });
    }
    EXPECT_TRUE(received == sent);
    socket->istream.issueOverlapped();  // it ends with the stream at the latest
    socket->ostream.close();
    EXPECT_EQ(read(fd, bytes, 1), 0);
    close(fd);
}

TEST(Connectors, RefusedAbandonedAndTakenTwice)
{
    const support::RefusingPort refusing;
    const support::SilentPort silent;
    support::ScriptedServer server({step::expectEnd()});
    const std::ptrdiff_t before = openDescriptors();
    {
        io::SocketConnector refused(loopback, refusing.port());
        for (const std::uint32_t code : {10036u, 10061u}) {  // under way, over
            EXPECT_EQ(thrown([&] { io::Socket socket(refused); }),
                      "Error connecting to 127.0.0.1:" + std::to_string(refusing.port()) + ": " +
                          systemErrorText(code));
            refused.waitReady();
        }
        // Given up while it runs, and while it stands in a selector.
        io::Selector<int> selector;
        auto abandoned = std::make_unique<io::SocketConnector>(loopback, silent.port());
        io::SocketConnector connector(loopback, server.port());
        selector.add(abandoned.get(), 1);
        selector.add(&connector, 2);
        abandoned.reset();
        EXPECT_EQ(selector.poll().second, 2);
        const io::Socket socket(connector);
        EXPECT_EQ(connector.takeSocket(), platform::SocketHandle::invalid);
    }
    server.waitForClosed();
    EXPECT_EQ(openDescriptors(), before);
}

void dies(const std::string& text, const std::function<void()>& action)
{
    EXPECT_EXIT(action(), testing::KilledBySignal(SIGABRT),
                testing::Eq("Assertion failed: " + text + "\n"));
}

TEST(Assertions, StopTheProcess)
{
    io::Selector<int> selector;
    fakes::Foreign f;
    fakes::Back back;
    Pipe pipe;
    io::Socket_Stream_Base base{"peer", platform::SocketHandle::invalid};
    io::Socket_IStream socketIn(&base);
    io::Socket_OStream socketOut(&base);
    selector.add(&back.front, 1);
    dies("The Selectable to remove: f was not found in internal list",
         [&] { selector.remove(&f); });
    selector.add(&f, 1);
    dies("Added selectable f twice", [&] { selector.add(&f, 1); });
    dies("f added twice to Selector", [&] { back.watchUnderlying(&f, true); });
    selector.remove(&f);
    back.watchUnderlying(&f, true);
    f.ready = back.fails = true;
    dies("[front]::underlyingIsReady(f): no", [&] { selector.poll(); });
    dies("Overcommit in PipeIStream 2 is 2 bytes past end of buffer",
         [&] { pipe.in.readCommit(2); });
    dies("Overcommit in PipeOStream 18446744073709551615 is 18446744073709547519 bytes "
         "past end of buffer",
         [&] { pipe.out.writeCommit(~std::uint64_t{0}); });
    dies("Overcommit in Socket_IStream", [&] { socketIn.readCommit(1); });
    dies("Overcommit in Socket_OStream", [&] { socketOut.writeCommit(4097); });
    pipe.in.close();
    dies("Double close on PipeIStream", [&] { pipe.in.close(); });
}

}  // namespace
