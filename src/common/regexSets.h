// Sets of states of a program, one bit a state, and how a set follows a text.
//
// SmallSet is a single word and serves programs of fewer than 33 states; LargeSet is an array.
// All that walks over a text is written once, over either.
#pragma once

#include "common/regexProgram.h"

#include <algorithm>
#include <bit>

namespace regex {

inline constexpr std::size_t mostSmallStates = 32;

class SmallSet {
public:
    explicit SmallSet(const RegexProgram&) {}

    void clear() { word = 0; }
    bool isEmpty() const { return word == 0; }
    bool has(std::uint32_t state) const { return (word >> state & 1) != 0; }
    void add(std::uint32_t state) { word |= 1U << state; }
    void remove(std::uint32_t state) { word &= ~(1U << state); }
    void add(const SmallSet& other) { word |= other.word; }
    void keep(const SmallSet& other) { word &= other.word; }
    bool meets(const std::uint64_t* mask) const { return (word & mask[0]) != 0; }

    // To the states behind those that are in `readers`; and back.
    void advance(const std::uint64_t* readers)
    {
        word = (word & static_cast<std::uint32_t>(readers[0])) << 1;
    }
    void retreat(const std::uint64_t* readers)
    {
        word = word >> 1 & static_cast<std::uint32_t>(readers[0]);
    }

    // Adds what lies behind jumps and splits.
    void follow(const RegexProgram& program)
    {
        for (std::uint32_t old = ~word; old != word;) {
            old = word;
            word |= (word & static_cast<std::uint32_t>(program.splits()[0])) << 1;
            for (const Jump& jump : program.jumps) {
                if ((word & jump.from) != 0)
                    add(jump.target);
            }
        }
    }

    template <class Action>
    void forEach(const std::uint64_t* mask, Action action) const
    {
        for (std::uint32_t left = word & static_cast<std::uint32_t>(mask[0]); left != 0;
             left &= left - 1)
            action(static_cast<std::uint32_t>(std::countr_zero(left)));
    }

    void save(std::uint64_t* to) const { *to = word; }
    void load(const std::uint64_t* from) { word = static_cast<std::uint32_t>(*from); }

private:
    std::uint32_t word = 0;
};

class LargeSet {
public:
    explicit LargeSet(const RegexProgram& program) : array(program.words) {}

    void clear() { std::fill(array.begin(), array.end(), 0); }
    bool isEmpty() const
    {
        return std::all_of(array.begin(), array.end(),
                           [](std::uint64_t word) { return word == 0; });
    }
    bool has(std::uint32_t state) const { return (array[state / 64] >> state % 64 & 1) != 0; }
    void add(std::uint32_t state) { array[state / 64] |= std::uint64_t{1} << state % 64; }
    void remove(std::uint32_t state) { array[state / 64] &= ~(std::uint64_t{1} << state % 64); }
    void add(const LargeSet& other)
    {
        for (std::size_t i = 0; i < array.size(); ++i)
            array[i] |= other.array[i];
    }
    void keep(const LargeSet& other)
    {
        for (std::size_t i = 0; i < array.size(); ++i)
            array[i] &= other.array[i];
    }
    bool meets(const std::uint64_t* mask) const
    {
        for (std::size_t i = 0; i < array.size(); ++i) {
            if ((array[i] & mask[i]) != 0)
                return true;
        }
        return false;
    }

    void advance(const std::uint64_t* readers)
    {
        std::uint64_t carry = 0;
        for (std::size_t i = 0; i < array.size(); ++i) {
            const std::uint64_t word = array[i] & readers[i];
            array[i] = word << 1 | carry;
            carry = word >> 63;
        }
    }
    void retreat(const std::uint64_t* readers)
    {
        std::uint64_t carry = 0;
        for (std::size_t i = array.size(); i-- > 0;) {
            const std::uint64_t word = array[i];
            array[i] = (word >> 1 | carry) & readers[i];
            carry = word << 63;
        }
    }

    // Adds what lies behind jumps and splits, a word of states at a time. Most jumps lead on; for
    // one that leads back to an earlier word, the words from there on have another turn.
    void follow(const RegexProgram& program)
    {
        const std::uint64_t* const silent = program.silent();
        const std::uint64_t* const splits = program.splits();
        for (std::size_t i = 0; i < array.size();) {
            if ((array[i] & silent[i]) == 0) {
                ++i;
                continue;
            }
            std::size_t next = i + 1;
            for (std::uint64_t old = ~array[i]; old != array[i];) {
                old = array[i];
                array[i] |= (old & splits[i]) << 1;
                for (std::uint32_t j = program.jumpsOf[i]; j < program.jumpsOf[i + 1]; ++j) {
                    const Jump& jump = program.jumps[j];
                    if ((array[i] & jump.from) == 0 || has(jump.target))
                        continue;
                    add(jump.target);
                    next = std::min<std::size_t>(next, jump.target / 64);
                }
            }
            if ((array[i] & splits[i]) >> 63 != 0)
                array[i + 1] |= 1;
            i = next;
        }
    }

    template <class Action>
    void forEach(const std::uint64_t* mask, Action action) const
    {
        for (std::size_t i = 0; i < array.size(); ++i) {
            for (std::uint64_t left = array[i] & mask[i]; left != 0; left &= left - 1)
                action(static_cast<std::uint32_t>(i * 64) +
                       static_cast<std::uint32_t>(std::countr_zero(left)));
        }
    }

    void save(std::uint64_t* to) const { std::copy(array.begin(), array.end(), to); }
    void load(const std::uint64_t* from) { std::copy_n(from, array.size(), array.begin()); }

private:
    std::vector<std::uint64_t> array;
};

// Adds what lies behind the assertions that hold in the gap. The set is complete but for them.
template <class Set>
void passAssertions(Set& set, const RegexProgram& program, const Gap& gap)
{
    for (bool again = true; again;) {
        again = false;
        set.forEach(program.asserting(), [&](std::uint32_t number) {
            if (set.has(number + 1) ||
                !gap.allows(static_cast<Assertion>(program.states[number].value)))
                return;
            set.add(number + 1);
            again = true;
        });
        if (again)
            set.follow(program);
    }
}

}  // namespace regex
