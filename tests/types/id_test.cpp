// Identifiers, versions, references, stations: text, order, bounds.
#include "types/id.h"

#include "common/errors.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <limits>
#include <set>
#include <string>

namespace {

std::string thrownText(const std::function<void()>& action)
{
    try {
        action();
    } catch (const error::ERange& e) {
        return e.text();
    }
    return "nothing thrown";
}

TEST(SmallVector, BoundsHaveTheirTexts)
{
    struct Case {
        const char* name;
        std::function<void(tql::small_vector<3>&)> action;
        const char* text;
    };
    const Case cases[] = {
        {"within", [](auto& v) { v[1] = 7; }, "nothing thrown"},
        {"the bound in the text is the capacity, not the size", [](auto& v) { v[2] = 7; },
         "small vector reference overflow 2 >= 3"},
        {"reading", [](const auto& v) { (void)v[3]; }, "small vector reference overflow 3 >= 3"},
        {"up to the capacity", [](auto& v) { v.resize(3); }, "nothing thrown"},
        {"one too many", [](auto& v) { v.resize(4); }, "small vector resize overflow 4 > 3"},
        {"a negative count of the wire", [](auto& v) { v.resize(static_cast<std::size_t>(-1)); },
         "small vector resize overflow 18446744073709551615 > 3"},
        {"a list of four",
         [](auto& v) {
             v = {1, 2, 3, 4};
         },
         "small vector resize overflow 4 > 3"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        tql::small_vector<3> vector{1, 2};
        EXPECT_EQ(thrownText([&] { c.action(vector); }), c.text);
    }
}

TEST(SmallVector, ResizingShowsNoOldNumbers)
{
    tql::small_vector<3> vector{1, 2, 3};
    vector.resize(1);
    EXPECT_EQ(vector, (tql::small_vector<3>{1}));
    vector.resize(3);
    EXPECT_EQ(vector, (tql::small_vector<3>{1, 0, 0}));
}

TEST(Id, ReadsAsAPath)
{
    EXPECT_EQ(tql::id_t().toString(), "");
    EXPECT_EQ(tql::id_t({5}).toString(), "5");
    EXPECT_EQ(tql::id_t({1, 20, 4294967295}).toString(), "1.20.4294967295");
}

TEST(Id, OrdersByNumbersAndThenByLength)
{
    // Ascending, each less than all that follow.
    const tql::id_t ascending[] = {{}, {0}, {1}, {1, 1, 9}, {1, 2}, {1, 2, 0}, {2}, {0x80000000}};
    for (std::size_t i = 0; i < std::size(ascending); ++i) {
        for (std::size_t j = 0; j < std::size(ascending); ++j) {
            SCOPED_TRACE(ascending[i].toString() + " and " + ascending[j].toString());
            EXPECT_EQ(ascending[i] < ascending[j], i < j);
            EXPECT_EQ(ascending[i] > ascending[j], i > j);
            EXPECT_EQ(ascending[i] == ascending[j], i == j);
        }
    }
}

TEST(Version, ReadsAndOrders)
{
    EXPECT_EQ(tql::version_t().toString(), "0.1.0");
    EXPECT_EQ((tql::version_t{7, 9}).toString(), "7.1.9");
    EXPECT_EQ((tql::version_t{std::numeric_limits<std::uint64_t>::max(), 1}).toString(),
              "18446744073709551615.1.1");

    struct Case {
        const char* name;
        tql::version_t less, greater;
    };
    const std::uint64_t top = std::numeric_limits<std::uint64_t>::max();
    const Case cases[] = {
        {"the first number decides", {1, 9}, {2, 0}},
        {"then the second", {1, 8}, {1, 9}},
        {"a first number that wraps", {top, 0}, {0, 0}},
        {"a second number that wraps", {1, top}, {1, 3}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_TRUE(c.less < c.greater);
        EXPECT_FALSE(c.greater < c.less);
        EXPECT_FALSE(c.less < c.less);
    }
}

TEST(ObjectReference, OrdersByIdAndEqualsByAllFields)
{
    const tql::object_reference_t plain{{1, 2}, {}};
    const tql::object_reference_t elsewhere{{1, 2}, {{7}, {8}, 1}};
    EXPECT_EQ(plain.origin.type, 37);
    EXPECT_FALSE(plain == elsewhere);
    std::set<tql::object_reference_t> references{elsewhere, plain};
    ASSERT_EQ(references.size(), 1U);
    EXPECT_EQ(*references.begin(), elsewhere);
}

TEST(Gid, ReadsAsFourBytes)
{
    EXPECT_EQ(tql::gidToString(0), "00:00:00:00");
    EXPECT_EQ(tql::gidToString(0x0A0B0C0D), "0a:0b:0c:0d");
    EXPECT_EQ(tql::gidToString(0xFF00FE01), "ff:00:fe:01");
}

}  // namespace
