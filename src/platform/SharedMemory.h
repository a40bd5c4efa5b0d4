// Memory that several processes map.
#pragma once

#include <cstdint>

namespace platform {

// An anonymous memory file that is mapped here, for reading and writing. It has no name in the file
// system: other processes get at it by its descriptor. It is sealed at its size, so that no process
// can take pages away under the others. Unmapped and closed at the end.
class SharedMemory {
public:
    SharedMemory() = default;
    ~SharedMemory();
    SharedMemory(const SharedMemory&) = delete;
    SharedMemory& operator=(const SharedMemory&) = delete;

    // These two once, either of them.

    // Makes a region of `bytes` bytes, all 0. False with getLastError() set.
    bool create(std::uint64_t bytes);
    // Maps the region that `descriptor` names, and takes the descriptor over, even if it fails.
    // False with getLastError() set: ERROR_INVALID_PARAMETER if it isn't a memory file that is
    // sealed against shrinking and has any size.
    bool attach(int descriptor);

    // The region begins at a page. Null and 0 if there is none.
    char* base() const { return address; }
    std::uint64_t size() const { return length; }
    // Stays the region's; close-on-exec.
    int descriptor() const { return file; }

private:
    bool map(std::uint64_t bytes);

    int file = -1;
    char* address = nullptr;
    std::uint64_t length = 0;
};

}  // namespace platform
