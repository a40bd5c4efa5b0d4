// Wait lists and the waits.

#include "Support.h"

#include "platform/Clock.h"

#include <csignal>
#include <fcntl.h>
#include <sys/time.h>

#include <algorithm>
#include <memory>
#include <random>

namespace platform {
namespace {

// Over at the next wait.
struct OverSoon : Attempt {
    OverSoon() : Attempt(Endpoint{0, 80}) {}
};

// Never over: a listener whom nobody calls.
struct Never {
    Never() : listener(listen({loopback, 0}, 1)), handle(acceptReady(listener)) {}
    ~Never() { closeSocket(listener); }
    Never(const Never&) = delete;
    Never& operator=(const Never&) = delete;

    SocketHandle listener;
    Handle handle;
};

std::int64_t nowMs()
{
    std::int64_t count = 0;
    std::int64_t frequency = 1;
    queryPerformanceCounter(&count);
    queryPerformanceFrequency(&frequency);
    return count / (frequency / 1000);
}

TEST(Waits, TimeOuts)
{
    const Never never;
    WaitList list;
    list.append(never.handle);
    EXPECT_EQ(waitForMultipleObjectsEx(list, 0), WAIT_TIMEOUT);
    EXPECT_EQ(waitForMultipleObjectsEx(WaitList(), 0), WAIT_TIMEOUT);
    EXPECT_EQ(sleepEx(0), 0u);
    const std::int64_t start = nowMs();
    EXPECT_EQ(waitForMultipleObjectsEx(list, 30), WAIT_TIMEOUT);
    EXPECT_GE(nowMs() - start, 30);
}

TEST(Waits, ASignalDoesNotEndThem)
{
    static volatile std::sig_atomic_t alarms = 0;
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = [](int) {
        alarms = alarms + 1;
    };
    sigaction(SIGALRM, &action, &before);
    const itimerval every{{0, 5'000}, {0, 5'000}};
    const itimerval off{};
    setitimer(ITIMER_REAL, &every, nullptr);
    const std::int64_t start = nowMs();
    EXPECT_EQ(sleepEx(50), 0u);
    EXPECT_GE(nowMs() - start, 50);
    setitimer(ITIMER_REAL, &off, nullptr);
    sigaction(SIGALRM, &before, nullptr);
    EXPECT_GT(alarms, 0);
}

TEST(Waits, TheLongestLimitsAreTaken)
{
    RawPipe pipe;
    const Handle in = adoptDescriptor(pipe.reading);
    for (const std::uint32_t limit : {0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFEu, INFINITE}) {
        Read read(in);
        ASSERT_EQ(write(pipe.writing, "x", 1), 1);
        EXPECT_EQ(sleepEx(limit), WAIT_IO_COMPLETION) << limit;
    }
    closeHandle(in);
    close(pipe.writing);
}

TEST(Waits, ASignalledHandleComesBeforeCompletions)
{
    const OverSoon over;
    WaitList list;
    list.append(over.handle);
    RawPipe pipe;
    const Handle out = adoptDescriptor(pipe.writing);
    Write write(out, "x");
    EXPECT_EQ(waitForMultipleObjectsEx(list, INFINITE), 0u);
    EXPECT_FALSE(write.ended());
    list.removeSwapLast(0);
    EXPECT_EQ(waitForMultipleObjectsEx(list, INFINITE), WAIT_IO_COMPLETION);
    EXPECT_TRUE(write.ended());
    closeHandle(out);
    close(pipe.reading);
}

TEST(Waits, WhatConcernsOthersDoesNotEndThem)
{
    const Never never;
    WaitList mine;
    mine.append(never.handle);
    const OverSoon over;
    WaitList theirs;
    theirs.append(over.handle);
    // A datagram that nobody receives, as well.
    const SocketHandle udp = udpSocket();
    Endpoint local;
    ASSERT_EQ(bind(udp, {loopback, 0}), 0);
    ASSERT_EQ(getSockName(udp, &local), 0);
    Op op;
    ASSERT_EQ(wsaSendTo(udp, "x", 1, local, &op.overlapped, &Op::routine), 0);
    EXPECT_EQ(waitForMultipleObjectsEx(mine, 10), WAIT_IO_COMPLETION);

    EXPECT_EQ(waitForMultipleObjectsEx(mine, 10), WAIT_TIMEOUT);
    EXPECT_TRUE(over.isOver());  // told all the same
    EXPECT_EQ(waitForMultipleObjectsEx(theirs, 0), 0u);
    closeSocket(udp);
}

TEST(Waits, ABusyStreamDoesNotKeepTheOthersWaiting)
{
    RawPipe pipe;
    const Handle in = adoptDescriptor(pipe.reading);
    Read quiet(in);
    const Handle zero = adoptDescriptor(open("/dev/zero", O_RDONLY));
    Op busy;
    char byte = 0;
    busy.then = [&] {
        readFileEx(zero, &byte, 1, &busy.overlapped, &Op::routine);
    };
    busy.then();
    EXPECT_EQ(sleepEx(INFINITE), WAIT_IO_COMPLETION);
    ASSERT_EQ(write(pipe.writing, "x", 1), 1);
    EXPECT_EQ(sleepEx(INFINITE), WAIT_IO_COMPLETION);  // although the queue was not empty
    EXPECT_TRUE(quiet.ended());
    busy.then = nullptr;
    closeHandle(zero);
    closeHandle(in);
    sleepEx(0);
    close(pipe.writing);
}

// ---- Lists

TEST(WaitLists, TheLowestSignalledIndexAfterAnyChanges)
{
    // Against a plain vector that is searched from its start.
    struct Member {
        Handle handle;
        bool signalled;
    };
    std::vector<std::unique_ptr<OverSoon>> over(12);
    std::vector<std::unique_ptr<Never>> never(12);
    std::vector<Member> objects;
    for (std::unique_ptr<OverSoon>& object : over) {
        object = std::make_unique<OverSoon>();
        objects.push_back({object->handle, true});
    }
    for (std::unique_ptr<Never>& object : never) {
        object = std::make_unique<Never>();
        objects.push_back({object->handle, false});
    }
    EXPECT_EQ(sleepEx(0), 0u);  // tells the ends

    struct Pair {
        WaitList list;
        std::vector<Member> model;
    };
    std::vector<Pair> pairs(3);
    std::mt19937 random(1);  // NOLINT: the same steps in every run
    const auto below = [&](std::size_t limit) {
        return random() % limit;
    };
    for (int step = 0; step < 3000; ++step) {
        Pair& pair = pairs[below(pairs.size())];
        if (pair.model.size() < 30 && below(100) < 52) {
            // An object may stand in a list twice.
            const Member& member = objects[below(objects.size())];
            pair.list.append(member.handle);
            pair.model.push_back(member);
        } else if (!pair.model.empty()) {
            const std::size_t index = below(pair.model.size());
            pair.list.removeSwapLast(index);
            pair.model[index] = pair.model.back();
            pair.model.pop_back();
        }
        const auto first = std::find_if(pair.model.begin(), pair.model.end(),
                                        [](const Member& member) { return member.signalled; });
        const std::uint32_t expected = first == pair.model.end()
                                           ? WAIT_TIMEOUT
                                           : static_cast<std::uint32_t>(first - pair.model.begin());
        ASSERT_EQ(waitForMultipleObjectsEx(pair.list, 0), expected) << "step " << step;
        ASSERT_EQ(pair.list.size(), pair.model.size());
        for (std::size_t i = 0; i < pair.model.size(); ++i)
            ASSERT_EQ(pair.list[i], pair.model[i].handle);
    }
}

TEST(WaitLists, ObjectAndListEndInAnyOrder)
{
    auto list = std::make_unique<WaitList>();
    WaitList other;
    auto outlivesTheList = std::make_unique<OverSoon>();
    auto endsFirst = std::make_unique<OverSoon>();
    for (WaitList* each : {list.get(), &other}) {
        each->append(outlivesTheList->handle);
        each->append(endsFirst->handle);
    }
    endsFirst.reset();
    EXPECT_EQ(waitForMultipleObjectsEx(*list, 0), WAIT_FAILED);
    EXPECT_EQ(getLastError(), ERROR_INVALID_HANDLE);
    list.reset();
    other.removeSwapLast(1);
    EXPECT_EQ(waitForMultipleObjectsEx(other, 0), 0u);
    outlivesTheList.reset();
    other.removeSwapLast(0);
    EXPECT_TRUE(other.empty());
    EXPECT_EQ(waitForMultipleObjectsEx(other, 0), WAIT_TIMEOUT);
}

TEST(WaitLists, AStaleHandleIsAnError)
{
    Handle stale = Handle::none;
    {
        const OverSoon gone;
        stale = gone.handle;
    }
    const OverSoon inItsPlace;
    WaitList list;
    list.append(stale);
    EXPECT_EQ(waitForMultipleObjectsEx(list, 0), WAIT_FAILED);
    list.removeSwapLast(0);
    EXPECT_EQ(waitForMultipleObjectsEx(list, 0), WAIT_TIMEOUT);
}

}  // namespace
}  // namespace platform
