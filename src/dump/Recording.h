// Recordings of what a parent and its workers say to each other, in a file.
//
//   file:    8 bytes "NETCHKR1", then entries, one after the other
//   entry:   0  uint32  kind (Entry::Kind)
//            4  uint32  worker, counted from 1 over the whole recording
//            8  int64   microseconds since 1970 UTC
//           16  uint32  n, at most 1 MiB
//           20  n bytes
//
// Numbers lie as in memory, little-endian. "alive" from worker 1 at the time 1000000000 s is
//
//   01 00 00 00  01 00 00 00  00 80 C6 A4 7E 8D 03 00  05 00 00 00  61 6C 69 76 65
//
// The bytes are pieces as they went through a pipe: they begin and end anywhere in frames, and
// those of one worker and direction make its stream when they are joined. A recording holds all
// that was sent, passwords included.
//
// A recording can end anywhere: its writer may have been killed, or its disk full.
#pragma once

#include "common/errors.h"
#include "platform/File.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace dump {

struct Entry {
    enum class Kind : std::uint32_t {
        toWorker = 0,    // bytes that the parent wrote
        fromWorker = 1,  // bytes that the parent read
        started = 2,     // a worker was started; no bytes
        ended = 3,       // no more of this worker follows; the bytes complete "the worker "
    };

    // Of the bytes of one entry. A longer piece makes several.
    static constexpr std::size_t maximumBytes = std::size_t{1} << 20U;

    Kind kind = Kind::toWorker;
    std::uint32_t worker = 0;  // counted from 1
    std::int64_t time = 0;     // microseconds since 1970 UTC
    std::string bytes = {};
    bool operator==(const Entry&) const = default;
};

// How many bytes at the start of a file tell whether it is a recording.
inline constexpr std::size_t recordingStart = 8;
// False if there are fewer.
bool isRecording(std::string_view firstBytes);

// Writes a recording. Each entry is with the system when write() returns.
class RecordingWriter {
public:
    // Learns why no more is recorded; the text is not made fit to be shown. It is told once, from
    // within write() or the constructor, and must not throw.
    using Complaint = std::function<void(const std::string& why)>;

    // Overwrites a file that is there; a new one is readable by its owner alone. Throws
    // error::ESystemError if the file can't be created. Should it not take what is written to it
    // later, the recording ends there.
    RecordingWriter(const std::string& path, Complaint whenIncomplete);

    // The time is that of the call. The text of an end is cut to what one entry holds.
    void write(Entry::Kind kind, std::uint32_t worker, std::string_view bytes = {});

private:
    void put(std::string_view bytes);

    std::string name;
    Complaint complain;
    platform::OutputFile file;
    bool failed = false;
    std::string encoded;  // of the entry that is being written; keeps its memory
};

// What is in no recording. Nothing behind it can be understood.
class EBadRecording : public error::TextException {
public:
    EBadRecording(const std::string& why, std::uint64_t where) : TextException(why), offset(where)
    {}

    std::uint64_t offset;  // of what is bad, from the start of the file
};

// Takes a recording apart. Bytes are appended as they come; a length is judged before anything is
// done by it, so what is kept is one entry at the most and what was appended at once.
class RecordingReader {
public:
    void append(std::string_view bytes);
    // Gives the next entry; false if it is not whole yet. Throws EBadRecording, and again at every
    // call that follows.
    bool next(Entry* entry);
    // Where in the file the next entry begins.
    std::uint64_t offset() const { return position; }
    // True if the recording is cut off should it end here: in the first 8 bytes, or in an entry.
    bool inEntry() const { return position < recordingStart || begin != buffer.size(); }

private:
    std::string buffer;          // bytes of entries that were given, then those still unread
    std::size_t begin = 0;       // of the latter
    std::uint64_t position = 0;  // of these in the file
};

}  // namespace dump
