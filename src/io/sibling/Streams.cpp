// The streams of a peer, and the handles on it.

#include "common/assertion.h"
#include "common/text.h"
#include "io/Selector.h"
#include "io/sibling/Messenger.h"

#include <typeinfo>

namespace io {
namespace {

[[maybe_unused]] const bool registered = [] {
    registerManagedClass(typeid(OutputSignalWriter));
    return true;
}();

}  // namespace

OutputSignalWriter::OutputSignalWriter(SiblingImplementation* peer)
    : PipeOStream("OutputSignalWriter", platform::Handle::invalid), owner(peer)
{}

SiblingImplementation::SiblingImplementation(SiblingMessenger* of, std::int32_t sibling_id)
    : messenger(of),
      id(sibling_id),
      fifo_writer(this),
      istream(std::make_unique<SiblingIStream>(this)),
      ostream(this)
{}

SiblingImplementation::~SiblingImplementation()
{
    if (refs != 0)
        assertion("Sibling " + intToString(id) + " is in use at the end of its messenger");
}

// ---- Input -------------------------------------------------------------------------------------

SiblingIStream::SiblingIStream(SiblingImplementation* peer)
    : StackedSelectableFront(peer->messenger), owner(peer), curr_msg(peer->messenger->rmsgs.end())
{}

std::string SiblingIStream::name() const
{
    return "SiblingIStream[" + intToString(owner->id) + "]";
}

std::uint64_t SiblingIStream::readBegin(char** data)
{
    SiblingMessenger& messenger = *owner->messenger;
    const std::list<SiblingMessage>& rmsgs = messenger.rmsgs;
    if (!isReady())
        throw ENotReady(this);
    // What it had sent before its end can still be on its way.
    if (curr_msg != rmsgs.end() && curr_msg->isNull())
        messenger.drainIncoming();
    const bool isAtEnd = curr_msg == rmsgs.end();
    if (owner->failed && (rmsgs.empty() || isAtEnd)) {
        messenger.traceLine(" IStream for ID ", owner->id,
                            " will throw EOS because we have process error and no messages left");
        throw EEndOfStream(this, "readBegin had empty queue and process error");
    }
    if (!isAtEnd && curr_msg->isNull()) {
        messenger.traceLine(" IStream for ID ", owner->id,
                            " will throw EOS because we have the null message");
        throw EEndOfStream(this, "readBegin encountered the null message");
    }
    if (!rmsgs.empty() && rmsgs.front().from == owner->id && rmsgs.front().size == 0 &&
        owner->failed)
        throw error::ESystemError("Sibling " + intToString(owner->id) + " terminated unexpectedly");
    if (rmsgs.empty() && !isAtEnd)
        assertion("rmsgs empty (1) and curr_msg are out of sync for sibling: " +
                  intToString(owner->id));
    if (rmsgs.empty())
        assertion("rmsgs empty in SiblingIStream::readBegin() for sibling: " +
                  intToString(owner->id));
    if (isAtEnd)
        assertion("curr_msg does not hold a message for us");
    if (read_offset >= curr_msg->size)
        assertion("Message not larger than number of bytes read " + uint64ToString(read_offset));
    *data = messenger.payload(curr_msg->offset) + read_offset;
    return curr_msg->size - read_offset;
}

void SiblingIStream::readCommit(std::uint64_t count)
{
    SiblingMessenger& messenger = *owner->messenger;
    if (messenger.rmsgs.empty())
        assertion("Read committed with no messages in queue");
    if (curr_msg == messenger.rmsgs.end() || count > curr_msg->size - read_offset)
        assertion("Cannot commit more read data than what there was");
    read_offset += count;
    if (read_offset != curr_msg->size)
        return;
    const std::uint64_t offset = curr_msg->offset;
    try {
        messenger.deliver(
            owner, ControlMessage::ofOffset(ControlMessage::AckMessageAt, offset, messenger.my_id));
    } catch (const ENoConnection&) {
        messenger.traceLine(" Lost connection on ACK of message at offset ", offset,
                            " for sibling ", owner->id);
    }
    messenger.rmsgs.erase(curr_msg);
    curr_msg = messenger.rmsgs.end();
    read_offset = 0;
    messenger.smQueueUpdated(this);
    messenger.answerForArea(owner->id);
}

// ---- Output ------------------------------------------------------------------------------------

SiblingOStream::SiblingOStream(SiblingImplementation* peer)
    : StackedSelectableFront(peer->messenger), owner(peer)
{}

std::string SiblingOStream::name() const
{
    return "SiblingOStream[" + intToString(owner->id) + "]";
}

std::uint64_t SiblingOStream::writeBegin(char** space)
{
    SiblingMessenger& messenger = *owner->messenger;
    if (!isReady())
        throw ENotReady(this);
    if (owner->failed)
        throw EEndOfStream(this, "Write to failed process");
    if (messenger.shutdown_state) {
        if (owner->id != 0)
            throw EEndOfStream(this, "Write to non-parent disabled during shutdown");
        if (messenger.shutdown_state->acknowledged)
            throw EEndOfStream(this, "Write disabled due to acknowledged shutdown");
    }
    if (messenger.unnotified_sibling && messenger.unnotified_sibling != owner) {
        messenger.unnotified_sibling->ostream.flushMessage();
        if (messenger.unnotified_sibling)
            assertion("Even after flush, our unnotified sibling still exist");
    }
    // All messages in the making would share one block.
    if (messenger.anyWriting())
        assertion("Multiple OStreams writing");
    owner->writing = true;
    *space = messenger.unnotified_sibling
                 ? messenger.payload(messenger.block_off) + messenger.write_offset
                 : messenger.beginBlock();
    return messenger.write_size - messenger.write_offset;
}

void SiblingOStream::writeCommit(std::uint64_t count)
{
    SiblingMessenger& messenger = *owner->messenger;
    if (!owner->writing)
        assertion("Commit without an OStream writing");
    owner->writing = false;
    if (messenger.unnotified_sibling && messenger.unnotified_sibling != owner)
        assertion("writeCommit found a completely different unnotified_sibling");
    messenger.unnotified_sibling = owner;
    if (count == 0)
        return;
    messenger.write_offset += count;
    if (messenger.write_offset > messenger.write_size)
        assertion("write offset " + uint64ToString(messenger.write_offset) +
                  " above current block size " + uint64ToString(messenger.write_size) +
                  " after adding " + uint64ToString(count));
    flushMessage();
}

// Announces the message that is being written, of whichever peer.
void SiblingOStream::flushMessage()
{
    SiblingMessenger& messenger = *owner->messenger;
    if (owner->writing)
        assertion("Flush called with write in progress!");
    SiblingImplementation* const peer = messenger.unnotified_sibling;
    if (!peer)
        return;
    if (peer != owner) {
        peer->ostream.flushMessage();
        return;
    }
    // It goes first: what follows can lead to the end of this very peer.
    messenger.unnotified_sibling = nullptr;
    if (messenger.write_offset == 0) {
        messenger.abandonBlock();
        return;
    }
    const std::uint64_t offset = messenger.finishBlock();
    if (messenger.block_off == SiblingArea::noBlock)
        messenger.setUnconnectedReady(false);
    messenger.unacked.emplace(offset, owner->id);
    try {
        messenger.deliver(
            owner, ControlMessage::ofOffset(ControlMessage::MessageAt, offset, messenger.my_id));
    } catch (const ENoConnection&) {
        queued.push_back(offset);
        messenger.traceLine("ID ", messenger.my_id, " cannot write to ", owner->id,
                            " - requesting from parent...");
        messenger.requestConnection(owner);
    }
}

// ---- Handles -----------------------------------------------------------------------------------

Sibling::Sibling(SiblingImplementation* peer) : implementation(peer)
{
    ++implementation->refs;
}

Sibling::Sibling(const Sibling& other) : Sibling(other.implementation)
{}

Sibling& Sibling::operator=(const Sibling& other)
{
    Sibling copy(other);
    std::swap(implementation, copy.implementation);
    return *this;
}

Sibling::~Sibling()
{
    if (implementation->refs == 0)
        assertion("Reference count zero at Sibling destructor");
    --implementation->refs;
}

void Sibling::dropNullMessage()
{
    SiblingMessenger& messenger = *implementation->messenger;
    SiblingIStream& stream = *implementation->istream;
    if (stream.curr_msg == messenger.rmsgs.end() || !stream.curr_msg->isNull())
        assertion("No null message of sibling " + intToString(implementation->id) + " to drop");
    messenger.rmsgs.erase(stream.curr_msg);
    stream.curr_msg = messenger.rmsgs.end();
    messenger.smQueueUpdated(&stream);
}

}  // namespace io
