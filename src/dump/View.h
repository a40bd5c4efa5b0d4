// The forms in which events, and what is no event, are shown.
//
//   text    a heading with where it lies, and the print form of the event, for people
//   fields  the heading, and a row for each value with its bytes
//   json    JSON Lines: an object for each event, and one for each frame that is none
//
// What can't be decoded is told on the error stream in each form, with what was read of it and
// the bytes around the place.
#pragma once

#include "queues/FrameWalk.h"

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>

namespace dump {

// Of which stream something is, and when it came.
struct Source {
    bool recorded = false;  // otherwise the input is one stream, and the rest is unknown
    std::int64_t time = 0;  // microseconds since 1970 UTC
    std::uint32_t worker = 0;
    bool toWorker = false;
};

struct BadFrame {
    std::uint64_t offset = 0;  // in its stream
    std::string_view bytes;    // of the frame, as far as they tell that it is bad
    queues::FramePlace place;  // where in it
    std::string why;
    bool cut = false;  // it is good as far as it goes
};

enum class Form { text, fields, json };

class View {
public:
    // Neither is owned.
    View(std::ostream& stream, std::ostream& errorStream) : out(stream), err(errorStream) {}
    virtual ~View() = default;
    View(const View&) = delete;
    View& operator=(const View&) = delete;

    // `frame` is one that queues::walkFrame takes for whole. `offset` is that in its stream.
    virtual void event(const Source& source, std::uint64_t offset, std::string_view frame) = 0;
    virtual void started(const Source& source) = 0;
    // `how` completes "the worker ".
    virtual void ended(const Source& source, const std::string& how) = 0;
    virtual void badFrame(const Source& source, const BadFrame& bad);
    // The recording can't be read on from the offset.
    virtual void badRecording(std::uint64_t offset, const std::string& why);

protected:
    std::ostream& out;

private:
    std::ostream& err;
};

std::unique_ptr<View> makeView(Form form, std::ostream& out, std::ostream& err);

}  // namespace dump
