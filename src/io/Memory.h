// Streams over memory, for the codec: frames are written to and read from buffers, so that a
// worker that has stopped can never hold up its parent in the middle of a frame.
//
// Both are always ready; nothing ever waits on them.
#pragma once

#include "io/Stream.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace io {

// Gives the bytes of a view. At their end, readBegin throws EEndOfStream.
class MemoryIStream final : public IStream {
public:
    // The bytes must live, and not move, until the stream has been given others.
    void setBytes(std::string_view bytes) { unread = bytes; }
    std::size_t left() const { return unread.size(); }

    std::string name() const override { return "MemoryIStream"; }
    bool isReady() override { return true; }
    std::uint64_t readBegin(char** data) override;
    void readCommit(std::uint64_t count) override;
    void close() override { unread = {}; }

private:
    std::string_view unread;
};

// Keeps what is written until it is taken from the front. Grows without a bound.
class MemoryOStream final : public OStream {
public:
    // What was committed and not yet taken. Good until the next call of any other operation.
    std::string_view bytes() const;
    void take(std::size_t count);

    std::string name() const override { return "MemoryOStream"; }
    bool isReady() override { return true; }
    std::uint64_t writeBegin(char** space) override;
    void writeCommit(std::uint64_t count) override;
    void close() override {}

private:
    static constexpr std::size_t step = 4096;

    std::string buffer;     // taken bytes, committed bytes, room
    std::size_t begin = 0;  // of the committed bytes
    std::size_t end = 0;
};

}  // namespace io
