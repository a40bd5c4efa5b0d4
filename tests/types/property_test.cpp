// Property values: text forms, comparison, equality, the accessors.
#include "types/property.h"

#include "common/errors.h"
#include "types/vocabulary.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using namespace tql;
using Property = Held<property_t>;

template <class C, class... Arguments>
Property make(Arguments&&... arguments)
{
    return Property(
        std::make_unique<C>(property::connClose, std::forward<Arguments>(arguments)...));
}

Property null(Property property)
{
    property->is_null = true;
    return property;
}

Property text(const char* value)
{
    return make<property_string_t>(value);
}

Property object(tql::id_t id)
{
    return make<property_object_t>(object_reference_t{id, {}});
}

Property objects(std::set<object_reference_t> references)
{
    return make<property_object_set_t>(std::move(references));
}

// The outcome, or the text of the failure behind its status.
template <class Action>
std::string outcome(Action&& action)
{
    try {
        return action();
    } catch (const errors::tql& e) {
        return std::to_string(e.status()) + ": " + e.text();
    }
}

std::string compared(const Property& a, std::uint32_t rel_op, const Property& b)
{
    return outcome([&] { return a->compare(rel_op, *b) ? "true" : "false"; });
}

TEST(Property, EachClassHasItsTagTextAndKind)
{
    struct Case {
        Property property;
        const char* text;
        const char* kind;
    };
    const Case cases[] = {
        {text("say \"hi\""), R"("say "hi"")", "string"},
        {make<property_string_list_t>(std::list<std::string>{"a", ""}), R"("a", "")",
         "string_list"},
        {objects({{{2}, {}}, {{1, 20}, {}}}), R"({"1.20", "2"})", "object_set"},
        {object({1, 2}), R"("1.2")", "object"},
        {make<property_version_t>(version_t{7, 9}), R"("7.1.9")", "object"},
        {make<property_action_t>(5), "(null)", "action"},
        {make<property_real_t>(1.5), "1.500000", "real"},
        {make<property_bignum_t>(BigNum(4294967295)), "4294967295", "bignum"},
        {make<property_gid_t>(0x0A0B0C0DU), "0a:0b:0c:0d", "GID"},
        {make<property_gid_list_t>(std::vector{1U, 2U}), "00:00:00:01, 00:00:00:02", "GIDList"},
        {make<property_date_t>(0x1FFFFFFFF), "-1", "date"},
        {make<property_index_t>(4294967295U), "4294967295", "index"},
        {make<property_int_t>(-5), "-5", "int"},
        {make<property_uint_t>(4294967295U), "4294967295", "uint"},
        {make<property_boolean_t>(true), "true", "boolean"},
        {make<property_blob_t>("bytes"), "BLOB", "blob"},
        {make<property_lob_t>("bytes"), "LOB", "lob"},
        {make<property_oid_t>(std::vector{6U}), "00:00:00:06", "GIDList"},
        {make<property_enum_t>(0x10020U, 1U), "enum(65568, 1)", "int"},
    };
    for (const Case& c : cases) {
        const std::uint32_t tag = c.property->type();
        SCOPED_TRACE(tag);
        EXPECT_EQ(tag, 7 + (&c - cases));
        EXPECT_EQ(c.property->toString(), c.text);
        Property copy = c.property;
        EXPECT_EQ(copy, c.property);
        copy->is_null = true;
        EXPECT_FALSE(copy == c.property);
        for (const Case& other : cases) {
            if (&other != &c) {
                EXPECT_EQ(compared(c.property, REL_EQUAL, other.property),
                          std::string("11: Type mismatch, ") + c.kind + " != type of connClose");
            }
        }
        for (const std::uint32_t rel_op : {0U, 13U, 15U})
            EXPECT_EQ(compared(c.property, rel_op, c.property), "11: Unknown relative operator");
    }
}

// The operators that hold for each value of the relation.
const char* const greater = "2468";
const char* const greaterInCase = "2467";
const char* const equal = "1457";
const char* const lessInCase = "3567";
const char* const less = "3568";

struct Pair {
    Property a, b;
    const char* holds;
};

template <class C>
Pair values(decltype(C::value) a, decltype(C::value) b, const char* holds)
{
    return {make<C>(std::move(a)), make<C>(std::move(b)), holds};
}

TEST(Property, ValuesCompareByTheRulesOfTheirClass)
{
    BigNum big(1);
    big.shiftLeft(32);
    const object_reference_t one{{1}, {}}, elsewhere{{1}, {{9}, {9}, 9}}, two{{2}, {}};
    const Pair cases[] = {
        values<property_string_t>("abc", "abc", equal),
        values<property_string_t>("abc", "ABC", greaterInCase),
        values<property_string_t>("ABC", "abc", lessInCase),
        values<property_string_t>("a", "B", greater),     // bytes decide, not letters
        values<property_string_t>("\xE4", "z", greater),  // unsigned
        {null(text("")), text(""), less},
        {text(""), null(text("")), greater},
        {null(text("a")), null(text("b")), equal},
        values<property_string_list_t>({"a"}, {"a", ""}, less),
        values<property_string_list_t>({"a"}, {"A"}, greater),  // case is a full difference
        values<property_object_t>({{1, 2}, {}}, {{1, 2, 0}, {}}, less),
        values<property_object_t>(elsewhere, one, equal),  // the origin doesn't count
        values<property_version_t>({0, 0}, {UINT64_MAX, 0}, greater),
        values<property_int_t>(-1, 1, less),
        values<property_date_t>(0x100000000, 5, greater),
        values<property_gid_t>(0x80000000, 1, greater),
        values<property_uint_t>(0x80000000, 1, greater),
        values<property_real_t>(-0.5, 0.25, less),
        values<property_real_t>(std::nan(""), 1.0, equal),
        values<property_bignum_t>(big, BigNum(0xFFFFFFFF), greater),
        values<property_gid_list_t>({5}, {1, 2}, less),  // the shorter one
        values<property_gid_list_t>({1, 3, 0}, {1, 2, 9}, greater),
        values<property_blob_t>("b", "ab", greater),  // content before length
        {null(make<property_enum_t>(7U, 1U)), make<property_enum_t>(8U, 1U), less},
        values<property_object_set_t>({one}, {two}, greater),  // either way
        values<property_object_set_t>({two}, {one}, greater),
        values<property_object_set_t>({one, two}, {two, elsewhere}, equal),
    };
    for (const Pair& c : cases) {
        std::string holds;
        for (std::uint32_t rel_op = 1; rel_op <= 8; ++rel_op) {
            if (c.a->compare(rel_op, *c.b))
                holds += std::to_string(rel_op);
        }
        EXPECT_EQ(holds, c.holds) << c.a->type() << ": " << c.a->toString() << ", "
                                  << c.b->toString();
    }
}

TEST(Property, SetsMembersAndContainedTexts)
{
    const object_reference_t one{{1}, {}}, elsewhere{{1}, {{9}, {9}, 9}}, two{{2}, {}};
    const Property none = null(objects({one}));
    struct Case {
        Property a;
        std::uint32_t rel_op;
        Property b;
        std::string outcome;
    };
    const Case cases[] = {
        {objects({two}), REL_SUBSET, objects({one, two}), "true"},
        {none, REL_SUBSET, objects({}), "true"},
        {objects({}), REL_SUBSET, none, "false"},
        {objects({one, two}), REL_SUPERSET, objects({elsewhere}), "true"},
        {objects({two}), REL_INTERSECTS, objects({one}), "false"},
        {objects({one, two}), REL_INTERSECTS, objects({two}), "true"},
        {none, REL_INTERSECTS, none, "false"},
        {object({1}), REL_MEMBER_OF, objects({elsewhere}), "true"},
        {object({2}), REL_MEMBER_OF, objects({one}), "false"},
        {object({1}), REL_MEMBER_OF, object({1}),
         "11: Type mismatch, object_set != type of connClose"},
        {text("an ERROR"), 14, text("Error"), "true"},
        {text("a"), 14, null(text("a")), "11: Unknown relative operator"},
        {text("a"), 14, make<property_blob_t>("a"),
         "11: Type mismatch, string != type of connClose"},
        {make<property_enum_t>(7U, 1U), REL_EQUAL, make<property_enum_t>(8U, 1U),
         "11: Type mismatch, enum (7) != enum (8) of connClose"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(compared(c.a, c.rel_op, c.b), c.outcome) << &c - cases;
}

TEST(Property, AccessorsGiveTheValueOrSayWhyNot)
{
    std::string string;
    bool boolean = false;
    std::uint32_t number = 0;
    const auto read = [&](const Property& property) {
        return outcome([&] { return getString(*property, string), string; }) + "\n" +
               outcome([&] { return getBool(*property, boolean), boolean ? "true" : "false"; }) +
               "\n" +
               outcome([&] { return getEnum(*property, number, 0x10020), std::to_string(number); });
    };
    const std::string noString = "9: Type mismatch for property_string_t: connClose\n";
    const std::string noBoolean = "9: Type mismatch for property_boolean_t: connClose\n";
    const std::string noEnum = "9: Type mismatch for property_t: connClose [exp:65568,actual:";
    EXPECT_EQ(read(text("x")), "x\n" + noBoolean + noEnum + "non-enum");
    EXPECT_EQ(read(make<property_boolean_t>(true)), noString + "true\n" + noEnum + "non-enum");
    // More bits above.
    EXPECT_EQ(read(make<property_enum_t>(0xABCF0020U, 2U)), noString + noBoolean + "2");
    EXPECT_EQ(read(make<property_enum_t>(0xFFFE0021U, 1U)), noString + noBoolean + noEnum + "33");
    EXPECT_EQ(read(null(text("x"))), "9: Null given for property_string_t: connClose\n"
                                     "9: Null given for property_boolean_t: connClose\n"
                                     "9: Null given for property_t: connClose");
}

}  // namespace
