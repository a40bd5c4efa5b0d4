// Idle descriptors cost nothing. Counted in system calls, not in time.

#include "Support.h"

#include <algorithm>
#include <memory>

namespace platform {
namespace {

// One byte there and back, `rounds` times; gives what it cost.
SystemCallCounts costOfTalking(int rounds)
{
    RawPipe pipe;
    const Handle in = adoptDescriptor(pipe.reading);
    const Handle out = adoptDescriptor(pipe.writing);
    const SystemCallCounts before = systemCallCounts();
    for (int i = 0; i < rounds; ++i) {
        Read read(in);
        Write write(out, "x");
        while (!read.ended() || !write.ended())
            EXPECT_EQ(sleepEx(1000), WAIT_IO_COMPLETION);
    }
    const SystemCallCounts after = systemCallCounts();
    closeHandle(in);
    closeHandle(out);
    return {after.waits - before.waits, after.transfers - before.transfers};
}

void expectSameCost(const SystemCallCounts& alone)
{
    const SystemCallCounts crowded = costOfTalking(50);
    EXPECT_EQ(crowded.waits, alone.waits);
    EXPECT_EQ(crowded.transfers, alone.transfers);
    // Nobody wakes a wait: one system call a wait.
    const std::uint64_t before = systemCallCounts().waits;
    EXPECT_EQ(sleepEx(5), 0u);
    EXPECT_EQ(systemCallCounts().waits, before + 1);
}

std::size_t affordable(std::size_t wanted)
{
    return std::min<std::size_t>(wanted, (raiseDescriptorLimit() - 100) / 2);
}

TEST(Scale, IdleSocketsCostNothing)
{
    const std::size_t limit = affordable(10'000);
    const SystemCallCounts alone = costOfTalking(50);
    std::vector<SocketHandle> sockets;
    std::vector<std::unique_ptr<Receive>> receives;
    for (const std::size_t count : {std::min<std::size_t>(1'000, limit), limit}) {
        SCOPED_TRACE(count);
        while (sockets.size() < count) {
            sockets.push_back(udpSocket());
            ASSERT_NE(sockets.back(), SocketHandle::invalid) << wsaGetLastError();
            receives.push_back(std::make_unique<Receive>(sockets.back(), 16));
        }
        sleepEx(0);  // whatever registering them reports
        expectSameCost(alone);
    }
    for (const SocketHandle socket : sockets)
        closeSocket(socket);
    EXPECT_EQ(sleepEx(INFINITE), WAIT_IO_COMPLETION);
    EXPECT_TRUE(std::all_of(receives.begin(), receives.end(), [](const auto& receive) {
        return receive->endedWith(ERROR_OPERATION_ABORTED, 0);
    }));
}

TEST(Scale, IdleConnectionsCostNothing)
{
    const SystemCallCounts alone = costOfTalking(50);
    const SocketHandle listener = listen({loopback, 0}, 64);
    Endpoint local;
    ASSERT_EQ(getSockName(listener, &local), 0);
    std::vector<std::unique_ptr<Attempt>> attempts;
    std::vector<SocketHandle> accepted;
    std::vector<std::unique_ptr<Receive>> receives;
    while (attempts.size() < affordable(1'000)) {
        attempts.push_back(std::make_unique<Attempt>(local));
        ASSERT_TRUE(attempts.back()->finish());
        ASSERT_EQ(attempts.back()->codes[0], 0u);
        accepted.push_back(accept(listener, nullptr));
        receives.push_back(std::make_unique<Receive>(attempts.back()->socket, 16));
    }
    sleepEx(0);
    expectSameCost(alone);

    // They are not deaf, either.
    Send send(accepted[accepted.size() / 2], "you");
    const Receive& addressed = *receives[accepted.size() / 2];
    EXPECT_TRUE(waitUntil([&] { return addressed.ended() && send.ended(); }));
    EXPECT_EQ(addressed.text(), "you");

    attempts.clear();
    for (const SocketHandle socket : accepted)
        closeSocket(socket);
    closeSocket(listener);
    sleepEx(0);
}

TEST(Scale, SilentConnectsCostNothing)
{
    const SystemCallCounts alone = costOfTalking(50);
    // A listener whose queue is full answers nobody.
    RawListener silent(0);
    std::vector<std::unique_ptr<Attempt>> attempts;
    WaitList list;
    for (std::size_t i = 0; i < affordable(2'000); ++i) {
        attempts.push_back(std::make_unique<Attempt>(silent.endpoint));
        list.append(attempts.back()->handle);
    }
    // The first ones, for whom there is room.
    while (waitForMultipleObjectsEx(list, 100) == 0)
        list.removeSwapLast(0);
    expectSameCost(alone);
    const std::uint64_t before = systemCallCounts().waits;
    EXPECT_EQ(waitForMultipleObjectsEx(list, 5), WAIT_TIMEOUT);
    EXPECT_EQ(systemCallCounts().waits, before + 1);
    EXPECT_GT(list.size(), attempts.size() / 2);
}

}  // namespace
}  // namespace platform
