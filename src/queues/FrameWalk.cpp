#include "queues/FrameWalk.h"

#include "common/text.h"
#include "queues/ioprim.h"

#include <algorithm>
#include <cstring>

namespace queues {

namespace {

using Form = WireType::Form;

// How many bytes a value takes at the least; of a form of fixed size, how many it takes.
std::size_t leastSize(const WireType& type)
{
    switch (type.form) {
    case Form::int32:
    case Form::uint32:
    case Form::single:
    case Form::boolean:
    case Form::uint16:
    case Form::queue:
    case Form::address:
    case Form::identifier:
    case Form::list:
    case Form::set:
    case Form::array:
    case Form::map:
    case Form::tagged:
        return 4;
    case Form::int64:
    case Form::uint64:
    case Form::real:
    case Form::time:
    case Form::moment:
    case Form::text:
    case Form::bigNumber:
        return 8;
    case Form::version:
    case Form::event:
        return 16;
    case Form::record:
        break;
    }
    std::size_t size = 0;
    for (const WireField& field : type.fields)
        size += leastSize(field.type());
    return size;
}

class Walk {
public:
    Walk(std::string_view frame, FrameSink* told) : bytes(frame), sink(told) {}

    WalkedFrame run()
    {
        walkFrame(nullptr);
        result.whole = !lacking;
        if (!lacking)
            result.size = at;
        return std::move(result);
    }

private:
    // The way to a value: the labels and indices of all that it is in, innermost first. Each
    // stands on the stack of the function that walks over what it names.
    struct Step {
        const Step* outer;
        const char* label;            // of a field; null for an element
        std::size_t index = 0;        // of an element
        std::size_t bytesBehind = 0;  // of the elements behind it, at the least
    };

    static std::string pathOf(const Step* step)
    {
        if (step == nullptr)
            return "";
        const std::string outer = pathOf(step->outer);
        if (step->label == nullptr)
            return outer + "[" + sizeToString(step->index) + "]";
        return outer.empty() ? step->label : outer + "." + step->label;
    }

    FramePlace place(const Step* where, std::size_t offset) const
    {
        return {.offset = offset, .number = number, .field = pathOf(where)};
    }

    [[noreturn]] void refuse(const std::string& why, const Step* where, std::size_t offset) const
    {
        throw EBadFrame(why, place(where, offset));
    }

    void requireSize(std::size_t size, const Step* where, std::size_t offset) const
    {
        if (size > maximumFrame)
            refuse("a frame of more than " + sizeToString(maximumFrame) + " bytes", where, offset);
    }

    // Takes bytes of the value that begins at `offset`. Once bytes lack, the walk stands still;
    // false then.
    bool take(std::size_t count, const Step* where, std::size_t offset)
    {
        if (lacking)
            return false;
        requireSize(at + count, where, offset);
        if (count <= bytes.size() - at) {
            at += count;
            return true;
        }
        lacking = true;
        result.size = at + count;
        for (const Step* step = where; step != nullptr; step = step->outer)
            result.size += step->bytesBehind;
        requireSize(result.size, where, offset);
        result.place = place(where, offset);
        return false;
    }

    // A number in front of the rest of the value that begins at `offset`; 0 if bytes lack.
    template <class Number>
    Number takeNumber(const Step* where, std::size_t offset)
    {
        Number value = 0;
        if (take(sizeof value, where, offset))
            std::memcpy(&value, bytes.data() + at - sizeof value, sizeof value);
        return value;
    }

    void tell(const WireType& type, std::size_t offset)
    {
        if (sink != nullptr && !lacking)
            sink->value(type, bytes.substr(offset, at - offset), offset);
    }

    template <class Number>
    Number walkHeaderWord(const char* label, const Step* outer)
    {
        const Step step{outer, label};
        return takeNumber<Number>(&step, at);
    }

    void walkFrame(const Step* where)
    {
        const std::int32_t outerNumber = number;
        const std::size_t begin = at;
        FrameStart start;
        number = 0;
        start.number = walkHeaderWord<std::int32_t>("type", where);
        if (lacking)
            return;
        number = start.number;
        const WireType* const payload = payloadType(number);
        if (payload == nullptr) {
            const Step step{where, "type"};
            refuse("no event has the number " + intToString(number), &step, begin);
        }
        start.dest = static_cast<queue_t>(walkHeaderWord<std::int32_t>("dest", where));
        start.inresponse = walkHeaderWord<std::int32_t>("inresponse", where);
        start.exception = walkHeaderWord<std::uint32_t>("exception", where) != 0;
        if (lacking)
            return;
        if (number == MESSAGE_EXCEPTION && !start.exception) {
            const Step step{where, "exception"};
            refuse("an exception without its flag", &step, at - 4);
        }
        if (sink != nullptr)
            sink->beginFrame(start);
        walkPayload(start.exception ? *payloadType(MESSAGE_EXCEPTION) : *payload, where,
                    start.exception ? "text" : "payload");
        if (sink != nullptr && !lacking)
            sink->endFrame();
        number = outerNumber;
    }

    void walkPayload(const WireType& type, const Step* where, const char* label)
    {
        if (type.form == Form::record) {
            walkRecord(type, 0, where);
        } else {
            const Step step{where, label};
            walkValue(type, &step);
        }
    }

    void walkRecord(const WireType& type, std::uint32_t tag, const Step* where)
    {
        const std::size_t begin = at;
        enter(type, where);
        if (sink != nullptr)
            sink->beginRecord(type, tag);
        for (const WireField& field : type.fields) {
            if (lacking)
                return;
            const Step step{where, field.label};
            if (sink != nullptr)
                sink->field(field.label);
            walkValue(field.type(), &step);
        }
        if (lacking)
            return;
        if (type.fault != nullptr) {
            const std::string fault = type.fault(bytes.substr(begin, at - begin));
            if (!fault.empty())
                refuse(fault, where, begin);
        }
        if (sink != nullptr)
            sink->end();
        leave(type);
    }

    void enter(const WireType& type, const Step* where)
    {
        if (!type.nests)
            return;
        if (depth == protocol::ioprim::maximumDepth)
            refuse("more than " + uintToString(depth) + " records within each other", where, at);
        ++depth;
    }

    void leave(const WireType& type) { depth -= type.nests ? 1 : 0; }

    void walkValue(const WireType& type, const Step* where)
    {
        switch (type.form) {
        case Form::text:
        case Form::bigNumber:
            walkText(type, where);
            break;
        case Form::identifier:
            walkIdentifier(type, where);
            break;
        case Form::list:
        case Form::set:
        case Form::array:
        case Form::map:
            walkElements(type, where);
            break;
        case Form::record:
            walkRecord(type, 0, where);
            break;
        case Form::tagged:
            walkTagged(type, where);
            break;
        case Form::event:
            walkFrame(where);
            break;
        default:
            walkFixed(type, where);
        }
    }

    void walkFixed(const WireType& type, const Step* where)
    {
        const std::size_t begin = at;
        take(leastSize(type), where, begin);
        tell(type, begin);
    }

    void walkText(const WireType& type, const Step* where)
    {
        const std::size_t begin = at;
        const auto length = takeNumber<std::uint64_t>(where, begin);
        if (length > maximumFrame)
            refuse("a text of " + uint64ToString(length) + " bytes", where, begin);
        const std::size_t content = at;
        take(length, where, begin);
        tell(type, content);
    }

    void walkIdentifier(const WireType& type, const Step* where)
    {
        const std::size_t begin = at;
        enter(type, where);
        const auto count = takeNumber<std::int32_t>(where, begin);
        if (count < 0 || count > 3)
            refuse("an identifier of " + intToString(count) + " numbers", where, begin);
        const std::size_t content = at;
        take(sizeof(std::uint32_t) * static_cast<std::size_t>(count), where, begin);
        tell(type, content);
        leave(type);
    }

    void walkElements(const WireType& type, const Step* where)
    {
        const std::size_t begin = at;
        const auto announced = takeNumber<std::int32_t>(where, begin);
        if (lacking)
            return;
        const auto count = static_cast<std::size_t>(std::max(announced, 0));
        const std::size_t least =
            leastSize(type.element()) + (type.form == Form::map ? leastSize(type.key()) : 0);
        requireSize(at + count * least, where, begin);
        if (sink != nullptr)
            sink->beginElements(type, static_cast<std::uint32_t>(count));
        Step step{where, nullptr};
        for (; step.index < count && !lacking; ++step.index) {
            step.bytesBehind = (count - step.index - 1) * least;
            if (type.form == Form::map)
                walkValue(type.key(), &step);
            if (!lacking)
                walkValue(type.element(), &step);
        }
        if (sink != nullptr && !lacking)
            sink->end();
    }

    void walkTagged(const WireType& type, const Step* where)
    {
        const auto tag = takeNumber<std::uint32_t>(where, at);
        if (lacking)
            return;
        const auto variant = type.variants.find(tag);
        if (variant != type.variants.end())
            walkRecord(variant->second(), tag, where);
        else if (sink != nullptr)
            sink->null(tag);
    }

    std::string_view bytes;
    FrameSink* sink;
    std::size_t at = 0;
    bool lacking = false;
    std::int32_t number = 0;  // of the innermost event
    unsigned depth = 0;
    WalkedFrame result;
};

}  // namespace

WalkedFrame walkFrame(std::string_view bytes, FrameSink* sink)
{
    return Walk(bytes, sink).run();
}

}  // namespace queues
