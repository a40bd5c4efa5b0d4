#include "tests/support/Wire.h"

#include <stdexcept>

namespace support {

namespace {

constexpr int textTag = 7;
constexpr int boolTag = 21;
constexpr int enumTag = 25;
constexpr int logLine = 4;
constexpr int checkRequest = 134;
constexpr int checkResult = 135;

// The tag, and the header that all properties have: name, is_null, modifiers.
Encoder property(int tag, std::uint32_t name, bool isNull)
{
    return Encoder().int32(tag).int32(name).int32(isNull ? 1 : 0).int32(0);
}

// Thrown where a frame isn't whole yet.
struct Short {};

class Decoder {
public:
    explicit Decoder(std::string_view bytes) : rest(bytes) {}

    std::int32_t int32() { return static_cast<std::int32_t>(number(4)); }
    std::int64_t int64() { return static_cast<std::int64_t>(number(8)); }
    // A check reports at most what it has read of a reply, which is little more than 1 MiB.
    std::string text() { return std::string(take(atMost(2 << 20, number(8)))); }
    std::uint64_t count(std::uint64_t most) { return atMost(most, number(4)); }
    std::size_t left() const { return rest.size(); }

private:
    static std::uint64_t atMost(std::uint64_t most, std::uint64_t length)
    {
        if (length > most)
            throw std::runtime_error("a length of " + std::to_string(length));
        return length;
    }

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
    for (std::uint64_t left = decoder.count(3); left > 0; --left)
        result.check_id.push_back(static_cast<std::uint32_t>(decoder.int32()));
    result.result = decoder.int32();
    result.replytime = decoder.int32();
    result.attempts = static_cast<std::uint32_t>(decoder.int32());
    for (std::uint64_t left = decoder.count(100000); left > 0; --left)
        result.result_strings.push_back(decoder.text());
    return result;
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
    encoder.raw(frameHeader(checkRequest, 3, 7, 0));
    encoder.text(host).raw(addr).identifier(id).int32(service).int32(port).int32(frequency);
    encoder.int32(warnIfAbove).int32(alertIfAbove).text(libssl);
    encoder.int32(static_cast<std::int64_t>(properties.size()));
    for (const Setting& setting : properties)
        encoder.int32(setting.key).raw(setting.property);
    return encoder.bytes();
}

std::string CheckResult::encode() const
{
    Encoder encoder;
    encoder.raw(frameHeader(checkResult, -1, 0, 0)).int64(ctime).identifier(check_id);
    encoder.int32(result).int32(replytime).int32(attempts);
    encoder.int32(static_cast<std::int64_t>(result_strings.size()));
    for (const std::string& text : result_strings)
        encoder.text(text);
    return encoder.bytes();
}

std::optional<Frame> takeFrame(std::string* bytes)
{
    try {
        Decoder decoder(*bytes);
        Frame frame;
        const std::int32_t number = decoder.int32();
        frame.dest = decoder.int32();
        frame.inresponse = decoder.int32();
        if ((number != logLine && number != checkResult) || decoder.int32() != 0)
            throw std::runtime_error("a frame of number " + std::to_string(number));
        if (number == checkResult) {
            frame.result = decodeResult(decoder);
            frame.line = "result " + std::to_string(frame.result->result);
        } else {
            const std::string text = decoder.text();
            frame.line = std::to_string(decoder.int32()) + " " + text;
        }
        frame.bytes = bytes->substr(0, bytes->size() - decoder.left());
        bytes->erase(0, frame.bytes.size());
        return frame;
    } catch (const Short&) {
        return std::nullopt;
    }
}

}  // namespace support
