// Typed events: a small header and a payload record.
//
// event       what all have: number, destination queue, serial, exception flag
// devent      binds an event number to a payload type
// exevent     carries an exception text in place of a payload
//
// On the wire (the frame), in the encoding of ioprim.h:
//    0  int32   type
//    4  int32   dest
//    8  int32   inresponse
//   12  bool    exception
//   16          the payload, or the exception's text as a string
#pragma once

#include "common/Held.h"
#include "queues/event_t.h"
#include "queues/fields.h"
#include "queues/ioprim.h"

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <utility>

namespace queues {

class event {
public:
    virtual ~event() = default;
    virtual std::unique_ptr<event> clone() const = 0;
    virtual void writePayload(protocol::ioprim& stream) const = 0;
    virtual void printPayload(std::ostream& stream, int indent) const = 0;

    const event_t type;
    queue_t dest;             // the queue that it is meant for
    std::int32_t inresponse;  // ties a reply to its request; 0: part of no exchange
    const bool exception;     // true only in an exevent

protected:
    event(event_t number, queue_t destination, std::int32_t serial, bool isException)
        : type(number), dest(destination), inresponse(serial), exception(isException)
    {}
    event(const event&) = default;
    event& operator=(const event&) = delete;
};

template <std::int32_t N, class T>
class devent : public event {
public:
    devent(queue_t destination, std::int32_t serial, T payload = T())
        : event(static_cast<event_t>(N), destination, serial, false), data(std::move(payload))
    {}

    std::unique_ptr<event> clone() const override { return std::make_unique<devent>(*this); }
    void writePayload(protocol::ioprim& stream) const override
    {
        if (!exception)
            stream << data;
    }
    void printPayload(std::ostream& stream, int indent) const override
    {
        printPayloadValue(stream, indent, data);
    }

    T data;
};

// An exception that answers a request. Always of number 195, MESSAGE_EXCEPTION.
class exevent : public event {
public:
    exevent(queue_t destination, std::int32_t serial, std::string message);
    std::unique_ptr<event> clone() const override;
    void writePayload(protocol::ioprim& stream) const override;
    void printPayload(std::ostream& stream, int indent) const override;

    std::string text;
};

// True if an event has the number. To read any other is an assertion.
bool isKnownEvent(std::int32_t number);

// Same class, header and payload.
bool operator==(const event& a, const event& b);

// Prints the whole event; each level of `indent` is two spaces. The caller has placed the start
// of the first line.
void printEvent(std::ostream& stream, const event& e, int indent = 0);

// An event within a payload prints behind its label. A null one is an assertion.
void printForm(Place at, const Held<event>& e);

}  // namespace queues

namespace protocol {

// Writes a frame. The caller flushes afterwards.
ioprim& operator<<(ioprim& stream, const queues::event& e);
// Reads a frame; waits for all of it. The caller owns the event.
ioprim& operator>>(ioprim& stream, std::unique_ptr<queues::event>& out);

// An event within a payload is a whole frame. To write a null one is an assertion.
ioprim& operator<<(ioprim& stream, const Held<queues::event>& e);
ioprim& operator>>(ioprim& stream, Held<queues::event>& e);

}  // namespace protocol
