// Takes the bytes that went through the pipes of workers apart into events, and shows each as soon
// as its last byte has come.
//
// The input is one stream of frames of either direction, or a recording (see Recording.h), which is
// told by its first bytes. The pieces of a recording are joined for each worker and direction, and
// offsets are those in the stream so joined: what a parent's author counts.
//
// Behind a frame that can't be decoded its stream is not looked at any more; those of a recording
// are independent of each other. No bytes end the process, and of each stream no more is held than
// one frame, of queues::maximumFrame bytes at most.
#pragma once

#include "dump/Recording.h"
#include "dump/View.h"
#include "queues/FrameWalk.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>

namespace dump {

// The frames of one stream.
class FrameStream {
public:
    // Shows the frames that end within the bytes.
    void append(std::string_view bytes, const Source& source, View& view);
    // No more bytes come: shows what is left as a frame that is cut off.
    void finish(const Source& source, View& view);
    bool isUnderstood() const { return understood; }

private:
    // False if no whole frame is left.
    bool showNext(const Source& source, View& view);
    void refuse(const Source& source, View& view, const queues::EBadFrame& e);

    std::string buffer;
    std::size_t begin = 0;     // of the unread bytes in it
    std::uint64_t offset = 0;  // of these in the stream
    std::size_t wanted = 1;    // before that many unread bytes have come, there is no next frame
    bool understood = true;
};

class Dump {
public:
    // The view is not owned.
    explicit Dump(View& shown) : view(shown) {}

    void append(std::string_view bytes);
    // The input is at its end.
    void finish();
    // False once something could not be decoded.
    bool isUnderstood() const { return understood; }

private:
    void take(std::string_view bytes);
    void takeRecorded(std::string_view bytes);
    void takeEntry(const Entry& entry);
    void finishWorker(Source source);
    void refuseRecording(const EBadRecording& e);

    View& view;
    bool understood = true;
    std::string head;  // the first bytes, until they tell what the input is
    bool started = false;
    bool recorded = false;
    bool recordingIsBad = false;  // nothing more of it can be read
    FrameStream stream;           // if it is no recording
    RecordingReader reader;
    std::map<std::pair<std::uint32_t, bool>, FrameStream> streams;  // by worker and "to worker"
    std::int64_t lastTime = 0;                                      // of the recording
};

}  // namespace dump
