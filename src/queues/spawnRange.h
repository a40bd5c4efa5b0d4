// How the parts of the table of spawn.h are made. For their sources alone.
#pragma once

#include "common/assertion.h"
#include "queues/records/all.h"
#include "queues/spawn.h"
#include "queues/typeForms.h"

#include <string>

namespace queues {

// What follows the number in every frame.
struct FrameHeader {
    explicit FrameHeader(protocol::ioprim& stream) { stream >> dest >> inresponse >> exception; }

    queue_t dest = queue_t::main;
    std::int32_t inresponse = 0;
    bool exception = false;
};

inline std::unique_ptr<event> readException(protocol::ioprim& stream, const FrameHeader& header)
{
    auto e = std::make_unique<exevent>(header.dest, header.inresponse, std::string());
    stream >> e->text;
    return e;
}

template <std::int32_t N, class T>
std::unique_ptr<event> readEvent(protocol::ioprim& stream)
{
    const FrameHeader header(stream);
    if (header.exception)
        return readException(stream, header);
    auto e = std::make_unique<devent<N, T>>(header.dest, header.inresponse);
    stream >> e->data;
    return e;
}

inline std::unique_ptr<event> readExevent(protocol::ioprim& stream)
{
    const FrameHeader header(stream);
    if (!header.exception)
        assertion("Found exevent with .exception == 0");
    return readException(stream, header);
}

template <std::int32_t N, class T>
bool samePayload(const event& a, const event& b)
{
    return static_cast<const devent<N, T>&>(a).data == static_cast<const devent<N, T>&>(b).data;
}

inline bool sameText(const event& a, const event& b)
{
    return static_cast<const exevent&>(a).text == static_cast<const exevent&>(b).text;
}

template <std::int32_t First, std::int32_t Last>
constexpr auto codecRange()
{
    std::array<EventCodec, static_cast<std::size_t>(Last - First + 1)> codecs;
#define EVENT(number, name, ...)                                                                   \
    if constexpr ((number) >= First && (number) <= Last)                                           \
        codecs[(number)-First] = {readEvent<number, __VA_ARGS__>, samePayload<number, __VA_ARGS__>};
#define EVENT_EXCEPTION(number, name)                                                              \
    if constexpr ((number) >= First && (number) <= Last)                                           \
        codecs[(number)-First] = {readExevent, sameText};
#include "queues/EventTable.inc"
    return codecs;
}

}  // namespace queues
