#include "dump/BytesAround.h"

#include "common/text.h"
#include "dump/Value.h"

#include <algorithm>
#include <cstddef>

namespace dump {

namespace {

constexpr std::size_t bytesInLine = 16;

// What is not before `end` is left out.
std::string hexLine(std::string_view bytes, std::uint64_t begin, std::uint64_t at,
                    std::uint64_t end)
{
    std::string line = "  " + hex64ToString(at, 8) + " ";
    std::string characters;
    for (std::uint64_t place = at; place < at + bytesInLine; ++place) {
        const bool known = place >= begin && place < end;
        const char byte = known ? bytes[place - begin] : ' ';
        line += ' ';
        line += known ? hexBytes({&byte, 1}) : "  ";
        characters += byte >= ' ' && byte <= '~' ? byte : '.';
    }
    line += "  " + characters;
    line.erase(line.find_last_not_of(' ') + 1);
    return line + '\n';
}

}  // namespace

std::string offsetText(std::uint64_t offset)
{
    return uint64ToString(offset) + " (0x" + hex64ToString(offset) + ")";
}

std::string bytesAround(std::string_view bytes, std::uint64_t begin, std::uint64_t mark)
{
    const std::uint64_t marked = mark - mark % bytesInLine;
    const std::uint64_t end = std::min(begin + bytes.size(), marked + 3 * bytesInLine);
    std::string text;
    if (begin < marked)
        text += hexLine(bytes, begin, marked - bytesInLine, end);
    text += hexLine(bytes, begin, marked, end);
    text += std::string(12 + 3 * (mark - marked), ' ') + "^^\n";
    for (std::uint64_t at = marked + bytesInLine; at < end; at += bytesInLine)
        text += hexLine(bytes, begin, at, end);
    return text;
}

}  // namespace dump
