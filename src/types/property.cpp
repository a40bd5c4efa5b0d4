#include "types/property.h"

#include "common/errors.h"
#include "common/text.h"
#include "types/vocabulary.h"

#include <algorithm>
#include <string_view>

namespace tql {

namespace {

constexpr std::uint32_t enumTypeMask = 0x1FFFF;

std::string quoted(const std::string& text)
{
    return '"' + text + '"';
}

// The texts of the elements, joined by ", ".
template <class Container, class ToText>
std::string joined(const Container& elements, ToText&& toText)
{
    std::string text;
    const char* separator = "";
    for (const auto& element : elements) {
        text += separator;
        text += toText(element);
        separator = ", ";
    }
    return text;
}

// How messages call the kind of value that a class holds. Some classes share a word.
const char* kindOf(std::uint32_t tag)
{
    static constexpr const char* kinds[] = {
        "string",  "string_list", "object_set", "object",  "object", "action", "real",
        "bignum",  "GID",         "GIDList",    "date",    "index",  "int",    "uint",
        "boolean", "blob",        "lob",        "GIDList", "int",
    };
    return kinds[tag - property_string_t::tag];
}

[[noreturn]] void throwIllegalType(const std::string& text)
{
    throw errors::tql(text, errors::tqlIllegalType);
}

// What getString and getBool share: the value, if the property is a C that is not null.
template <class C>
const C& requireValue(const property_t& property, std::string_view className)
{
    if (property.is_null) {
        throwIllegalType("Null given for " + std::string(className) + ": " +
                         propertyName(property.name));
    }
    if (property.type() != C::tag) {
        throwIllegalType("Type mismatch for " + std::string(className) + ": " +
                         propertyName(property.name));
    }
    return static_cast<const C&>(property);
}

}  // namespace

bool property_t::operator==(const property_t& other) const
{
    if (type() != other.type() || name != other.name || is_null != other.is_null ||
        modifiers != other.modifiers)
        return false;
    bool equal = false;
    withPropertyClass(type(), [&]<class C>() {
        equal = static_cast<const C&>(*this).sameValue(static_cast<const C&>(other));
    });
    return equal;
}

void property_t::requireType(std::uint32_t tag, const property_t& other)
{
    if (other.type() != tag) {
        throw errors::tql_incomparable(std::string("Type mismatch, ") + kindOf(tag) +
                                       " != type of " + propertyName(other.name));
    }
}

int property_t::relationOfNulls(const property_t& other) const
{
    if (is_null)
        return other.is_null ? 0 : -2;
    return 2;
}

bool property_t::relationHolds(std::uint32_t rel_op, int relation)
{
    switch (rel_op) {
    case REL_EQUAL:
        return relation == 0;
    case REL_GREATER:
        return relation > 0;
    case REL_LESS:
        return relation < 0;
    case REL_GREATER_OR_EQUAL:
        return relation >= 0;
    case REL_LESS_OR_EQUAL:
        return relation < 1;
    case REL_NOT_EQUAL:
        return relation != 0;
    case REL_EQUAL_IGNORING_CASE:
        return -1 <= relation && relation < 2;
    case REL_NOT_EQUAL_IGNORING_CASE:
        return relation < -1 || relation > 1;
    default:
        throw errors::tql_incomparable("Unknown relative operator");
    }
}

int relationOf(const std::vector<std::uint32_t>& a, const std::vector<std::uint32_t>& b)
{
    if (a.size() != b.size())
        return a.size() > b.size() ? 2 : -2;
    const auto [inA, inB] = std::mismatch(a.begin(), a.end(), b.begin());
    return inA == a.end() ? 0 : relationOf(*inA, *inB);
}

int relationOf(const std::set<object_reference_t>& a, const std::set<object_reference_t>& b)
{
    const auto sameId = [](const object_reference_t& x, const object_reference_t& y) {
        return x.id == y.id;
    };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), sameId) ? 0 : 2;
}

std::string property_string_t::toString() const
{
    return quoted(value);
}

bool property_string_t::compare(std::uint32_t rel_op, const property_t& other) const
{
    if (rel_op != REL_CONTAINS_IGNORING_CASE || is_null || other.is_null)
        return property_value_t::compare(rel_op, other);
    requireType(tag, other);
    const std::string wanted = toLower(static_cast<const property_string_t&>(other).value);
    return toLower(value).find(wanted) != std::string::npos;
}

int property_string_t::relation(const property_string_t& other) const
{
    const int order = relationOf(value, other.value);
    if (order != 0 && value.size() == other.value.size() && toLower(value) == toLower(other.value))
        return order / 2;
    return order;
}

std::string property_string_list_t::toString() const
{
    return joined(value, quoted);
}

std::string property_object_set_t::toString() const
{
    return "{" + joined(value, [](const auto& object) { return quoted(object.id.toString()); }) +
           "}";
}

bool property_object_set_t::compare(std::uint32_t rel_op, const property_t& other) const
{
    requireType(tag, other);
    const auto& that = static_cast<const property_object_set_t&>(other);
    const auto includes = [](const property_object_set_t& whole,
                             const property_object_set_t& part) {
        return part.is_null ||
               (!whole.is_null && std::includes(whole.value.begin(), whole.value.end(),
                                                part.value.begin(), part.value.end()));
    };
    switch (rel_op) {
    case REL_SUBSET:
        return includes(that, *this);
    case REL_SUPERSET:
        return includes(*this, that);
    case REL_INTERSECTS: {
        if (is_null || that.is_null)
            return false;
        auto mine = value.begin();
        auto theirs = that.value.begin();
        while (mine != value.end() && theirs != that.value.end()) {
            if (*mine < *theirs)
                ++mine;
            else if (*theirs < *mine)
                ++theirs;
            else
                return true;
        }
        return false;
    }
    default:
        return property_value_t::compare(rel_op, other);
    }
}

std::string property_object_t::toString() const
{
    return quoted(value.id.toString());
}

bool property_object_t::compare(std::uint32_t rel_op, const property_t& other) const
{
    if (rel_op != REL_MEMBER_OF)
        return property_value_t::compare(rel_op, other);
    requireType(property_object_set_t::tag, other);
    const auto& set = static_cast<const property_object_set_t&>(other);
    return !is_null && !set.is_null && set.value.contains(value);
}

std::string property_version_t::toString() const
{
    return quoted(value.toString());
}

std::string property_action_t::toString() const
{
    return "(null)";
}

std::string property_real_t::toString() const
{
    return doubleToString(value, -1, -1);
}

std::string property_bignum_t::toString() const
{
    return value.toString();
}

std::string property_gid_t::toString() const
{
    return gidToString(value);
}

std::string property_gid_list_t::toString() const
{
    return joined(value, gidToString);
}

std::string property_date_t::toString() const
{
    return intToString(static_cast<std::int32_t>(value));
}

std::string property_index_t::toString() const
{
    return uintToString(value);
}

std::string property_int_t::toString() const
{
    return intToString(value);
}

std::string property_uint_t::toString() const
{
    return uintToString(value);
}

std::string property_boolean_t::toString() const
{
    return value ? "true" : "false";
}

std::string property_blob_t::toString() const
{
    return "BLOB";
}

std::string property_lob_t::toString() const
{
    return "LOB";
}

std::string property_oid_t::toString() const
{
    return joined(value, gidToString);
}

std::string property_enum_t::toString() const
{
    return "enum(" + uintToString(enum_type) + ", " + uintToString(value) + ")";
}

int property_enum_t::relation(const property_enum_t& other) const
{
    if (enum_type != other.enum_type) {
        throw errors::tql_incomparable("Type mismatch, enum (" + uintToString(enum_type) +
                                       ") != enum (" + uintToString(other.enum_type) + ") of " +
                                       propertyName(other.name));
    }
    return relationOf(value, other.value);
}

bool property_enum_t::sameValue(const property_enum_t& other) const
{
    return enum_type == other.enum_type && value == other.value;
}

void getString(const property_t& property, std::string& out)
{
    out = requireValue<property_string_t>(property, "property_string_t").value;
}

void getBool(const property_t& property, bool& out)
{
    out = requireValue<property_boolean_t>(property, "property_boolean_t").value;
}

void getEnum(const property_t& property, std::uint32_t& out, std::uint32_t enumType)
{
    if (property.is_null)
        throwIllegalType("Null given for property_t: " + propertyName(property.name));
    const auto throwMismatch = [&](const std::string& actual) {
        throwIllegalType("Type mismatch for property_t: " + propertyName(property.name) +
                         " [exp:" + uintToString(enumType) + ",actual:" + actual);
    };
    if (property.type() != property_enum_t::tag)
        throwMismatch("non-enum");
    const auto& given = static_cast<const property_enum_t&>(property);
    const std::uint32_t givenType = given.enum_type & enumTypeMask;
    if (givenType != enumType)
        throwMismatch(uintToString(givenType));
    out = given.value;
}

}  // namespace tql
