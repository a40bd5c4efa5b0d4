// The link to the parent as a queue of events.
//
// The queue offers one selectable, the input front, which becomes ready when an event can be
// taken; receive() takes exactly one; send() writes one and returns when it has left.
#pragma once

#include "common/log.h"
#include "common/meter.h"
#include "io/Selectable.h"
#include "queues/event.h"

#include <cstdint>
#include <list>
#include <memory>
#include <set>
#include <string>
#include <utility>

namespace queues {

class childqueue : public io::StackedSelectableBack, public LogQueue {
public:
    // Starts to watch the link's input stream. The link is not owned.
    explicit childqueue(protocol::ioprim* link);

    // What to add to a selector.
    io::Selectable* inputFront() { return &front; }

    // Takes one event; waits until its frame is whole. The caller owns the event. What the link
    // throws passes through, io::EEndOfStream above all; the front stays ready then.
    void receive(std::unique_ptr<event>& out);

    // Writes one event and waits until it has left. Throws what the link throws.
    void send(const event& e);

    // A fresh value for `inresponse`; never 0.
    std::int32_t nextSerial();

    void underlyingIsReady(io::Selectable* s) override;

    // A log line is an ordinary event to the main queue.
    void sendLogLine(const std::string& text, std::int32_t log_type) override;

private:
    class InFront : public io::StackedSelectableFront {
    public:
        using StackedSelectableFront::StackedSelectableFront;
        std::string name() const override { return "parentqueue.in"; }
        void setReady(bool isReady) { ready = isReady; }
    };

    void becomeIdle();

    InFront front;
    protocol::ioprim* parent;

protected:
    // For a request that waits for its reply: it puts here what else arrives meanwhile.
    std::list<std::unique_ptr<event>> pending;  // taken off the link ahead of time, oldest first
    std::set<std::pair<std::int32_t, std::int32_t>> pending_index;  // (inresponse, dest) of each
    std::int32_t next_serial = 1;                                   // the last one handed out
    // Of such requests; so far nothing adds to them.
    static meter::MicroSecondTiming blockings;
    static meter::IntegerCounter noblockings;
};

}  // namespace queues

// The queue to the parent, through which the process answers. Null until the entry of the process
// has built it; not owned.
extern queues::childqueue* parentQueue;
