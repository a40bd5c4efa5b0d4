#include "common/shown.h"

#include "common/text.h"

#include <cstdint>

namespace {

unsigned byteAt(std::string_view text, std::size_t at)
{
    return static_cast<unsigned char>(text[at]);
}

bool isContinuation(std::string_view text, std::size_t at)
{
    return at < text.size() && (byteAt(text, at) & 0xC0U) == 0x80U;
}

// The length of the well-formed UTF-8 sequence at `at`, with its code point; 0 if there is none.
std::size_t decodeUtf8(std::string_view text, std::size_t at, std::uint32_t* codePoint)
{
    const unsigned first = byteAt(text, at);
    std::size_t length = 0;
    std::uint32_t least = 0;
    if (first < 0x80) {
        *codePoint = first;
        return 1;
    }
    if ((first & 0xE0U) == 0xC0U) {
        length = 2;
        least = 0x80;
        *codePoint = first & 0x1FU;
    } else if ((first & 0xF0U) == 0xE0U) {
        length = 3;
        least = 0x800;
        *codePoint = first & 0x0FU;
    } else if ((first & 0xF8U) == 0xF0U) {
        length = 4;
        least = 0x10000;
        *codePoint = first & 0x07U;
    } else {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if (!isContinuation(text, at + i))
            return 0;
        *codePoint = *codePoint << 6U | (byteAt(text, at + i) & 0x3FU);
    }
    const bool surrogate = *codePoint >= 0xD800 && *codePoint <= 0xDFFF;
    return *codePoint < least || *codePoint > 0x10FFFF || surrogate ? 0 : length;
}

struct Range {
    std::uint32_t first;
    std::uint32_t last;
};

// Control characters, and those that take no room and change what stands around them.
const Range hidden[] = {
    {0x00, 0x1F},     {0x7F, 0x9F},     {0xAD, 0xAD},       {0x61C, 0x61C},
    {0x180E, 0x180E}, {0x200B, 0x200F}, {0x2028, 0x202E},   {0x2060, 0x206F},
    {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}, {0xE0000, 0xE0FFF},
};

bool isHidden(std::uint32_t codePoint)
{
    for (const Range& range : hidden) {
        if (codePoint >= range.first && codePoint <= range.last)
            return true;
    }
    return false;
}

void appendEscaped(std::string& out, unsigned byte)
{
    const char* const digits = "0123456789abcdef";
    out += "\\x";
    out += digits[byte >> 4U];
    out += digits[byte & 0x0FU];
}

// Appends the character at `at` in its shown form, and gives where the next one begins.
std::size_t appendShown(std::string& out, std::string_view text, std::size_t at)
{
    switch (text[at]) {
    case '\n':
        out += "\\n";
        return at + 1;
    case '\r':
        out += "\\r";
        return at + 1;
    case '\t':
        out += "\\t";
        return at + 1;
    case '\\':
        out += "\\\\";
        return at + 1;
    default:
        break;
    }
    std::uint32_t codePoint = 0;
    const std::size_t length = decodeUtf8(text, at, &codePoint);
    if (length == 0) {
        appendEscaped(out, byteAt(text, at));
        return at + 1;
    }
    if (!isHidden(codePoint)) {
        out.append(text, at, length);
    } else {
        for (std::size_t i = 0; i < length; ++i)
            appendEscaped(out, byteAt(text, at + i));
    }
    return at + length;
}

// What a line for people can have: the header of a reply of HTTP, as a rule.
constexpr std::size_t lineWidth = 1000;

// shownShort, and whether something was left out.
std::string cutToWidth(std::string_view text, std::size_t columns, bool* cut)
{
    const std::size_t room = columns - 3;
    std::string out;
    std::size_t width = 0;           // of `out`
    std::size_t lengthThatFits = 0;  // of the part of `out` that leaves room for the dots
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t before = out.size();
        at = appendShown(out, text, at);
        width += shownWidth(std::string_view(out).substr(before));
        if (width <= room)
            lengthThatFits = out.size();
        if (width > columns) {
            out.resize(lengthThatFits);
            *cut = true;
            return out + "...";
        }
    }
    *cut = false;
    return out;
}

}  // namespace

std::string shown(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    for (std::size_t at = 0; at < text.size();)
        at = appendShown(out, text, at);
    return out;
}

std::string printable(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        if (text[at] == '\\') {
            out += text[at++];
        } else {
            at = appendShown(out, text, at);
        }
    }
    return out;
}

std::string shownShort(std::string_view text, std::size_t columns)
{
    bool cut = false;
    return cutToWidth(text, columns, &cut);
}

std::string shownLine(std::string_view text)
{
    bool cut = false;
    const std::string line = cutToWidth(text, lineWidth, &cut);
    return cut ? line + " (" + sizeToString(text.size()) + " bytes)" : line;
}

std::size_t shownWidth(std::string_view text)
{
    std::size_t width = 0;
    for (std::size_t at = 0; at < text.size(); ++at)
        width += isContinuation(text, at) ? 0U : 1U;
    return width;
}
