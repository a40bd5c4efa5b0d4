// The finished operations whose routines have not run yet, first in, first out.
//
// An entry holds all that its routine is called with, for the descriptor may be closed, and its
// place reused, before the routine runs. The storage is a ring that grows and never shrinks:
// once it is large enough, queueing allocates nothing.
#pragma once

#include "platform/Overlapped.h"
#include "platform/SlotTable.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace platform {

enum class Direction : std::uint8_t { read, write };

struct Completion {
    Token descriptor = 0;
    Direction direction = Direction::read;
    std::uint32_t error = 0;
    std::uint32_t bytes = 0;
    Overlapped* overlapped = nullptr;
    CompletionRoutine routine = nullptr;
};

class CompletionQueue {
public:
    bool empty() const { return count == 0; }
    std::size_t size() const { return count; }

    void push(const Completion& completion)
    {
        if (count == ring.size())
            grow();
        ring[(head + count) & (ring.size() - 1)] = completion;
        ++count;
    }

    Completion pop()
    {
        const Completion first = ring[head];
        head = (head + 1) & (ring.size() - 1);
        --count;
        return first;
    }

private:
    void grow()
    {
        std::vector<Completion> larger(ring.size() * 2);
        for (std::size_t i = 0; i < count; ++i)
            larger[i] = ring[(head + i) & (ring.size() - 1)];
        ring.swap(larger);
        head = 0;
    }

    std::vector<Completion> ring = std::vector<Completion>(64);  // a power of two
    std::size_t head = 0;
    std::size_t count = 0;
};

}  // namespace platform
