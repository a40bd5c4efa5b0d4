// Channels, and what passes on them.

#include "platform/Channel.h"
#include "platform/Process.h"

#include "Support.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>

namespace platform {
namespace {

using Received = Channel::Received;

struct Message {
    std::uint64_t number = 0;
    std::uint64_t more = 0;
};

int openDescriptors()
{
    int count = 0;
    for (int fd = 0; fd != 256; ++fd)
        count += fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
    return count;
}

// Two ends in this process.
struct Ends {
    Ends()
    {
        OwnedDescriptor end;
        EXPECT_TRUE(near.open(&end) && far.adopt(std::move(end)));
        list.append(far.ready());
        receive();
    }
    Received receive() { return far.receive(&message, sizeof message, &descriptors); }
    bool farIsSignalled() const { return waitForMultipleObjectsEx(list, 0) == 0; }

    Channel near;
    Channel far;
    WaitList list;
    Message message;
    std::vector<OwnedDescriptor> descriptors;
};

TEST(Channels, BringWholeMessagesWithTheirDescriptors)
{
    Ends ends;
    while (ends.farIsSignalled())
        EXPECT_EQ(ends.receive(), Received::nothing);
    Pipe pipe;
    ASSERT_TRUE(pipe.open());
    const int passed[] = {pipe.writing.get(), pipe.reading.get()};
    const Message sent{.number = 7, .more = 8};
    EXPECT_TRUE(ends.near.send(&sent, sizeof sent, passed));
    EXPECT_TRUE(ends.near.send(&sent, sizeof sent, {}));
    pipe = {};
    EXPECT_TRUE(ends.farIsSignalled());
    EXPECT_EQ(ends.receive(), Received::message);
    EXPECT_EQ(ends.message.more, 8U);
    ASSERT_EQ(ends.descriptors.size(), 2U);
    EXPECT_EQ(fcntl(ends.descriptors[0].get(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(write(ends.descriptors[0].get(), "x", 1), 1);
    char byte = 0;
    EXPECT_EQ(read(ends.descriptors[1].get(), &byte, 1), 1);
    EXPECT_TRUE(ends.farIsSignalled()) << "another one is there";
    EXPECT_EQ(ends.receive(), Received::message);
    EXPECT_TRUE(ends.descriptors.empty());
    EXPECT_EQ(ends.receive(), Received::nothing);
    EXPECT_FALSE(ends.farIsSignalled());
}

TEST(Channels, TellThatTheyAreFullAndWhenTheyAreNot)
{
    Ends ends;
    std::uint64_t count = 0;
    Message message;
    for (; ends.near.send(&message, sizeof message, {}); ++count)
        message.number = count + 1;
    EXPECT_EQ(getLastError(), ERROR_IO_PENDING);
    WaitList list;
    list.append(ends.near.ready());
    EXPECT_EQ(ends.near.receive(&message, sizeof message, &ends.descriptors), Received::nothing);
    EXPECT_EQ(waitForMultipleObjectsEx(list, 0), WAIT_TIMEOUT);
    for (std::uint64_t number = 0; number != count; ++number) {
        ASSERT_EQ(ends.receive(), Received::message);
        EXPECT_EQ(ends.message.number, number);
    }
    EXPECT_EQ(waitForMultipleObjectsEx(list, 20'000), 0U);
    EXPECT_TRUE(ends.near.send(&message, sizeof message, {}));
}

TEST(Channels, EndBehindTheirMessages)
{
    OwnedDescriptor end;
    Channel far;
    Message message;
    std::vector<OwnedDescriptor> descriptors;
    {
        Channel near;
        ASSERT_TRUE(near.open(&end));
        ASSERT_TRUE(near.send(&message, sizeof message, {}));
    }
    ASSERT_TRUE(far.adopt(std::move(end)));
    EXPECT_EQ(far.waitForMessage(&message, sizeof message, &descriptors), Received::message);
    EXPECT_EQ(far.waitForMessage(&message, sizeof message, &descriptors), Received::end);
    EXPECT_FALSE(far.send(&message, sizeof message, {}));
    EXPECT_EQ(getLastError(), ERROR_BROKEN_PIPE);
}

TEST(Channels, LeaveNothingOpenOfWhatTheyRefuse)
{
    Ends ends;
    const int before = openDescriptors();
    const std::array<int, 8> eight = {0, 0, 0, 0, 0, 0, 0, 0};
    const std::uint64_t shorter = 1;
    const Message longer[2];
    EXPECT_TRUE(ends.near.send(&shorter, sizeof shorter, eight));
    EXPECT_TRUE(ends.near.send(longer, sizeof longer, eight));
    for (int i = 0; i != 2; ++i) {
        EXPECT_EQ(ends.receive(), Received::failed);
        EXPECT_EQ(getLastError(), WSAEMSGSIZE);
    }
    EXPECT_EQ(openDescriptors(), before);
    const std::array<int, 9> nine{};
    EXPECT_FALSE(ends.near.send(&shorter, sizeof shorter, nine));
    EXPECT_EQ(getLastError(), ERROR_INVALID_PARAMETER);

    int sockets[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sockets), 0);
    Pipe pipe;
    ASSERT_TRUE(pipe.open());
    for (const int wrong : {sockets[0], sockets[1], pipe.reading.take(), pipe.writing.take(), -1}) {
        Channel channel;
        EXPECT_FALSE(channel.adopt(OwnedDescriptor(wrong)));
        EXPECT_EQ(getLastError(), ERROR_INVALID_HANDLE);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(Channels, LeadToAStartedProcessWhoseEndIsTold)
{
    Channel channel;
    OwnedDescriptor end;
    ASSERT_TRUE(channel.open(&end));
    // It says which descriptors it has; the last one is its own.
    int pid = -1;
    ASSERT_TRUE(startSibling("/bin/sh",
                             {"-c", "test \"$(echo $(ls /proc/self/fd))\" = '0 1 2 3 4' && exit 5"},
                             end, &pid));
    end.reset();
    const Handle ended = processEnd(pid);
    WaitList list;
    list.append(ended);
    EXPECT_EQ(waitForMultipleObjectsEx(list, 20'000), 0U);
    EXPECT_EQ(collectExit(pid).code, 5);
    closeHandle(ended);
    Message message;
    std::vector<OwnedDescriptor> descriptors;
    EXPECT_EQ(channel.receive(&message, sizeof message, &descriptors), Received::end);
    EXPECT_EQ(processEnd(pid), Handle::none);
    EXPECT_EQ(getLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_FALSE(startSibling("/nonexistent/program", {}, OwnedDescriptor(dup(0)), &pid));
    EXPECT_EQ(getLastError(), ERROR_FILE_NOT_FOUND);
}

}  // namespace
}  // namespace platform
