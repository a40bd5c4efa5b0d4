#include "queues/event.h"

#include "common/assertion.h"
#include "common/text.h"
#include "queues/lastEvent.h"
#include "queues/records/control.h"
#include "queues/records/remcheck.h"
#include "queues/records/services.h"
#include "queues/typeForms.h"

#include <array>
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

// What follows the number in every frame.
struct Header {
    explicit Header(protocol::ioprim& stream) { stream >> dest >> inresponse >> exception; }

    queue_t dest = queue_t::main;
    std::int32_t inresponse = 0;
    bool exception = false;
};

std::unique_ptr<event> readException(protocol::ioprim& stream, const Header& header)
{
    auto e = std::make_unique<exevent>(header.dest, header.inresponse, std::string());
    stream >> e->text;
    return e;
}

template <std::int32_t N, class T>
std::unique_ptr<event> readEvent(protocol::ioprim& stream)
{
    const Header header(stream);
    if (header.exception)
        return readException(stream, header);
    auto e = std::make_unique<devent<N, T>>(header.dest, header.inresponse);
    stream >> e->data;
    return e;
}

std::unique_ptr<event> readExevent(protocol::ioprim& stream)
{
    const Header header(stream);
    if (!header.exception)
        assertion("Found exevent with .exception == 0");
    return readException(stream, header);
}

// Reads the rest of a frame.
using Spawner = std::unique_ptr<event> (*)(protocol::ioprim&);

// By event number; null where the payload isn't known.
constexpr std::array<Spawner, INVALID_TAIL> spawners()
{
    std::array<Spawner, INVALID_TAIL> table{};
#define EVENT(number, name, ...) table[number] = readEvent<number, __VA_ARGS__>;
#define EVENT_LATER(number, name)
#define EVENT_EXCEPTION(number, name) table[number] = readExevent;
#include "queues/EventTable.inc"
#undef EVENT
#undef EVENT_LATER
#undef EVENT_EXCEPTION
    return table;
}

constexpr std::array<Spawner, INVALID_TAIL> spawn = spawners();

}  // namespace

bool isKnownEvent(std::int32_t number)
{
    return isEventNumber(number) && spawn[static_cast<std::size_t>(number)] != nullptr;
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
    if (!queues::isKnownEvent(number)) {
        const LastEvent last = lastEvent(stream);
        assertion("fdio >> event: unknown type index: " + intToString(number) + " old was " +
                  intToString(last.type) + " dest " + intToString(last.dest));
    }
    std::unique_ptr<queues::event> e = queues::spawn[static_cast<std::size_t>(number)](stream);
    if (!e->exception && e->type != number)
        assertion("spawn[] hash failure!");
    rememberEvent(stream, {number, static_cast<std::int32_t>(e->dest)});
    out = std::move(e);
    return stream;
}

}  // namespace protocol
