// The queue to the parent over real pipes, and the link as a whole over the standard streams.

#include "queues/childqueue.h"

#include "common/errors.h"
#include "common/log.h"
#include "io/Pipe.h"
#include "io/Selector.h"
#include "queues/Parent.h"
#include "queues/records/control.h"
#include "tests/queues/MemoryStreams.h"
#include "tests/queues/frames.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using frames::encode;
using queues::devent;
using queues::event;
using queues::queue_t;

using IntEvent = devent<queues::LIST_METRICS, std::int32_t>;

struct PipeEnds {
    PipeEnds()
    {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            throw std::runtime_error("pipe2");
        reading = ends[0];
        writing = ends[1];
    }
    int reading;
    int writing;
};

void writeAll(int fd, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t n = write(fd, bytes.data(), bytes.size());
        ASSERT_GT(n, 0);
        bytes.remove_prefix(static_cast<std::size_t>(n));
    }
}

// What lies in the pipe now.
std::string readAvailable(int fd)
{
    fcntl(fd, F_SETFL, O_NONBLOCK);
    std::string bytes;
    char block[4096];
    for (ssize_t n; (n = read(fd, block, sizeof block)) > 0;)
        bytes.append(block, static_cast<std::size_t>(n));
    return bytes;
}

// Opens what a blocking request would use.
class OpenQueue : public queues::childqueue {
public:
    using childqueue::childqueue;
    using childqueue::next_serial;

    void putAside(const event& e)
    {
        pending.push_back(e.clone());
        pending_index.emplace(e.inresponse, static_cast<std::int32_t>(e.dest));
    }
    void forgetIndex() { pending_index.clear(); }
};

class ChildQueue : public testing::Test {
protected:
    ~ChildQueue() override { closeParentsEnds(); }

    void closeParentsEnds()
    {
        if (toChild.writing >= 0)
            close(toChild.writing);
        if (fromChild.reading >= 0)
            close(fromChild.reading);
        toChild.writing = fromChild.reading = -1;
    }
    std::int32_t receiveValue()
    {
        std::unique_ptr<event> e;
        queue.receive(e);
        return frames::payload<IntEvent>(e);
    }
    // Waits until the selector hands the front out.
    void pollFront() { EXPECT_EQ(selector.poll().first, queue.inputFront()); }
    static std::string frame(std::int32_t value)
    {
        return encode(IntEvent(queue_t::main, value, value));
    }

    PipeEnds toChild;
    PipeEnds fromChild;
    io::PipeIStream input{"in", platform::adoptDescriptor(toChild.reading)};
    io::PipeOStream output{"out", platform::adoptDescriptor(fromChild.writing)};
    protocol::ioprim link{&input, &output};
    OpenQueue queue{&link};
    io::Selector<int> selector;
};

TEST_F(ChildQueue, hasANamedFront)
{
    EXPECT_EQ(queue.inputFront()->name(), "parentqueue.in");
    EXPECT_FALSE(queue.inputFront()->isReady());
}

TEST_F(ChildQueue, givesOneEventAtATime)
{
    selector.add(queue.inputFront(), 1);
    writeAll(toChild.writing, frame(10) + frame(11) + frame(12).substr(0, 5));
    pollFront();
    EXPECT_TRUE(queue.inputFront()->isReady());
    EXPECT_EQ(receiveValue(), 10);
    EXPECT_FALSE(queue.inputFront()->isReady()) << "others must get their turn";
    pollFront();
    EXPECT_EQ(receiveValue(), 11);

    // The third frame is begun: receive waits for the rest of it.
    pollFront();
    std::thread parent([&] { writeAll(toChild.writing, frame(12).substr(5)); });
    EXPECT_EQ(receiveValue(), 12);
    parent.join();
    EXPECT_FALSE(queue.inputFront()->isReady());
}

TEST_F(ChildQueue, staysReadyAtTheEndOfTheInput)
{
    for (const std::size_t begun : {std::size_t{7}, std::size_t{0}}) {
        SCOPED_TRACE(begun);
        if (begun != 0) {
            selector.add(queue.inputFront(), 1);
            writeAll(toChild.writing, frame(1).substr(0, begun));
            closeParentsEnds();
        }
        pollFront();
        std::unique_ptr<event> e;
        EXPECT_THROW(queue.receive(e), io::EEndOfStream);
        EXPECT_EQ(e, nullptr);
        EXPECT_TRUE(queue.inputFront()->isReady());
    }
    // The stream is no longer watched: the selector would refuse one that it knows already.
    selector.add(&input, 2);
    selector.remove(&input);
    selector.remove(queue.inputFront());
}

TEST_F(ChildQueue, givesWhatWasPutAsideFirst)
{
    selector.add(queue.inputFront(), 1);
    writeAll(toChild.writing, frame(3));
    pollFront();
    queue.putAside(IntEvent(queue_t::schd, 7, 1));
    queue.putAside(IntEvent(queue_t::main, 5, 2));
    EXPECT_EQ(receiveValue(), 1);
    EXPECT_TRUE(queue.inputFront()->isReady()) << "one more is pending";
    EXPECT_EQ(receiveValue(), 2);
    EXPECT_FALSE(queue.inputFront()->isReady());
    pollFront();
    EXPECT_EQ(receiveValue(), 3);
}

using ChildQueueDeathTest = ChildQueue;

TEST_F(ChildQueueDeathTest, assertsItsRules)
{
    EXPECT_DEATH(queue.underlyingIsReady(&output),
                 "^Assertion failed: childqueue::underlyingIsReady got wrong Selectable\n");
    queue.putAside(IntEvent(queue_t::schd, 7, 1));
    queue.forgetIndex();
    EXPECT_DEATH(receiveValue(), "^Assertion failed: Corrupted index set\n");
}

TEST_F(ChildQueue, serialsWrapAroundZero)
{
    EXPECT_EQ(queue.nextSerial(), 2);
    EXPECT_EQ(queue.nextSerial(), 3);
    queue.next_serial = std::numeric_limits<std::int32_t>::max();
    EXPECT_EQ(queue.nextSerial(), std::numeric_limits<std::int32_t>::min());
    queue.next_serial = -1;
    EXPECT_EQ(queue.nextSerial(), 1);
}

TEST_F(ChildQueue, whatIsSentHasLeft)
{
    queue.send(IntEvent(queue_t::none, 0, 9));
    EXPECT_EQ(readAvailable(fromChild.reading),
              frames::unhex("14 00 00 00  FF FF FF FF  00 00 00 00  00 00 00 00  09 00 00 00"));
}

TEST_F(ChildQueue, aLogLineIsAnEventToMain)
{
    setLogQueue(&queue);
    log("netcheck is alive", logOrdinary);
    log("", logTrace);
    setLogQueue(nullptr);
    EXPECT_EQ(readAvailable(fromChild.reading),
              frames::unhex("04 00 00 00  00 00 00 00  02 00 00 00  00 00 00 00"
                            "11 00 00 00 00 00 00 00"
                            "6E 65 74 63 68 65 63 6B 20 69 73 20 61 6C 69 76 65  00 00 00 00"
                            "04 00 00 00  00 00 00 00  03 00 00 00  00 00 00 00"
                            "00 00 00 00 00 00 00 00  00 04 00 00"));
}

TEST_F(ChildQueue, anEventCostsOneWrite)
{
    queue.send(IntEvent(queue_t::none, 0, 9));
    const auto before = platform::systemCallCounts();
    for (std::int32_t i = 0; i < 100; ++i)
        queue.send(IntEvent(queue_t::none, 0, i));
    EXPECT_EQ(platform::systemCallCounts().transfers - before.transfers, 100U);
}

// Longer than the pipe and the stream's buffer: the send waits until the parent has read.
TEST_F(ChildQueue, aLongEventGoesOutWhileTheParentReads)
{
    const devent<queues::RETURN_PURE_ENTROPY, std::string> e(queue_t::main, 0,
                                                             std::string(300000, 'e'));
    std::string received;
    std::thread parent([&] {
        char block[4096];
        const std::size_t wanted = encode(e).size();
        for (ssize_t n;
             received.size() < wanted && (n = read(fromChild.reading, block, sizeof block)) > 0;)
            received.append(block, static_cast<std::size_t>(n));
    });
    queue.send(e);
    parent.join();
    EXPECT_TRUE(received == encode(e));
}

TEST_F(ChildQueue, aDeadParentIsNoticedOneEventLater)
{
    closeParentsEnds();
    EXPECT_NO_THROW(queue.send(IntEvent(queue_t::none, 0, 9)));
    for (int turn = 0; turn < 2; ++turn)
        EXPECT_THROW(queue.send(IntEvent(queue_t::none, 0, 9)), error::ESystemError);
}

struct Kinds : io::BareSelector {
    static bool isManaged(const io::Selectable& s) { return kindOf(s) == Kind::managed; }
};

// The standard streams, once a process: a closed one is gone for good.
TEST(Parent, joinsTheStandardStreams)
{
    PipeEnds toChild;
    PipeEnds fromChild;
    const int savedInput = dup(STDIN_FILENO);
    const int savedOutput = dup(STDOUT_FILENO);
    dup2(toChild.reading, STDIN_FILENO);
    dup2(fromChild.writing, STDOUT_FILENO);
    close(toChild.reading);
    close(fromChild.writing);

    const std::string frames = encode(IntEvent(queue_t::main, 1, 1)) +
                               encode(queues::exevent(queue_t::schd, 2, "text")) +
                               encode(IntEvent(queue_t::none, 3, 3));
    writeAll(toChild.writing, frames);
    close(toChild.writing);

    // Echoes until the end.
    bool ended = false;
    int echoed = 0;
    bool managed = false;
    {
        protocol::Parent parent;
        managed = Kinds::isManaged(parent);
        queues::childqueue queue(&parent);
        io::Selector<int> selector;
        selector.add(queue.inputFront(), 1);
        while (!ended) {
            selector.poll();
            try {
                std::unique_ptr<event> e;
                queue.receive(e);
                queue.send(*e);
                ++echoed;
            } catch (const io::EEndOfStream&) {
                ended = true;
            }
        }
    }
    const std::string sent = readAvailable(fromChild.reading);
    close(fromChild.reading);
    dup2(savedInput, STDIN_FILENO);
    dup2(savedOutput, STDOUT_FILENO);
    close(savedInput);
    close(savedOutput);
    EXPECT_TRUE(managed) << "each of its waits would ask the link";
    EXPECT_EQ(echoed, 3);
    EXPECT_EQ(sent, frames);
}

}  // namespace
