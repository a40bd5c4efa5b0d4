#include "tests/support/Wire.h"

#include <stdexcept>

namespace support {

namespace {

constexpr int textTag = 7;
constexpr int boolTag = 21;
constexpr int enumTag = 25;

// The tag, and the header that all properties have: name, is_null, modifiers.
Encoder property(int tag, std::uint32_t name, bool isNull)
{
    Encoder encoder;
    encoder.int32(tag).int32(name).int32(isNull ? 1 : 0).int32(0);
    return encoder;
}

// Thrown where a frame isn't whole yet.
struct Short {};

class Decoder {
public:
    explicit Decoder(std::string_view bytes) : rest(bytes) {}

    std::int32_t int32() { return static_cast<std::int32_t>(number(4)); }
    std::int64_t int64() { return static_cast<std::int64_t>(number(8)); }

    std::string text()
    {
        const std::uint64_t length = number(8);
        if (length > longestText)
            throw std::runtime_error("a text of " + std::to_string(length) + " bytes");
        return std::string(take(length));
    }

    std::size_t count(std::size_t most)
    {
        const std::int32_t value = int32();
        if (value < 0 || static_cast<std::size_t>(value) > most)
            throw std::runtime_error("a count of " + std::to_string(value));
        return static_cast<std::size_t>(value);
    }

    std::size_t left() const { return rest.size(); }

private:
    // A check reports at most what it has read of a reply, which is little more than 1 MiB.
    static constexpr std::uint64_t longestText = 2 << 20;

    std::string_view take(std::uint64_t length)
    {
        if (rest.size() < length)
            throw Short();
        const std::string_view taken = rest.substr(0, length);
        rest.remove_prefix(length);
        return taken;
    }

    std::uint64_t number(std::uint64_t width)
    {
        const std::string_view digits = take(width);
        std::uint64_t value = 0;
        for (std::size_t i = digits.size(); i > 0; --i)
            value = value << 8 | static_cast<unsigned char>(digits[i - 1]);
        return value;
    }

    std::string_view rest;
};

CheckResult decodeResult(Decoder& decoder)
{
    CheckResult result;
    result.ctime = decoder.int64();
    for (std::size_t left = decoder.count(3); left > 0; --left)
        result.check_id.push_back(static_cast<std::uint32_t>(decoder.int32()));
    result.result = decoder.int32();
    result.replytime = decoder.int32();
    result.attempts = static_cast<std::uint32_t>(decoder.int32());
    for (std::size_t left = decoder.count(100000); left > 0; --left)
        result.result_strings.push_back(decoder.text());
    return result;
}

LogLine decodeLogLine(Decoder& decoder)
{
    LogLine line;
    line.text = decoder.text();
    line.type = decoder.int32();
    return line;
}

}  // namespace

Encoder& Encoder::number(std::uint64_t value, int width)
{
    for (int i = 0; i < width; ++i)
        encoded.push_back(static_cast<char>(value >> (8 * i) & 0xFF));
    return *this;
}

Encoder& Encoder::raw(std::string_view value)
{
    encoded.append(value);
    return *this;
}

Encoder& Encoder::text(std::string_view value)
{
    return number(value.size(), 8).raw(value);
}

Encoder& Encoder::identifier(const std::vector<std::uint32_t>& path)
{
    int32(static_cast<std::int64_t>(path.size()));
    for (const std::uint32_t element : path)
        int32(element);
    return *this;
}

Setting textSetting(std::uint32_t key, std::string_view value)
{
    return {key, property(textTag, key, false).text(value).bytes()};
}

Setting boolSetting(std::uint32_t key, bool value)
{
    return {key, property(boolTag, key, false).int32(value ? 1 : 0).bytes()};
}

Setting enumSetting(std::uint32_t key, std::uint32_t type, std::uint32_t value)
{
    return {key, property(enumTag, key, false).int32(type).int32(value).bytes()};
}

Setting nullBoolSetting(std::uint32_t key)
{
    return {key, property(boolTag, key, true).int32(0).bytes()};
}

Setting absentSetting(std::uint32_t key)
{
    return {key, Encoder().int32(0).bytes()};
}

std::string frameHeader(std::int32_t number, std::int32_t dest, std::int32_t inresponse,
                        std::int32_t exception)
{
    return Encoder().int32(number).int32(dest).int32(inresponse).int32(exception).bytes();
}

std::string Request::encode() const
{
    Encoder encoder;
    encoder.raw(frameHeader(event::checkRequest, dest, inresponse, 0));
    encoder.text(host).raw(addr).identifier(id).int32(service).int32(port).int32(frequency);
    encoder.int32(warnIfAbove).int32(alertIfAbove).text(libssl);
    encoder.int32(static_cast<std::int64_t>(properties.size()));
    for (const Setting& setting : properties)
        encoder.int32(setting.key).raw(setting.property);
    return encoder.bytes();
}

std::optional<Frame> takeFrame(std::string* bytes)
{
    try {
        Decoder decoder(*bytes);
        Frame frame;
        frame.number = decoder.int32();
        if (frame.number != event::logLine && frame.number != event::checkResult)
            throw std::runtime_error("a frame of number " + std::to_string(frame.number));
        frame.dest = decoder.int32();
        frame.inresponse = decoder.int32();
        if (decoder.int32() != 0)
            throw std::runtime_error("a frame with an exception");
        if (frame.number == event::checkResult)
            frame.payload = decodeResult(decoder);
        else
            frame.payload = decodeLogLine(decoder);

        const std::size_t length = bytes->size() - decoder.left();
        frame.bytes = bytes->substr(0, length);
        bytes->erase(0, length);
        return frame;
    } catch (const Short&) {
        return std::nullopt;
    }
}

std::string transcriptLine(const Frame& frame)
{
    if (const CheckResult* result = frame.result())
        return "result " + std::to_string(result->result);
    return std::to_string(frame.logLine()->type) + " " + frame.logLine()->text;
}

std::vector<std::string> transcript(const std::vector<Frame>& frames)
{
    std::vector<std::string> lines;
    lines.reserve(frames.size());
    for (const Frame& frame : frames)
        lines.push_back(transcriptLine(frame));
    return lines;
}

}  // namespace support
