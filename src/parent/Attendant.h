// Who acts when a selectable of the main loop is ready, and a selectable for bare handles.
#pragma once

#include "io/Selector.h"
#include "platform/Overlapped.h"

#include <string>
#include <utility>

namespace parent {

class Attendant {
public:
    virtual void ready(io::Selectable* s) = 0;

protected:
    ~Attendant() = default;
};

using MainSelector = io::Selector<Attendant*>;

// A waitable handle as a selectable: it is handed out whenever the handle is signalled. The
// handle is not owned.
class HandleWatch final : public io::Selectable {
public:
    HandleWatch(std::string what, platform::Handle watched)
        : description(std::move(what)), handle(watched)
    {}

    std::string name() const override { return description; }
    platform::Handle osHandle() override { return handle; }
    bool isReady() override { return false; }

private:
    std::string description;
    platform::Handle handle;
};

}  // namespace parent
