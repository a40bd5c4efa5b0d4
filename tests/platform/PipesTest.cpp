// Operations on pipes, files, terminals and other devices.

#include "Support.h"

#include <deque>
#include <numeric>

namespace platform {
namespace {

TEST(Pipes, RoutinesRunInAWaitOnlyAndInTheOrderOfTheEnds)
{
    for (const std::size_t count : {10, 100}) {
        Pair late;
        std::deque<Pair> devices;
        std::deque<Read> reads;
        std::vector<std::size_t> order;
        for (std::size_t i = 0; i <= count; ++i) {
            // The first one waits, the others are done at once.
            reads.emplace_back(i == 0 ? late.in : devices.emplace_back("/dev/zero").in, 1);
            reads[i].then = [&order, i] {
                order.push_back(i);
            };
        }
        late.put("x");
        EXPECT_TRUE(order.empty());
        EXPECT_EQ(sleepEx(INFINITE), WAIT_IO_COMPLETION);
        std::vector<std::size_t> expected(count + 1);
        std::iota(expected.begin(), expected.end(), 1);
        expected.back() = 0;
        EXPECT_EQ(order, expected);
    }
}

TEST(Pipes, WriteOnAFullPipeIsPartialThenWaits)
{
    Pair pipe;
    std::string data(300'000, '\0');
    std::iota(data.begin(), data.end(), '\0');
    const auto [error, taken] = Write(pipe.out, data).end();
    EXPECT_EQ(error, 0u);
    EXPECT_GT(taken, 0u);
    ASSERT_LT(taken, data.size());

    const Write second(pipe.out, data.substr(taken, 1000));
    EXPECT_EQ(sleepEx(0), 0u);
    std::string received(taken, '\0');
    EXPECT_EQ(read(pipe.fds[0], received.data(), taken), static_cast<ssize_t>(taken));
    EXPECT_TRUE(received == data.substr(0, taken));
    EXPECT_EQ(second.end(), End(0, 1000));

    Write(pipe.out, data).end();
    const Write third(pipe.out, "waits");
    closeHandle(pipe.in);
    EXPECT_EQ(third.end(), End(ERROR_BROKEN_PIPE, 0));
}

TEST(Pipes, ClosingEndsWhatIsUnderWayAndWhatIsUndelivered)
{
    Pair other, dry, filled, full;
    filled.put("data");
    Write(full.out, std::string(300'000, 'f')).end();
    Write first(other.out, "x");
    const Read pending(dry.in), finished(filled.in);
    const Write blocked(full.out, "more");
    EXPECT_TRUE(closeHandle(dry.in) && closeHandle(full.out));
    first.then = [&] {
        closeHandle(filled.in);  // with its routine next in the queue
    };
    EXPECT_TRUE(pending.ends.empty() && blocked.ends.empty());
    for (const Op* op : std::initializer_list<const Op*>{&pending, &finished, &blocked})
        EXPECT_EQ(op->end(), End(ERROR_OPERATION_ABORTED, 0));
    EXPECT_EQ(first.end(), End(0, 1));
}

TEST(Pipes, AHardErrorFailsTheStartAndRunsNoRoutine)
{
    Pair pipe, deadPipe, deadSocket("socket"), full("/dev/full"), closed;
    for (const Handle handle : {deadPipe.in, deadSocket.in, closed.out})
        EXPECT_TRUE(closeHandle(handle));
    Pair inItsPlace;
    struct Case {
        const char* name;
        Handle handle;
        std::uint32_t code;
    };
    const Case cases[] = {
        {"pipe without a reader", deadPipe.out, ERROR_BROKEN_PIPE},
        {"socket without a peer", deadSocket.out, ERROR_BROKEN_PIPE},
        {"no room", full.out, ERROR_DISK_FULL},
        {"not open for writing", pipe.in, ERROR_INVALID_HANDLE},
        {"stale, its place in use", closed.out, ERROR_INVALID_HANDLE},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.name);
        const Write write(row.handle, "nobody reads this");  // SIGPIPE would end the test
        EXPECT_EQ(write.code, row.code);
        EXPECT_EQ(sleepEx(0), 0u);
        EXPECT_TRUE(write.ends.empty());
    }
    EXPECT_FALSE(closeHandle(closed.out));
    EXPECT_EQ(Write(inItsPlace.out, "x").end(), End(0, 1));
}

TEST(Pipes, ABusyStreamHoldsNeitherTheWaitNorTheOthers)
{
    Pair quietPipe, zero("/dev/zero");
    const Read quiet(quietPipe.in);
    Read busy(zero.in, 1);
    busy.then = [&] {
        readFileEx(zero.in, busy.buffer.data(), 1, &busy.overlapped, Op::routine);
    };
    for (std::size_t runs = 1; runs <= 3; ++runs) {
        EXPECT_EQ(sleepEx(INFINITE), WAIT_IO_COMPLETION);
        EXPECT_EQ(busy.ends.size(), runs);
        EXPECT_EQ(quiet.ends.size(), runs / 2 > 0 ? 1u : 0u);
        if (runs == 1)
            quietPipe.put("x");
    }
    // Waits without time may leave the others waiting, but not for good.
    Read another(quietPipe.in);
    quietPipe.put("x");
    for (int waits = 0; waits < 10; ++waits)
        EXPECT_EQ(sleepEx(0), WAIT_IO_COMPLETION);
    EXPECT_EQ(another.ends.size(), 1u);
    busy.then = nullptr;
    EXPECT_EQ(sleepEx(INFINITE), WAIT_IO_COMPLETION);
}

TEST(Pipes, TheEndIsABrokenPipeAndFlagsAreLeftAloneOnAllKindsOfDescriptors)
{
    for (const bool armed : {false, true}) {
        for (const std::string kind : {"pipe", "socket", "file", "/dev/null", "terminal"}) {
            SCOPED_TRACE(kind + (armed ? ", waited for" : ", there already"));
            Pair pair(kind);
            const int flags[] = {fcntl(pair.fds[0], F_GETFL), fcntl(pair.fds[1], F_GETFL)};
            EXPECT_EQ(Write(pair.out, "line\n").end(), End(0, 5));
            EXPECT_TRUE(kind == "/dev/null" || Read(pair.in).text() == "line\n");
            EXPECT_EQ(fcntl(pair.fds[1], F_GETFL), flags[1]);
            if (!armed)
                closeHandle(pair.out);
            const Read last(pair.in);
            if (armed && kind == "terminal")
                pair.put("\x04");
            else
                closeHandle(pair.out);
            EXPECT_EQ(last.end(), End(ERROR_BROKEN_PIPE, 0));
            EXPECT_EQ(fcntl(pair.fds[0], F_GETFL), flags[0]);
        }
    }
}

// A level that stays, such as a hang-up, would make every wait spin; a closed descriptor with a
// duplicate elsewhere keeps its place in epoll unless it is taken out.
TEST(Pipes, WhatNobodyWaitsForWakesNobody)
{
    Pair hungUp, closed;
    const int duplicate = dup(closed.fds[0]);
    const Read first(hungUp.in), second(closed.in);
    hungUp.put("x");
    EXPECT_EQ(first.end(), End(0, 1));
    closeHandle(closed.in);
    EXPECT_EQ(second.end(), End(ERROR_OPERATION_ABORTED, 0));
    closeHandle(hungUp.out);
    closed.put("x");
    const std::uint64_t before = systemCallCounts().waits;
    EXPECT_EQ(sleepEx(5), 0u);
    EXPECT_EQ(systemCallCounts().waits, before + 1);
    close(duplicate);
}

}  // namespace
}  // namespace platform
