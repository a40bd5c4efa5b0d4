// An open descriptor of the system, as it is passed between processes.
#pragma once

#include "platform/Overlapped.h"

#include <utility>

namespace platform {

// Owns a descriptor, and closes it at the end. All that are made here are close-on-exec.
class OwnedDescriptor {
public:
    OwnedDescriptor() = default;
    explicit OwnedDescriptor(int descriptor) : fd(descriptor) {}
    OwnedDescriptor(OwnedDescriptor&& other) noexcept : fd(other.take()) {}
    OwnedDescriptor& operator=(OwnedDescriptor&& other) noexcept
    {
        reset(other.take());
        return *this;
    }
    ~OwnedDescriptor() { reset(); }

    bool isOpen() const { return fd >= 0; }
    int get() const { return fd; }  // -1: none
    int take() { return std::exchange(fd, -1); }
    void reset(int descriptor = -1);
    // A second descriptor of the same open file; none with getLastError() set if that fails.
    OwnedDescriptor duplicate() const;
    // Gives it to a handle, see adoptDescriptor.
    Handle toHandle() { return adoptDescriptor(take()); }

private:
    int fd = -1;
};

// Both ends of a pipe.
struct Pipe {
    OwnedDescriptor reading;
    OwnedDescriptor writing;

    bool open();  // false with getLastError() set
};

}  // namespace platform
