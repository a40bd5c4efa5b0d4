// Messages between sibling processes, without copying them through a pipe.
//
// A group is a parent, with sibling id 0, and its children. A message lies as a block in the area
// of its writer (see Area.h). The notice that it is there, and all else that siblings have to tell
// each other, goes as a record of 8 bytes (see ControlMessage.h) over a FIFO. Each process reads
// one FIFO, in which all its peers write.
//
//     io::Sibling peer = messenger.sibling(3);
//     char* space = nullptr;
//     const std::uint64_t room = peer.ostream().writeBegin(&space);   // wait until it is ready
//     peer.ostream().writeCommit(fill(space, room));                  // one message
//
//     selector.add(&messenger.some_sibling, 0);                       // ready: somebody has written
//     io::Sibling sender = messenger.sibling(messenger.nextSender());
//     char* data = nullptr;
//     const std::uint64_t size = sender.istream().readBegin(&data);   // in the writer's own area
//     sender.istream().readCommit(use(data, size));                   // all of it: it is free again
//
// The streams are streams of bytes: the room that writeBegin gives can be a few bytes, and what is
// to arrive in one piece may have to go in several messages.
//
// Order: what is told to all peers leaves in the order in which it was put in, so a message for a
// peer that can't take it holds back what comes behind it. Acknowledgements overtake. At most one
// peer has bytes that didn't fit in its FIFO, and while it has, no other is written.
//
// A peer that isn't connected is asked of the parent when something is written to it; the message
// is announced as soon as its FIFO has been opened. A message that a lost peer has not acknowledged
// is dropped, and its block is free again.
//
// SiblingMessenger is given a mapped region and its FIFOs, by SiblingParent and SiblingChild. At
// most 4096 bytes enter a FIFO at a time, as a whole, so a writer that dies leaves no part of a
// record.
#pragma once

#include "common/errors.h"
#include "io/Pipe.h"
#include "io/Stream.h"
#include "io/sibling/Area.h"
#include "io/sibling/ControlMessage.h"

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace io {

class SiblingMessenger;
class SiblingImplementation;

class ENoConnection : public error::Exception {
public:
    std::string text() const override { return "No connection to other SiblingMessenger"; }
};

// A message that has come. The null message (offset and size 0) is the end of all.
struct SiblingMessage {
    std::int32_t from;
    std::uint64_t offset;
    std::uint64_t size;  // in bytes

    bool isNull() const { return offset == 0 && size == 0; }
};

// The FIFO of a peer, for writing.
class OutputSignalWriter : public PipeOStream {
public:
    explicit OutputSignalWriter(SiblingImplementation* peer);

    SiblingImplementation* owner;
    bool open = false;
};

// Messages of a peer, as one stream of bytes: each readBegin shows the rest of one message.
class SiblingIStream : public IStream, public StackedSelectableFront {
public:
    explicit SiblingIStream(SiblingImplementation* peer);

    std::string name() const override;
    // Throws ENotReady, EEndOfStream, or an ESystemError for a peer that ended in the middle.
    std::uint64_t readBegin(char** data) override;
    // Acknowledges a message that is used up.
    void readCommit(std::uint64_t count) override;
    void close() override {}

private:
    friend class SiblingMessenger;
    friend class Sibling;

    SiblingImplementation* owner;
    std::uint64_t read_offset = 0;  // bytes of the current message that have been read
    std::list<SiblingMessage>::iterator curr_msg;
};

// Messages to a peer: each commit of at least one byte is one, and is announced at once.
class SiblingOStream : public OStream, public StackedSelectableFront {
public:
    explicit SiblingOStream(SiblingImplementation* peer);

    std::string name() const override;
    // Throws ENotReady, or EEndOfStream if nothing can be written to the peer any more.
    std::uint64_t writeBegin(char** space) override;
    void writeCommit(std::uint64_t count) override;
    void close() override {}

private:
    friend class SiblingMessenger;

    void flushMessage();

    SiblingImplementation* owner;
    std::list<std::uint64_t> queued;  // messages that couldn't be announced yet
};

// A peer, as seen from this process.
class SiblingImplementation {
public:
    SiblingImplementation(SiblingMessenger* of, std::int32_t sibling_id);
    SiblingImplementation(const SiblingImplementation&) = delete;
    SiblingImplementation& operator=(const SiblingImplementation&) = delete;
    ~SiblingImplementation();

    std::uint64_t refs = 0;  // how many Sibling handles there are
    SiblingMessenger* messenger;
    std::int32_t id;
    bool shutting_down = false;  // in an orderly way
    bool writing = false;        // between a writeBegin and its writeCommit
    bool awaiting_acks = false;  // AckShutdown is due once nothing is left between us
    std::list<ControlMessage> unordered;
    OutputSignalWriter fifo_writer;
    std::unique_ptr<SiblingIStream> istream;
    bool failed = false;  // for good
    SiblingOStream ostream;
};

// A counted handle on a peer. The messenger must outlive it.
class Sibling {
public:
    explicit Sibling(SiblingImplementation* peer);
    Sibling(const Sibling& other);
    Sibling& operator=(const Sibling& other);
    ~Sibling();

    std::int32_t id() const { return implementation->id; }
    SiblingIStream& istream() const { return *implementation->istream; }
    SiblingOStream& ostream() const { return implementation->ostream; }
    // Takes the null message off the stream, after its end has been handled.
    void dropNullMessage();

private:
    SiblingImplementation* implementation;
};

// Ready while a message of any peer is there.
class SomeSibling : public StackedSelectableFront {
public:
    using StackedSelectableFront::StackedSelectableFront;
    std::string name() const override { return "SomeSibling"; }

private:
    friend class SiblingMessenger;
};

// Ready once the shutdown of this process has been acknowledged.
class ShutdownAcknowledged : public StackedSelectableFront {
public:
    using StackedSelectableFront::StackedSelectableFront;
    std::string name() const override { return "ShutdownAcknowledged"; }

private:
    friend class SiblingMessenger;
};

// The parent's bookkeeping. Children have none.
class SiblingParentSide {
public:
    virtual ~SiblingParentSide() = default;
    // `requester`, who can be the parent itself, wants a connection to `target`.
    virtual void requestPeer(std::int32_t target, std::int32_t requester) = 0;
    // The child `id` has taken over its end.
    virtual void siblingIsUp(std::int32_t id) = 0;
    // `from` has nothing more to read in the area of the ended child `id`.
    virtual void areaLeft(std::int32_t id, std::int32_t from) = 0;

    std::list<std::int32_t> sibling_ids;
    // By the id of a child that is shutting down: who has yet to answer for it.
    std::map<std::int32_t, std::set<std::int32_t>> shutdown_waits;
};

class SiblingMessenger : public StackedSelectableBack, public SiblingArea {
public:
    // Where the messengers of the process tell what they do; null by default.
    static std::ostream* trace;

    // `incoming` is the end of the FIFO from which this process reads, and is owned from now on.
    // The region, mapped at `base`, must outlive the messenger. `parentSide` is null in a child.
    SiblingMessenger(std::int32_t ownId, SiblingParentSide* parentSide, platform::Handle incoming,
                     char* base, std::uint64_t size, std::uint64_t areaStart,
                     std::uint64_t areaSize);
    ~SiblingMessenger() override;

    Sibling sibling(std::int32_t id);
    SiblingImplementation* findSibling(std::int32_t id);
    // The peer from which a read can be done now: some_sibling is ready.
    std::int32_t nextSender();
    std::int32_t ownId() const { return my_id; }
    // Takes over the end of the peer's FIFO to write to, and announces what waits for it. One that
    // is open already stays as it is.
    void openFifo(std::int32_t id, platform::Handle fifo);
    // The same, for who asked for the connection: tells the peer first that it is up.
    void greet(std::int32_t id, platform::Handle fifo);
    // For the other side: keeps the end until the peer has told that it is up. Before that it has no
    // FIFO to this process, and could not acknowledge what is written to it.
    void holdFifo(std::int32_t id, platform::Handle fifo);
    bool isConnected(std::int32_t id) const;

    // For a child: asks to end in an orderly way. From now on it can write to the parent alone, and
    // should read until shutdown_end is ready, so that its peers can let it go.
    void shutDown();
    bool isShutdownAcknowledged() const { return shutdown_state && shutdown_state->acknowledged; }

    void setWriteReady(bool isReady) override;
    void setFifoWatch(SiblingImplementation* peer, bool watch);
    void fifoReadyForWriting(SiblingImplementation* peer);
    void siblingGone(SiblingImplementation* peer);
    // The same, and lets go what the peer held back.
    void lose(SiblingImplementation* peer);
    void underlyingIsReady(Selectable* u) override;

    // Sends a control message. Throws ENoConnection if there is no FIFO to the peer.
    void deliver(SiblingImplementation* peer, const ControlMessage& message);
    void toParent(const ControlMessage& message);
    // Takes in all records that have come so far.
    void drainIncoming();
    // Whether messages of a sibling are still to be read, wholly or in part.
    bool hasUnread(std::int32_t id) const;
    // Frees what is known of a sibling that has ended. False if somebody still needs it.
    bool forget(std::int32_t id);

private:
    friend class SiblingIStream;
    friend class SiblingOStream;
    friend class Sibling;
    struct ShutdownState {
        bool announced = false;
        bool acknowledged = false;
    };

    // The order of the fields is that of their destruction, backwards: the peers and some_sibling
    // go before what they lean on.
    SiblingParentSide* parent_side;
    std::int32_t my_id;
    std::map<std::uintptr_t, std::int32_t> reader_ids;  // by the address of the peer
    std::map<std::uint64_t, std::int32_t> unacked;      // id of the receiver by block
    std::map<std::int32_t, SiblingImplementation*> siblings;
    std::list<std::pair<std::int32_t, ControlMessage>> ordered;  // with the target
    std::vector<SiblingImplementation*> watched;
    SiblingImplementation* unflushed_sibling = nullptr;
    bool write_ready = true;
    std::unique_ptr<ShutdownState> shutdown_state;

public:
    SomeSibling some_sibling;
    ShutdownAcknowledged shutdown_end;

protected:
    // Called before a record that can lean on a connection which the parent has sent, and which is
    // to be taken in first.
    virtual void beforeRecord() {}
    // Something else that is watched underneath is ready.
    virtual void otherIsReady(Selectable* /*u*/) {}

private:
    // The parts are looked at only if somebody wants to know.
    template <class... Parts>
    void traceLine(const Parts&... parts) const
    {
        if (trace)
            (beginTraceLine() << ... << parts) << '\n';
    }
    std::ostream& beginTraceLine() const;
    void requestConnection(SiblingImplementation* peer);
    void fifoWrite(SiblingImplementation* peer);
    bool writeRecords(SiblingImplementation* peer);
    void writeOthers();
    bool countsAsConnected(const SiblingImplementation& peer) const;
    void closeSibling(SiblingImplementation* peer);
    void tellOfDeath(const SiblingImplementation& dead);
    void dropUnacked(SiblingImplementation* peer);
    void release(std::uint64_t offset);
    void smQueueUpdated(SiblingIStream* stream);
    void letGoIfDone(SiblingImplementation* peer);
    bool hasPending(const SiblingImplementation& peer) const;
    void setUnconnectedReady(bool isReady);
    bool anyWriting() const;

    bool readRecords();
    void incomingBroke();
    void received(const ControlMessage& message);
    void messageCame(const ControlMessage& message);
    void acknowledged(const ControlMessage& message);
    void announceShutdown();
    void endShutdown();
    void shutdownBegins(const ControlMessage& message);
    void shutdownAnswered(const ControlMessage& message);
    void allowExit(std::int32_t id);
    bool attach(SiblingImplementation* peer, platform::Handle fifo);
    void announceQueued(SiblingImplementation* peer);
    void peerIsUp(std::int32_t id);
    void areaAsked(std::int32_t id);
    void answerForArea(std::int32_t id);

    std::list<SiblingMessage> rmsgs;
    std::map<std::int32_t, platform::Handle> held;        // FIFOs to peers that are not up yet
    std::map<std::int32_t, bool> asked_areas;             // by the ended sibling: whether answered
    SiblingImplementation* unnotified_sibling = nullptr;  // whose message is being written
    PipeIStream incoming_fifo;
    std::string record_rest;  // of a record that has come in part
};

}  // namespace io
