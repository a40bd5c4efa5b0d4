#include "dump/FieldTable.h"

#include "common/shown.h"
#include "common/text.h"
#include "dump/Value.h"

#include <algorithm>
#include <cstring>

namespace dump {

namespace {

constexpr std::size_t shownBytes = 8;
constexpr std::size_t shownMeaning = 100;  // characters, or bytes of a text

using Form = queues::WireType::Form;

std::string padLeft(const std::string& text, std::size_t width)
{
    return std::string(width - std::min(width, text.size()), ' ') + text;
}

std::string padRight(const std::string& text, std::size_t width)
{
    return text + std::string(width - std::min(width, text.size()), ' ');
}

std::string counted(std::size_t count, const char* one, const char* many)
{
    return sizeToString(count) + " " + (count == 1 ? one : many);
}

// Of the number in front of a value.
std::string lengthText(const queues::WireType& type, std::string_view bytes)
{
    return type.form == Form::identifier
               ? counted(bytes.size() / sizeof(std::uint32_t), "number", "numbers")
               : counted(bytes.size(), "byte", "bytes");
}

// Only texts stand in quotes.
std::string meaningOf(const queues::WireType& type, std::string_view bytes)
{
    if (type.form == Form::text)
        return printable(quoteString(bytes.substr(0, shownMeaning))) +
               (bytes.size() > shownMeaning ? "..." : "");
    std::string text = jsonValue(type, bytes);
    if (text.front() == '"')
        text = text.substr(1, text.size() - 2);
    return text.size() > shownMeaning ? text.substr(0, shownMeaning) + "..." : text;
}

std::string propertyNameBehind(std::string_view bytes)
{
    std::uint32_t number = 0;
    std::memcpy(&number, bytes.data(), sizeof number);
    const std::string name = propertyNameOf(number);
    return name.empty() ? "" : " " + name;
}

}  // namespace

std::string FieldRow::text(std::uint64_t begin) const
{
    const std::string hex = hexBytes(bytes.substr(0, shownBytes), " ");
    return padLeft(uint64ToString(begin + offset), 8) + "  " +
           padLeft(hex64ToString(begin + offset, 4), 6) + "  " + padRight(hex, 3 * shownBytes - 1) +
           (bytes.size() > shownBytes ? " .. " : "    ") + padRight(field, 24) + "  " + meaning;
}

void FieldTable::beginFrame(const queues::FrameStart& start)
{
    const std::string outer = levels.empty() ? "" : path() + ".";
    row(4, outer + "type", eventName(static_cast<event_t>(start.number)));
    row(4, outer + "dest", queueName(start.dest));
    row(4, outer + "inresponse", intToString(start.inresponse));
    row(4, outer + "exception", start.exception ? "true" : "false");
    levels.push_back({Level::Kind::frame, start.exception ? "text" : "payload"});
}

void FieldTable::endFrame()
{
    close();
}

void FieldTable::beginRecord(const queues::WireType& type, std::uint32_t tag)
{
    if (tag != 0)
        row(4, path(), "tag " + uintToString(tag) + ", " + std::string(plainName(type.name)));
    levels.push_back({Level::Kind::record});
}

void FieldTable::field(const char* label)
{
    levels.back().label = label;
}

void FieldTable::beginElements(const queues::WireType& type, std::uint32_t count)
{
    const bool isMap = type.form == Form::map;
    row(4, path(),
        isMap ? counted(count, "entry", "entries") : counted(count, "element", "elements"));
    levels.push_back({isMap ? Level::Kind::map : Level::Kind::list});
}

void FieldTable::end()
{
    close();
}

void FieldTable::null(std::uint32_t tag)
{
    row(4, path(), tag == 0 ? "none" : "tag " + uintToString(tag) + ", unknown: read as none");
    ++levels.back().values;
}

void FieldTable::value(const queues::WireType& type, std::string_view bytes, std::size_t offset)
{
    const std::string field = path();
    if (offset > at)
        row(offset - at, field, lengthText(type, bytes));
    if (!bytes.empty()) {
        std::string meaning = meaningOf(type, bytes);
        if (levels.back().label == "name" && type.form == Form::uint32)
            meaning += propertyNameBehind(bytes);
        row(bytes.size(), field, meaning);
    }
    ++levels.back().values;
}

// A row of the bytes that come next.
void FieldTable::row(std::size_t size, const std::string& field, const std::string& meaning)
{
    take({at, whole.substr(at, size), field, meaning});
    at += size;
}

// The innermost level is complete, and a value of the next one is with it.
void FieldTable::close()
{
    levels.pop_back();
    if (!levels.empty())
        ++levels.back().values;
}

std::string FieldTable::path() const
{
    std::string text;
    for (std::size_t i = 0; i < levels.size(); ++i) {
        const Level& level = levels[i];
        if (level.kind == Level::Kind::list || level.kind == Level::Kind::map) {
            const std::size_t index =
                level.kind == Level::Kind::map ? level.values / 2 : level.values;
            text += "[" + sizeToString(index) + "]";
            continue;
        }
        // A payload that is a record goes by its labels alone.
        if (level.kind == Level::Kind::frame && i + 1 < levels.size() &&
            levels[i + 1].kind == Level::Kind::record)
            continue;
        text += text.empty() ? "" : ".";
        text += level.label;
    }
    return text;
}

}  // namespace dump
