// The entry of the worker process: builds the link to the parent, and turns what is ready into
// calls of handlers until the parent goes away.
//
// There is no command line, no environment and no configuration: what the process does is asked
// for by events on its standard input.
#include "checks/Handler.h"
#include "checks/ParentHandler.h"
#include "common/crashReporting.h"
#include "common/errors.h"
#include "common/log.h"
#include "io/Selector.h"
#include "platform/Overlapped.h"
#include "queues/Parent.h"
#include "queues/childqueue.h"

#include <iostream>
#include <memory>

namespace {

const CrashReporting crashReporting(reportToEventLog);

class LogGuard {
public:
    explicit LogGuard(LogQueue* queue) { setLogQueue(queue); }
    ~LogGuard() { setLogQueue(nullptr); }
    LogGuard(const LogGuard&) = delete;
    LogGuard& operator=(const LogGuard&) = delete;
};

// The objects are destroyed from the last to the first: the running checks and the selector
// before the log loses its queue, the queue before the link.
void serve()
{
    protocol::Parent parent;
    const auto queue = std::make_unique<queues::childqueue>(&parent);
    parentQueue = queue.get();
    const LogGuard logGuard(queue.get());
    io::Selector<Handler*> selector;
    ParentHandler handler(&selector);

    selector.add(queue->inputFront(), &handler);
    log("netcheck is alive", logOrdinary);
    while (!handler.isDone()) {
        const auto [ready, owner] = selector.poll();
        owner->handle(ready);
    }
    log("netcheck is going to shutdown", logOrdinary);
}

}  // namespace

int main()
{
    platform::raiseDescriptorLimit();
    try {
        serve();
    } catch (const error::Exception& e) {
        std::cerr << "Caught: " << e.text() << std::endl;
        return 1;
    }
    return 0;
}
