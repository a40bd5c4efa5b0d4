// The queue to the parent over real pipes.
#include "queues/childqueue.h"

#include "io/Pipe.h"
#include "io/Selector.h"
#include "tests/queues/frames.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <thread>
#include <utility>

namespace {

using namespace queues;

using IntEvent = devent<LIST_METRICS, std::int32_t>;

// Opens what a blocking request would use.
class OpenQueue : public childqueue {
public:
    using childqueue::childqueue;
    using childqueue::next_serial;

    void putAside(const event& e)
    {
        pending.push_back(e.clone());
        pending_index.emplace(e.inresponse, static_cast<std::int32_t>(e.dest));
    }
};

class ChildQueue : public testing::Test {
protected:
    ChildQueue() { selector.add(queue.inputFront(), 1); }
    ~ChildQueue() override { close(ends[1]); }

    void parentWrites(const std::string& bytes) const
    {
        EXPECT_EQ(write(ends[1], bytes.data(), bytes.size()), std::ssize(bytes));
    }
    // Waits until the selector hands the front out.
    void pollFront() { EXPECT_EQ(selector.poll().first, queue.inputFront()); }
    std::int32_t receiveValue()
    {
        std::unique_ptr<event> e;
        queue.receive(e);
        return dynamic_cast<const IntEvent&>(*e).data;
    }
    static std::string frame(std::int32_t value)
    {
        return frames::written<event>(IntEvent(queue_t::main, value, value));
    }

    int ends[2] = {};
    int made = pipe2(ends, O_CLOEXEC);
    io::PipeIStream input{"in", platform::adoptDescriptor(ends[0])};
    protocol::ioprim link{&input, nullptr};
    OpenQueue queue{&link};
    io::Selector<int> selector;
};

TEST_F(ChildQueue, givesOneEventAtATime)
{
    parentWrites(frame(10) + frame(11) + frame(12).substr(0, 5));
    pollFront();
    queue.putAside(IntEvent(queue_t::schd, 7, 1));
    queue.putAside(IntEvent(queue_t::main, 5, 2));
    EXPECT_EQ(receiveValue(), 1);
    EXPECT_TRUE(queue.inputFront()->isReady()) << "one more was put aside";
    EXPECT_EQ(receiveValue(), 2);
    EXPECT_FALSE(queue.inputFront()->isReady());
    pollFront();
    EXPECT_EQ(receiveValue(), 10);
    EXPECT_FALSE(queue.inputFront()->isReady()) << "others must get their turn";
    pollFront();
    EXPECT_EQ(receiveValue(), 11);

    // The third frame is begun: receive waits for the rest of it.
    pollFront();
    std::thread parent([&] { parentWrites(frame(12).substr(5)); });
    EXPECT_EQ(receiveValue(), 12);
    parent.join();
}

TEST_F(ChildQueue, staysReadyAtTheEndOfTheInput)
{
    parentWrites(frame(1).substr(0, 7));
    close(std::exchange(ends[1], -1));
    for (int turn = 0; turn < 2; ++turn) {
        pollFront();
        EXPECT_THROW(receiveValue(), io::EEndOfStream);
        EXPECT_TRUE(queue.inputFront()->isReady());
    }
}

TEST_F(ChildQueue, keepsItsRules)
{
    EXPECT_EQ(queue.nextSerial(), 2);
    queue.next_serial = INT32_MAX;
    EXPECT_EQ(queue.nextSerial(), INT32_MIN);
    queue.next_serial = -1;
    EXPECT_EQ(queue.nextSerial(), 1);

    EXPECT_DEATH(queue.underlyingIsReady(queue.inputFront()),
                 "^Assertion failed: childqueue::underlyingIsReady got wrong Selectable\n");
}

}  // namespace
