// Streams in memory for what runs through the wire encoding: always ready, with areas of 4096
// bytes, as the pipes to the parent have.
#pragma once

#include "io/Stream.h"
#include "queues/event.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

namespace bench {

inline constexpr std::size_t areaSize = 4096;

// The same bytes over and over.
class Source : public io::IStream {
public:
    explicit Source(std::string frames) : bytes(std::move(frames)) {}
    std::string name() const override { return "source"; }
    bool isReady() override { return true; }
    std::uint64_t readBegin(char** data) override
    {
        *data = bytes.data() + position;
        return std::min(areaSize, bytes.size() - position);
    }
    void readCommit(std::uint64_t count) override { position = (position + count) % bytes.size(); }
    void close() override {}

private:
    std::string bytes;
    std::size_t position = 0;
};

// Counts what is written, and keeps it if there is a `keep`.
class Sink : public io::OStream {
public:
    std::string name() const override { return "sink"; }
    bool isReady() override { return true; }
    std::uint64_t writeBegin(char** space) override
    {
        *space = area;
        return sizeof area;
    }
    void writeCommit(std::uint64_t count) override
    {
        if (keep != nullptr)
            keep->append(area, count);
        total += count;
    }
    void close() override {}

    std::uint64_t total = 0;
    std::string* keep = nullptr;

private:
    char area[areaSize];
};

// The event's frame, so many times.
inline std::string framesOf(const queues::event& e, int count = 1)
{
    std::string frames;
    Sink sink;
    sink.keep = &frames;
    protocol::ioprim recorder(nullptr, &sink);
    for (int i = 0; i < count; ++i)
        recorder << e;
    recorder.flush();
    return frames;
}

}  // namespace bench
