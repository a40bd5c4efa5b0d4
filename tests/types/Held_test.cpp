// Ownership by value: copies, nulls, assignments in which source and target overlap.
#include "types/Held.h"

#include <gtest/gtest.h>

#include <memory>
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

struct Base {
    virtual ~Base() = default;
    virtual std::unique_ptr<Base> clone() const = 0;
    virtual std::string kind() const = 0;
};

struct Derived : Base {
    std::unique_ptr<Base> clone() const override { return std::make_unique<Derived>(*this); }
    std::string kind() const override { return "derived"; }
};

TEST(Held, ACopyIsAnObjectOfItsOwn)
{
    {
        Held<Plain> first(Plain("a"));
        Held<Plain> second = first;
        EXPECT_EQ(Plain::alive, 2);
        EXPECT_EQ(first, second);
        second->text = "b";
        EXPECT_EQ(first->text, "a");
        EXPECT_FALSE(first == second);
        first = second;
        EXPECT_EQ(first->text, "b");
        EXPECT_NE(first.get(), second.get());
    }
    EXPECT_EQ(Plain::alive, 0);
}

TEST(Held, ACloneKeepsTheClassOfADerivedObject)
{
    const Held<Base> first(std::make_unique<Derived>());
    Held<Base> second;
    second = first;
    ASSERT_TRUE(second);
    EXPECT_EQ(second->kind(), "derived");
    EXPECT_NE(first.get(), second.get());
}

TEST(Held, NullCopiesAsNull)
{
    const Held<Plain> null;
    Held<Plain> copy = null;
    EXPECT_FALSE(copy);
    EXPECT_EQ(copy.get(), nullptr);
    EXPECT_EQ(copy, null);

    Held<Plain> full(Plain("a"));
    EXPECT_FALSE(full == null);
    EXPECT_FALSE(null == full);
    full = null;
    EXPECT_FALSE(full);
    EXPECT_EQ(Plain::alive, 0);
}

TEST(Held, MovesTakeTheObjectAlong)
{
    Held<Plain> first(Plain("a"));
    const Plain* object = first.get();
    Held<Plain> second = std::move(first);
    EXPECT_EQ(second.get(), object);
    Held<Plain> third(Plain("b"));
    third = std::move(second);
    EXPECT_EQ(third.get(), object);
    EXPECT_EQ(Plain::alive, 1);
    third.reset();
    EXPECT_FALSE(third);
    EXPECT_EQ(Plain::alive, 0);
}

TEST(Held, AssignmentToItselfKeepsTheObject)
{
    Held<Plain> held(Plain("a"));
    Held<Plain>& same = held;
    held = same;
    ASSERT_TRUE(held);
    EXPECT_EQ(held->text, "a");
    held = std::move(same);
    ASSERT_TRUE(held);
    EXPECT_EQ(held->text, "a");
}

// The source is owned by what the target holds, and must outlive the assignment.
TEST(Held, AnObjectCanBeReplacedByAPartOfItself)
{
    for (const bool byMove : {false, true}) {
        SCOPED_TRACE(byMove ? "moved" : "copied");
        Held<Plain> held(Plain("outer"));
        held->below = Held<Plain>(Plain("inner"));
        if (byMove)
            held = std::move(held->below);
        else
            held = held->below;
        ASSERT_TRUE(held);
        EXPECT_EQ(held->text, "inner");
        EXPECT_EQ(Plain::alive, 1);
    }
}

}  // namespace
