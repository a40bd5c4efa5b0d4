// Objects and select expressions own what they hold: a copy shares nothing with its source.
#include "types/object.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>

namespace {

Held<tql::property_t> text(std::uint32_t number, const char* value)
{
    return Held<tql::property_t>(std::make_unique<tql::property_string_t>(number, value));
}

tql::object_t sampleObject()
{
    tql::object_t object;
    object.class_ = 4;
    object.id = {1, 2};
    object.tags = {3};
    object.properties[51] = text(51, "a");
    object.properties[52];  // a key without a property
    object.children.resize(2);
    object.children[1].properties[51] = text(51, "below");
    return object;
}

tql::select_t sampleSelect()
{
    tql::select_t select;
    select.class_ = 4;
    select.where.push_back({.prop = text(51, "a"), .rel_op = tql::REL_EQUAL});
    select.next.resize(1);
    select.next[0].cond_next.resize(1);
    select.wanted_properties = {51};
    return select;
}

TEST(Object, CopiesAreEqualUntilAnyPartChanges)
{
    struct Case {
        const char* name;
        std::function<void(tql::object_t&)> change;
    };
    const Case cases[] = {
        {"class_",
         [](auto& o) {
             o.class_ = 5;
         }},
        {"flags",
         [](auto& o) {
             o.flags = -1;
         }},
        {"tags",
         [](auto& o) {
             o.tags.insert(4);
         }},
        {"id",
         [](auto& o) {
             o.id = {1, 2, 0};
         }},
        {"version",
         [](auto& o) {
             o.version.second = 1;
         }},
        {"a property's value",
         [](auto& o) {
             o.properties[51] = text(51, "b");
         }},
        {"a property gone",
         [](auto& o) {
             o.properties[51].reset();
         }},
        {"a property of a child",
         [](auto& o) {
             o.children[1].properties[51]->is_null = true;
         }},
        {"origin",
         [](auto& o) {
             o.origin.type = 0;
         }},
    };
    const tql::object_t original = sampleObject();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        tql::object_t copy = original;
        EXPECT_EQ(copy, original);
        c.change(copy);
        EXPECT_FALSE(copy == original);
        EXPECT_EQ(original, sampleObject());
    }
}

TEST(Select, CopiesAreEqualUntilAnyPartChanges)
{
    struct Case {
        const char* name;
        std::function<void(tql::select_t&)> change;
    };
    const Case cases[] = {
        {"tag",
         [](auto& s) {
             s.tag = 5;
         }},
        {"a select below",
         [](auto& s) {
             s.next[0].flags = 1;
         }},
        {"a conditional select below that",
         [](auto& s) {
             s.next[0].cond_next[0].class_ = 1;
         }},
        {"the value of a condition",
         [](auto& s) {
             s.where.front().prop->modifiers = 1;
         }},
        {"the operator of a condition",
         [](auto& s) {
             s.where.front().rel_op = tql::REL_LESS;
         }},
        {"wanted_properties",
         [](auto& s) {
             s.wanted_properties.clear();
         }},
    };
    const tql::select_t original = sampleSelect();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        tql::select_t copy = original;
        EXPECT_EQ(copy, original);
        c.change(copy);
        EXPECT_FALSE(copy == original);
        EXPECT_EQ(original, sampleSelect());
    }
}

}  // namespace
