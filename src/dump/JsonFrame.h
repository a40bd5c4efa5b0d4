// A frame as a JSON object, written while it is walked over, with nothing kept in memory.
//
//   {"event":"CHECK_REQUEST","type":134,"dest":"rmch","inresponse":7,"exception":false,
//    "payload":{"host":"a",...,"properties":[{"key":533,"value":{"class":"property_boolean_t",
//    "name":533,"propertyName":"connClose","isNull":false,"modifiers":0,"value":false}}]}}
//
//   record                 an object; the labels are the keys
//   property, interval     the same, its class in front; null for none, {"unknownTag":3} if the
//                          tag stands for no class, so that nothing more was read
//   list, set, vector      an array
//   map                    an array of {"key":...,"value":...}, since a key can come twice
//   event within a payload an object of this form
//   anything else          see Value.h
#pragma once

#include "queues/FrameWalk.h"

#include <cstddef>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace dump {

class JsonFrame final : public queues::FrameSink {
public:
    // `members` go in front of those of the outermost event: "" or "\"offset\":0,".
    JsonFrame(std::ostream& stream, std::string members) : out(stream), leading(std::move(members))
    {}

    void beginFrame(const queues::FrameStart& start) override;
    void endFrame() override;
    void beginRecord(const queues::WireType& type, std::uint32_t tag) override;
    void field(const char* label) override;
    void beginElements(const queues::WireType& type, std::uint32_t count) override;
    void end() override;
    void null(std::uint32_t tag) override;
    void value(const queues::WireType& type, std::string_view bytes, std::size_t offset) override;

private:
    // What is open, outermost first.
    struct Level {
        enum class Kind { frame, record, variant, list, map };
        Kind kind;
        std::size_t values = 0;       // begun in it; of a map, keys count as well
        std::string_view label = {};  // of the value that comes, in a variant
    };

    // Around each value.
    void beginValue();
    void endValue();

    std::ostream& out;
    std::string leading;
    std::vector<Level> levels;
};

}  // namespace dump
