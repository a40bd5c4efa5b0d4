// Bytes that are said to have gone through the pipes of workers.
//
// The first byte chooses, the rest is shown:
//   bits 0, 1   the form: text, fields, JSON (2 and 3)
//   bit 2       the rest are entries of a recording, whose first 8 bytes are put in front of them
//   bits 3 - 7  the size of the pieces in which the bytes come, 0 for all at once
// Nothing may end the process, no control character may come out, the pieces must not show, and
// each line of JSON must be one object.

#include "dump/Dump.h"
#include "fuzz/Lines.h"

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

Shown show(std::string_view bytes, dump::Form form, std::size_t piece)
{
    std::ostringstream out;
    std::ostringstream errors;
    const auto view = dump::makeView(form, out, errors);
    dump::Dump dump(*view);
    for (; !bytes.empty(); bytes.remove_prefix(std::min(piece, bytes.size())))
        dump.append(bytes.substr(0, piece));
    dump.finish();
    return {out.str(), errors.str(), dump.isUnderstood()};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const unsigned choice = data[0];
    const dump::Form forms[] = {dump::Form::text, dump::Form::fields, dump::Form::json,
                                dump::Form::json};
    const dump::Form form = forms[choice & 3U];
    std::string bytes = (choice & 4U) != 0 ? "NETCHKR1" : "";
    bytes.append(reinterpret_cast<const char*>(data) + 1, size - 1);

    const Shown whole = show(bytes, form, bytes.size() + 1);
    require(whole.understood == whole.errors.empty(), "trouble without a word, or a word without");
    if (choice >> 3U != 0)
        require(show(bytes, form, choice >> 3U) == whole, "the pieces show");

    requireLines(whole.out, form == dump::Form::json);
    requireLines(whole.errors, false);
    return 0;
}
