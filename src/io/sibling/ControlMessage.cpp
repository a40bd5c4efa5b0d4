#include "io/sibling/ControlMessage.h"

#include "common/assertion.h"
#include "common/text.h"

#include <limits>

namespace io {
namespace {

const char* nameOf(ControlMessage::Kind kind)
{
    switch (kind) {
    case ControlMessage::RequestPeer:
        return "RequestPeer";
    case ControlMessage::MessageAt:
        return "MessageAt";
    case ControlMessage::AckMessageAt:
        return "AckMessageAt";
    case ControlMessage::ExtraOffset:
        return "ExtraOffset";
    case ControlMessage::ExtraSize:
        return "ExtraSize";
    case ControlMessage::IAmUp:
        return "IAmUp";
    case ControlMessage::SiblingAt:
        return "SiblingAt";
    case ControlMessage::InitShutdown:
        return "InitShutdown";
    case ControlMessage::AckShutdown:
        return "AckShutdown";
    case ControlMessage::ExtraSiblingId:
        return "ExtraSiblingId";
    case ControlMessage::SiblingDied:
        return "SiblingDied";
    case ControlMessage::Undefined:
        break;
    }
    return nullptr;
}

}  // namespace

ControlMessage ControlMessage::ofOffset(Kind kind, std::uint64_t offset, std::int32_t from)
{
    if ((offset & kindBits) != 0 || offset > std::numeric_limits<std::uint32_t>::max())
        assertion("No offset for a control message: " + uint64ToString(offset));
    return {.word = static_cast<std::uint32_t>(offset) | kind, .from = from};
}

ControlMessage ControlMessage::ofSibling(Kind kind, std::int32_t id, std::int32_t from)
{
    const ControlMessage message{.word = static_cast<std::uint32_t>(id) << idShift | kind,
                                 .from = from};
    if (message.id() != id)
        assertion("No sibling id for a control message: " + intToString(id));
    return message;
}

ControlMessage::Kind ControlMessage::kind() const
{
    constexpr std::uint32_t codeBits = 0xFF;
    const Kind coded = static_cast<Kind>(word & (hasOffset() ? kindBits : codeBits));
    return nameOf(coded) ? coded : Undefined;
}

std::string ControlMessage::toString() const
{
    const char* const name = nameOf(kind());
    if (!name)
        return "Undefined";
    return std::string(name) + '(' + (hasOffset() ? uint64ToString(offset()) : intToString(id())) +
           ") [from:" + intToString(from) + ']';
}

}  // namespace io
