#include "dump/JsonFrame.h"

#include "common/text.h"
#include "dump/Value.h"

#include <cstring>

namespace dump {

void JsonFrame::beginFrame(const queues::FrameStart& start)
{
    beginValue();
    out << "{" << std::exchange(leading, "");
    out << R"("event":")" << eventName(static_cast<event_t>(start.number)) << R"(","type":)"
        << intToString(start.number) << R"(,"dest":")" << queueName(start.dest)
        << R"(","inresponse":)" << intToString(start.inresponse) << R"(,"exception":)"
        << (start.exception ? "true" : "false") << R"(,"payload":)";
    levels.push_back({Level::Kind::frame});
}

void JsonFrame::endFrame()
{
    out << "}";
    levels.pop_back();
    endValue();
}

void JsonFrame::beginRecord(const queues::WireType& type, std::uint32_t tag)
{
    beginValue();
    out << "{";
    if (tag == 0) {
        levels.push_back({Level::Kind::record});
    } else {
        out << R"("class":")" << plainName(type.name) << "\"";
        levels.push_back({Level::Kind::variant, 1});
    }
}

void JsonFrame::field(const char* label)
{
    Level& level = levels.back();
    level.label = label;
    const bool isNull = level.kind == Level::Kind::variant && level.label == "is_null";
    out << (level.values++ == 0 ? "\"" : ",\"") << (isNull ? "isNull" : label) << "\":";
}

void JsonFrame::beginElements(const queues::WireType& type, std::uint32_t /*count*/)
{
    beginValue();
    out << "[";
    const bool isMap = type.form == queues::WireType::Form::map;
    levels.push_back({isMap ? Level::Kind::map : Level::Kind::list});
}

void JsonFrame::end()
{
    const bool isRecord =
        levels.back().kind == Level::Kind::record || levels.back().kind == Level::Kind::variant;
    out << (isRecord ? "}" : "]");
    levels.pop_back();
    endValue();
}

void JsonFrame::null(std::uint32_t tag)
{
    beginValue();
    if (tag == 0)
        out << "null";
    else
        out << R"({"unknownTag":)" << uintToString(tag) << "}";
    endValue();
}

void JsonFrame::value(const queues::WireType& type, std::string_view bytes, std::size_t /*offset*/)
{
    beginValue();
    out << jsonValue(type, bytes);
    // Of the variants, properties alone have a name.
    const Level& level = levels.back();
    if (level.kind == Level::Kind::variant && level.label == "name") {
        std::uint32_t number = 0;
        std::memcpy(&number, bytes.data(), sizeof number);
        if (const std::string name = propertyNameOf(number); !name.empty())
            out << R"(,"propertyName":)" << jsonText(name);
    }
    endValue();
}

void JsonFrame::beginValue()
{
    if (levels.empty())
        return;
    Level& level = levels.back();
    switch (level.kind) {
    case Level::Kind::list:
        out << (level.values == 0 ? "" : ",");
        break;
    case Level::Kind::map:
        if (level.values % 2 == 0)
            out << (level.values == 0 ? "" : ",") << R"({"key":)";
        else
            out << R"(,"value":)";
        break;
    default:
        return;  // the label stands already
    }
    ++level.values;
}

void JsonFrame::endValue()
{
    if (!levels.empty() && levels.back().kind == Level::Kind::map && levels.back().values % 2 == 0)
        out << "}";
}

}  // namespace dump
