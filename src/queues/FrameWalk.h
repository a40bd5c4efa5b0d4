// Walks over the bytes of a frame without making an event of them: finds where the frame ends,
// judges beforehand all for which the codec would throw or end the process, and can show each
// value where it lies.
//
// The walk goes by the types of WireType.h. It reads nothing beyond the bytes that it is given,
// takes no memory for what a count announces, and never waits, so it is for those who must not
// trust the other side, or who want to tell people what is wrong with it: readers of frames that
// come in pieces, and tools that show what is on the wire.
#pragma once

#include "common/errors.h"
#include "queues/WireType.h"
#include "queues/event_t.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace queues {

// A larger frame is taken for nonsense.
inline constexpr std::size_t maximumFrame = std::size_t{64} << 20U;

// Where in a frame something is.
struct FramePlace {
    std::size_t offset = 0;   // of the value, from the start of the outermost frame
    std::int32_t number = 0;  // of the event that it belongs to, the innermost one; 0: none yet
    // The way there: "type", "dest", "inresponse", "exception", "text", or labels of records with
    // the indices of elements: "properties[2].value", "ev.properties[2].name" through a nested
    // event. Of a payload that is no record, "payload". Of an entry of a map, counted from 0, both
    // key and value have the index of the entry.
    std::string field;
};

// No frame: no more of these bytes, and of those behind them, can be understood.
class EBadFrame : public error::TextException {
public:
    EBadFrame(const std::string& why, FramePlace where)
        : TextException(why), place(std::move(where))
    {}

    FramePlace place;
};

// What stands in front of a payload.
struct FrameStart {
    std::int32_t number = 0;
    queue_t dest = queue_t::none;
    std::int32_t inresponse = 0;
    bool exception = false;
};

// Is told what a walk meets, in the order of the bytes. The views and types are good during the
// call; a walk that ends early ends without the closing calls.
class FrameSink {
public:
    virtual ~FrameSink() = default;
    // The frame, and any frame nested in its payload: the start, the payload as one value, the end.
    // With the exception flag, the payload is a text.
    virtual void beginFrame(const FrameStart& start) = 0;
    virtual void endFrame() = 0;
    // A record or a variant, then field() in front of each value, then end(). A variant comes with
    // its tag, a record with 0. A tag without a variant is a null() and nothing else.
    virtual void beginRecord(const WireType& type, std::uint32_t tag) = 0;
    virtual void field(const char* label) = 0;
    // A list, set or array with so many elements, or a map with so many pairs of key and value.
    virtual void beginElements(const WireType& type, std::uint32_t count) = 0;
    virtual void end() = 0;
    virtual void null(std::uint32_t tag) = 0;
    // Any other value, of the fixed size of its form; or the bytes of a text or big number, or the
    // numbers of an identifier, without the count in front of them. `offset` is that of `bytes`.
    virtual void value(const WireType& type, std::string_view bytes, std::size_t offset) = 0;
};

struct WalkedFrame {
    bool whole = false;
    // Of the frame; if it isn't whole, how many bytes it has at the least, which is more than were
    // given.
    std::size_t size = 0;
    FramePlace place;  // if it isn't whole: of the value in which the bytes end
};

// Walks over the frame at the start of `bytes`. Throws EBadFrame; what has been walked over by then
// was good.
WalkedFrame walkFrame(std::string_view bytes, FrameSink* sink = nullptr);

}  // namespace queues
