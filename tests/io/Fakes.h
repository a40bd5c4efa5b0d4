// Selectables that tests steer: foreign ones that count their calls, managed ones, and backs.
#pragma once

#include "io/Selectable.h"
#include "io/Selector.h"
#include "platform/Overlapped.h"

#include <string>
#include <utility>
#include <vector>

namespace fakes {

// A foreign selectable. It notes its calls in `trace`, if there is one.
class Foreign : public io::Selectable {
public:
    explicit Foreign(std::string label = "foreign") : text(std::move(label)) {}

    std::string name() const override { return text; }
    platform::Handle osHandle() override { return handle; }
    bool isReady() override
    {
        note("isReady");
        ++readyCalls;
        return ready;
    }
    bool handleSignalled() override { return keepsWaiting; }
    void issueOverlapped() override { note("issueOverlapped"); }
    bool wakeTime(Time* out) override
    {
        note("wakeTime");
        if (hasDeadline)
            *out = deadline;
        return hasDeadline;
    }

    bool ready = false;
    bool hasDeadline = false;
    bool keepsWaiting = false;
    Time deadline;
    platform::Handle handle = platform::Handle::none;
    std::vector<std::string>* trace = nullptr;
    unsigned readyCalls = 0;

private:
    void note(const char* call)
    {
        if (trace)
            trace->push_back(text + "." + call);
    }

    std::string text;
};

// A managed selectable that reads into nowhere: an operation is started when it is wanted.
class Managed : public io::Selectable {
public:
    std::string name() const override { return "managed"; }
    bool isReady() override
    {
        ++readyCalls;
        return ready;
    }
    void issueOverlapped() override
    {
        if (!wanted || underWay)
            return;
        wanted = false;
        underWay = true;
        overlapped.event = this;
        platform::readFileEx(platform::Handle{number}, &byte, 1, &overlapped, completed);
    }
    void set(bool isReady)
    {
        ready = isReady;
        changed();
    }
    void want()
    {
        wanted = true;
        changed();
    }
    static void completed(std::uint32_t, std::uint32_t, platform::Overlapped* overlapped)
    {
        auto* const self = static_cast<Managed*>(overlapped->event);
        self->underWay = false;
        self->set(true);
    }

    bool ready = false;
    bool wanted = false;
    bool underWay = false;
    std::uint64_t number = 0;
    unsigned readyCalls = 0;

private:
    char byte = 0;
    platform::Overlapped overlapped;
};

class Front : public io::StackedSelectableFront {
public:
    explicit Front(io::StackedSelectableBack* owner, std::string label = "front")
        : StackedSelectableFront(owner), text(std::move(label))
    {}
    std::string name() const override { return text; }
    void set(bool isReady) { ready = isReady; }

private:
    std::string text;
};

// A back with one front, which gets ready when what is beneath does.
class Back : public io::StackedSelectableBack {
public:
    explicit Back(std::string label = "front") : front(this, std::move(label)) {}

    void underlyingIsReady(io::Selectable* u) override
    {
        watchUnderlying(u, false);
        front.set(true);
    }
    void watch(io::Selectable* u) { watchUnderlying(u, true); }
    void unwatch(io::Selectable* u) { watchUnderlying(u, false); }
    // What was to be taken has been taken.
    void served(io::Selectable* u)
    {
        front.set(false);
        watchUnderlying(u, true);
    }

    Front front;
};

}  // namespace fakes
