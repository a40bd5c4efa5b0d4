#include "parent/FrameReader.h"

#include "common/assertion.h"
#include "common/text.h"
#include "queues/records/control.h"
#include "queues/records/services.h"

#include <cstdint>
#include <cstring>
#include <list>

namespace parent {

namespace {

constexpr std::size_t headerSize = 16;  // type, dest, inresponse, exception

// Walks over the fields of a record without reading more than counts and lengths. A visitor of
// field lists; the values of the record that is visited mean nothing.
class FieldSkipper {
public:
    FieldSkipper(std::string_view frame, std::size_t from) : bytes(frame), at(from) {}

    template <class T>
    void operator()(const char* /*label*/, const T& value)
    {
        skip(value);
    }

    bool complete() const { return !lacking; }
    // The size of the frame so far; at the least, if it isn't complete.
    std::size_t size() const { return at; }

    void skip(std::int32_t) { skipBytes(4); }
    void skip(std::uint32_t) { skipBytes(4); }
    void skip(std::int64_t) { skipBytes(8); }
    void skip(const std::string&)
    {
        const auto length = number<std::uint64_t>();
        if (length > FrameReader::maximumFrame)
            throw EBadFrame("a text of " + uint64ToString(length) + " bytes");
        skipBytes(length);
    }
    void skip(const tql::id_t&)
    {
        const auto count = number<std::uint32_t>();
        if (count > 3)
            throw EBadFrame("an identifier of " + uintToString(count) + " numbers");
        skipBytes(std::size_t{4} * count);
    }
    void skip(const std::list<std::string>&)
    {
        const auto count = number<std::int32_t>();
        for (std::int32_t i = 0; i < count && !lacking; ++i)
            skip(std::string());
    }

private:
    // Once bytes lack, the walk stands still, with `at` behind the first that it lacks.
    void skipBytes(std::size_t count)
    {
        if (lacking)
            return;
        at += count;
        if (at > FrameReader::maximumFrame)
            throw EBadFrame("a frame of more than " + sizeToString(FrameReader::maximumFrame) +
                            " bytes");
        lacking = at > bytes.size();
    }

    template <class T>
    T number()
    {
        T value = 0;
        skipBytes(sizeof value);
        if (!lacking)
            std::memcpy(&value, bytes.data() + at - sizeof value, sizeof value);
        return value;
    }

    std::string_view bytes;
    std::size_t at;
    bool lacking = false;
};

template <class Record>
void skipRecord(FieldSkipper& skipper)
{
    const Record record;
    Record::fields(record, skipper);
}

std::uint32_t numberAt(std::string_view frame, std::size_t offset)
{
    std::uint32_t value = 0;
    std::memcpy(&value, frame.data() + offset, sizeof value);
    return value;
}

// `frame` holds the header at least.
FieldSkipper walk(std::string_view frame)
{
    FieldSkipper skipper(frame, headerSize);
    const auto type = static_cast<std::int32_t>(numberAt(frame, 0));
    const bool exception = numberAt(frame, 12) != 0;
    switch (type) {
    case queues::SYSTEM_LOG_REQUEST:
    case queues::CHECK_RESULT:
    case queues::MESSAGE_EXCEPTION:
        break;
    default:
        throw EBadFrame("event number " + intToString(type));
    }
    if (exception)
        skipper.skip(std::string());
    else if (type == queues::SYSTEM_LOG_REQUEST)
        skipRecord<control::Log_Request_Data>(skipper);
    else if (type == queues::CHECK_RESULT)
        skipRecord<services::remcheck_stat>(skipper);
    else
        throw EBadFrame("an exception event that is none");
    return skipper;
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
    const FieldSkipper skipper = walk(unread);
    if (!skipper.complete()) {
        wanted = skipper.size();
        return nullptr;
    }

    source.setBytes(unread.substr(0, skipper.size()));
    std::unique_ptr<queues::event> event;
    {
        protocol::ioprim link(&source, nullptr);
        link >> event;
    }
    if (source.left() != 0)
        assertion("The walk over a frame and its decoder disagree on its end");
    begin += skipper.size();
    wanted = headerSize;
    return event;
}

}  // namespace parent
