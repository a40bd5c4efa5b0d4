// A child in a group of siblings, from the start of its process to its end.
//
//     io::SiblingChild child;          // the parent has started this program
//     io::Selector<int> selector;
//     selector.add(&child.some_sibling, 0);
//     for (;;) {
//         selector.poll();
//         io::Sibling sender = child.sibling(child.nextSender());
//         char* data = nullptr;
//         const std::uint64_t size = sender.istream().readBegin(&data);  // EEndOfStream: the parent
//         sender.istream().readCommit(use(data, size));                  // has ended
//     }
//
// All that messengers do holds (see Messenger.h). A child that wants to end in an orderly way calls
// shutDown(), and goes on reading until shutdown_end, in the same selector, is ready.
#pragma once

#include "io/HandleWatch.h"
#include "io/sibling/ChannelMessage.h"
#include "io/sibling/Messenger.h"
#include "platform/Channel.h"
#include "platform/OwnedDescriptor.h"
#include "platform/Process.h"
#include "platform/SharedMemory.h"

#include <cstdint>
#include <vector>

namespace io {

// What the parent sends first: there before the messenger, and gone after it.
struct SiblingWelcome {
    // Waits for it.
    explicit SiblingWelcome(int descriptor);

    platform::Channel channel;
    platform::SharedMemory memory;
    ChannelMessage message{};
    std::vector<platform::OwnedDescriptor> descriptors;
};

class SiblingChild : private SiblingWelcome, public SiblingMessenger {
public:
    // Takes over the end of the channel to the parent, and waits until the parent has told its part.
    // Throws an ESystemError if the descriptor is no such end, if the parent ends meanwhile, or if
    // it is of a program that speaks otherwise.
    explicit SiblingChild(int descriptor = platform::siblingDescriptor);

protected:
    void beforeRecord() override;
    void otherIsReady(Selectable* u) override;

private:
    void meet(const ChannelMessage& introduction, platform::OwnedDescriptor fifo);

    HandleWatch channel_watch;
};

}  // namespace io
