#include "parent/FrameReader.h"

#include "common/assertion.h"
#include "common/text.h"

#include <cstdint>
#include <cstring>

namespace parent {

namespace {

constexpr std::size_t headerSize = 16;  // type, dest, inresponse, exception

// The walk knows all events of the server, but few of them come from a worker.
void requireWorkersEvent(std::string_view frame)
{
    std::int32_t number = 0;
    std::memcpy(&number, frame.data(), sizeof number);
    switch (number) {
    case queues::SYSTEM_LOG_REQUEST:
    case queues::CHECK_RESULT:
    case queues::MESSAGE_EXCEPTION:
        return;
    default:
        throw queues::EBadFrame("event number " + intToString(number),
                                {.offset = 0, .number = number, .field = "type"});
    }
}

}  // namespace

void FrameReader::append(std::string_view bytes)
{
    if (begin > buffer.size() - begin) {
        buffer.erase(0, begin);
        begin = 0;
    }
    buffer.append(bytes);
}

std::unique_ptr<queues::event> FrameReader::next()
{
    const std::string_view unread = std::string_view(buffer).substr(begin);
    if (unread.size() < wanted)
        return nullptr;
    requireWorkersEvent(unread);
    const queues::WalkedFrame walked = queues::walkFrame(unread);
    if (!walked.whole) {
        wanted = walked.size;
        return nullptr;
    }

    source.setBytes(unread.substr(0, walked.size));
    std::unique_ptr<queues::event> event;
    {
        protocol::ioprim link(&source, nullptr);
        link >> event;
    }
    if (source.left() != 0)
        assertion("The walk over a frame and its decoder disagree on its end");
    begin += walked.size;
    wanted = headerSize;
    return event;
}

}  // namespace parent
