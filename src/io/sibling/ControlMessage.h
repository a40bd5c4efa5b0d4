// What siblings tell each other over their FIFOs: records of 8 bytes, in the machine's byte order.
//
//   0  4  word: in its low three bits 1 to 4, the kind of an offset or size, which is the word with
//         these bits cleared; or 0, and then the low byte is the kind of a message about a sibling,
//         whose id stands in the upper 24 bits, with its sign
//   4  4  id of the sender
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

namespace io {

struct ControlMessage {
    enum Kind : std::uint32_t {
        RequestPeer = 0,
        MessageAt = 1,
        AckMessageAt = 2,
        ExtraOffset = 3,
        ExtraSize = 4,
        IAmUp = 16,
        SiblingAt = 24,
        InitShutdown = 32,
        AckShutdown = 40,
        ExtraSiblingId = 48,
        SiblingDied = 56,
        Undefined = 0xFFFFFFFF
    };

    // About an offset or size, which is a multiple of 8 below 2^32.
    static ControlMessage ofOffset(Kind kind, std::uint64_t offset, std::int32_t from);
    // About a sibling, whose id fits in 24 bits with its sign.
    static ControlMessage ofSibling(Kind kind, std::int32_t id, std::int32_t from);

    Kind kind() const;
    bool hasOffset() const { return (word & kindBits) != 0; }
    std::uint64_t offset() const { return word & ~kindBits; }
    std::int32_t id() const { return static_cast<std::int32_t>(word) >> idShift; }
    std::string toString() const;  // "MessageAt(4096) [from:2]"

    static constexpr std::uint32_t kindBits = 7;
    static constexpr unsigned idShift = 8;

    std::uint32_t word = 0;
    std::int32_t from = 0;
};
static_assert(sizeof(ControlMessage) == 8);

inline std::ostream& operator<<(std::ostream& out, const ControlMessage& message)
{
    return out << message.toString();
}

}  // namespace io
