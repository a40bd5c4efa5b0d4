// What the codec can do with the events of each number: the table behind operator>> and
// operator== of events.
//
// The table comes in four parts, each compiled for itself, since each instantiates the wire form,
// the print form, the copy and the comparison of some fifty payload types.
#pragma once

#include "queues/event.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace queues {

struct EventCodec {
    // Reads what follows the number of a frame. Null where no event has the number.
    std::unique_ptr<event> (*spawn)(protocol::ioprim&) = nullptr;
    // Compares the payloads of two events of this number.
    bool (*samePayload)(const event&, const event&) = nullptr;
};

// The codecs of the events First to Last, in order.
template <std::int32_t First, std::int32_t Last>
struct CodecRange {
    static const std::array<EventCodec, static_cast<std::size_t>(Last - First + 1)> codecs;
};

using CodecsFrom1 = CodecRange<1, 45>;
using CodecsFrom46 = CodecRange<46, 90>;
using CodecsFrom91 = CodecRange<91, 135>;
using CodecsFrom136 = CodecRange<136, 195>;

template <>
const std::array<EventCodec, 45> CodecsFrom1::codecs;
template <>
const std::array<EventCodec, 45> CodecsFrom46::codecs;
template <>
const std::array<EventCodec, 45> CodecsFrom91::codecs;
template <>
const std::array<EventCodec, 60> CodecsFrom136::codecs;

}  // namespace queues
