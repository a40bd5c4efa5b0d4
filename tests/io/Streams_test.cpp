// Pipes, sockets and connectors on a scripted platform: every code that a start or a completion
// can have, in the order in which it can come.
#include "common/errors.h"
#include "common/systemError.h"
#include "io/Pipe.h"
#include "io/Selector.h"
#include "io/Tcp.h"
#include "tests/io/ScriptedPlatform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>

namespace {

using platform::Handle;
using scripted::Start;
using scripted::state;
using testing::ElementsAre;

constexpr std::uint32_t pending = platform::ERROR_IO_PENDING;

// What an operation throws: the text, and "EOS: " before it for the end of a stream.
std::string thrown(const std::function<void()>& operation)
{
    try {
        operation();
    } catch (const io::EEndOfStream& e) {
        return "EOS: " + e.text();
    } catch (const error::Exception& e) {
        return e.text();
    }
    return "";
}

std::string take(io::IStream& stream, std::size_t limit = 4096)
{
    char* data = nullptr;
    const std::uint64_t count = std::min<std::uint64_t>(stream.readBegin(&data), limit);
    std::string taken(data, count);
    stream.readCommit(count);
    return taken;
}

std::uint64_t put(io::OStream& stream, const std::string& bytes)
{
    char* space = nullptr;
    const std::uint64_t room = stream.writeBegin(&space);
    std::copy(bytes.begin(), bytes.end(), space);
    stream.writeCommit(bytes.size());
    return room;
}

// A connected socket on the scripted platform, with the number 7.
std::unique_ptr<io::Socket> connected()
{
    auto connector = std::make_unique<io::SocketConnector>(0x0100007f, std::uint16_t{80});
    state.connects.back().ended(state.connects.back().context, 0);
    auto socket = std::make_unique<io::Socket>(*connector);
    connector.reset();
    state.calls.clear();
    return socket;
}

// Either kind of input stream, so that one table serves both.
struct Input {
    explicit Input(bool isPipe)
        : socket(isPipe ? nullptr : connected()),
          pipe(isPipe ? std::make_unique<io::PipeIStream>("p", Handle{5}) : nullptr),
          stream(isPipe ? static_cast<io::IStream&>(*pipe) : socket->istream)
    {}

    std::unique_ptr<io::Socket> socket;
    std::unique_ptr<io::PipeIStream> pipe;
    io::IStream& stream;
};

struct Output {
    explicit Output(bool isPipe)
        : socket(isPipe ? nullptr : connected()),
          pipe(isPipe ? std::make_unique<io::PipeOStream>("p", Handle{5}) : nullptr),
          stream(isPipe ? static_cast<io::OStream&>(*pipe) : socket->ostream)
    {}

    std::unique_ptr<io::Socket> socket;
    std::unique_ptr<io::PipeOStream> pipe;
    io::OStream& stream;
};

class StreamsTest : public testing::Test {
protected:
    StreamsTest()
    {
        scripted::reset();
        state.wait = scripted::abortingWait();
    }
};

std::string errorText(const std::string& words, std::uint32_t code)
{
    return words + ": " + systemErrorText(code);
}

const std::string pipeError = "Error in PipeIStream(PipeIStream(p))";
const std::string pipeEnd = "EOS: EOS from PipeIStream(p)";
const std::string socketEnd = "EOS: EOS from Socket_IStream(127.0.0.1:80)";

TEST_F(StreamsTest, StartsOfReads)
{
    const struct {
        const char* name;
        bool pipe;
        bool ready;
        Start start;
        unsigned underWay;
        std::string text;  // of what readBegin throws
    } cases[] = {
        {"under way", true, false, {true, 0}, 1, ""},
        {"under way, and said to be pending", true, false, {true, pending}, 1, ""},
        {"connected is no error, and nothing is under way", true, false, {false, 535}, 0, ""},
        {"connected, and under way", true, false, {true, 535}, 1, ""},
        {"broken at once", true, true, {false, 109}, 0, pipeEnd},
        {"broken, though started", true, true, {true, 109}, 1, pipeEnd},
        {"no such handle", true, true, {false, 6}, 0, errorText(pipeError, 6)},
        {"done at once", false, false, {true, 0}, 1, ""},
        {"an old code after a success", false, false, {true, 10054}, 1, ""},
        {"pending", false, false, {false, pending}, 1, ""},
        {"reset", false, true, {false, 10054}, 0, errorText("Socket_IStream", 10054)},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.name);
        scripted::reset();
        state.wait = scripted::abortingWait();
        Input in(one.pipe);
        state.starts = {one.start};
        in.stream.issueOverlapped();
        EXPECT_THAT(state.calls, ElementsAre(one.pipe ? "read 5 4096" : "recv 7 4096"));
        EXPECT_EQ(state.operations.size(), one.underWay);
        EXPECT_EQ(in.stream.isReady(), one.ready);
        for (int i = 0; i < 2; ++i)
            EXPECT_EQ(thrown([&] { take(in.stream); }), one.text);
        EXPECT_EQ(thrown([&] { in.stream.close(); }), one.text);
        // One read at a time; another one when none is under way.
        in.stream.issueOverlapped();
        EXPECT_EQ(state.operations.size(), 1u);
    }
}

TEST_F(StreamsTest, AReadThatDidNotStartIsTriedInEachPass)
{
    io::PipeIStream in("p", Handle{5});
    io::Selector<int> selector;
    selector.add(&in, 1);
    state.starts = {{false, 535}, {false, 535}};
    state.wait = [](const auto&, std::uint32_t) -> std::uint32_t {
        if (!state.operations.empty())
            scripted::complete("x");
        return platform::WAIT_IO_COMPLETION;
    };
    EXPECT_EQ(selector.poll().second, 1);
    EXPECT_EQ(state.started, 3u);
    EXPECT_EQ(state.waits, 3u);
}

TEST_F(StreamsTest, CompletionsOfReads)
{
    const struct {
        const char* name;
        bool pipe;
        std::uint32_t code;
        std::uint32_t bytes;
        bool ready;
        std::string text;
    } cases[] = {
        {"bytes", true, 0, 10, true, ""},
        {"bytes, with the other mark of success", true, 192, 10, true, ""},
        {"a full buffer", true, 0, 4096, true, ""},
        {"no byte on a pipe is no end", true, 0, 0, false, ""},
        {"broken", true, 109, 0, true, pipeEnd},
        {"failed", true, 995, 0, true, errorText(pipeError, 995)},
        {"bytes", false, 0, 10, true, ""},
        {"no byte on a socket is the end", false, 0, 0, true, socketEnd},
        {"192 is an error on a socket", false, 192, 0, true, errorText("Socket_IStream", 192)},
        {"reset", false, 10054, 0, true, errorText("Socket_IStream", 10054)},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.name);
        scripted::reset();
        state.wait = scripted::abortingWait();
        Input in(one.pipe);
        in.stream.issueOverlapped();
        scripted::complete(one.code, one.bytes);
        EXPECT_EQ(in.stream.isReady(), one.ready);
        if (one.bytes != 0) {
            in.stream.issueOverlapped();  // nothing to do before the bytes are taken
            EXPECT_EQ(state.started, 1u);
            EXPECT_EQ(take(in.stream, 4).size(), 4u);
            EXPECT_TRUE(in.stream.isReady());
            EXPECT_EQ(take(in.stream).size(), one.bytes - 4);
        }
        for (int i = 0; i < 2; ++i)
            EXPECT_EQ(thrown([&] { EXPECT_EQ(take(in.stream), ""); }), one.text);
        // The next read has the whole buffer.
        in.stream.issueOverlapped();
        EXPECT_EQ(state.operations.size(), 1u);
        EXPECT_EQ(state.operations.front().count, 4096u);
    }
}

TEST_F(StreamsTest, BytesComeBeforeTheEndThatFollowsThem)
{
    for (const bool isPipe : {true, false}) {
        scripted::reset();
        Input in(isPipe);
        in.stream.issueOverlapped();
        scripted::complete("0123456789");
        in.stream.issueOverlapped();
        EXPECT_EQ(take(in.stream), "0123456789");
        EXPECT_FALSE(in.stream.isReady());
        in.stream.issueOverlapped();
        scripted::complete(isPipe ? 109 : 0, 0);
        EXPECT_EQ(thrown([&] { take(in.stream); }), isPipe ? pipeEnd : socketEnd);
    }
}

TEST_F(StreamsTest, Writes)
{
    for (const bool isPipe : {true, false}) {
        SCOPED_TRACE(isPipe ? "pipe" : "socket");
        scripted::reset();
        state.wait = scripted::abortingWait();
        Output out(isPipe);
        io::OStream& stream = out.stream;
        const std::string call = isPipe ? "write 5 " : "send 7 ";
        EXPECT_TRUE(stream.isReady());
        stream.issueOverlapped();
        EXPECT_EQ(put(stream, std::string(3000, 'x')), 4096u);
        EXPECT_FALSE(stream.isReady());
        EXPECT_TRUE(state.calls.empty());  // nothing leaves during a commit
        stream.issueOverlapped();
        // A part of it has gone; what comes meanwhile joins the batch.
        EXPECT_EQ(put(stream, std::string(96, 'y')), 1096u);
        scripted::complete(isPipe ? 192 : 0, 1000);
        EXPECT_FALSE(stream.isReady());
        stream.issueOverlapped();
        stream.issueOverlapped();
        EXPECT_EQ(std::string(state.operations.front().buffer, 2096),
                  std::string(2000, 'x') + std::string(96, 'y'));
        EXPECT_EQ(put(stream, std::string(1000, 'z')), 1000u);
        EXPECT_EQ(put(stream, ""), 0u);
        scripted::complete(0, 2096);
        EXPECT_FALSE(stream.isReady());
        stream.issueOverlapped();
        scripted::complete(0, 1000);
        EXPECT_TRUE(stream.isReady());
        EXPECT_EQ(put(stream, "q"), 4096u);
        EXPECT_THAT(state.calls, ElementsAre(call + "3000", call + "2096", call + "1000"));

        // A failure makes it ready, and shows at every call.
        const std::string text =
            isPipe ? errorText("PipeOStream(p) write", 109)
                   : errorText("Socket_Ostream(Socket_OStream(127.0.0.1:80))", 10054);
        const std::uint32_t code = isPipe ? 109 : 10054;
        for (const bool atStart : {false, true}) {
            if (atStart)
                state.starts = {{false, code}};
            stream.issueOverlapped();
            if (!atStart)
                scripted::complete(code, 0);
            EXPECT_TRUE(stream.isReady());
            EXPECT_EQ(thrown([&] { put(stream, ""); }), text);
            EXPECT_EQ(thrown([&] { stream.close(); }), text);
            if (isPipe) {
                EXPECT_EQ(thrown([&] { stream.flush(); }), text);
            }
        }
    }
}

TEST_F(StreamsTest, SocketOutputIsReadyWhileItsErrorWaits)
{
    // Unlike a pipe's, a socket's readiness does not look at the write under way.
    Output out(false);
    put(out.stream, "a");
    out.stream.issueOverlapped();
    scripted::complete(10054, 0);
    out.stream.issueOverlapped();
    EXPECT_EQ(state.operations.size(), 1u);
    EXPECT_TRUE(out.stream.isReady());
    EXPECT_FALSE(out.stream.flush());
}

TEST_F(StreamsTest, Flush)
{
    const struct {
        const char* name;
        bool commit;
        bool startFails;
        bool completes;
        bool result;
        std::uint64_t waits;
    } cases[] = {
        {"nothing to send makes no call", false, false, false, true, 0},
        {"the write ends in the wait", true, false, true, true, 1},
        {"the write goes on", true, false, false, false, 1},
        {"a failed start makes it ready", true, true, false, true, 0},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.name);
        scripted::reset();
        io::PipeOStream out("p", Handle{5});
        if (one.commit)
            put(out, "abc");
        if (one.startFails)
            state.starts = {{false, 109}};
        state.wait = [&](const auto&, std::uint32_t timeoutMs) -> std::uint32_t {
            EXPECT_EQ(timeoutMs, 0u);
            if (!one.completes)
                return platform::WAIT_TIMEOUT;
            scripted::complete(0, 3);
            return platform::WAIT_IO_COMPLETION;
        };
        EXPECT_EQ(out.flush(), one.result);
        EXPECT_EQ(state.waits, one.waits);
        EXPECT_EQ(state.started, one.commit ? 1u : 0u);
        state.wait = scripted::abortingWait();
    }
}

TEST_F(StreamsTest, PipesCloseAndChangeTheirHandle)
{
    {
        io::PipeIStream in("p", Handle{5});
        in.issueOverlapped();
        scripted::complete("abc");
        in.close();  // unread bytes stay
        EXPECT_EQ(take(in), "abc");
        EXPECT_EQ(take(in), "");
        state.starts = {{false, 6}};
        in.issueOverlapped();
        EXPECT_EQ(thrown([&] { take(in); }), errorText(pipeError, 6));
        in.setHandle(Handle{6});
        EXPECT_FALSE(in.isReady());
        in.issueOverlapped();
        scripted::complete("def");
        in.setHandle(Handle{8});  // the buffer is not touched
        EXPECT_EQ(take(in), "def");
        in.issueOverlapped();
        scripted::complete(109, 0);
        EXPECT_EQ(thrown([&] { in.close(); }), pipeEnd);  // and keeps its handle
        in.setHandle(Handle{9});
        EXPECT_EQ(take(in), "");
        in.issueOverlapped();
    }
    EXPECT_THAT(state.calls,
                ElementsAre("read 5 4096", "close 5", "read -1 4096", "read 6 4096", "close 6",
                            "read 8 4096", "close 8", "read 9 4096", "close 9", "wait"));
    state.calls.clear();
    {
        io::PipeOStream out("p", Handle{5});
        put(out, "abc");
        out.issueOverlapped();
        out.setHandle(Handle{6});  // the write under way ends first, and its failure is forgotten
        EXPECT_EQ(put(out, ""), 4093u);
        out.issueOverlapped();
        out.close();
        out.close();
    }
    EXPECT_THAT(state.calls,
                ElementsAre("write 5 3", "close 5", "wait", "write 6 3", "close 6", "wait"));
    state.calls.clear();
    {
        io::StdInStream in;
        io::StdOutStream out;
        EXPECT_EQ(in.name(), "PipeIStream(stdin)");
        EXPECT_EQ(out.name(), "PipeOStream(stdout)");
    }
    EXPECT_THAT(state.calls, ElementsAre("close 2", "close 1"));
}

TEST_F(StreamsTest, SocketsCloseDirectionsAndDieInOrder)
{
    {
        const auto socket = connected();
        put(socket->ostream, "abc");
        socket->ostream.issueOverlapped();
        socket->istream.issueOverlapped();
        socket->ostream.close();
        EXPECT_FALSE(socket->ostream.isReady());
        state.shutdownError = 10057;
        socket->istream.close();
        EXPECT_EQ(thrown([&] { take(socket->istream); }), errorText("Socket_IStream", 10057));
        EXPECT_EQ(thrown([&] { socket->prepareSubProcess(); }), "Not implemented");
    }
    // The output side dies first; each waits for its routine.
    EXPECT_THAT(state.calls, ElementsAre("send 7 3", "recv 7 4096", "shutdown 1 7", "shutdown 0 7",
                                         "shutdown 2 7", "closesocket 7", "wait", "wait"));
    // A stream on an open socket shuts its own direction.
    scripted::reset();
    state.wait = scripted::abortingWait();
    io::Socket_Stream_Base base{"peer", platform::SocketHandle{9}};
    {
        io::Socket_IStream in(&base);
        io::Socket_OStream out(&base);
        in.issueOverlapped();
        put(out, "a");
        out.issueOverlapped();
        std::swap(state.operations[0], state.operations[1]);
    }
    {
        io::Socket_IStream idle(&base);
    }
    EXPECT_THAT(state.calls, ElementsAre("recv 9 4096", "send 9 1", "shutdown 1 9", "wait",
                                         "shutdown 0 9", "wait"));
}

TEST_F(StreamsTest, Connectors)
{
    const std::string refused = errorText("Error connecting to 127.0.0.1:80", 10061);
    {
        io::SocketConnector connector(0x0100007f, 80);
        EXPECT_EQ(connector.name(), "SocketConnector(127.0.0.1:80)");
        EXPECT_EQ(connector.osHandle(), Handle{101});
        // It still runs.
        EXPECT_EQ(thrown([&] { io::Socket socket(connector); }),
                  errorText("Error connecting to 127.0.0.1:80", 10036));
        state.connects[0].ended(state.connects[0].context, 0);
        EXPECT_FALSE(connector.isReady());
        const io::Socket socket(connector);
        EXPECT_EQ(socket.peer, "127.0.0.1:80");
        EXPECT_EQ(connector.takeSocket(), platform::SocketHandle::invalid);  // it has gone
        state.calls.clear();
    }
    EXPECT_THAT(state.calls, ElementsAre("shutdown 2 7", "closesocket 7", "close 101"));
    state.calls.clear();
    {
        io::SocketConnector connector(0x0100007f, 80);
        state.connects[1].ended(state.connects[1].context, 10061);
        EXPECT_EQ(thrown([&] { io::Socket socket(connector); }), refused);
    }
    EXPECT_THAT(state.calls, ElementsAre("close 102", "closesocket 7"));
    state.calls.clear();
    // Given up while it runs: the record lives until the attempt has let go of it.
    std::optional<io::SocketConnector> abandoned(std::in_place, 0x0100007f, std::uint16_t{80});
    abandoned.reset();
    EXPECT_THAT(state.calls, ElementsAre("close 103"));
    state.connects[2].ended(state.connects[2].context, 995);
    EXPECT_THAT(state.calls, ElementsAre("close 103", "closesocket 7"));

    state.socketError = 10024;
    EXPECT_EQ(thrown([] { io::SocketConnector connector(0, 1); }),
              errorText("Inavlid socket returned from socket()", 10024));
}

TEST_F(StreamsTest, SocketsAreStartedUpOncePerProcess)
{
    // In a process of its own, for in this one an earlier test may have done it.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            state.startupResult = 10055;
            std::string text = thrown([] { io::startWinsock(); });
            state.startupResult = 0;
            for (int i = 0; i < 3; ++i)
                io::startWinsock();
            for (const std::string& call : state.calls)
                text += ", " + call;
            std::fputs(text.c_str(), stderr);
            _exit(0);
        },
        testing::ExitedWithCode(0),
        testing::Eq(errorText("Unable to startup Winsock", 10055) + ", startup, startup"));
}

}  // namespace
