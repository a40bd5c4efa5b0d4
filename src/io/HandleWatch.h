// A selectable for a bare waitable handle.
#pragma once

#include "io/Selectable.h"
#include "platform/Overlapped.h"

#include <string>

namespace io {

// Is handed out whenever the handle is signalled. The handle is not owned.
class HandleWatch final : public Selectable {
public:
    HandleWatch(std::string what, platform::Handle watched);

    std::string name() const override { return description; }
    platform::Handle osHandle() override { return handle; }
    bool isReady() override { return false; }

private:
    std::string description;
    platform::Handle handle;
};

}  // namespace io
