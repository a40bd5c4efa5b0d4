// Identifiers and versions: text, order, bounds.
#include "types/id.h"

#include "common/errors.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

TEST(SmallVector, BoundsHaveTheirTexts)
{
    tql::small_vector<3> vector{1, 2};
    struct Case {
        std::function<void()> action;
        const char* text;
    };
    const Case cases[] = {
        {[&] { vector[2] = 7; }, "small vector reference overflow 2 >= 3"},
        {[&] { vector.resize(4); }, "small vector resize overflow 4 > 3"},
        {[&] { vector.resize(SIZE_MAX); }, "small vector resize overflow 18446744073709551615 > 3"},
    };
    for (const Case& c : cases) {
        try {
            c.action();
            ADD_FAILURE() << "not thrown: " << c.text;
        } catch (const error::ERange& e) {
            EXPECT_EQ(e.text(), c.text);
        }
    }
}

TEST(Id, OrdersByNumbersAndThenByLength)
{
    // Ascending, each less than all that follow.
    const tql::id_t ascending[] = {{}, {0}, {1}, {1, 1, 9}, {1, 2}, {1, 2, 0}, {0x80000000}};
    for (const tql::id_t& left : ascending) {
        for (const tql::id_t& right : ascending) {
            EXPECT_EQ(left < right, &left < &right) << left.toString() << " " << right.toString();
            EXPECT_EQ(left == right, &left == &right);
        }
    }
}

TEST(Version, OrdersByDifferences)
{
    const tql::version_t ascending[] = {{UINT64_MAX, 0}, {0, 8}, {0, 9}, {1, UINT64_MAX}, {1, 3}};
    for (std::size_t i = 1; i < std::size(ascending); ++i) {
        EXPECT_TRUE(ascending[i - 1] < ascending[i]) << i;
        EXPECT_FALSE(ascending[i] < ascending[i - 1]) << i;
    }
}

TEST(Id, Texts)
{
    EXPECT_EQ(tql::id_t().toString(), "");
    EXPECT_EQ(tql::id_t({1, 20, 4294967295}).toString(), "1.20.4294967295");
    EXPECT_EQ(tql::version_t().toString(), "0.1.0");
    EXPECT_EQ((tql::version_t{UINT64_MAX, 9}).toString(), "18446744073709551615.1.9");
    EXPECT_EQ(tql::gidToString(0xFF000A0B), "ff:00:0a:0b");
}

}  // namespace
