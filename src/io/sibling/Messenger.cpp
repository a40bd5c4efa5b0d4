#include "io/sibling/Messenger.h"

#include "common/Time.h"
#include "common/assertion.h"
#include "common/text.h"

#include <algorithm>
#include <cstring>

namespace io {
namespace {

constexpr std::size_t recordSize = sizeof(ControlMessage);

std::string text(std::int32_t id)
{
    return intToString(id);
}

}  // namespace

std::ostream* SiblingMessenger::trace = nullptr;

SiblingMessenger::SiblingMessenger(std::int32_t ownId, SiblingParentSide* parentSide,
                                   platform::Handle incoming, char* base, std::uint64_t size,
                                   std::uint64_t areaStart, std::uint64_t areaSize)
    : parent_side(parentSide),
      my_id(ownId),
      some_sibling(this),
      shutdown_end(this),
      incoming_fifo("SiblingMessenger", incoming)
{
    initArea(base, size, areaStart, areaSize);
    write_ready = block_off != noBlock;
    watchUnderlying(&incoming_fifo, true);
}

SiblingMessenger::~SiblingMessenger()
{
    for (const auto& [id, fifo] : held)
        platform::closeHandle(fifo);
    for (const auto& [id, peer] : siblings)
        delete peer;
}

Sibling SiblingMessenger::sibling(std::int32_t id)
{
    return Sibling(findSibling(id));
}

SiblingImplementation* SiblingMessenger::findSibling(std::int32_t id)
{
    const auto found = siblings.find(id);
    if (found != siblings.end())
        return found->second;
    auto peer = std::make_unique<SiblingImplementation>(this, id);
    peer->ostream.ready = write_ready;
    if (!siblings.emplace(id, peer.get()).second)
        assertion("Failed insertion of new SiblingImplementation");
    return peer.release();
}

std::int32_t SiblingMessenger::nextSender()
{
    if (!parent_side) {
        const auto parent = siblings.find(0);
        if (parent != siblings.end() && parent->second->failed)
            return 0;
    }
    if (rmsgs.empty())
        assertion("dequeue SomeSibling on empty list without process error");
    return rmsgs.front().from;
}

void SiblingMessenger::openFifo(std::int32_t id, platform::Handle fifo)
{
    SiblingImplementation* const peer = findSibling(id);
    if (attach(peer, fifo))
        announceQueued(peer);
}

void SiblingMessenger::greet(std::int32_t id, platform::Handle fifo)
{
    SiblingImplementation* const peer = findSibling(id);
    if (!attach(peer, fifo))
        return;
    deliver(peer, ControlMessage::ofSibling(ControlMessage::IAmUp, my_id, my_id));
    announceQueued(peer);
}

bool SiblingMessenger::attach(SiblingImplementation* peer, platform::Handle fifo)
{
    if (peer->fifo_writer.open) {
        platform::closeHandle(fifo);
        return false;
    }
    peer->fifo_writer.setHandle(fifo);
    peer->fifo_writer.open = true;
    reader_ids.emplace(reinterpret_cast<std::uintptr_t>(peer), peer->id);
    if (!peer->shutting_down)
        peer->ostream.ready = write_ready || peer->failed;
    return true;
}

void SiblingMessenger::announceQueued(SiblingImplementation* peer)
{
    std::list<std::uint64_t> waiting;
    waiting.swap(peer->ostream.queued);
    // One by one: a FIFO that breaks meanwhile takes back all messages of the peer.
    for (const std::uint64_t offset : waiting) {
        if (!peer->fifo_writer.open)
            break;
        deliver(peer, ControlMessage::ofOffset(ControlMessage::MessageAt, offset, my_id));
    }
    announceShutdown();
}

void SiblingMessenger::holdFifo(std::int32_t id, platform::Handle fifo)
{
    findSibling(id);
    if (!held.emplace(id, fifo).second)
        platform::closeHandle(fifo);
}

void SiblingMessenger::peerIsUp(std::int32_t id)
{
    if (parent_side)
        parent_side->siblingIsUp(id);
    const auto found = held.find(id);
    if (found == held.end())
        return;
    const platform::Handle fifo = found->second;
    held.erase(found);
    openFifo(id, fifo);
}

bool SiblingMessenger::isConnected(std::int32_t id) const
{
    const auto found = siblings.find(id);
    return found != siblings.end() && countsAsConnected(*found->second);
}

void SiblingMessenger::setWriteReady(bool isReady)
{
    write_ready = isReady;
    for (const auto& [id, peer] : siblings) {
        if (peer->fifo_writer.open && !peer->awaiting_acks) {
            peer->ostream.ready = isReady || peer->failed;
            traceLine((peer->ostream.ready ? " setting ready on " : " NOT setting ready on "), id);
        }
    }
}

// Who isn't connected can be written to as well, but not without a free block.
void SiblingMessenger::setUnconnectedReady(bool isReady)
{
    for (const auto& [id, peer] : siblings) {
        const bool hasLeft = peer->shutting_down && !peer->failed;
        if (!peer->fifo_writer.open && !hasLeft)
            peer->ostream.ready = isReady || peer->failed;
    }
}

void SiblingMessenger::setFifoWatch(SiblingImplementation* peer, bool watch)
{
    watchUnderlying(&peer->fifo_writer, watch);
    const auto found = std::find(watched.begin(), watched.end(), peer);
    if (watch && found == watched.end())
        watched.push_back(peer);
    else if (!watch && found != watched.end())
        watched.erase(found);
    traceLine("FIFO writer for sibling ", peer->id, " now has watch = ", (watch ? "1" : "0"));
}

bool SiblingMessenger::anyWriting() const
{
    return std::any_of(siblings.begin(), siblings.end(),
                       [](const auto& entry) { return entry.second->writing; });
}

std::ostream& SiblingMessenger::beginTraceLine() const
{
    return *trace << Time::now().format("%a %b %d %H:%M:%S %Y", true) << ' ' << my_id;
}

// ---- Sending -----------------------------------------------------------------------------------

void SiblingMessenger::deliver(SiblingImplementation* peer, const ControlMessage& message)
{
    if (!peer->fifo_writer.open) {
        if (peer->id == my_id)
            assertion("We could not write ourselves");
        traceLine(" has no fifo for ", peer->id, " while trying to deliver: ", message);
        throw ENoConnection();
    }
    traceLine(" queueing message ", message, " for id ", peer->id);
    if (message.kind() == ControlMessage::AckMessageAt)
        peer->unordered.push_back(message);
    else
        ordered.emplace_back(peer->id, message);
    fifoWrite(peer);
}

void SiblingMessenger::toParent(const ControlMessage& message)
{
    const auto parent = siblings.find(0);
    if (parent == siblings.end())
        assertion("No parent siblingimplementation");
    deliver(parent->second, message);
}

void SiblingMessenger::requestConnection(SiblingImplementation* peer)
{
    if (parent_side) {
        parent_side->requestPeer(peer->id, my_id);
        return;
    }
    const auto parent = siblings.find(0);
    // Who has lost its parent learns so from that one's stream.
    if (peer->id == 0 || (parent != siblings.end() && !parent->second->fifo_writer.open))
        return;
    toParent(ControlMessage::ofSibling(ControlMessage::RequestPeer, peer->id, my_id));
}

void SiblingMessenger::fifoWrite(SiblingImplementation* peer)
{
    if (unflushed_sibling) {
        traceLine(": sibling ", unflushed_sibling->id,
                  " is the unflushed sibling - will not attempt write now");
        return;
    }
    fifoReadyForWriting(peer);
}

void SiblingMessenger::fifoReadyForWriting(SiblingImplementation* peer)
{
    traceLine(" fifoReadyForWriting ", peer->id);
    try {
        if (unflushed_sibling && unflushed_sibling != peer) {
            setFifoWatch(peer, false);
            return;
        }
        if (writeRecords(peer)) {
            setFifoWatch(peer, false);
            if (unflushed_sibling) {
                if (unflushed_sibling != peer)
                    assertion("We are writing, but the unflushed sibling is not us!");
                traceLine(" Write completely flushed from id ", peer->id);
                unflushed_sibling = nullptr;
                writeOthers();
            }
            letGoIfDone(peer);  // the last acknowledgement can have waited for its turn
            return;
        }
        traceLine(" Write flush not ready! No write from ", peer->id);
        setFifoWatch(peer, true);
        if (unflushed_sibling && unflushed_sibling != peer)
            assertion("Two unflushed siblings: old=" + text(unflushed_sibling->id) +
                      " new=" + text(peer->id));
        unflushed_sibling = peer;
    } catch (const error::Exception& e) {
        if (trace)
            *trace << "Caught exception: '" << e.text() << "' while flushing sibling: " << peer->id
                   << '\n';
        lose(peer);
    }
}

// Writes all records whose turn it is. False if some didn't fit in the FIFO.
bool SiblingMessenger::writeRecords(SiblingImplementation* peer)
{
    OutputSignalWriter& fifo = peer->fifo_writer;
    std::uint64_t total = 0;
    do {
        char* space = nullptr;
        const std::uint64_t room = fifo.writeBegin(&space);
        std::uint64_t placed = 0;
        const auto place = [&](const ControlMessage& message, const char* kind) {
            std::memcpy(space + placed, &message, recordSize);
            placed += recordSize;
            traceLine(kind, message);
        };
        while (room - placed >= recordSize && !peer->unordered.empty()) {
            place(peer->unordered.front(), " serializing unordered message ");
            peer->unordered.pop_front();
        }
        while (room - placed >= recordSize && !ordered.empty() &&
               ordered.front().first == peer->id) {
            place(ordered.front().second, " serializing ordered message ");
            ordered.pop_front();
        }
        fifo.writeCommit(placed);
        total += placed;
        traceLine(" Committed ", placed, " bytes to sibling ", peer->id, " for a total of ", total,
                  " bytes");
        if (!ordered.empty() && ordered.front().first != peer->id)
            setFifoWatch(findSibling(ordered.front().first), true);
        if (!fifo.flush() || fifo.hasUnsent())
            return false;
    } while ((!ordered.empty() && ordered.front().first == peer->id) || !peer->unordered.empty());
    return true;
}

void SiblingMessenger::writeOthers()
{
    while (!unflushed_sibling && !ordered.empty())
        fifoWrite(findSibling(ordered.front().first));
    for (const auto& [id, peer] : siblings) {
        if (unflushed_sibling)
            return;
        if (countsAsConnected(*peer) && !peer->unordered.empty())
            fifoWrite(peer);
    }
}

bool SiblingMessenger::countsAsConnected(const SiblingImplementation& peer) const
{
    return peer.fifo_writer.open &&
           (!parent_side || parent_side->shutdown_waits.count(peer.id) == 0);
}

// ---- Receiving ---------------------------------------------------------------------------------

void SiblingMessenger::underlyingIsReady(Selectable* u)
{
    if (u == &incoming_fifo) {
        readRecords();
        return;
    }
    if (auto* const writer = dynamic_cast<OutputSignalWriter*>(u)) {
        traceLine(" Parent write end of FIFO for sibling ", writer->owner->id,
                  " is ready... Sibling ", my_id, " will write.");
        fifoReadyForWriting(writer->owner);
    } else {
        otherIsReady(u);
    }
}

void SiblingMessenger::drainIncoming()
{
    do {
        if (!incoming_fifo.isReady())
            incoming_fifo.pull();
    } while (incoming_fifo.isReady() && readRecords());
}

// Takes in what the FIFO's stream holds. False if the FIFO is broken.
bool SiblingMessenger::readRecords()
{
    char* data = nullptr;
    std::uint64_t count = 0;
    try {
        count = incoming_fifo.readBegin(&data);
    } catch (const error::Exception& e) {
        traceLine(" incoming FIFO: ", e.text());
        incomingBroke();
        return false;
    }
    std::string records = std::move(record_rest);
    records.append(data, count);
    incoming_fifo.readCommit(count);
    const std::size_t whole = records.size() / recordSize * recordSize;
    record_rest = records.substr(whole);
    for (std::size_t at = 0; at != whole; at += recordSize) {
        ControlMessage message;
        std::memcpy(&message, records.data() + at, recordSize);
        received(message);
    }
    return true;
}

// Nobody can write to this process any more.
void SiblingMessenger::incomingBroke()
{
    watchUnderlying(&incoming_fifo, false);
    std::vector<std::int32_t> ids;
    for (const auto& [key, id] : reader_ids)
        ids.push_back(id);
    for (const std::int32_t id : ids)
        siblingGone(findSibling(id));
    writeOthers();
}

void SiblingMessenger::received(const ControlMessage& message)
{
    traceLine(" received ", message);
    if (!message.hasOffset() || !findSibling(message.from)->fifo_writer.open)
        beforeRecord();
    switch (message.kind()) {
    case ControlMessage::MessageAt:
        messageCame(message);
        return;
    case ControlMessage::AckMessageAt:
        acknowledged(message);
        return;
    case ControlMessage::RequestPeer:
        if (!parent_side)
            assertion("Not the parent, but got " + message.toString());
        parent_side->requestPeer(message.id(), message.from);
        return;
    case ControlMessage::SiblingDied: {
        const auto found = siblings.find(message.id());
        if (found != siblings.end())
            lose(found->second);
        return;
    }
    case ControlMessage::InitShutdown:
        shutdownBegins(message);
        return;
    case ControlMessage::AckShutdown:
        shutdownAnswered(message);
        return;
    case ControlMessage::IAmUp:
        peerIsUp(message.from);
        return;
    case ControlMessage::ExtraSiblingId:
        if (parent_side)
            parent_side->areaLeft(message.id(), message.from);
        else
            areaAsked(message.id());
        return;
    case ControlMessage::SiblingAt:
    case ControlMessage::ExtraOffset:
    case ControlMessage::ExtraSize:
        return;  // nobody sends them
    case ControlMessage::Undefined:
        break;
    }
    assertion("Undefined control message " + hexToString(message.word, recordSize) +
              " [from:" + text(message.from) + "]");
}

void SiblingMessenger::messageCame(const ControlMessage& message)
{
    SiblingImplementation* const peer = findSibling(message.from);
    SiblingIStream& stream = *peer->istream;
    auto place = rmsgs.end();
    // The loss of a peer can be noticed before all that it has sent is here: its end stays behind.
    if (peer->failed)
        place = std::find_if(rmsgs.begin(), rmsgs.end(), [&message](const SiblingMessage& m) {
            return m.from == message.from && m.isNull();
        });
    if (place != rmsgs.end() && stream.curr_msg == place)
        stream.curr_msg = rmsgs.end();
    rmsgs.insert(
        place,
        {.from = message.from, .offset = message.offset(), .size = messageSize(message.offset())});
    smQueueUpdated(&stream);
}

void SiblingMessenger::acknowledged(const ControlMessage& message)
{
    SiblingImplementation* const peer = findSibling(message.from);
    const auto found = unacked.find(message.offset());
    if (found == unacked.end() || found->second != message.from) {
        // What a lost peer had is free already.
        if (!peer->fifo_writer.open)
            return;
        checkHeader(message.offset());
        assertion("No message awaits " + message.toString());
    }
    unacked.erase(found);
    release(message.offset());
    smQueueUpdated(peer->istream.get());
}

// A block of ours that nobody reads any more.
void SiblingMessenger::release(std::uint64_t offset)
{
    const bool hadRoom = block_off != noBlock;
    freeBlock(offset, unnotified_sibling || anyWriting());
    if (!hadRoom && block_off != noBlock)
        setUnconnectedReady(true);
}

void SiblingMessenger::smQueueUpdated(SiblingIStream* stream)
{
    SiblingImplementation* const peer = stream->owner;
    if (stream->read_offset != 0) {
        traceLine(": smQueueUpdated[", peer->id, "] in read");
        return;
    }
    if (stream->curr_msg == rmsgs.end())
        stream->curr_msg =
            std::find_if(rmsgs.begin(), rmsgs.end(), [peer](const SiblingMessage& message) {
                return message.from == peer->id;
            });
    stream->ready = stream->curr_msg != rmsgs.end();
    some_sibling.ready = !rmsgs.empty();
    letGoIfDone(peer);
}

bool SiblingMessenger::hasUnread(std::int32_t id) const
{
    return std::any_of(rmsgs.begin(), rmsgs.end(), [id](const SiblingMessage& message) {
        return message.from == id && !message.isNull();
    });
}

// Whether anything is left between us: to be read, to be sent, or to be acknowledged.
bool SiblingMessenger::hasPending(const SiblingImplementation& peer) const
{
    const auto isOf = [&peer](const auto& entry) {
        return entry.first == peer.id;
    };
    return unflushed_sibling == &peer || !peer.unordered.empty() ||
           std::any_of(ordered.begin(), ordered.end(), isOf) ||
           std::any_of(rmsgs.begin(), rmsgs.end(),
                       [&peer](const SiblingMessage& m) { return m.from == peer.id; }) ||
           std::any_of(unacked.begin(), unacked.end(),
                       [&peer](const auto& entry) { return entry.second == peer.id; });
}

// ---- Loss --------------------------------------------------------------------------------------

void SiblingMessenger::closeSibling(SiblingImplementation* peer)
{
    traceLine((parent_side ? " PARENT shutting down comms with " : " shutting down comms with "),
              peer->id, ": cleared outgoing queues and will close FIFO, will report EOS");
    peer->unordered.clear();
    ordered.remove_if([peer](const auto& entry) { return entry.first == peer->id; });
    setFifoWatch(peer, false);
    if (peer->fifo_writer.open) {
        traceLine(" Shutting down FIFO for sibling ", peer->id);
        peer->fifo_writer.open = false;
        peer->fifo_writer.setHandle(platform::Handle::invalid);
    }
    if (const auto unopened = held.find(peer->id); unopened != held.end()) {
        platform::closeHandle(unopened->second);
        held.erase(unopened);
    }
    const auto entry =
        std::find_if(reader_ids.begin(), reader_ids.end(),
                     [peer](const auto& reader) { return reader.second == peer->id; });
    if (entry != reader_ids.end())
        reader_ids.erase(entry);
}

void SiblingMessenger::siblingGone(SiblingImplementation* peer)
{
    traceLine(" siblingGone() Cleaning up after sibling ", peer->id);
    const bool isParentLink = peer->id == 0 || my_id == 0;
    if (isParentLink && peer->failed) {
        traceLine(" Double siblingGone() marking, exiting early.");
        return;
    }
    if (unflushed_sibling == peer) {
        setFifoWatch(peer, false);
        unflushed_sibling = nullptr;
        traceLine(" Dead sibling ", peer->id, " was unflushed.");
    }
    if (isParentLink) {
        peer->failed = true;
        peer->ostream.ready = true;
        rmsgs.push_back({.from = peer->id, .offset = 0, .size = 0});
        smQueueUpdated(peer->istream.get());
    }
    closeSibling(peer);
    dropUnacked(peer);
    if (!parent_side)
        return;
    auto& waits = parent_side->shutdown_waits;
    // Who dies before all have let it go has not shut down: some still wait for it.
    if (const auto wait = waits.find(peer->id); wait != waits.end() && !wait->second.empty())
        peer->shutting_down = false;
    if (!peer->shutting_down)
        tellOfDeath(*peer);
    waits.erase(peer->id);
    for (auto& [id, waitsFor] : waits) {
        if (waitsFor.erase(peer->id) != 0 && waitsFor.empty())
            allowExit(id);
    }
}

void SiblingMessenger::lose(SiblingImplementation* peer)
{
    siblingGone(peer);
    // What it held back can go now.
    writeOthers();
    // What waited for it alone, as a connection refused during its shutdown, is no longer pending.
    smQueueUpdated(peer->istream.get());
}

// Of a child: the area of a sibling that has ended is to be used again.
void SiblingMessenger::areaAsked(std::int32_t id)
{
    // What was written to it after it had been let go is dropped.
    if (const auto found = siblings.find(id); found != siblings.end())
        lose(found->second);
    asked_areas.emplace(id, false);
    answerForArea(id);
    // Those that nobody uses any more.
    std::erase_if(asked_areas,
                  [this](const auto& entry) { return entry.second && forget(entry.first); });
}

void SiblingMessenger::answerForArea(std::int32_t id)
{
    const auto asked = asked_areas.find(id);
    if (asked == asked_areas.end() || asked->second || hasUnread(id))
        return;
    asked->second = true;
    try {
        toParent(ControlMessage::ofSibling(ControlMessage::ExtraSiblingId, id, my_id));
    } catch (const ENoConnection&) {
        traceLine(" has no parent to tell");
    }
}

bool SiblingMessenger::forget(std::int32_t id)
{
    const auto found = siblings.find(id);
    if (found == siblings.end())
        return true;
    const SiblingImplementation& peer = *found->second;
    const auto isFrom = [id](const SiblingMessage& message) {
        return message.from == id;
    };
    if (peer.refs != 0 || peer.fifo_writer.open || peer.writing || unnotified_sibling == &peer ||
        !peer.ostream.queued.empty() || std::any_of(rmsgs.begin(), rmsgs.end(), isFrom))
        return false;
    delete found->second;
    siblings.erase(found);
    return true;
}

// It doesn't read any more, so nothing will be acknowledged.
void SiblingMessenger::dropUnacked(SiblingImplementation* peer)
{
    peer->ostream.queued.clear();
    for (auto entry = unacked.begin(); entry != unacked.end();) {
        if (entry->second != peer->id) {
            ++entry;
            continue;
        }
        const std::uint64_t offset = entry->first;
        entry = unacked.erase(entry);
        release(offset);
    }
    announceShutdown();
}

void SiblingMessenger::tellOfDeath(const SiblingImplementation& dead)
{
    traceLine(" sibling ", dead.id, " is not shutting down normally");
    for (const std::int32_t id : parent_side->sibling_ids) {
        const std::string which = " Not notifying sibling " + text(id) + " that " + text(dead.id);
        traceLine(" Considering notifying sibling ", id);
        if (id == my_id) {
            traceLine(which, " died, since it is us.");
            continue;
        }
        if (id == dead.id) {
            traceLine(which, " died, since it is the dead sibling.");
            continue;
        }
        const auto found = siblings.find(id);
        if (found == siblings.end()) {
            traceLine(which, " died, since we can't find its implementation.");
            continue;
        }
        if (!found->second->fifo_writer.open) {
            traceLine(which, " died, since we don't have a handle.");
            continue;
        }
        traceLine(" SP: Sending MT_SiblingDied(", dead.id, ") to id ", id);
        try {
            deliver(found->second,
                    ControlMessage::ofSibling(ControlMessage::SiblingDied, dead.id, my_id));
        } catch (const ENoConnection&) {
            continue;  // it has gone, too
        }
    }
}

// ---- Shutdown ----------------------------------------------------------------------------------

void SiblingMessenger::shutDown()
{
    if (my_id == 0)
        assertion("The parent has nobody to ask for its shutdown");
    if (shutdown_state)
        return;
    shutdown_state = std::make_unique<ShutdownState>();
    announceShutdown();
}

// Behind all messages: what still waits for a connection would come when its reader has let this
// process go, and could not acknowledge it any more.
void SiblingMessenger::announceShutdown()
{
    if (!shutdown_state || shutdown_state->announced)
        return;
    const bool isWaiting = std::any_of(siblings.begin(), siblings.end(), [](const auto& entry) {
        return !entry.second->ostream.queued.empty();
    });
    // Without a parent nobody connects them.
    if (isWaiting && findSibling(0)->fifo_writer.open)
        return;
    shutdown_state->announced = true;
    try {
        toParent(ControlMessage::ofSibling(ControlMessage::InitShutdown, my_id, my_id));
    } catch (const ENoConnection&) {
        endShutdown();  // nobody is left to agree
    }
}

void SiblingMessenger::endShutdown()
{
    shutdown_state->acknowledged = true;
    shutdown_end.ready = true;
}

void SiblingMessenger::shutdownBegins(const ControlMessage& message)
{
    const std::int32_t id = message.id();
    SiblingImplementation* const leaving = findSibling(id);
    if (leaving->failed)
        return;  // it was lost before this could be read
    leaving->shutting_down = true;
    if (!parent_side) {
        leaving->awaiting_acks = true;
        leaving->ostream.ready = false;
        smQueueUpdated(leaving->istream.get());
        return;
    }
    std::set<std::int32_t>& waitsFor = parent_side->shutdown_waits[id];
    for (const auto& [other, peer] : siblings) {
        if (other != id && peer->fifo_writer.open)
            waitsFor.insert(other);
    }
    // A FIFO that breaks here takes its peer out of the set, and may let the child go already.
    const std::set<std::int32_t> asked = waitsFor;
    if (asked.empty())
        allowExit(id);
    for (const std::int32_t other : asked) {
        try {
            deliver(findSibling(other),
                    ControlMessage::ofSibling(ControlMessage::InitShutdown, id, my_id));
        } catch (const ENoConnection&) {
            continue;  // lost meanwhile, and counted
        }
    }
}

// Of a child: tells the parent once nothing is left between it and a peer that shuts down.
void SiblingMessenger::letGoIfDone(SiblingImplementation* peer)
{
    if (!peer->awaiting_acks || hasPending(*peer))
        return;
    traceLine(": ID: ", my_id, " got ack for all messages, allowing ", peer->id, " to shutdown");
    peer->awaiting_acks = false;
    try {
        toParent(ControlMessage::ofSibling(ControlMessage::AckShutdown, peer->id, my_id));
    } catch (const ENoConnection&) {
        traceLine(" has no parent to tell");
    }
    closeSibling(peer);
}

void SiblingMessenger::shutdownAnswered(const ControlMessage& message)
{
    if (!parent_side) {
        if (message.id() == my_id && shutdown_state)
            endShutdown();
        return;
    }
    const auto found = parent_side->shutdown_waits.find(message.id());
    if (found == parent_side->shutdown_waits.end() || found->second.erase(message.from) == 0)
        return;  // the child is gone, or its answer was counted as a loss
    traceLine("  sibling ", message.id(), " has ", found->second.size(), " to go");
    if (found->second.empty())
        allowExit(message.id());
}

void SiblingMessenger::allowExit(std::int32_t id)
{
    traceLine(" SP: parent got final ack for shutdown of child sibling ", id,
              ". Will allow child to exit (siblingGone).");
    const auto found = siblings.find(id);
    if (found == siblings.end())
        assertion("No sib impl at ack shutdown");
    try {
        deliver(found->second, ControlMessage::ofSibling(ControlMessage::AckShutdown, id, my_id));
    } catch (const ENoConnection&) {
        traceLine(" sibling ", id, " has gone without waiting for it");
    }
}

}  // namespace io
