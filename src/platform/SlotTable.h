// A table of objects that are known outside by a number, and never by their address.
//
// A token is (generation << 32) | (index + 1). The generation of a place changes whenever its
// object is erased, so the token of an object that is gone finds nothing, although the place
// serves another one by then. Objects stay where they are until they are erased.
#pragma once

#include <cstdint>
#include <deque>

namespace platform {

using Token = std::uint64_t;

// Two tables whose tokens must not be mixed up get different tags: a bit of the lower half that
// no index reaches.
template <class T, std::uint32_t tag>
class SlotTable {
public:
    Token insert()
    {
        std::uint32_t index = firstFree;
        if (index == noSlot) {
            index = static_cast<std::uint32_t>(slots.size());
            slots.emplace_back();
        } else {
            firstFree = slots[index].nextFree;
        }
        Slot& slot = slots[index];
        slot.used = true;
        return (Token{slot.generation} << 32) | (index + 1) | tag;
    }

    // Null for a token that is stale, or none of this table.
    T* find(Token token)
    {
        Slot* slot = slotOf(token);
        return slot ? &slot->value : nullptr;
    }

    void erase(Token token)
    {
        Slot* slot = slotOf(token);
        if (!slot)
            return;
        slot->value = T{};
        slot->used = false;
        ++slot->generation;
        slot->nextFree = firstFree;
        firstFree = indexOf(token);
    }

private:
    static constexpr std::uint32_t noSlot = 0xFFFFFFFF;

    struct Slot {
        std::uint32_t generation = 1;
        std::uint32_t nextFree = noSlot;
        bool used = false;
        T value;
    };

    static std::uint32_t indexOf(Token token)
    {
        return (static_cast<std::uint32_t>(token) ^ tag) - 1;
    }

    Slot* slotOf(Token token)
    {
        const std::uint32_t index = indexOf(token);
        if (index >= slots.size())
            return nullptr;
        Slot& slot = slots[index];
        return slot.used && slot.generation == token >> 32 ? &slot : nullptr;
    }

    std::deque<Slot> slots;
    std::uint32_t firstFree = noSlot;
};

}  // namespace platform
