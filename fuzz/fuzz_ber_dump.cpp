// Bytes that are said to be messages of the client protocol, shown to people and as JSON.
//
// The first byte chooses, the rest is shown:
//   bit 0       the old numbering
//   bits 1 - 7  the size of the pieces in which the bytes come, 0 for all at once
// Nothing may end the process, no control character may come out, and the pieces must not show.
// Both forms understand the same, and say the same where they don't. Each line of JSON must be one
// object, that of the bytes behind those of the line before.

#include "dump/BerDump.h"
#include "fuzz/Lines.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>

namespace {

struct Shown {
    std::string out;
    std::string errors;
    bool understood;
    bool operator==(const Shown&) const = default;
};

Shown show(std::string_view bytes, bool json, bool legacy, std::size_t piece)
{
    std::ostringstream out;
    std::ostringstream errors;
    const auto view = dump::makeBerView(json, out, errors, legacy);
    dump::BerDump dump(*view, legacy);
    for (; !bytes.empty(); bytes.remove_prefix(std::min(piece, bytes.size())))
        dump.append(bytes.substr(0, piece));
    dump.finish();
    return {out.str(), errors.str(), dump.isUnderstood()};
}

// The last line tells of what can't be understood, if anything can't.
void requireJson(const Shown& shown, std::size_t size)
{
    std::istringstream lines(shown.out);
    std::size_t offset = 0;
    bool error = false;
    for (std::string line; std::getline(lines, line);) {
        const nlohmann::json object = nlohmann::json::parse(line, nullptr, false);
        require(object.is_object(), "no JSON object");
        require(!error, "something behind an error");
        error = object.contains("error");
        require(error || object.contains("fields"), "neither message nor error");
        require(object.value("offset", ~std::size_t{0}) == offset, "a wrong offset");
        offset += object.value("size", std::size_t{0});
        if (error)
            require(object["fieldOffset"] >= offset && object["fieldOffset"] <= size,
                    "an error elsewhere");
    }
    require(error != shown.understood, "an error without an object, or an object without");
    require(error || offset == size, "bytes are left");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const bool legacy = (data[0] & 1U) != 0;
    const std::size_t piece = data[0] >> 1U;
    const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);

    const Shown tree = show(bytes, false, legacy, bytes.size() + 1);
    const Shown json = show(bytes, true, legacy, bytes.size() + 1);
    require(tree.understood == tree.errors.empty(), "trouble without a word, or a word without");
    require(tree.understood == json.understood && tree.errors == json.errors,
            "the forms understand different things");
    if (piece != 0) {
        require(show(bytes, false, legacy, piece) == tree, "the pieces show in the tree");
        require(show(bytes, true, legacy, piece) == json, "the pieces show in JSON");
    }
    requireLines(tree.out, false);
    requireLines(tree.errors, false);
    requireLines(json.out, true);
    requireJson(json, bytes.size());
    return 0;
}
