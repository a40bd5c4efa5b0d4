// The messenger between siblings that live in this one process, each with a FIFO and an area.
#include "io/Selector.h"
#include "io/sibling/Messenger.h"
#include "tests/io/Fakes.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <memory>
#include <sstream>
#include <vector>

namespace {

using fakes::put;
using fakes::take;
using fakes::thrown;
using io::ControlMessage;

constexpr std::uint64_t areaSize = 4096;

struct ParentSide : io::SiblingParentSide {
    void areaLeft(std::int32_t, std::int32_t) override {}
    void siblingIsUp(std::int32_t) override {}
    void requestPeer(std::int32_t target, std::int32_t requester) override
    {
        requests.emplace_back(target, requester);
    }
    std::vector<std::pair<std::int32_t, std::int32_t>> requests;
};

// Siblings 0 to 3; nobody is connected at first but the children with their parent.
class Group {
public:
    Group()
    {
        for (std::int32_t id = 0; id != 4; ++id) {
            Member& member = members.at(static_cast<std::size_t>(id));
            if (pipe2(member.fifo.data(), O_CLOEXEC | O_NONBLOCK) != 0)
                std::abort();
            member.messenger = std::make_unique<io::SiblingMessenger>(
                id, id == 0 ? &parentSide : nullptr, platform::adoptDescriptor(member.fifo[0]),
                region.data(), region.size(), static_cast<std::uint64_t>(id) * areaSize, areaSize);
            member.front = std::make_unique<fakes::Front>(member.messenger.get());
            selector.add(member.front.get(), id);
            parentSide.sibling_ids.push_back(id);
        }
        for (std::int32_t child = 1; child != 4; ++child) {
            connect(0, child);
            connect(child, 0);
        }
    }

    io::SiblingMessenger& operator[](std::size_t id) { return *members.at(id).messenger; }
    int writeEnd(std::size_t id) { return members.at(id).fifo[1]; }

    void connect(std::size_t from, std::int32_t to)
    {
        const int end = fcntl(writeEnd(static_cast<std::size_t>(to)), F_DUPFD_CLOEXEC, 0);
        (*this)[from].openFifo(to, platform::adoptDescriptor(end));
    }
    // Lets everybody act on what has come, until all is quiet.
    void settle()
    {
        for (int round = 0; round != 40; ++round) {
            platform::sleepEx(0);
            EXPECT_NE(thrown([&] { selector.pollImpl(true); }), "");
        }
    }
    io::OStream& out(std::size_t from, std::int32_t to)
    {
        return (*this)[from].findSibling(to)->ostream;
    }
    io::IStream& in(std::size_t at, std::int32_t from)
    {
        return *(*this)[at].findSibling(from)->istream;
    }
    // Leaves no room in the FIFO.
    void fill(std::size_t id)
    {
        const std::string filling(4096, '\x18');  // SiblingAt, from 0x18181818: no meaning
        while (write(writeEnd(id), filling.data(), filling.size()) > 0) {
        }
    }
    void kill(std::size_t id)
    {
        selector.remove(members.at(id).front.get());
        members.at(id).front.reset();
        members.at(id).messenger.reset();
    }
    // How many blocks of the area are used.
    int used(std::size_t id)
    {
        const io::SiblingMessenger& m = (*this)[id];
        int count = 0;
        for (std::uint64_t b = m.mastart; b != m.mastart + m.masize; b = m.nextOffset(b))
            count += m.isUsed(b) ? 1 : 0;
        return count;
    }

    ParentSide parentSide;

private:
    struct Member {
        std::array<int, 2> fifo{};
        std::unique_ptr<io::SiblingMessenger> messenger;
        std::unique_ptr<fakes::Front> front;
    };
    alignas(8) std::array<char, 4 * areaSize> region{};
    std::array<Member, 4> members;
    io::Selector<int> selector;
};

TEST(ControlMessages, HaveTheFormOfTheirKind)
{
    const struct {
        ControlMessage message;
        std::uint32_t word;
        const char* text;
    } rows[] = {
        {ControlMessage::ofOffset(ControlMessage::MessageAt, 4096, 2), 4097,
         "MessageAt(4096) [from:2]"},
        {ControlMessage::ofOffset(ControlMessage::AckMessageAt, 0xFFFFFFF8, -1), 0xFFFFFFFA,
         "AckMessageAt(4294967288) [from:-1]"},
        {ControlMessage::ofSibling(ControlMessage::RequestPeer, 1, 3), 0x100,
         "RequestPeer(1) [from:3]"},
        {ControlMessage::ofSibling(ControlMessage::SiblingDied, -2, 0), 0xFFFFFE38,
         "SiblingDied(-2) [from:0]"},
        {{.word = 5, .from = 1}, 5, "Undefined"},
        {{.word = 8, .from = 1}, 8, "Undefined"},
        {{.word = 0x140, .from = 1}, 0x140, "Undefined"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.message.word, row.word);
        EXPECT_EQ(row.message.toString(), row.text);
    }
}

TEST(Messenger, BringsMessagesInPlaceAndGetsTheirBlocksBack)
{
    Group group;
    put(group.out(1, 0), "first");
    put(group.out(2, 0), "from another");
    put(group.out(1, 0), "second");
    EXPECT_EQ(group.used(1), 2);
    group.settle();
    EXPECT_TRUE(group[0].some_sibling.isReady());
    EXPECT_EQ(group[0].nextSender(), 1);

    char* data = nullptr;
    EXPECT_EQ(group.in(0, 1).readBegin(&data), 5U);
    EXPECT_EQ(data, group[1].payload(group[1].mastart));
    group.in(0, 1).readCommit(2);
    group.settle();
    EXPECT_EQ(group.used(1), 2) << "acknowledged before it was used up";
    EXPECT_EQ(take(group.in(0, 1)), "rst");
    EXPECT_EQ(group[0].nextSender(), 2);
    EXPECT_EQ(take(group.in(0, 2)), "from another");
    EXPECT_EQ(take(group.in(0, 1)), "second");
    EXPECT_FALSE(group[0].some_sibling.isReady());
    EXPECT_EQ(thrown([&] { take(group.in(0, 1)); }), "Selectable SiblingIStream[1] not ready");
    group.settle();
    EXPECT_EQ(group.used(1) + group.used(2), 0);
    EXPECT_EQ(group[1].block_off, group[1].mastart);
    EXPECT_EQ(group[1].header(group[1].mastart).size, areaSize - 16);
}

TEST(Messenger, WritesOneMessageAtATime)
{
    Group group;
    char* first = nullptr;
    char* again = nullptr;
    group.out(0, 1).writeBegin(&first);
    EXPECT_DEATH(group.out(0, 2).writeBegin(&again), "Multiple OStreams writing");
    EXPECT_DEATH(group.out(0, 2).writeCommit(0), "Commit without an OStream writing");
    EXPECT_DEATH(group.out(0, 1).writeCommit(areaSize), "write offset 4096 above current block "
                                                        "size 4080 after adding 4096");
    group.out(0, 1).writeCommit(0);
    EXPECT_EQ(group.out(0, 1).writeBegin(&again), areaSize - 16);
    EXPECT_EQ(first, again);
    group.out(0, 1).writeCommit(0);
    put(group.out(0, 2), "to another, with nothing written to the first");
    group.settle();
    EXPECT_FALSE(group.in(1, 0).isReady());
    EXPECT_TRUE(group.in(2, 0).isReady());
}

TEST(Messenger, StopsAllWritersWhenItsAreaIsFull)
{
    Group group;
    EXPECT_EQ(put(group.out(0, 1), std::string(areaSize, 'x')), areaSize - 16);
    // Unconnected ones, too: they would write in the same area.
    EXPECT_EQ(put(group.out(1, 2), std::string(areaSize, 'x')), areaSize - 16);
    for (const auto& [from, to] : {std::pair{0U, 2}, {1U, 2}, {1U, 3}})
        EXPECT_EQ(thrown([&, from = from, to = to] { put(group.out(from, to), "no room"); }),
                  "Selectable SiblingOStream[" + std::to_string(to) + "] not ready");
    group.settle();
    EXPECT_EQ(take(group.in(1, 0)).size(), areaSize - 16);
    group.settle();
    EXPECT_EQ(put(group.out(0, 2), "room"), 4U);
}

TEST(Messenger, AnnouncesWhatWaitedForAConnection)
{
    Group group;
    put(group.out(1, 2), "one");
    put(group.out(1, 2), "two");
    group.settle();
    EXPECT_EQ(group.parentSide.requests,
              (std::vector<std::pair<std::int32_t, std::int32_t>>{{2, 1}, {2, 1}}));
    group.connect(2, 1);
    group.connect(1, 2);
    group.settle();
    EXPECT_EQ(take(group.in(2, 1)), "one");
    EXPECT_EQ(take(group.in(2, 1)), "two");
    group.settle();
    EXPECT_EQ(group.used(1), 0);
}

TEST(Messenger, HoldsTheOrderAcrossPeersAndNeverSplitsARecord)
{
    Group group;
    group.connect(1, 2);
    group.connect(1, 3);
    group.connect(2, 1);
    group.connect(3, 1);
    put(group.out(2, 1), "to be acknowledged");
    group.settle();
    // Nothing that comes behind a message for 2 may leave.
    group.fill(2);
    put(group.out(1, 2), "for 2");
    put(group.out(1, 3), "for 3");
    EXPECT_EQ(take(group.in(1, 2)), "to be acknowledged");
    platform::sleepEx(0);
    group[3].drainIncoming();
    EXPECT_FALSE(group.in(3, 1).isReady());
    group.settle();
    EXPECT_EQ(take(group.in(2, 1)), "for 2");
    EXPECT_EQ(take(group.in(3, 1)), "for 3");
    group.settle();
    EXPECT_EQ(group.used(1) + group.used(2), 0);
}

TEST(Messenger, TellsTheEndOfAParentBehindItsMessages)
{
    Group group;
    put(group.out(0, 1), "last words");
    put(group.out(1, 0), "never read");
    group[1].drainIncoming();
    group[1].siblingGone(group[1].findSibling(0));
    group[1].siblingGone(group[1].findSibling(0));
    EXPECT_EQ(group[1].nextSender(), 0);
    EXPECT_EQ(take(group.in(1, 0)), "last words");
    EXPECT_EQ(thrown([&] { take(group.in(1, 0)); }),
              "EOS from SiblingIStream[0] (readBegin encountered the null message)");
    group[1].sibling(0).dropNullMessage();
    EXPECT_FALSE(group[1].some_sibling.isReady()) << "a second null message";
    EXPECT_EQ(thrown([&] { put(group.out(1, 0), "late"); }),
              "EOS from SiblingOStream[0] (Write to failed process)");
    EXPECT_EQ(group.used(1), 0);
    EXPECT_NO_THROW(put(group.out(1, 2), "to whom nobody leads any more"));
}

// The broken FIFO can be noticed first.
TEST(Messenger, TellsTheEndOfAChildBehindWhatIsStillOnItsWay)
{
    Group group;
    put(group.out(1, 0), "last words");
    group[0].siblingGone(group[0].findSibling(1));
    EXPECT_EQ(take(group.in(0, 1)), "last words");
    EXPECT_EQ(thrown([&] { take(group.in(0, 1)); }),
              "EOS from SiblingIStream[1] (readBegin encountered the null message)");
}

TEST(Messenger, FreesWhatALostSiblingHadNotRead)
{
    Group group;
    for (const int peer : {2, 3}) {
        group.connect(1, peer);
        group.connect(static_cast<std::size_t>(peer), 1);
    }
    put(group.out(1, 3), "unread");
    put(group.out(3, 1), "read after the end of its writer");
    while (group[1].block_off != io::SiblingArea::noBlock)
        put(group.out(1, 2), "fill it up");
    const int before = group.used(1);
    group.settle();
    group.kill(3);
    group[0].siblingGone(group[0].findSibling(3));
    group.settle();
    EXPECT_EQ(group.used(1), before - 1);
    EXPECT_TRUE(group.out(1, 2).isReady());
    EXPECT_EQ(take(group.in(1, 3)), "read after the end of its writer");
    EXPECT_EQ(thrown([&] { take(group.in(0, 3)); }),
              "EOS from SiblingIStream[3] (readBegin encountered the null message)");
    // Nobody reads its FIFO: a writer learns of the loss by itself as well.
    put(group.out(2, 0), "x");
    group.settle();
    EXPECT_EQ(take(group.in(0, 2)), "x");
}

TEST(Messenger, LetsAChildGoWhenNothingIsLeftBetweenItAndItsPeers)
{
    Group group;
    group.connect(1, 2);
    group.connect(2, 1);
    put(group.out(1, 2), "before the shutdown");
    put(group.out(2, 1), "unread");
    group.settle();
    group[1].shutDown();
    group.settle();
    EXPECT_EQ(thrown([&] { put(group.out(1, 2), "x"); }),
              "EOS from SiblingOStream[2] (Write to non-parent disabled during shutdown)");
    EXPECT_FALSE(group.out(2, 1).isReady());
    put(group.out(1, 0), "to the parent");
    EXPECT_EQ(take(group.in(2, 1)), "before the shutdown");
    group.settle();
    EXPECT_FALSE(group[1].isShutdownAcknowledged()) << "it could still be reading";
    EXPECT_EQ(take(group.in(1, 2)), "unread");
    group.settle();
    EXPECT_TRUE(group[1].isShutdownAcknowledged());
    EXPECT_EQ(thrown([&] { put(group.out(1, 0), "x"); }),
              "EOS from SiblingOStream[0] (Write disabled due to acknowledged shutdown)");
    EXPECT_EQ(take(group.in(0, 1)), "to the parent");
    EXPECT_FALSE(group[2].isConnected(1));
    // It ends as agreed, so nobody is told that it died.
    std::ostringstream trace;
    io::SiblingMessenger::trace = &trace;
    group[0].siblingGone(group[0].findSibling(1));
    io::SiblingMessenger::trace = nullptr;
    EXPECT_EQ(trace.str().find("SiblingDied"), std::string::npos) << trace.str();
}

TEST(Messenger, ShutsDownBehindWhatWaitsForAConnection)
{
    for (const bool isConnectedLast : {false, true}) {
        Group group;
        put(group.out(1, 2), "to be connected");
        put(group.out(1, 3), "to nobody");
        group[1].shutDown();
        for (const bool connects : {!isConnectedLast, isConnectedLast}) {
            group.settle();
            EXPECT_TRUE(group.parentSide.shutdown_waits.empty());
            if (connects)
                group.connect(1, 2);
            else
                group[1].siblingGone(group[1].findSibling(3));
        }
        group.settle();
        EXPECT_TRUE(group.parentSide.shutdown_waits[1].contains(2));
        EXPECT_EQ(take(group.in(2, 1)), "to be connected");
        group.settle();
        EXPECT_TRUE(group[1].isShutdownAcknowledged());
    }
}

TEST(Messenger, ShutsDownWithoutAParent)
{
    Group group;
    put(group.out(2, 3), "to be connected by nobody");
    group[2].siblingGone(group[2].findSibling(0));
    group[2].shutDown();
    EXPECT_TRUE(group[2].isShutdownAcknowledged());
}

TEST(Messenger, LetsAChildGoWhenTheLastAcknowledgementHasLeft)
{
    for (const std::size_t full : {2U, 3U}) {
        Group group;
        group.connect(1, 3);
        group.connect(1, 2);
        group.connect(3, 1);
        put(group.out(3, 1), "to be acknowledged");
        group[3].shutDown();
        for (const std::size_t id : {0U, 1U, 2U, 0U})
            group[id].drainIncoming();
        group.fill(full);
        put(group.out(1, 2), "holds all back if there is no room for it");
        EXPECT_EQ(take(group.in(1, 3)), "to be acknowledged");
        group[0].drainIncoming();
        EXPECT_TRUE(group.parentSide.shutdown_waits[3].contains(1));
        group.settle();
        EXPECT_TRUE(group[3].isShutdownAcknowledged());
        EXPECT_EQ(group.used(3), 0);
    }
}

// Who asks for a connection when the other's shutdown has begun is told that the other is dead.
TEST(Messenger, LetsAChildGoThatCouldNotBeReachedAnyMore)
{
    Group group;
    put(group.out(2, 1), "never announced");
    group[1].shutDown();
    group.settle();
    EXPECT_FALSE(group[1].isShutdownAcknowledged());
    group[0].deliver(group[0].findSibling(2),
                     ControlMessage::ofSibling(ControlMessage::SiblingDied, 1, 0));
    group.settle();
    EXPECT_TRUE(group[1].isShutdownAcknowledged());
    EXPECT_EQ(group.used(2), 0);
}

TEST(Messenger, TellsOfADeathInTheMiddleOfAShutdown)
{
    Group group;
    group.connect(1, 2);
    group.connect(2, 1);
    put(group.out(2, 1), "never read");
    group[1].shutDown();
    group.settle();
    group[0].siblingGone(group[0].findSibling(1));
    group.settle();
    EXPECT_EQ(group.used(2), 0);
}

TEST(Messenger, CountsALostPeerAsAnAnswer)
{
    Group group;
    put(group.out(0, 2), "x");
    group[1].shutDown();
    group[0].drainIncoming();
    group[3].drainIncoming();
    group[0].drainIncoming();
    EXPECT_FALSE(group[1].isShutdownAcknowledged());
    group[0].siblingGone(group[0].findSibling(2));
    group[1].drainIncoming();
    EXPECT_TRUE(group[1].isShutdownAcknowledged());
}

TEST(Messenger, RefusesRecordsThatNameNoMessage)
{
    const struct {
        ControlMessage record;
        std::uint64_t flags;  // of the block at 4096
        std::uint64_t size;
        const char* text;
    } rows[] = {
        {ControlMessage::ofOffset(ControlMessage::MessageAt, 16384, 1), 1, 8,
         "Offset out of range: 16384 !< 16384"},
        {ControlMessage::ofOffset(ControlMessage::MessageAt, 16376, 1), 1, 8,
         "Offset out of range: 16391 !< 16384"},
        {ControlMessage::ofOffset(ControlMessage::MessageAt, 4096, 1), 0, 8, "holds no message"},
        {ControlMessage::ofOffset(ControlMessage::MessageAt, 4096, 1), 1, 0, "holds no message"},
        {ControlMessage::ofOffset(ControlMessage::MessageAt, 4096, 1), 1, 12273,
         "Offset out of range: 4096 . 16 . 12273 !< 16384"},
        {ControlMessage::ofOffset(ControlMessage::MessageAt, 4096, 1), 1, ~std::uint64_t{0},
         "Offset out of range"},
        {ControlMessage::ofOffset(ControlMessage::AckMessageAt, 64, 1), 0, 8,
         "No message awaits AckMessageAt.64. .from:1."},
        {ControlMessage::ofOffset(ControlMessage::AckMessageAt, 1 << 20, 1), 0, 8,
         "Offset out of range: 1048576 !< 16384"},
        {{.word = 6, .from = 1}, 0, 8, "Undefined control message 00000006 .from:1."},
    };
    for (const auto& row : rows) {
        Group group;
        group[1].header(areaSize) = {.prev_offset = areaSize | row.flags, .size = row.size};
        ASSERT_EQ(write(group.writeEnd(0), &row.record, 8), 8);
        EXPECT_DEATH(group[0].drainIncoming(), row.text) << row.record.toString();
    }
}

TEST(Messenger, KeepsTheRestOfARecord)
{
    Group group;
    const ControlMessage record = ControlMessage::ofSibling(ControlMessage::RequestPeer, 3, 2);
    char bytes[8];
    std::memcpy(bytes, &record, sizeof bytes);
    for (const char byte : bytes) {
        EXPECT_TRUE(group.parentSide.requests.empty());
        ASSERT_EQ(write(group.writeEnd(0), &byte, 1), 1);
        group[0].drainIncoming();
    }
    EXPECT_EQ(group.parentSide.requests.size(), 1U);
}

}  // namespace
