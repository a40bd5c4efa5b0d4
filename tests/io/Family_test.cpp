// A parent and its children in this one process, so that it is sure what has come when. Each child
// stands for a process that sleeps, and can be killed.
#include "io/Selector.h"
#include "io/sibling/Child.h"
#include "io/sibling/Parent.h"
#include "tests/io/Fakes.h"
#include "tests/support/Process.h"

#include <gtest/gtest.h>

#include <sys/socket.h>

#include <map>
#include <memory>
#include <optional>

namespace {

using fakes::put;
using fakes::take;
using fakes::thrown;

class Family {
public:
    explicit Family(std::uint32_t areas)
        : parent({.children = areas, .parentArea = 4096, .childArea = 4096})
    {
        selector.add(&front, 0);
    }
    ~Family()
    {
        while (!children.empty())
            kill(children.begin()->first);
    }

    io::SiblingChild& operator[](std::int32_t id) { return *children.at(id).messenger; }

    std::int32_t add()
    {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
            std::abort();
        platform::OwnedDescriptor ours(ends[0]);
        platform::OwnedDescriptor theirs(ends[1]);
        int pid = -1;
        if (!platform::startSibling("/bin/sleep", {"1000"}, theirs, &pid))
            std::abort();
        std::int32_t id = 0;
        try {
            id = parent.adopt(std::move(ours), pid);
        } catch (...) {
            platform::killProcess(pid);
            platform::collectExit(pid);
            throw;
        }
        Child& child = children[id];
        child.pid = pid;
        child.messenger = std::make_unique<io::SiblingChild>(theirs.take());
        child.front = std::make_unique<fakes::Front>(child.messenger.get());
        selector.add(child.front.get(), id);
        return id;
    }
    // Lets everybody act on what has come, until all is quiet.
    void settle()
    {
        for (int round = 0; round != 40; ++round) {
            platform::sleepEx(0);
            EXPECT_NE(thrown([&] { selector.pollImpl(true); }), "");
        }
    }
    // Until the parent has noticed it.
    void kill(std::int32_t id)
    {
        Child& child = children.at(id);
        selector.remove(child.front.get());
        child.front.reset();
        child.messenger.reset();
        platform::killProcess(child.pid);
        children.erase(id);
        const support::Deadline limit = support::usualLimit();
        while (parent.pid(id) != -1 && std::chrono::steady_clock::now() < limit)
            settle();
    }
    void connect(std::int32_t from, std::int32_t to)
    {
        put((*this)[from].findSibling(to)->ostream, "hello");
        settle();
        EXPECT_EQ(take(*(*this)[to].findSibling(from)->istream), "hello");
        settle();
    }

private:
    struct Child {
        int pid = -1;
        std::unique_ptr<io::SiblingChild> messenger;
        std::unique_ptr<fakes::Front> front;
    };
    io::Selector<int> selector;

public:
    io::SiblingParent parent;

private:
    fakes::Front front{&parent};
    std::map<std::int32_t, Child> children;
};

const char* const allUsed = "All 2 areas for children are in use";

TEST(SiblingFamily, KeepsAnAreaUntilAllHaveReadIt)
{
    Family family(2);
    const std::int32_t writer = family.add();
    const std::int32_t reader = family.add();
    family.connect(reader, writer);
    put(family[writer].findSibling(reader)->ostream, "for the reader");
    put(family[writer].findSibling(0)->ostream, "for the parent");
    bool hadCome = false;
    family.parent.childEnded = [&](std::int32_t id, platform::ExitStatus) {
        hadCome = family.parent.hasUnread(id);
    };
    family.kill(writer);
    EXPECT_TRUE(hadCome);
    EXPECT_EQ(thrown([&] { family.add(); }), allUsed);
    EXPECT_EQ(take(*family.parent.findSibling(writer)->istream), "for the parent");
    family.settle();
    EXPECT_EQ(thrown([&] { family.add(); }), allUsed) << "the reader has not read";
    io::SiblingIStream& stream = *family[reader].findSibling(writer)->istream;
    char* data = nullptr;
    EXPECT_EQ(stream.readBegin(&data), 14U);
    stream.readCommit(4);
    family.settle();
    EXPECT_EQ(thrown([&] { family.add(); }), allUsed) << "a part is left";
    EXPECT_EQ(take(stream), "the reader");
    family.settle();

    // Who has a handle yet keeps the child in mind, but not its area.
    std::optional<io::Sibling> handle(family.parent.sibling(writer));
    EXPECT_NO_THROW(family.add());
    EXPECT_EQ(thrown([&] { family.add(); }), allUsed);
    handle.reset();
    EXPECT_EQ(thrown([&] { family.add(); }), allUsed);
}

TEST(SiblingFamily, KeepsAnAreaUntilTheParentHasReadIt)
{
    Family family(2);
    const std::int32_t writer = family.add();
    family.add();
    put(family[writer].findSibling(0)->ostream, "for the parent");
    family.kill(writer);
    EXPECT_EQ(thrown([&] { family.add(); }), allUsed);
    EXPECT_EQ(take(*family.parent.findSibling(writer)->istream), "for the parent");
    EXPECT_NO_THROW(family.add());
}

TEST(SiblingFamily, WritesNoMoreToOneThatHasBeenLetGo)
{
    Family family(2);
    const std::int32_t writer = family.add();
    const std::int32_t leaving = family.add();
    family.connect(writer, leaving);
    family[leaving].shutDown();
    family.settle();
    EXPECT_TRUE(family[leaving].isShutdownAcknowledged());
    // Its area gets full, and has room again.
    io::OStream& toParent = family[writer].findSibling(0)->ostream;
    while (toParent.isReady())
        put(toParent, std::string(4000, 'x'));
    family.settle();
    while (family.parent.some_sibling.isReady())
        take(*family.parent.findSibling(writer)->istream);
    family.settle();
    EXPECT_TRUE(toParent.isReady());
    EXPECT_FALSE(family[writer].findSibling(leaving)->ostream.isReady());
}

// Before that it could not acknowledge.
TEST(SiblingFamily, WritesToACallerThatIsUp)
{
    Family family(2);
    const std::int32_t caller = family.add();
    const std::int32_t host = family.add();
    family.settle();
    put(family[caller].findSibling(host)->ostream, "x");
    family.parent.drainIncoming();
    // It looks for introductions before a record.
    family.parent.deliver(family.parent.findSibling(host),
                          io::ControlMessage::ofSibling(io::ControlMessage::SiblingAt, 0, 0));
    family[host].drainIncoming();
    EXPECT_FALSE(family[host].isConnected(caller));
    EXPECT_FALSE(family[caller].isConnected(host));
    family.settle();
    EXPECT_TRUE(family[host].isConnected(caller));
    EXPECT_TRUE(family[caller].isConnected(host));
}

}  // namespace
