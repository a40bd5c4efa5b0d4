#include "queues/childqueue.h"

#include "common/assertion.h"
#include "queues/records/control.h"

queues::childqueue* parentQueue = nullptr;

namespace queues {

namespace {

meter::Group group(nullptr, "queues");

}  // namespace

meter::MicroSecondTiming
    childqueue::blockings(&group, "blockings",
                          "The time spent blocked awaiting reply from another process");
meter::IntegerCounter childqueue::noblockings(
    &group, "noblockings", "",
    "The number of times a reply from another process was immediately available");

childqueue::childqueue(protocol::ioprim* link) : front(this), parent(link)
{
    watchUnderlying(parent->input(), true);
}

void childqueue::underlyingIsReady(io::Selectable* s)
{
    if (s != parent->input())
        assertion("childqueue::underlyingIsReady got wrong Selectable");
    watchUnderlying(s, false);
    front.setReady(true);
}

void childqueue::becomeIdle()
{
    watchUnderlying(parent->input(), true);
    front.setReady(false);
}

void childqueue::receive(std::unique_ptr<event>& out)
{
    if (pending.empty()) {
        *parent >> out;
        becomeIdle();
        return;
    }
    std::unique_ptr<event> first = std::move(pending.front());
    pending.pop_front();
    if (pending_index.erase({first->inresponse, static_cast<std::int32_t>(first->dest)}) == 0)
        assertion("Corrupted index set");
    if (pending.empty())
        becomeIdle();
    out = std::move(first);
}

void childqueue::send(const event& e)
{
    *parent << e;
    parent->flush();
}

std::int32_t childqueue::nextSerial()
{
    next_serial = static_cast<std::int32_t>(static_cast<std::uint32_t>(next_serial) + 1U);
    if (next_serial == 0)
        next_serial = 1;
    return next_serial;
}

void childqueue::sendLogLine(const std::string& text, std::int32_t log_type)
{
    const devent<SYSTEM_LOG_REQUEST, control::Log_Request_Data> line(
        queue_t::main, nextSerial(), {.msg = text, .log_type = log_type});
    send(line);
}

}  // namespace queues
