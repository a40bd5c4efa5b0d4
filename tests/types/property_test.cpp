// Property values: text forms, comparison, equality, the accessors.
#include "types/property.h"

#include "common/errors.h"
#include "types/vocabulary.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using namespace std::string_literals;

namespace {

using Property = Held<tql::property_t>;

constexpr std::uint32_t number = tql::property::connClose;

template <class C, class... Arguments>
Property make(Arguments&&... arguments)
{
    return Property(std::make_unique<C>(number, std::forward<Arguments>(arguments)...));
}

Property null(Property property)
{
    property->is_null = true;
    return property;
}

Property text(std::string value)
{
    return make<tql::property_string_t>(std::move(value));
}

Property object(tql::id_t id, tql::object_origin_t origin = {})
{
    return make<tql::property_object_t>(tql::object_reference_t{id, origin});
}

Property objects(const std::vector<tql::id_t>& ids, const tql::object_origin_t& origin = {})
{
    std::set<tql::object_reference_t> references;
    for (const tql::id_t& id : ids)
        references.insert({id, origin});
    return make<tql::property_object_set_t>(std::move(references));
}

Property gids(std::vector<std::uint32_t> values)
{
    return make<tql::property_gid_list_t>(std::move(values));
}

BigNum twoToThe(int power)
{
    BigNum value(1);
    value.shiftLeft(power);
    return value;
}

// What an action gives: the text of a failure of the property layer behind its status, or the
// outcome.
std::string outcome(const std::function<bool()>& action)
{
    try {
        return action() ? "true" : "false";
    } catch (const errors::tql_incomparable& e) {
        return "incomparable " + std::to_string(e.status()) + ": " + e.text();
    } catch (const errors::tql& e) {
        return std::to_string(e.status()) + ": " + e.text();
    }
}

std::string compared(const Property& a, std::uint32_t rel_op, const Property& b)
{
    return outcome([&] { return a->compare(rel_op, *b); });
}

const std::string unknownOperator = "incomparable 11: Unknown relative operator";

// One property of each class, in the order of the tags.
std::vector<Property> oneOfEach()
{
    std::vector<Property> all;
    all.push_back(text("say \"hi\""));
    all.push_back(make<tql::property_string_list_t>(std::list<std::string>{"a", "", "b\"c"}));
    all.push_back(objects({{2}, {1, 20, 3}}));
    all.push_back(object({1, 2}));
    all.push_back(make<tql::property_version_t>(tql::version_t{7, 9}));
    all.push_back(make<tql::property_action_t>(5));
    all.push_back(make<tql::property_real_t>(1.5));
    all.push_back(make<tql::property_bignum_t>(twoToThe(32)));
    all.push_back(make<tql::property_gid_t>(0x0A0B0C0D));
    all.push_back(gids({1, 0xFFFFFFFF}));
    all.push_back(make<tql::property_date_t>(0x1FFFFFFFF));
    all.push_back(make<tql::property_index_t>(4294967295U));
    all.push_back(make<tql::property_int_t>(-5));
    all.push_back(make<tql::property_uint_t>(4294967295U));
    all.push_back(make<tql::property_boolean_t>(true));
    all.push_back(make<tql::property_blob_t>("bytes"));
    all.push_back(make<tql::property_lob_t>("bytes"));
    all.push_back(make<tql::property_oid_t>(std::vector<std::uint32_t>{1, 3, 6}));
    all.push_back(make<tql::property_enum_t>(0x10020U, 1U));
    return all;
}

TEST(Property, EachClassHasItsTagAndText)
{
    const char* const texts[] = {
        "\"say \"hi\"\"",
        "\"a\", \"\", \"b\"c\"",
        "{\"1.20.3\", \"2\"}",
        "\"1.2\"",
        "\"7.1.9\"",
        "(null)",
        "1.500000",
        "4294967296",
        "0a:0b:0c:0d",
        "00:00:00:01, ff:ff:ff:ff",
        "-1",
        "4294967295",
        "-5",
        "4294967295",
        "true",
        "BLOB",
        "LOB",
        "00:00:00:01, 00:00:00:03, 00:00:00:06",
        "enum(65568, 1)",
    };
    const std::vector<Property> all = oneOfEach();
    ASSERT_EQ(all.size(), std::size(texts));
    for (std::size_t i = 0; i < all.size(); ++i) {
        EXPECT_EQ(all[i]->type(), 7 + i);
        EXPECT_EQ(all[i]->toString(), texts[i]);
    }
}

TEST(Property, TextsOfEmptyAndExtremeValues)
{
    struct Case {
        Property property;
        std::string text;
    };
    const Case cases[] = {
        {make<tql::property_string_list_t>(), ""},
        {objects({}), "{}"},
        {object({}), "\"\""},
        {gids({}), ""},
        {make<tql::property_boolean_t>(), "false"},
        {make<tql::property_bignum_t>(), "0"},
        {make<tql::property_date_t>(-1), "-1"},
        {make<tql::property_real_t>(std::nan("")), "nan"},
        {make<tql::property_real_t>(-std::numeric_limits<double>::infinity()), "-inf"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.property->toString(), c.text);
    // A number text is cut where its buffer ends.
    const std::string huge = make<tql::property_real_t>(1e300)->toString();
    EXPECT_EQ(huge.size(), 127U);
    EXPECT_EQ(huge.substr(0, 20), "10000000000000000525");
}

// The operators that hold for each value of the relation.
const char* const greater = "2468";
const char* const greaterInCase = "2467";
const char* const equal = "1457";
const char* const lessInCase = "3567";
const char* const less = "3568";

TEST(Property, ValuesCompareByTheRulesOfTheirClass)
{
    using tql::property_action_t, tql::property_bignum_t, tql::property_blob_t,
        tql::property_boolean_t, tql::property_date_t, tql::property_enum_t, tql::property_gid_t,
        tql::property_index_t, tql::property_int_t, tql::property_lob_t, tql::property_oid_t,
        tql::property_real_t, tql::property_string_list_t, tql::property_uint_t,
        tql::property_version_t, tql::version_t;
    using Texts = std::list<std::string>;
    using Numbers = std::vector<std::uint32_t>;
    struct Case {
        const char* name;
        Property a, b;
        const char* holds;
    };
    const double nan = std::nan("");
    const tql::object_origin_t elsewhere{{9}, {9}, 9};
    const Case cases[] = {
        {"texts that are equal", text("abc"), text("abc"), equal},
        {"texts that differ in case", text("abc"), text("ABC"), greaterInCase},
        {"the same, turned round", text("ABC"), text("abc"), lessInCase},
        {"texts that differ in more", text("abc"), text("abd"), less},
        {"bytes decide, not letters", text("a"), text("B"), greater},
        {"bytes are unsigned", text("\xE4"), text("z"), greater},
        {"a prefix is less", text("ab"), text("abc"), less},
        {"zero bytes count", text("a\0b"s), text("a\0c"s), less},
        {"null and empty text", null(text("")), text(""), less},
        {"empty text and null", text(""), null(text("")), greater},
        {"two nulls", null(text("a")), null(text("b")), equal},

        {"text lists: a prefix is less", make<property_string_list_t>(Texts{"a"}),
         make<property_string_list_t>(Texts{"a", ""}), less},
        {"text lists: elements before length", make<property_string_list_t>(Texts{"b"}),
         make<property_string_list_t>(Texts{"a", "z"}), greater},
        {"text lists: case is a full difference", make<property_string_list_t>(Texts{"a"}),
         make<property_string_list_t>(Texts{"A"}), greater},
        {"text lists: null", null(make<property_string_list_t>()), make<property_string_list_t>(),
         less},

        {"objects: a prefix is less", object({1, 2}), object({1, 2, 0}), less},
        {"objects: unsigned", object({0x80000000}), object({1}), greater},
        {"objects: the origin doesn't count", object({1}, elsewhere), object({1}), equal},
        {"objects: null", object({1}), null(object({2})), greater},

        {"versions: the first number", make<property_version_t>(version_t{2, 0}),
         make<property_version_t>(version_t{1, 5}), greater},
        {"versions: a difference below zero", make<property_version_t>(version_t{0, 0}),
         make<property_version_t>(version_t{std::numeric_limits<std::uint64_t>::max(), 0}),
         greater},
        {"versions: equal", make<property_version_t>(version_t{1, 1}),
         make<property_version_t>(version_t{1, 1}), equal},

        {"actions are signed", make<property_action_t>(-1), make<property_action_t>(1), less},
        {"ints are signed", make<property_int_t>(-1), make<property_int_t>(1), less},
        {"dates are signed", make<property_date_t>(-1), make<property_date_t>(1), less},
        {"dates have 64 bits", make<property_date_t>(0x100000000), make<property_date_t>(5),
         greater},
        {"gids are unsigned", make<property_gid_t>(0x80000000), make<property_gid_t>(1U), greater},
        {"indexes are unsigned", make<property_index_t>(0x80000000), make<property_index_t>(1U),
         greater},
        {"uints are unsigned", make<property_uint_t>(0x80000000), make<property_uint_t>(1U),
         greater},
        {"booleans", make<property_boolean_t>(true), make<property_boolean_t>(false), greater},
        {"null and false", null(make<property_boolean_t>(false)), make<property_boolean_t>(false),
         less},

        {"reals", make<property_real_t>(-0.5), make<property_real_t>(0.25), less},
        {"NaN and a number", make<property_real_t>(nan), make<property_real_t>(1.0), equal},
        {"a number and NaN", make<property_real_t>(1.0), make<property_real_t>(nan), equal},
        {"null and NaN", null(make<property_real_t>(nan)), make<property_real_t>(nan), less},

        {"big numbers by value", make<property_bignum_t>(twoToThe(32)),
         make<property_bignum_t>(BigNum(0xFFFFFFFF)), greater},
        {"big numbers: equal", make<property_bignum_t>(twoToThe(40)),
         make<property_bignum_t>(twoToThe(40)), equal},

        {"gid lists: the shorter is less", gids({5}), gids({1, 2}), less},
        {"gid lists: the longer is greater", gids({0, 0}), gids({9}), greater},
        {"gid lists: the first difference", gids({1, 3, 0}), gids({1, 2, 9}), greater},
        {"gid lists: unsigned", gids({0x80000000}), gids({1}), greater},
        {"gid lists: equal", gids({1, 2}), gids({1, 2}), equal},
        {"oids: the shorter is less", make<property_oid_t>(Numbers{5}),
         make<property_oid_t>(Numbers{1, 2}), less},

        {"blobs: unsigned bytes", make<property_blob_t>("\x80"), make<property_blob_t>("\x7F"),
         greater},
        {"blobs: content before length", make<property_blob_t>("b"), make<property_blob_t>("ab"),
         greater},
        {"blobs: case is a full difference", make<property_blob_t>("a"), make<property_blob_t>("A"),
         greater},
        {"lobs: a prefix is less", make<property_lob_t>("a"), make<property_lob_t>("a\0"s), less},

        {"enums", make<property_enum_t>(7U, 0x80000000U), make<property_enum_t>(7U, 1U), greater},
        {"enums of two types, one of them null", null(make<property_enum_t>(7U, 1U)),
         make<property_enum_t>(8U, 1U), less},

        {"sets that differ", objects({{1}}), objects({{2}}), greater},
        {"the same, turned round", objects({{2}}), objects({{1}}), greater},
        {"a set and a larger one", objects({{1}}), objects({{1}, {2}}), greater},
        {"sets with other origins", objects({{1}, {2}}, elsewhere), objects({{2}, {1}}), equal},
        {"null and a set", null(objects({{1}})), objects({}), less},
        {"a set and null", objects({}), null(objects({})), greater},
        {"two null sets", null(objects({{1}})), null(objects({})), equal},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string holds;
        for (std::uint32_t rel_op = 1; rel_op <= 8; ++rel_op) {
            if (c.a->compare(rel_op, *c.b))
                holds += std::to_string(rel_op);
        }
        EXPECT_EQ(holds, c.holds);
    }
}

TEST(Property, OperatorsThatAClassDoesNotKnowAreRefused)
{
    for (const Property& property : oneOfEach()) {
        const std::uint32_t tag = property->type();
        SCOPED_TRACE(tag);
        for (const std::uint32_t rel_op : {0U, 9U, 10U, 11U, 12U, 13U, 14U, 15U, 0xFFFFFFFFU}) {
            SCOPED_TRACE(rel_op);
            const bool known =
                (tag == tql::property_string_t::tag && rel_op == 14) ||
                (tag == tql::property_object_set_t::tag && rel_op >= 9 && rel_op <= 11) ||
                (tag == tql::property_object_t::tag && rel_op == 12);
            if (!known) {
                EXPECT_EQ(compared(property, rel_op, property), unknownOperator);
            }
        }
    }
}

TEST(Property, SetsCompareAsSets)
{
    struct Case {
        const char* name;
        Property a, b;
        bool subset, superset, intersects;
    };
    const Property none = null(objects({{1}}));
    const Case cases[] = {
        {"equal", objects({{1}, {2}}), objects({{2}, {1}}), true, true, true},
        {"smaller", objects({{2}}), objects({{1}, {2}}), true, false, true},
        {"larger", objects({{1}, {2}}), objects({{2}}), false, true, true},
        {"overlapping", objects({{1}, {2}}), objects({{2}, {3}}), false, false, true},
        {"interleaved", objects({{1}, {3}, {5}}), objects({{2}, {4}}), false, false, false},
        {"empty and not", objects({}), objects({{1}}), true, false, false},
        {"both empty", objects({}), objects({}), true, true, false},
        {"null and a set", none, objects({{1}}), true, false, false},
        {"a set and null", objects({{1}}), none, false, true, false},
        {"null and null", none, none, true, true, false},
        {"null and empty", none, objects({}), true, false, false},
        {"other origins", objects({{1}}), objects({{1}}, {{9}, {9}, 9}), true, true, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.a->compare(tql::REL_SUBSET, *c.b), c.subset);
        EXPECT_EQ(c.a->compare(tql::REL_SUPERSET, *c.b), c.superset);
        EXPECT_EQ(c.a->compare(tql::REL_INTERSECTS, *c.b), c.intersects);
    }
}

TEST(Property, MembershipAndContainedTexts)
{
    struct Case {
        const char* name;
        Property a;
        std::uint32_t rel_op;
        Property b;
        std::string outcome;
    };
    const Case cases[] = {
        {"a member", object({1, 2}), 12, objects({{1}, {1, 2}}, {{9}, {9}, 9}), "true"},
        {"no member", object({2}), 12, objects({{1}, {1, 2}}), "false"},
        {"a null object", null(object({1})), 12, objects({{1}}), "false"},
        {"a null set", object({1}), 12, null(objects({{1}})), "false"},
        {"an object among an object", object({1}), 12, object({1}),
         "incomparable 11: Type mismatch, object_set != type of connClose"},
        {"a text with the other in it", text("an ERROR here"), 14, text("Error"), "true"},
        {"a text without it", text("err"), 14, text("error"), "false"},
        {"the empty text is in any", text(""), 14, text(""), "true"},
        {"a null text", null(text("a")), 14, text("a"), unknownOperator},
        {"in a null text", text("a"), 14, null(text("a")), unknownOperator},
        {"a text in a blob", text("a"), 14, make<tql::property_blob_t>("a"),
         "incomparable 11: Type mismatch, string != type of connClose"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(compared(c.a, c.rel_op, c.b), c.outcome) << c.name;
}

// The classes that share a type of value are no more comparable than any others.
TEST(Property, ClassesDoNotCompareWithEachOther)
{
    const char* const kinds[] = {
        "string",  "string_list", "object_set", "object",  "object", "action", "real",
        "bignum",  "GID",         "GIDList",    "date",    "index",  "int",    "uint",
        "boolean", "blob",        "lob",        "GIDList", "int",
    };
    const std::vector<Property> all = oneOfEach();
    ASSERT_EQ(all.size(), std::size(kinds));
    for (std::size_t i = 0; i < all.size(); ++i) {
        for (std::size_t j = 0; j < all.size(); ++j) {
            if (i == j)
                continue;
            Property other = all[j];
            other->name = 321;
            other->is_null = true;  // the classes are looked at first
            EXPECT_EQ(compared(all[i], tql::REL_EQUAL, other),
                      std::string("incomparable 11: Type mismatch, ") + kinds[i] +
                          " != type of <unknown property: 321>");
        }
    }
    EXPECT_EQ(compared(objects({}), tql::REL_SUBSET, object({})),
              "incomparable 11: Type mismatch, object_set != type of connClose");
    EXPECT_EQ(compared(make<tql::property_enum_t>(7U, 1U), tql::REL_EQUAL,
                       make<tql::property_enum_t>(8U, 1U)),
              "incomparable 11: Type mismatch, enum (7) != enum (8) of connClose");
}

TEST(Property, ACloneIsEqualAndOfItsOwn)
{
    for (const Property& original : oneOfEach()) {
        SCOPED_TRACE(original->type());
        Property copy = original;
        copy->is_null = true;
        copy->modifiers = 3;
        const Property second = copy;
        EXPECT_EQ(second->type(), original->type());
        EXPECT_EQ(second->toString(), original->toString());
        EXPECT_EQ(second, copy);
        EXPECT_FALSE(original->is_null);
    }
}

TEST(Property, EqualityLooksAtAllFields)
{
    struct Case {
        const char* name;
        Property a, b;
    };
    Property renamed = text("a");
    renamed->name = 1;
    Property modified = text("a");
    modified->modifiers = 1;
    const Case cases[] = {
        {"name", text("a"), renamed},
        {"is_null", text("a"), null(text("a"))},
        {"modifiers", text("a"), modified},
        {"value", text("a"), text("A")},
        {"values of nulls", null(text("a")), null(text("b"))},
        {"class", make<tql::property_int_t>(1), make<tql::property_action_t>(1)},
        {"enum_type", make<tql::property_enum_t>(1U, 1U), make<tql::property_enum_t>(2U, 1U)},
        {"value of an enum", make<tql::property_enum_t>(1U, 1U),
         make<tql::property_enum_t>(1U, 2U)},
        {"origin of a set's element", objects({{1}}), objects({{1}}, {{9}, {9}, 9})},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_FALSE(*c.a == *c.b);
        EXPECT_TRUE(*c.a == *c.a);
    }
}

TEST(Property, AccessorsGiveTheValueOrSayWhyNot)
{
    struct Case {
        const char* name;
        Property property;
        std::string string, boolean, enumeration;
    };
    const Case cases[] = {
        {"a string", text("x"), "x", "9: Type mismatch for property_boolean_t: connClose",
         "9: Type mismatch for property_t: connClose [exp:65568,actual:non-enum"},
        {"a boolean", make<tql::property_boolean_t>(true),
         "9: Type mismatch for property_string_t: connClose", "true",
         "9: Type mismatch for property_t: connClose [exp:65568,actual:non-enum"},
        {"the enum asked for", make<tql::property_enum_t>(0x10020U, 1U),
         "9: Type mismatch for property_string_t: connClose",
         "9: Type mismatch for property_boolean_t: connClose", "1"},
        {"an enum with more bits above", make<tql::property_enum_t>(0xABCF0020U, 2U),
         "9: Type mismatch for property_string_t: connClose",
         "9: Type mismatch for property_boolean_t: connClose", "2"},
        {"another enum", make<tql::property_enum_t>(0xFFFE0021U, 1U),
         "9: Type mismatch for property_string_t: connClose",
         "9: Type mismatch for property_boolean_t: connClose",
         "9: Type mismatch for property_t: connClose [exp:65568,actual:33"},
        {"a null of the wrong type", null(make<tql::property_int_t>(1)),
         "9: Null given for property_string_t: connClose",
         "9: Null given for property_boolean_t: connClose",
         "9: Null given for property_t: connClose"},
        {"a blob is no string", make<tql::property_blob_t>("x"),
         "9: Type mismatch for property_string_t: connClose",
         "9: Type mismatch for property_boolean_t: connClose",
         "9: Type mismatch for property_t: connClose [exp:65568,actual:non-enum"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string string = "untouched";
        const std::string gotString = outcome([&] {
            tql::getString(*c.property, string);
            return true;
        });
        EXPECT_EQ(gotString == "true" ? string : gotString, c.string);

        bool boolean = false;
        const std::string gotBool = outcome([&] {
            tql::getBool(*c.property, boolean);
            return boolean;
        });
        EXPECT_EQ(gotBool, c.boolean);

        std::uint32_t enumeration = 99;
        const std::string gotEnum = outcome([&] {
            tql::getEnum(*c.property, enumeration, 0x10020);
            return true;
        });
        EXPECT_EQ(gotEnum == "true" ? std::to_string(enumeration) : gotEnum, c.enumeration);

        // A refusal leaves the default of the caller in place.
        EXPECT_TRUE(gotString == "true" || string == "untouched");
        EXPECT_TRUE(gotEnum == "true" || enumeration == 99);
    }
}

}  // namespace
