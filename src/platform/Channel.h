// A connection between two processes on which open descriptors travel with a message.
#pragma once

#include "platform/Overlapped.h"
#include "platform/OwnedDescriptor.h"

#include <cstddef>
#include <span>
#include <vector>

namespace platform {

// One end. Messages arrive whole, in order, each with its descriptors; a process that ends has sent
// a message or has not. Nothing blocks, but waitForMessage.
class Channel {
public:
    enum class Received : std::uint8_t {
        message,
        nothing,  // none has come yet
        end,      // the other end is closed, and all that it sent has been received
        failed,   // see getLastError()
    };

    // How many descriptors a message can have.
    static constexpr std::size_t mostDescriptors = 8;

    Channel() = default;
    ~Channel();
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    // These two once, either of them. False with getLastError() set.

    // Makes a channel, with its other end in *peer, for another process to adopt.
    bool open(OwnedDescriptor* peer);
    // Takes over an end. ERROR_INVALID_HANDLE if it is not open or no end of a channel.
    bool adopt(OwnedDescriptor end);

    bool isOpen() const { return socket != 0; }

    // The descriptors stay the caller's. False with getLastError() set: ERROR_IO_PENDING if the
    // channel is full, ERROR_BROKEN_PIPE if the other end is closed, ERROR_TOO_MANY_OPEN_FILES if
    // as many descriptors are on their way, over all channels of the user, as this process may have
    // open. Nothing tells when there are fewer.
    bool send(const void* data, std::size_t size, std::span<const int> descriptors);
    // Takes the next message. One that isn't `size` bytes long fails with WSAEMSGSIZE, and so
    // does one with more than mostDescriptors; nothing of it is left open then.
    Received receive(void* data, std::size_t size, std::vector<OwnedDescriptor>* descriptors);
    // The same, but waits as long as nothing has come. Routines run meanwhile.
    Received waitForMessage(void* data, std::size_t size,
                            std::vector<OwnedDescriptor>* descriptors);

    // A waitable object: signalled while there can be something to receive, until receive gives
    // `nothing`; and when there is room again after a send has failed for lack of it. It goes with
    // the channel.
    Handle ready() const { return waitable; }

private:
    std::uint64_t socket = 0;  // what the engine knows it by; 0: none
    Handle waitable = Handle::none;
};

}  // namespace platform
