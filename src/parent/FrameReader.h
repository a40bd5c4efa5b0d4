// Cuts what a worker sends into events.
//
// Bytes are appended as they come; an event is decoded only when its frame is whole, so decoding
// never waits. Where a frame ends is found by a walk over its bytes. A walk that falls short knows
// how many bytes it lacks at the least, and the next one is made only when they have come: a text
// of a megabyte that comes in pieces costs two walks and one copy.
//
// What the bytes hold is the worker's word and is judged before the decoder sees it: a number, a
// length or a count that no worker sends is an EBadFrame, and nothing more can be read then.
#pragma once

#include "io/Memory.h"
#include "queues/FrameWalk.h"
#include "queues/event.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace parent {

class FrameReader {
public:
    void append(std::string_view bytes);
    // The next event: a SYSTEM_LOG_REQUEST, a CHECK_RESULT or an exception. Null if its frame is
    // not whole yet. Throws queues::EBadFrame.
    std::unique_ptr<queues::event> next();
    // True if a frame has begun and is not whole.
    bool inFrame() const { return begin != buffer.size(); }

private:
    std::string buffer;       // decoded bytes, then those still to be decoded
    std::size_t begin = 0;    // of the latter
    std::size_t wanted = 16;  // how many of them the next walk needs at the least
    io::MemoryIStream source;
};

}  // namespace parent
