// The bytes of the link between a parent and its worker, as a parent has to write and read them.
//
// This is a codec of its own, on purpose: it shares no line with the code under test, so a fault
// there can't cancel itself out.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace support {

// Appends little-endian numbers and length-prefixed texts.
class Encoder {
public:
    Encoder& int32(std::int64_t value) { return number(static_cast<std::uint64_t>(value), 4); }
    Encoder& int64(std::int64_t value) { return number(static_cast<std::uint64_t>(value), 8); }
    Encoder& text(std::string_view value) { return number(value.size(), 8).raw(value); }
    Encoder& raw(std::string_view value);
    Encoder& identifier(const std::vector<std::uint32_t>& path);
    const std::string& bytes() const { return encoded; }

private:
    Encoder& number(std::uint64_t value, int width);

    std::string encoded;
};

// An entry of the property map of a request: the key, and the property as it goes on the wire.
struct Setting {
    std::uint32_t key;
    std::string property;
};

Setting textSetting(std::uint32_t key, std::string_view value);
Setting boolSetting(std::uint32_t key, bool value);
Setting enumSetting(std::uint32_t key, std::uint32_t type, std::uint32_t value);
Setting nullBoolSetting(std::uint32_t key);  // a property that has no value
Setting absentSetting(std::uint32_t key);    // a key without a property

// A check request. The defaults ask for a generic TCP check on loopback without thresholds.
struct Request {
    std::string host = "a";
    std::string addr{"\x7F\x00\x00\x01", 4};  // in the order of its bytes on the wire
    std::vector<std::uint32_t> id = {1, 2};
    std::int32_t service = 6;
    std::uint32_t port = 0;
    std::uint32_t frequency = 60;
    std::int32_t warnIfAbove = 0;
    std::int32_t alertIfAbove = 0;
    std::string libssl = {};
    std::vector<Setting> properties = {};

    std::string encode() const;  // with dest 3 and inresponse 7
};

// The header of a frame: what follows is its payload.
std::string frameHeader(std::int32_t number, std::int32_t dest, std::int32_t inresponse,
                        std::int32_t exception);

struct CheckResult {
    std::int64_t ctime = 0;
    std::vector<std::uint32_t> check_id = {};
    std::int32_t result = 0;
    std::int32_t replytime = 0;
    std::uint32_t attempts = 0;
    std::vector<std::string> result_strings = {};

    std::string encode() const;
};

// A frame that the worker has sent: a result, or a log line.
struct Frame {
    std::int32_t dest = 0;
    std::int32_t inresponse = 0;
    std::optional<CheckResult> result;
    std::string line;  // of the transcript: "0 netcheck is alive", "result 9"
    std::string bytes;
};

// Takes the first frame off `bytes`; nothing if it isn't whole yet. Throws std::runtime_error for
// what no worker may send.
std::optional<Frame> takeFrame(std::string* bytes);

}  // namespace support
