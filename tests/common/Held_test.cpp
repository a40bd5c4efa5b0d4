// Ownership by value: copies, nulls, assignments in which source and target overlap.
#include "common/Held.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// Counts the living, so that a leak or a double destruction shows in the count.
struct Plain {
    static inline int alive = 0;
    std::string text;
    Held<Plain> below;

    explicit Plain(std::string initial) : text(std::move(initial)) { ++alive; }
    Plain(const Plain& other) : text(other.text), below(other.below) { ++alive; }
    Plain& operator=(const Plain&) = default;
    ~Plain() { --alive; }
    bool operator==(const Plain&) const = default;
};

TEST(Held, CopiesAreObjectsOfTheirOwn)
{
    Held<Plain> first(Plain("a"));
    Held<Plain> second = first;
    EXPECT_EQ(first, second);
    second->text = "b";
    EXPECT_EQ(first->text, "a");
    EXPECT_FALSE(first == second);
    EXPECT_EQ(Plain::alive, 2);
    Held<Plain> null;
    EXPECT_FALSE(first == null || null == first);
    first = null;
    EXPECT_EQ(first, null);
    EXPECT_EQ(Plain::alive, 1);
}

// The source is owned by what the target holds, and must outlive the assignment.
TEST(Held, AnObjectCanBeReplacedByItselfOrAPartOfItself)
{
    for (const bool byMove : {false, true}) {
        SCOPED_TRACE(byMove ? "moved" : "copied");
        Held<Plain> held(Plain("outer"));
        held->below = Held<Plain>(Plain("inner"));
        for (Held<Plain>* source : {&held, &held->below}) {
            if (byMove)
                held = std::move(*source);
            else
                held = *source;
        }
        ASSERT_TRUE(held);
        EXPECT_EQ(held->text, "inner");
        EXPECT_EQ(Plain::alive, 1);
    }
}

}  // namespace
