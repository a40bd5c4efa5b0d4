#include "io/sibling/Child.h"

#include "common/assertion.h"
#include "common/errors.h"
#include "common/text.h"

#include <utility>

namespace io {
namespace {

constexpr std::size_t welcomeDescriptors = 3;  // the region, the own FIFO, the parent's

bool liesWithin(const ChannelMessage& welcome, std::uint64_t regionSize)
{
    return welcome.areaSize % 8 == 0 && welcome.areaStart % 8 == 0 &&
           welcome.areaStart <= regionSize && welcome.areaSize <= regionSize - welcome.areaStart;
}

}  // namespace

SiblingWelcome::SiblingWelcome(int descriptor)
{
    using Received = platform::Channel::Received;
    const std::string what = "Descriptor " + intToString(descriptor) + " leads to no parent";
    if (!channel.adopt(platform::OwnedDescriptor(descriptor)))
        throwSystemError(platform::getLastError(), what);
    switch (channel.waitForMessage(&message, sizeof message, &descriptors)) {
    case Received::message:
        break;
    case Received::end:
        throw error::ESystemError("The parent has ended before it told its part");
    case Received::nothing:
    case Received::failed:
        throwSystemError(platform::getLastError(), what);
    }
    if (message.kind != ChannelMessage::welcome || descriptors.size() != welcomeDescriptors)
        throw error::ESystemError(what + ": it speaks otherwise");
    if (!memory.attach(descriptors[0].take()))
        throwSystemError(platform::getLastError(), "Can't map the region of the siblings");
    if (!liesWithin(message, memory.size()))
        throw error::ESystemError(what + ": it gives an area outside the region");
}

SiblingChild::SiblingChild(int descriptor)
    : SiblingWelcome(descriptor),
      SiblingMessenger(message.id, nullptr, descriptors[1].toHandle(), memory.base(), memory.size(),
                       message.areaStart, message.areaSize),
      channel_watch("channel to the parent", channel.ready())
{
    openFifo(0, descriptors[2].toHandle());
    watchUnderlying(&channel_watch, true);
    toParent(ControlMessage::ofSibling(ControlMessage::IAmUp, ownId(), ownId()));
}

// An introduction can be of the peer that has sent the next record.
void SiblingChild::beforeRecord()
{
    using Received = platform::Channel::Received;
    ChannelMessage introduction{};
    std::vector<platform::OwnedDescriptor> fifo;
    for (;;) {
        switch (channel.receive(&introduction, sizeof introduction, &fifo)) {
        case Received::message:
            if (fifo.size() != 1)
                assertion("The parent introduces a sibling without a FIFO");
            meet(introduction, std::move(fifo.front()));
            break;
        case Received::nothing:
            return;
        case Received::end:
            watchUnderlying(&channel_watch, false);
            lose(findSibling(0));
            return;
        case Received::failed:
            throwSystemError(platform::getLastError(), "Error in the channel to the parent");
        }
    }
}

void SiblingChild::meet(const ChannelMessage& introduction, platform::OwnedDescriptor fifo)
{
    switch (introduction.kind) {
    case ChannelMessage::caller:
        holdFifo(introduction.id, fifo.toHandle());
        return;
    case ChannelMessage::host:
        greet(introduction.id, fifo.toHandle());
        return;
    case ChannelMessage::welcome:
        break;
    }
    assertion("Unknown message of the parent: " + uintToString(introduction.kind));
}

void SiblingChild::otherIsReady(Selectable* /*u*/)
{
    beforeRecord();
}

}  // namespace io
