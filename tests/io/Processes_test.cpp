// Siblings in processes of their own, which end at any moment.
#include "io/Selector.h"
#include "io/Timer.h"
#include "io/sibling/Child.h"
#include "io/sibling/Parent.h"
#include "tests/io/Fakes.h"
#include "tests/io/SiblingTraffic.h"
#include "tests/support/Process.h"

#include <gmock/gmock.h>

#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <map>
#include <set>

namespace {

using io::ControlMessage;
using traffic::Kind;

struct ChannelEnds {
    ChannelEnds()
    {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
            std::abort();
        ours.reset(ends[0]);
        theirs.reset(ends[1]);
    }
    platform::OwnedDescriptor ours;
    platform::OwnedDescriptor theirs;
};

// A parent whose children write to each other all the time.
class Group {
public:
    Group(const io::SiblingGroupSize& size, std::uint32_t largestMessage, std::uint32_t seed)
        : parent(size), traffic(&parent, seed), largest(largestMessage)
    {
        selector.add(&parent.some_sibling, 0);
        selector.add(&tick, 1);
        parent.childEnded = [this](std::int32_t id, platform::ExitStatus status) {
            living.erase(id);
            changed = true;
            if (killed.erase(id) != 0)
                EXPECT_TRUE(!status.signalled || status.code == SIGKILL) << status.code;
            else
                EXPECT_TRUE(!status.signalled && status.code == 0)
                    << "sibling " << id << ": " << status.code;
            ++ended;
        };
    }

    // Until there are so many children, if there are areas for them.
    void fillUp(std::size_t count)
    {
        try {
            while (living.size() < count) {
                const std::vector<std::string> arguments = {
                    "child", std::to_string(traffic.below(1000000)), std::to_string(largest)};
                living.insert(traffic.below(3) == 0 ? adopt(arguments)
                                                    : parent.start(SIBLING_PEER, arguments));
                changed = true;
            }
        } catch (const error::ESystemError& e) {
            EXPECT_NE(e.text().find("areas for children are in use"), std::string::npos)
                << e.text();
        }
    }
    // One step of everything: a message read, some written.
    void step()
    {
        tick.when = Time::now() + Time::millisecond + Time::millisecond;
        if (std::chrono::steady_clock::now() > limit)
            throw support::LimitPassed("Siblings hang");
        if (selector.poll().second == 0 && traffic.receive().isWhole)
            ++received;
        tellPeers();
        if (!stopped && !living.empty())
            traffic.sendFilling(any(), largest);
    }
    void kill(std::int32_t id)
    {
        killed.insert(id);
        ::kill(parent.pid(id), SIGKILL);
    }
    std::int32_t any()
    {
        auto place = living.begin();
        std::advance(place, traffic.below(static_cast<std::uint32_t>(living.size())));
        return *place;
    }
    // Tells all to stop, and waits for their ends.
    void stopAll()
    {
        stopped = true;
        untold = living;
        while (!living.empty()) {
            std::erase_if(untold, [this](std::int32_t id) {
                return !living.contains(id) || traffic.send(id, Kind::stop, "");
            });
            step();
        }
        stopped = false;
    }

    io::SiblingParent parent;
    traffic::Traffic traffic;
    std::set<std::int32_t> living;
    std::set<std::int32_t> killed;
    std::uint64_t received = 0;
    std::uint64_t ended = 0;
    support::Deadline limit = support::usualLimit();

private:
    // Who lives, to all that do. Those who find the parent's area full are told later.
    void tellPeers()
    {
        if (stopped)
            return;
        if (changed)
            untold = living;
        changed = false;
        std::erase_if(untold, [this](std::int32_t id) {
            return !living.contains(id) || traffic.send(id, Kind::peers, peersOf(id));
        });
    }
    std::string peersOf(std::int32_t id) const
    {
        std::vector<std::int32_t> ids = {0};
        std::copy_if(living.begin(), living.end(), std::back_inserter(ids),
                     [id](std::int32_t other) { return other != id; });
        std::string bytes(ids.size() * sizeof id, '\0');
        std::memcpy(bytes.data(), ids.data(), bytes.size());
        return bytes;
    }

    // A process that somebody else has started.
    std::int32_t adopt(const std::vector<std::string>& arguments)
    {
        ChannelEnds ends;
        int pid = -1;
        EXPECT_TRUE(platform::startSibling(SIBLING_PEER, arguments, ends.theirs, &pid));
        try {
            return parent.adopt(std::move(ends.ours), pid);
        } catch (...) {
            platform::killProcess(pid);
            platform::collectExit(pid);
            throw;
        }
    }

    io::Selector<int> selector;
    io::Timer tick;
    std::uint32_t largest;
    bool changed = false;
    bool stopped = false;
    std::set<std::int32_t> untold;
};

// How many children are killed, for longer runs by hand.
std::uint64_t wantedEnds()
{
    const char* const wanted = std::getenv("SIBLING_KILLS");
    return wanted ? std::strtoull(wanted, nullptr, 10) : 40;
}

TEST(SiblingProcesses, GoOnWhileOthersAreKilledAtAnyMoment)
{
    const struct {
        io::SiblingGroupSize size;
        std::uint32_t largest;
    } rows[] = {
        // Areas that are always full.
        {{.children = 6, .parentArea = 2048, .childArea = 1024}, 300},
        // More messages than a FIFO holds.
        {{.children = 6, .parentArea = 1 << 20, .childArea = 1 << 20}, 20},
        {{.children = 8, .parentArea = 1 << 16, .childArea = 1 << 18}, 20000},
    };
    std::uint32_t seed = 0;
    for (const auto& row : rows) {
        Group group(row.size, row.largest, ++seed);
        const std::size_t children = row.size.children - 2;
        std::int32_t paused = 0;
        group.limit += std::chrono::seconds(wantedEnds());
        while (group.ended < wantedEnds()) {
            group.fillUp(children);
            for (std::uint32_t i = group.traffic.below(200); i != 0; --i)
                group.step();
            if (group.living.empty())
                continue;
            if (paused != 0 && group.living.contains(paused))
                ::kill(group.parent.pid(paused), SIGCONT);
            const std::int32_t id = group.any();
            switch (group.traffic.below(6)) {
            case 0:  // its FIFO fills up
                paused = id;
                ::kill(group.parent.pid(id), SIGSTOP);
                break;
            case 1:
                group.traffic.send(id, Kind::stop, "");
                break;
            case 2:  // in the middle of its shutdown
                if (group.traffic.send(id, Kind::stop, ""))
                    group.step();
                if (group.living.contains(id))
                    group.kill(id);
                break;
            default:
                group.kill(id);
            }
        }
        if (group.living.contains(paused))
            ::kill(group.parent.pid(paused), SIGCONT);
        // Each child ends only when its area is one free block again.
        group.stopAll();
        EXPECT_TRUE(group.traffic.areaIsFree());
        EXPECT_GT(group.received, wantedEnds());
        // No area is lost: all can be used once more, by children that have no trouble.
        group.fillUp(row.size.children);
        EXPECT_EQ(group.living.size(), row.size.children);
        group.stopAll();
    }
}

// Children that are played here, record by record.
class PlayedChildren {
public:
    using Received = platform::Channel::Received;

    explicit PlayedChildren(std::uint32_t count)
        : parent({.children = count, .parentArea = 4096, .childArea = 64})
    {
        selector.add(&parent.some_sibling, 0);
        for (std::uint32_t i = 0; i != count; ++i) {
            ChannelEnds ends;
            const std::int32_t id = parent.adopt(std::move(ends.ours), getpid());
            EXPECT_TRUE(channels[id].adopt(std::move(ends.theirs)));
            EXPECT_EQ(receive(id), Received::message);
            EXPECT_TRUE(message.kind == io::ChannelMessage::welcome && message.id == id);
            fifos[id] = std::move(descriptors.at(1));
        }
        toParent = std::move(descriptors.at(2));
    }

    Received receive(std::int32_t id)
    {
        return channels[id].receive(&message, sizeof message, &descriptors);
    }
    void send(std::int32_t from, ControlMessage::Kind kind, std::int32_t about)
    {
        const auto record = ControlMessage::ofSibling(kind, about, from);
        EXPECT_EQ(write(toParent.get(), &record, sizeof record), 8);
    }
    // What the parent has sent to a child; there must be something.
    std::vector<ControlMessage::Kind> records(std::int32_t id)
    {
        std::array<ControlMessage, 16> all;
        const ssize_t count = read(fifos[id].get(), all.data(), sizeof all);
        std::vector<ControlMessage::Kind> kinds;
        for (std::size_t i = 0; i != static_cast<std::size_t>(count) / sizeof all[0]; ++i)
            kinds.push_back(all.at(i).kind());
        return kinds;
    }
    void settle()
    {
        for (int round = 0; round != 4; ++round)
            fakes::thrown([&] { selector.pollImpl(true); });
    }

    io::ChannelMessage message{};  // the latest one that was received
    std::vector<platform::OwnedDescriptor> descriptors;

private:
    io::SiblingParent parent;
    io::Selector<int> selector;
    std::map<std::int32_t, platform::Channel> channels;
    std::map<std::int32_t, platform::OwnedDescriptor> fifos;
    platform::OwnedDescriptor toParent;
};

// One doesn't look at its channel for long.
TEST(SiblingProcesses, AreIntroducedInOrderThroughAFullChannel)
{
    using Received = platform::Channel::Received;
    platform::raiseDescriptorLimit();
    constexpr std::int32_t count = 400;
    PlayedChildren children(count);
    for (std::int32_t id = 2; id <= count; ++id)
        children.send(id, ControlMessage::RequestPeer, 1);
    // Each caller is told only when the host has been.
    const auto hostsTold = [&] {
        std::int32_t told = 0;
        for (std::int32_t id = 2; id <= count; ++id) {
            while (children.receive(id) == Received::message) {
                EXPECT_EQ(children.message.kind, io::ChannelMessage::host);
                EXPECT_EQ(children.message.id, 1);
                ++told;
            }
        }
        return told;
    };
    children.settle();
    const std::int32_t before = hostsTold();
    EXPECT_TRUE(before > 0 && before < count - 1) << before;
    for (std::int32_t caller = 2; caller <= count; ++caller) {
        if (children.receive(1) == Received::nothing) {
            children.settle();
            ASSERT_EQ(children.receive(1), Received::message);
        }
        EXPECT_EQ(children.message.kind, io::ChannelMessage::caller);
        EXPECT_EQ(children.message.id, caller);
        EXPECT_EQ(children.descriptors.size(), 1U);
    }
    children.settle();
    EXPECT_EQ(before + hostsTold(), count - 1);
}

// The system lets so many descriptors be on their way as the process may have open, unless it is a
// privileged one.
TEST(SiblingProcesses, AreIntroducedWhenFewerDescriptorsAreOnTheirWay)
{
    constexpr std::int32_t count = 40;
    PlayedChildren children(count);
    for (std::int32_t id = 2; id <= count; ++id)
        children.send(id, ControlMessage::RequestPeer, 1);
    rlimit usual{};
    getrlimit(RLIMIT_NOFILE, &usual);
    const rlimit few{.rlim_cur = 4, .rlim_max = usual.rlim_max};
    setrlimit(RLIMIT_NOFILE, &few);
    children.settle();
    setrlimit(RLIMIT_NOFILE, &usual);
    const support::Deadline limit = support::usualLimit();
    std::int32_t met = 0;
    while (met != count - 1 && std::chrono::steady_clock::now() < limit) {
        children.settle();
        for (std::int32_t id = 2; id <= count; ++id)
            met += children.receive(id) == platform::Channel::Received::message ? 1 : 0;
    }
    EXPECT_EQ(met, count - 1);
}

// Who has been introduced to it can have sent something: that must not be taken back.
TEST(SiblingProcesses, AreNotIntroducedToOneThatShutsDown)
{
    using testing::ElementsAre;
    PlayedChildren children(3);
    children.send(2, ControlMessage::RequestPeer, 1);
    children.send(1, ControlMessage::InitShutdown, 1);
    children.send(2, ControlMessage::RequestPeer, 1);
    children.send(3, ControlMessage::RequestPeer, 1);
    children.settle();
    EXPECT_EQ(children.receive(1), platform::Channel::Received::message);
    EXPECT_EQ(children.receive(2), platform::Channel::Received::message);
    EXPECT_EQ(children.receive(3), platform::Channel::Received::nothing);
    EXPECT_THAT(children.records(2), ElementsAre(ControlMessage::InitShutdown));
    EXPECT_THAT(children.records(3),
                ElementsAre(ControlMessage::InitShutdown, ControlMessage::SiblingDied));
}

TEST(SiblingProcesses, EndWithTheirParent)
{
    support::Process parent({.program = SIBLING_PEER, .arguments = {"parent"}});
    parent.waitForOutput("running");
    parent.signal(SIGKILL);
    // The children have its standard error, too.
    EXPECT_EQ(parent.waitForEnd().errors, "");
}

TEST(SiblingProcesses, TellWhatCantBe)
{
    using fakes::thrown;
    const auto make = [](std::uint32_t children, std::uint64_t own, std::uint64_t child) {
        return thrown([&] {
            const io::SiblingParent parent(
                {.children = children, .parentArea = own, .childArea = child});
        });
    };
    EXPECT_EQ(make(1, 16, 4096),
              "An area of 16 bytes for the parent is not one of 24 to 4294967296");
    EXPECT_EQ(make(4096, 24, std::uint64_t{1} << 20U),
              "4096 areas of 1048576 bytes, and the parent's of 24, do not fit in 4294967296");

    io::SiblingParent parent({.children = 1, .parentArea = 4096, .childArea = 4096});
    EXPECT_EQ(thrown([&] { parent.start("/nonexistent/program", {}); }),
              "Can't start /nonexistent/program: No such file or directory");
    EXPECT_NO_THROW(parent.start("/bin/true", {})) << "the area is lost";
    EXPECT_EQ(thrown([&] { parent.start("/bin/true", {}); }),
              "All 1 areas for children are in use");
    EXPECT_EQ(thrown([&] { io::SiblingChild child(99); }),
              "Descriptor 99 leads to no parent: Bad file descriptor");
}

}  // namespace
