#include "dump/Recording.h"

#include "common/systemError.h"
#include "common/text.h"
#include "platform/ErrorCode.h"

#include <chrono>
#include <cstring>
#include <utility>

namespace dump {

namespace {

constexpr std::string_view magic = "NETCHKR1";
static_assert(magic.size() == recordingStart);

constexpr std::size_t workerOffset = 4;
constexpr std::size_t timeOffset = 8;
constexpr std::size_t lengthOffset = 16;
constexpr std::size_t headerSize = 20;

std::int64_t microsecondsNow()
{
    using namespace std::chrono;
    return duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
}

template <class T>
void appendNumber(std::string* to, T value)
{
    char bytes[sizeof value];
    std::memcpy(bytes, &value, sizeof value);
    to->append(bytes, sizeof value);
}

template <class T>
T numberAt(std::string_view bytes, std::size_t offset)
{
    T value = 0;
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

}  // namespace

bool isRecording(std::string_view firstBytes)
{
    return firstBytes.starts_with(magic);
}

RecordingWriter::RecordingWriter(const std::string& path, Complaint whenIncomplete)
    : name(path), complain(std::move(whenIncomplete))
{
    if (!file.create(path))
        throwSystemError(platform::getLastError(), "the recording " + path + " can't be created");
    put(magic);
}

void RecordingWriter::write(Entry::Kind kind, std::uint32_t worker, std::string_view bytes)
{
    const std::int64_t time = microsecondsNow();
    bool more = true;
    while (more && !failed) {
        const std::string_view piece = bytes.substr(0, Entry::maximumBytes);
        bytes.remove_prefix(piece.size());
        // A worker ends once.
        more = !bytes.empty() && kind != Entry::Kind::ended;
        encoded.clear();
        appendNumber(&encoded, static_cast<std::uint32_t>(kind));
        appendNumber(&encoded, worker);
        appendNumber(&encoded, time);
        appendNumber(&encoded, static_cast<std::uint32_t>(piece.size()));
        encoded += piece;
        put(encoded);
    }
}

void RecordingWriter::put(std::string_view bytes)
{
    if (file.write(bytes))
        return;
    failed = true;
    complain("the recording " + name + " is incomplete: " + lastSystemErrorText());
}

void RecordingReader::append(std::string_view bytes)
{
    // Moving the unread bytes to the front only when they are the smaller part keeps its cost in
    // proportion to what passes through.
    if (begin > buffer.size() - begin) {
        buffer.erase(0, begin);
        begin = 0;
    }
    buffer.append(bytes);
}

bool RecordingReader::next(Entry* entry)
{
    if (position == 0) {
        if (buffer.size() < recordingStart)
            return false;
        if (!isRecording(buffer))
            throw EBadRecording("it doesn't begin with " + std::string(magic), 0);
        begin = recordingStart;
        position = recordingStart;
    }

    const std::string_view unread = std::string_view(buffer).substr(begin);
    if (unread.size() < headerSize)
        return false;
    const auto kind = numberAt<std::uint32_t>(unread, 0);
    const auto worker = numberAt<std::uint32_t>(unread, workerOffset);
    const auto length = numberAt<std::uint32_t>(unread, lengthOffset);
    const bool isStart = kind == static_cast<std::uint32_t>(Entry::Kind::started);
    if (kind > static_cast<std::uint32_t>(Entry::Kind::ended))
        throw EBadRecording("an entry of kind " + uintToString(kind), position);
    if (worker == 0)
        throw EBadRecording("an entry of worker 0", position + workerOffset);
    if (length > (isStart ? 0 : Entry::maximumBytes))
        throw EBadRecording((isStart ? "the start of a worker with " : "an entry of ") +
                                uintToString(length) + " bytes",
                            position + lengthOffset);
    const std::size_t size = headerSize + length;
    if (unread.size() < size)
        return false;

    entry->kind = static_cast<Entry::Kind>(kind);
    entry->worker = worker;
    entry->time = numberAt<std::int64_t>(unread, timeOffset);
    entry->bytes = unread.substr(headerSize, length);
    begin += size;
    position += size;
    return true;
}

}  // namespace dump
