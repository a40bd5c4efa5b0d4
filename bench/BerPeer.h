// A message of the client protocol as one of Protocol Buffers, the peer of our encoding. Its
// headers stay behind this one.
#pragma once

#include "protocol/Messages.h"

#include <cstddef>
#include <memory>

namespace bench {

class BerPeer {
public:
    // Throws std::runtime_error if the message has a value that the peer has no field for, or if
    // what it is written to doesn't read as the same.
    explicit BerPeer(const protocol::Response& response);
    explicit BerPeer(const protocol::CheckinReq& request);
    ~BerPeer();
    BerPeer(const BerPeer&) = delete;
    BerPeer& operator=(const BerPeer&) = delete;

    std::size_t writtenSize() const;
    // Into the buffer of the time before.
    void write();
    // Into a message of its own, which is made and freed. Both read the bytes in pieces.
    void readFresh() const;
    // Into the message of the time before, which keeps its memory.
    void readReused();

private:
    struct Messages;

    void check();

    std::unique_ptr<Messages> messages;
};

}  // namespace bench
