#include "queues/event.h"

#include "common/assertion.h"
#include "common/text.h"
#include "queues/lastEvent.h"
#include "queues/spawn.h"

#include <ostream>

namespace queues {

exevent::exevent(queue_t destination, std::int32_t serial, std::string message)
    : event(MESSAGE_EXCEPTION, destination, serial, true), text(std::move(message))
{}

std::unique_ptr<event> exevent::clone() const
{
    return std::make_unique<exevent>(*this);
}

void exevent::writePayload(protocol::ioprim& stream) const
{
    stream << text;
}

void exevent::printPayload(std::ostream& stream, int /*indent*/) const
{
    stream << "Exception: " << quoteString(text) << '\n';
}

void printEvent(std::ostream& stream, const event& e, int indent)
{
    const std::string pad(2 * static_cast<std::size_t>(indent), ' ');
    stream << eventName(e.type) << " {\n";
    stream << pad << "  dest: " << queueName(e.dest) << '\n';
    stream << pad << "  inresponse: " << intToString(e.inresponse) << '\n';
    e.printPayload(stream, indent + 1);
    stream << pad << "}\n";
}

namespace {

bool isEventNumber(std::int32_t number)
{
    return number > INVALID_HEAD && number < INVALID_TAIL;
}

// Null if no event has the number.
const EventCodec* codecOf(std::int32_t number)
{
    if (!isEventNumber(number))
        return nullptr;
    const auto index = static_cast<std::size_t>(number);
    const EventCodec& codec = index < 46    ? CodecsFrom1::codecs[index - 1]
                              : index < 91  ? CodecsFrom46::codecs[index - 46]
                              : index < 136 ? CodecsFrom91::codecs[index - 91]
                                            : CodecsFrom136::codecs[index - 136];
    return codec.spawn == nullptr ? nullptr : &codec;
}

}  // namespace

bool isKnownEvent(std::int32_t number)
{
    return codecOf(number) != nullptr;
}

bool operator==(const event& a, const event& b)
{
    return a.type == b.type && a.dest == b.dest && a.inresponse == b.inresponse &&
           codecOf(a.type)->samePayload(a, b);
}

void printForm(Place at, const Held<event>& e)
{
    if (!e)
        assertion("Trying to print a record without its event");
    printEvent(at.stream, *e, at.indent);
}

}  // namespace queues

namespace protocol {

ioprim& operator<<(ioprim& stream, const queues::event& e)
{
    const std::int32_t number = e.type;
    if (!queues::isEventNumber(number))
        assertion("fdio << event: unknown type index: " + intToString(number));
    stream << number << e.dest << e.inresponse << e.exception;
    e.writePayload(stream);
    return stream;
}

ioprim& operator>>(ioprim& stream, std::unique_ptr<queues::event>& out)
{
    std::int32_t number = 0;
    stream >> number;
    const queues::EventCodec* const codec = queues::codecOf(number);
    if (codec == nullptr) {
        const LastEvent last = lastEvent(stream);
        assertion("fdio >> event: unknown type index: " + intToString(number) + " old was " +
                  intToString(last.type) + " dest " + intToString(last.dest));
    }
    std::unique_ptr<queues::event> e = codec->spawn(stream);
    if (!e->exception && e->type != number)
        assertion("spawn[] hash failure!");
    rememberEvent(stream, {number, static_cast<std::int32_t>(e->dest)});
    out = std::move(e);
    return stream;
}

ioprim& operator<<(ioprim& stream, const Held<queues::event>& e)
{
    if (!e)
        assertion("fdio << event: a record without its event");
    return stream << *e;
}

ioprim& operator>>(ioprim& stream, Held<queues::event>& e)
{
    std::unique_ptr<queues::event> read;
    stream >> read;
    e.reset(std::move(read));
    return stream;
}

}  // namespace protocol
