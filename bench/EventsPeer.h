// An event as a message of Protocol Buffers, the peer of our encoding. Its headers stay behind
// this one.
#pragma once

#include "queues/event.h"

#include <cstddef>
#include <memory>

namespace bench {

class EventsPeer {
public:
    // Fills the message from the event. Throws std::runtime_error if the message has other fields
    // than the event, or if what it encodes to doesn't decode to the same.
    explicit EventsPeer(const queues::event& e);
    ~EventsPeer();
    EventsPeer(const EventsPeer&) = delete;
    EventsPeer& operator=(const EventsPeer&) = delete;

    std::size_t encodedSize() const;
    // Into the buffer of the time before.
    void encode();
    // Into a message of its own, which is made and freed.
    void decodeFresh() const;
    // Into the message of the time before, which keeps its memory.
    void decodeReused();

private:
    struct Messages;
    std::unique_ptr<Messages> messages;
};

}  // namespace bench
