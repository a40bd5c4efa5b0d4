// A frame as a table: each value with where it lies, its bytes and what they mean.
//
//        at  bytes                    field                    meaning
//         0  86 00 00 00              type                     CHECK_REQUEST
//        ...
//        16  01 00 00 00 00 00 00 00  host                     1 byte
//        24  61                       host                     "a"
//
// What stands in front of a value, a count or a tag, has a row of its own.
#pragma once

#include "queues/FrameWalk.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace dump {

struct FieldRow {
    std::size_t offset;  // from the start of the frame
    std::string_view bytes;
    std::string field;    // as in queues::FramePlace
    std::string meaning;  // fit to be shown; cut if it is long

    // One line, without its end. The frame begins at `begin` of its stream.
    std::string text(std::uint64_t begin) const;
};

class FieldTable final : public queues::FrameSink {
public:
    // Takes a row; its bytes are good as long as those of the frame.
    using Taker = std::function<void(const FieldRow&)>;
    // `frame` begins as the bytes that are walked over.
    FieldTable(std::string_view frame, Taker taker) : whole(frame), take(std::move(taker)) {}

    void beginFrame(const queues::FrameStart& start) override;
    void endFrame() override;
    void beginRecord(const queues::WireType& type, std::uint32_t tag) override;
    void field(const char* label) override;
    void beginElements(const queues::WireType& type, std::uint32_t count) override;
    void end() override;
    void null(std::uint32_t tag) override;
    void value(const queues::WireType& type, std::string_view bytes, std::size_t offset) override;

private:
    // What is open, outermost first.
    struct Level {
        enum class Kind { frame, record, list, map };
        Kind kind;
        std::string_view label =
            {};                  // of the value that comes; of a frame's payload if it is no record
        std::size_t values = 0;  // complete ones, of elements
    };

    void row(std::size_t size, const std::string& field, const std::string& meaning);
    void close();
    std::string path() const;

    std::string_view whole;
    Taker take;
    std::size_t at = 0;  // the end of what has a row
    std::vector<Level> levels;
};

}  // namespace dump
