#include "io/sibling/Parent.h"

#include "common/errors.h"
#include "common/text.h"
#include "io/HandleWatch.h"
#include "io/sibling/ChannelMessage.h"
#include "platform/Channel.h"

#include <algorithm>
#include <deque>
#include <optional>
#include <set>
#include <utility>

namespace io {
namespace {

// Offsets are cut to 32 bits in what siblings tell each other, and ids to 24 with their sign.
constexpr std::uint64_t largestRegion = std::uint64_t{1} << 32U;
constexpr std::int32_t largestId = (1 << 23) - 1;
constexpr std::uint64_t smallestArea = 24;  // a header, and room for a message of any bytes
constexpr std::uint64_t alignment = 8;

std::uint64_t rounded(const char* whose, std::uint64_t bytes)
{
    if (bytes < smallestArea || bytes > largestRegion)
        throw error::ERange("An area of " + uint64ToString(bytes) + " bytes for " + whose +
                            " is not one of 24 to 4294967296");
    return (bytes + alignment - 1) / alignment * alignment;
}

struct Introduction {
    ChannelMessage::Kind kind;
    std::int32_t peer;
};

[[noreturn]] void denied(const std::string& what)
{
    throwSystemError(platform::getLastError(), what);
}

}  // namespace

SiblingGroupMemory::SiblingGroupMemory(const SiblingGroupSize& wanted)
    : size{.children = wanted.children,
           .parentArea = rounded("the parent", wanted.parentArea),
           .childArea = rounded("a child", wanted.childArea)}
{
    if (size.children > (largestRegion - size.parentArea) / size.childArea)
        throw error::ERange(uintToString(size.children) + " areas of " +
                            uint64ToString(size.childArea) + " bytes, and the parent's of " +
                            uint64ToString(size.parentArea) + ", do not fit in 4294967296");
    if (!memory.create(size.parentArea + size.children * size.childArea))
        denied("Can't make the region of the siblings");
    if (!incoming.open())
        denied("Can't make a FIFO");
}

struct SiblingParent::Child {
    Child() = default;
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child()
    {
        end.reset();
        if (process != platform::Handle::none)
            platform::closeHandle(process);
    }

    std::int32_t id = 0;
    std::optional<std::size_t> area;  // its number; none once another child may have it
    int pid = -1;
    platform::Channel channel;
    platform::OwnedDescriptor fifo;  // the end to write to, for its peers
    platform::Handle process = platform::Handle::none;
    std::unique_ptr<HandleWatch> end;   // of the process
    std::unique_ptr<HandleWatch> room;  // in the channel; watched while `outbox` waits for it
    std::deque<Introduction> outbox;
    std::set<std::int32_t> peers;  // the children with which it is or has been connected
    bool up = false;
    bool ended = false;
    std::set<std::int32_t> readers;  // after the end: who may still read in its area
};

SiblingParent::SiblingParent(const SiblingGroupSize& wanted)
    : SiblingGroupMemory(wanted),
      SiblingMessenger(0, this, incoming.reading.toHandle(), memory.base(), memory.size(), 0,
                       size.parentArea),
      area_used(size.children)
{
    sibling_ids.push_back(0);
}

SiblingParent::~SiblingParent() = default;

// ---- Children come -----------------------------------------------------------------------------

std::int32_t SiblingParent::start(const std::string& path,
                                  const std::vector<std::string>& arguments)
{
    Child& child = newChild();
    const std::int32_t id = child.id;
    try {
        platform::OwnedDescriptor far;
        if (!child.channel.open(&far))
            denied("Can't make a channel to a child");
        if (!platform::startSibling(path, arguments, far, &child.pid))
            denied("Can't start " + path);
        try {
            welcome(child);
        } catch (...) {
            platform::killProcess(child.pid);
            platform::collectExit(child.pid);
            throw;
        }
    } catch (...) {
        dropChild(id);
        throw;
    }
    return id;
}

std::int32_t SiblingParent::adopt(platform::OwnedDescriptor channel, int pid)
{
    Child& child = newChild();
    const std::int32_t id = child.id;
    child.pid = pid;
    try {
        if (!child.channel.adopt(std::move(channel)))
            denied("Can't talk to the process " + intToString(pid));
        welcome(child);
    } catch (...) {
        dropChild(id);
        throw;
    }
    return id;
}

// With an id and an area, and nothing else yet.
SiblingParent::Child& SiblingParent::newChild()
{
    dropEnded();
    const auto free = std::find(area_used.begin(), area_used.end(), false);
    if (free == area_used.end())
        throw error::ESystemError("All " + uintToString(size.children) +
                                  " areas for children are in use");
    if (last_id == largestId)
        throw error::ESystemError("All ids for children have been used");
    *free = true;
    ++last_id;
    std::unique_ptr<Child>& child = children[last_id];
    child = std::make_unique<Child>();
    child->id = last_id;
    child->area = static_cast<std::size_t>(free - area_used.begin());
    return *child;
}

// Takes back one that nobody has heard of.
void SiblingParent::dropChild(std::int32_t id)
{
    area_used[*children.at(id)->area] = false;
    children.erase(id);
}

// Tells the child its part, and connects it with this process.
void SiblingParent::welcome(Child& child)
{
    platform::Pipe fifo;
    if (!fifo.open())
        denied("Can't make a FIFO");
    platform::OwnedDescriptor own = fifo.writing.duplicate();
    if (!own.isOpen())
        denied("Can't make a FIFO");
    child.process = platform::processEnd(child.pid);
    if (child.process == platform::Handle::none)
        denied("Can't watch the process " + intToString(child.pid));
    const ChannelMessage message{.kind = ChannelMessage::welcome,
                                 .id = child.id,
                                 .areaStart = size.parentArea + *child.area * size.childArea,
                                 .areaSize = size.childArea};
    const int descriptors[] = {memory.descriptor(), fifo.reading.get(), incoming.writing.get()};
    if (!child.channel.send(&message, sizeof message, descriptors))
        denied("Can't talk to the process " + intToString(child.pid));

    child.fifo = std::move(fifo.writing);
    sibling_ids.push_back(child.id);
    openFifo(child.id, own.toHandle());
    const std::string number = intToString(child.id);
    child.room =
        std::make_unique<HandleWatch>("channel to sibling " + number, child.channel.ready());
    child.end = std::make_unique<HandleWatch>("end of sibling " + number, child.process);
    watchUnderlying(child.end.get(), true);
}

void SiblingParent::siblingIsUp(std::int32_t id)
{
    if (Child* const child = findLiving(id))
        child->up = true;
}

bool SiblingParent::isUp(std::int32_t id) const
{
    const Child* const child = findLiving(id);
    return child && child->up;
}

int SiblingParent::pid(std::int32_t id) const
{
    const Child* const child = findLiving(id);
    return child ? child->pid : -1;
}

std::size_t SiblingParent::livingChildren() const
{
    return static_cast<std::size_t>(std::count_if(
        children.begin(), children.end(), [](const auto& entry) { return !entry.second->ended; }));
}

SiblingParent::Child* SiblingParent::findLiving(std::int32_t id) const
{
    const auto found = children.find(id);
    return found == children.end() || found->second->ended ? nullptr : found->second.get();
}

// ---- They are connected ------------------------------------------------------------------------

void SiblingParent::requestPeer(std::int32_t target, std::int32_t requester)
{
    if (requester == ownId()) {
        // All living children are connected. Nobody need be told of one that never was.
        SiblingImplementation* const nobody = findSibling(target);
        nobody->shutting_down = true;
        lose(nobody);
        return;
    }
    Child* const caller = findLiving(requester);
    Child* const host = findLiving(target);
    if (!caller)
        return;
    // They have been introduced, or will be. A host in its shutdown waits for the requester, and can
    // have messages of it in its FIFO already.
    if (host && host->peers.contains(requester) && findSibling(target)->fifo_writer.open)
        return;
    if (!host || !isConnected(target)) {
        try {
            deliver(findSibling(requester),
                    ControlMessage::ofSibling(ControlMessage::SiblingDied, target, ownId()));
        } catch (const ENoConnection&) {
            return;  // it has gone, too
        }
        return;
    }
    host->peers.insert(requester);
    caller->peers.insert(target);
    host->outbox.push_back({.kind = ChannelMessage::caller, .peer = requester});
    introduce(*host);
}

// Sends what waits for the child's channel. The other side of a connection has its turn after it.
void SiblingParent::introduce(Child& child)
{
    while (!child.outbox.empty()) {
        const Introduction next = child.outbox.front();
        Child* const peer = findLiving(next.peer);
        if (peer) {
            const ChannelMessage message{
                .kind = next.kind, .id = next.peer, .areaStart = 0, .areaSize = 0};
            const int fifo[] = {peer->fifo.get()};
            if (!child.channel.send(&message, sizeof message, fifo)) {
                const bool isFull = platform::getLastError() == platform::ERROR_IO_PENDING;
                if (platform::getLastError() == platform::ERROR_TOO_MANY_OPEN_FILES)
                    introduceLater();
                else if (!isFull)
                    child.outbox.clear();  // it ends, which will be noticed
                watchUnderlying(child.room.get(), isFull);
                return;
            }
        }
        child.outbox.pop_front();
        if (peer && next.kind == ChannelMessage::caller) {
            peer->outbox.push_back({.kind = ChannelMessage::host, .peer = child.id});
            introduce(*peer);
        }
    }
    watchUnderlying(child.room.get(), false);
}

// Nothing tells when there are fewer descriptors on their way.
void SiblingParent::introduceLater()
{
    constexpr double pause = 0.02;  // seconds
    introduce_again.when = Time::now() + Time(pause);
    watchUnderlying(&introduce_again, true);
}

// ---- They end ----------------------------------------------------------------------------------

void SiblingParent::otherIsReady(Selectable* u)
{
    if (u == &introduce_again) {
        watchUnderlying(&introduce_again, false);
        for (const auto& [id, child] : children) {
            if (!child->ended)
                introduce(*child);
        }
        return;
    }
    for (const auto& [id, child] : children) {
        if (u == child->end.get()) {
            processEnded(*child);
            return;
        }
        if (u == child->room.get()) {
            // Children say nothing, but this clears the signal.
            ChannelMessage none{};
            std::vector<platform::OwnedDescriptor> descriptors;
            child->channel.receive(&none, sizeof none, &descriptors);
            introduce(*child);
            return;
        }
    }
}

void SiblingParent::processEnded(Child& child)
{
    watchUnderlying(child.end.get(), false);
    watchUnderlying(child.room.get(), false);
    // All that it has ever sent is in the FIFOs now.
    drainIncoming();
    child.ended = true;
    lose(findSibling(child.id));
    sibling_ids.remove(child.id);
    const platform::ExitStatus status = platform::collectExit(child.pid);
    for (const auto& [id, other] : children) {
        other->readers.erase(child.id);
        other->peers.erase(child.id);
    }
    askReaders(child);
    if (childEnded)
        childEnded(child.id, status);
}

// Asks those who can have messages of an ended child to say when they have read them. The question
// comes behind all that the child has sent.
void SiblingParent::askReaders(Child& ended)
{
    ended.readers = std::exchange(ended.peers, {});
    const std::set<std::int32_t> asked = ended.readers;
    for (const std::int32_t reader : asked) {
        try {
            deliver(findSibling(reader),
                    ControlMessage::ofSibling(ControlMessage::ExtraSiblingId, ended.id, ownId()));
        } catch (const ENoConnection&) {
            continue;  // it ends as well, and counts as an answer then
        }
    }
}

void SiblingParent::areaLeft(std::int32_t id, std::int32_t from)
{
    const auto found = children.find(id);
    if (found != children.end())
        found->second->readers.erase(from);
}

// Gives back the areas of ended children that nobody reads any more, and forgets the children.
void SiblingParent::dropEnded()
{
    std::erase_if(children, [this](const auto& entry) {
        Child& child = *entry.second;
        if (!child.ended || !child.readers.empty() || hasUnread(child.id))
            return false;
        if (child.area)
            area_used[*child.area] = false;
        child.area.reset();
        return forget(child.id);
    });
}

}  // namespace io
