// The bytes and the printouts of identifiers, properties, objects and select expressions.
#include "queues/typeForms.h"

#include "common/errors.h"
#include "common/text.h"
#include "tests/queues/MemoryStreams.h"
#include "tests/queues/frames.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using namespace std::string_literals;

namespace {

using frames::unhex;
using Property = Held<tql::property_t>;

// Through small areas, so that a value is split over several.
template <class T>
std::string written(const T& value)
{
    memory::Output output(16);
    protocol::ioprim link(nullptr, &output);
    link << value;
    link.flush();
    return output.sent;
}

std::string toHex(std::string_view bytes)
{
    std::string hex;
    for (const char byte : bytes)
        hex += hexToString(static_cast<unsigned char>(byte), 2) + ' ';
    return hex;
}

// Stands behind a value, and must be left when the value has been read.
const std::string next = unhex("BE BA FE CA");

// Reads one T. Gives "read", and " next" if what follows is `next`; the text of what was thrown;
// or "end" for the end of the stream.
template <class T>
std::string readInto(T* value, const std::string& bytes, std::size_t pieceSize = 4096)
{
    memory::Input input(bytes, pieceSize);
    protocol::ioprim link(&input, nullptr);
    std::string outcome;
    try {
        link >> *value;
        outcome = "read";
        std::uint32_t following = 0;
        link >> following;
        if (following == 0xCAFEBABE)
            outcome += " next";
    } catch (const io::EEndOfStream&) {
        if (outcome.empty())
            outcome = "end";
    } catch (const error::Exception& e) {
        outcome = e.text();
    }
    return outcome;
}

// Exact bytes both ways, whole and a byte at a time, and the end of the stream at every place.
template <class T>
void expectForm(const T& value, const std::string& bytes)
{
    EXPECT_EQ(toHex(written(value)), toHex(bytes));
    for (const std::size_t pieceSize : {std::size_t{1}, std::size_t{4096}}) {
        T copy{};
        EXPECT_EQ(readInto(&copy, bytes + next, pieceSize), "read next");
        EXPECT_TRUE(copy == value);
    }
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        T copy{};
        EXPECT_EQ(readInto(&copy, bytes.substr(0, length)), "end") << length;
    }
}

template <class T>
std::string printed(const T& value, int indent = 0)
{
    std::ostringstream stream;
    queues::printPayloadValue(stream, indent, value);
    return stream.str();
}

template <class C, class... Arguments>
Property make(Arguments&&... arguments)
{
    auto property = std::make_unique<C>(0x21EU, std::forward<Arguments>(arguments)...);
    property->modifiers = 0x80000001;
    return Property(std::move(property));
}

BigNum number(int power)
{
    BigNum value(1);
    value.shiftLeft(power);
    return value;
}

TEST(TypeForms, PropertiesOfAllClasses)
{
    struct Case {
        Property property;
        const char* tag;
        const char* value;
    };
    const tql::object_reference_t reference{{1, 2}, {{3}, {}, 37}};
    const Case cases[] = {
        {make<tql::property_string_t>("^2.."), "07", "04 00 00 00 00 00 00 00 5E 32 2E 2E"},
        {make<tql::property_string_list_t>(std::list<std::string>{"b", ""}), "08",
         "02 00 00 00 01 00 00 00 00 00 00 00 62 00 00 00 00 00 00 00 00"},
        {make<tql::property_object_set_t>(
             std::set<tql::object_reference_t>{reference, {{1}, {{}, {}, -1}}}),
         "09",
         "02 00 00 00 "
         "01 00 00 00 01 00 00 00 00 00 00 00 00 00 00 00 FF FF FF FF "
         "02 00 00 00 01 00 00 00 02 00 00 00 01 00 00 00 03 00 00 00 00 00 00 00 25 00 00 00"},
        {make<tql::property_object_t>(reference), "0A",
         "02 00 00 00 01 00 00 00 02 00 00 00 01 00 00 00 03 00 00 00 00 00 00 00 25 00 00 00"},
        {make<tql::property_version_t>(tql::version_t{7, 0x0102030405060708}), "0B",
         "07 00 00 00 00 00 00 00 08 07 06 05 04 03 02 01"},
        {make<tql::property_action_t>(-2), "0C", "FE FF FF FF"},
        {make<tql::property_real_t>(1.5), "0D", "00 00 00 00 00 00 F8 3F"},
        {make<tql::property_bignum_t>(number(33)), "0E", "05 00 00 00 00 00 00 00 00 00 00 00 02"},
        {make<tql::property_gid_t>(0x0A0B0C0DU), "0F", "0D 0C 0B 0A"},
        {make<tql::property_gid_list_t>(std::vector<std::uint32_t>{5, 1}), "10",
         "02 00 00 00 05 00 00 00 01 00 00 00"},
        {make<tql::property_date_t>(-2), "11", "FE FF FF FF FF FF FF FF"},
        {make<tql::property_index_t>(0xFFFFFFFEU), "12", "FE FF FF FF"},
        {make<tql::property_int_t>(-3), "13", "FD FF FF FF"},
        {make<tql::property_uint_t>(3U), "14", "03 00 00 00"},
        {make<tql::property_boolean_t>(true), "15", "01 00 00 00"},
        {make<tql::property_blob_t>("\0\xFF"s), "16", "02 00 00 00 00 00 00 00 00 FF"},
        {make<tql::property_lob_t>(""), "17", "00 00 00 00 00 00 00 00"},
        {make<tql::property_oid_t>(std::vector<std::uint32_t>{1, 3, 6}), "18",
         "03 00 00 00 01 00 00 00 03 00 00 00 06 00 00 00"},
        {make<tql::property_enum_t>(0x10020U, 1U), "19", "20 00 01 00 01 00 00 00"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.tag);
        // A null is as long as a value.
        for (const char* isNull : {"00", "01"}) {
            Property property = c.property;
            property->is_null = isNull == "01"s;
            std::string hex = c.tag;
            hex += " 00 00 00 1E 02 00 00 ";
            hex += isNull;
            hex += " 00 00 00 01 00 00 80 ";
            hex += c.value;
            expectForm(property, unhex(hex));
        }
    }
    EXPECT_EQ(std::size(cases), 19U);
}

TEST(TypeForms, OtherTagsAreNullPointersAndTakeNothingMore)
{
    expectForm(Property(), unhex("00 00 00 00"));
    for (const char* tag : {"01 00 00 00", "03 00 00 00", "06 00 00 00", "1A 00 00 00",
                            "07 01 00 00", "FF FF FF FF"}) {
        Property property = make<tql::property_int_t>(1);
        EXPECT_EQ(readInto(&property, unhex(tag) + next), "read next") << tag;
        EXPECT_FALSE(property) << tag;
    }
}

TEST(TypeForms, IdentifiersVersionsAndBigNumbers)
{
    expectForm(tql::id_t(), unhex("00 00 00 00"));
    expectForm(tql::id_t{1, 0xFFFFFFFF, 3},
               unhex("03 00 00 00 01 00 00 00 FF FF FF FF 03 00 00 00"));
    expectForm(tql::version_t{1, 2}, unhex("01 00 00 00 00 00 00 00 02 00 00 00 00 00 00 00"));
    expectForm(tql::object_origin_t{{1}, {}, 37},
               unhex("01 00 00 00 01 00 00 00 00 00 00 00 25 00 00 00"));
    // Four bytes at least, least significant first.
    expectForm(BigNum(), unhex("04 00 00 00 00 00 00 00 00 00 00 00"));
    expectForm(BigNum(0x0102), unhex("04 00 00 00 00 00 00 00 02 01 00 00"));
    expectForm(number(32), unhex("05 00 00 00 00 00 00 00 00 00 00 00 01"));
}

// What a writer of ours would not send, but a reader takes.
TEST(TypeForms, ReadersAreLenientWhereTheFormAllowsIt)
{
    BigNum big(7);
    EXPECT_EQ(readInto(&big, unhex("00 00 00 00 00 00 00 00")), "read");
    EXPECT_EQ(big, BigNum());
    EXPECT_EQ(readInto(&big, unhex("06 00 00 00 00 00 00 00 02 01 00 00 00 00")), "read");
    EXPECT_EQ(big, BigNum(0x0102));

    // Any word but 0 is a null, and a true.
    Property property;
    EXPECT_EQ(readInto(&property, unhex("15 00 00 00 1E 02 00 00 02 00 00 00 00 00 00 00 "
                                        "00 01 00 00")),
              "read");
    ASSERT_TRUE(property);
    EXPECT_TRUE(property->is_null);
    EXPECT_EQ(property->toString(), "true");

    // A negative count of a list leaves it empty.
    EXPECT_EQ(readInto(&property, unhex("10 00 00 00 1E 02 00 00 00 00 00 00 00 00 00 00 "
                                        "FF FF FF FF")),
              "read");
    EXPECT_EQ(property->toString(), "");

    // A set comes in any order.
    const std::string first = "01 00 00 00 09 00 00 00 00 00 00 00 00 00 00 00 25 00 00 00 ";
    const std::string second = "01 00 00 00 08 00 00 00 00 00 00 00 00 00 00 00 25 00 00 00 ";
    EXPECT_EQ(readInto(&property, unhex("09 00 00 00 1E 02 00 00 00 00 00 00 00 00 00 00 "
                                        "03 00 00 00 " +
                                        first + second + first)),
              "read");
    EXPECT_EQ(property->toString(), "{\"8\", \"9\"}");
}

TEST(TypeForms, OfTwoEntriesWithOneKeyTheLaterStays)
{
    const std::string entry = "1E 02 00 00 13 00 00 00 1E 02 00 00 00 00 00 00 00 00 00 00 ";
    tql::property_map map;
    map[1] = make<tql::property_int_t>(9);
    EXPECT_EQ(
        readInto(&map, unhex("02 00 00 00 " + entry + "01 00 00 00 " + entry + "02 00 00 00")),
        "read");
    ASSERT_EQ(map.size(), 1U);
    ASSERT_TRUE(map[542]);
    EXPECT_EQ(map[542]->toString(), "2");
}

TEST(TypeForms, AnIdentifierHasThreeNumbersAtMost)
{
    struct Case {
        const char* count;
        const char* text;
    };
    const Case cases[] = {
        {"04 00 00 00", "small vector resize overflow 4 > 3"},
        {"FF FF FF 7F", "small vector resize overflow 2147483647 > 3"},
        {"FF FF FF FF", "small vector resize overflow 18446744073709551615 > 3"},
        {"00 00 00 80", "small vector resize overflow 18446744071562067968 > 3"},
    };
    for (const Case& c : cases) {
        tql::id_t id;
        EXPECT_EQ(readInto(&id, unhex(c.count)), c.text);
    }
}

tql::object_t sampleObject()
{
    tql::object_t object;
    object.class_ = 4;
    object.flags = -1;
    object.tags = {9, 3};
    object.id = {1, 2};
    object.version = {7, 9};
    object.properties[52];
    object.properties[542] = make<tql::property_uint_t>(8U);
    object.children.resize(1);
    object.children[0].class_ = 5;
    object.origin.user_id = {6};
    return object;
}

tql::select_t sampleSelect()
{
    tql::select_t select;
    select.class_ = 4;
    select.flags = -1;
    select.tag = 2;
    select.next.resize(1);
    select.next[0].tag = 3;
    select.cond_next.resize(1);
    select.cond_next[0].tag = 4;
    select.where.push_back(
        {.prop = make<tql::property_boolean_t>(true), .rel_op = tql::REL_NOT_EQUAL});
    select.where.push_back({.prop = Property(), .rel_op = 13});
    select.wanted_properties = {51, 1};
    return select;
}

TEST(TypeForms, ObjectsAndSelects)
{
    expectForm(sampleObject(),
               unhex("04 00 00 00 FF FF FF FF "
                     "02 00 00 00 03 00 00 00 09 00 00 00 "              // tags
                     "02 00 00 00 01 00 00 00 02 00 00 00 "              // id
                     "07 00 00 00 00 00 00 00 09 00 00 00 00 00 00 00 "  // version
                     "02 00 00 00 "                                      // properties
                     "34 00 00 00 00 00 00 00 "                          // none
                     "1E 02 00 00 14 00 00 00 1E 02 00 00 00 00 00 00 01 00 00 80 08 00 00 00 "
                     "01 00 00 00 "  // children
                     "05 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                     "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                     "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 25 00 00 00 "
                     "00 00 00 00 01 00 00 00 06 00 00 00 25 00 00 00"));  // origin
    expectForm(sampleSelect(),
               unhex("04 00 00 00 FF FF FF FF 02 00 00 00 "
                     "01 00 00 00 "  // next
                     "00 00 00 00 00 00 00 00 03 00 00 00 "
                     "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                     "01 00 00 00 "  // cond_next
                     "00 00 00 00 00 00 00 00 04 00 00 00 "
                     "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                     "02 00 00 00 "  // where
                     "15 00 00 00 1E 02 00 00 00 00 00 00 01 00 00 80 01 00 00 00 06 00 00 00 "
                     "00 00 00 00 0D 00 00 00 "
                     "02 00 00 00 01 00 00 00 33 00 00 00"));  // wanted
}

tql::select_t nestedSelect(unsigned depth)
{
    tql::select_t select;
    for (unsigned level = 1; level < depth; ++level) {
        tql::select_t outer;
        outer.next.push_back(std::move(select));
        select = std::move(outer);
    }
    return select;
}

TEST(TypeForms, NestingIsBounded)
{
    const tql::select_t deepest = nestedSelect(protocol::ioprim::maximumDepth);
    tql::select_t copy;
    EXPECT_EQ(readInto(&copy, written(deepest)), "read");
    EXPECT_TRUE(copy == deepest);
    EXPECT_EQ(readInto(&copy, written(nestedSelect(protocol::ioprim::maximumDepth + 1))),
              "nesting too deep: more than 200 records within each other");
}

// Room for what a count announces would be more than any machine has.
TEST(TypeForms, AnAnnouncedCountTakesNoMemory)
{
    const std::string most = unhex("FF FF FF 7F");
    for (const char* tag : {"08", "09", "10", "18"}) {
        SCOPED_TRACE(tag);
        std::string bytes = unhex(tag);
        bytes += unhex("00 00 00 1E 02 00 00 00 00 00 00 00 00 00 00");
        bytes += most;
        Property property;
        EXPECT_EQ(readInto(&property, bytes), "end");
    }
    tql::select_t select;
    EXPECT_EQ(readInto(&select, std::string(12, '\0') + most), "end");
    tql::property_map map;
    EXPECT_EQ(readInto(&map, most), "end");
}

TEST(TypeForms, Printouts)
{
    struct Case {
        const char* name;
        std::string printed;
        const char* expected;
    };
    const Case cases[] = {
        {"an identifier", printed(tql::id_t{1, 20}),
         "val: small_vector<3> {\n"
         "    1\n"
         "    20\n"
         "  }\n"},
        {"a vector of numbers, indented", printed(tql::small_vector<2>{7}, 1),
         "  small_vector<2> {\n"
         "    7\n"
         "  }\n"},
        {"a version", printed(tql::version_t{7, 9}), "7.1.9\n"},
        {"a big number", printed(number(32)), "4294967296\n"},
        {"an origin, indented", printed(tql::object_origin_t{{1}, {}, 37}, 1),
         "  domain_id:     val: small_vector<3> {\n"
         "        1\n"
         "      }\n"
         "  user_id:     val: small_vector<3> {\n"
         "      }\n"
         "  type: 37\n"},
        {"a property", printed(make<tql::property_enum_t>(7U, 1U), 1),
         "  name: 542\n"
         "  is_null: false\n"
         "  modifiers: 2147483649\n"},
        {"no property", printed(Property(), 1), "  (null)\n"},
        {"an object", printed(sampleObject()),
         "class_: 4\n"
         "flags: -1\n"
         "tags: set {\n"
         "  3\n"
         "  9\n"
         "}\n"
         "id:   val: small_vector<3> {\n"
         "      1\n"
         "      2\n"
         "    }\n"
         "version: 7.1.9\n"
         "properties: map {\n"
         "  key: 52\n"
         "  value:     (null)\n"
         "  key: 542\n"
         "  value:     name: 542\n"
         "    is_null: false\n"
         "    modifiers: 2147483649\n"
         "}\n"
         "children: vector {\n"
         "  class_: 5\n"
         "  flags: 0\n"
         "  tags: set {\n"
         "  }\n"
         "  id:     val: small_vector<3> {\n"
         "      }\n"
         "  version: 0.1.0\n"
         "  properties: map {\n"
         "  }\n"
         "  children: vector {\n"
         "  }\n"
         "  origin:     domain_id:       val: small_vector<3> {\n"
         "        }\n"
         "    user_id:       val: small_vector<3> {\n"
         "        }\n"
         "    type: 37\n"
         "}\n"
         "origin:   domain_id:     val: small_vector<3> {\n"
         "      }\n"
         "  user_id:     val: small_vector<3> {\n"
         "        6\n"
         "      }\n"
         "  type: 37\n"},
        {"a select", printed(sampleSelect()),
         "class_: 4\n"
         "flags: -1\n"
         "tag: 2\n"
         "next: vector {\n"
         "  class_: 0\n"
         "  flags: 0\n"
         "  tag: 3\n"
         "  next: vector {\n"
         "  }\n"
         "  cond_next: vector {\n"
         "  }\n"
         "  where: list {\n"
         "  }\n"
         "  wanted_properties: set {\n"
         "  }\n"
         "}\n"
         "cond_next: vector {\n"
         "  class_: 0\n"
         "  flags: 0\n"
         "  tag: 4\n"
         "  next: vector {\n"
         "  }\n"
         "  cond_next: vector {\n"
         "  }\n"
         "  where: list {\n"
         "  }\n"
         "  wanted_properties: set {\n"
         "  }\n"
         "}\n"
         "where: list {\n"
         "  prop:     name: 542\n"
         "    is_null: false\n"
         "    modifiers: 2147483649\n"
         "  rel_op: 6\n"
         "  prop:     (null)\n"
         "  rel_op: 13\n"
         "}\n"
         "wanted_properties: set {\n"
         "  1\n"
         "  51\n"
         "}\n"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.printed, c.expected) << c.name;
}

}  // namespace
