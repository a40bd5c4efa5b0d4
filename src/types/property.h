// Typed properties: a number that names the property, and a value of one of nineteen kinds.
//
// property_t        what all have: name, is_null, modifiers
// property_value_t  adds `value` and what follows from its type
// property_..._t    the nineteen classes, with their type tags
//
// A property is owned by the map or record that holds it, in a Held<property_t>, and copied by
// clone(). With `is_null` set it exists but has no value; the field `value` then means nothing,
// though it still travels.
//
// Two properties compare under a relative operator, which is applied to a relation r of the two:
//
//    2, -2   greater, less
//    1, -1   greater, less, but only in case (texts alone)
//    0       equal; also two nulls, or a NaN on either side
//
// A null is less than any value. Sets and a few operators have rules of their own, which stand at
// their classes.
#pragma once

#include "common/BigNum.h"
#include "common/Held.h"
#include "types/id.h"

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace tql {

// Relative operators, as select expressions carry them. Not all numbers are assigned, and any
// number can come from the wire.
enum rel_op_t : std::uint32_t {
    REL_EQUAL = 1,
    REL_GREATER = 2,
    REL_LESS = 3,
    REL_GREATER_OR_EQUAL = 4,
    REL_LESS_OR_EQUAL = 5,
    REL_NOT_EQUAL = 6,
    REL_EQUAL_IGNORING_CASE = 7,
    REL_NOT_EQUAL_IGNORING_CASE = 8,
    REL_SUBSET = 9,
    REL_SUPERSET = 10,
    REL_INTERSECTS = 11,
    REL_MEMBER_OF = 12,
    REL_CONTAINS_IGNORING_CASE = 14,
};

class property_t {
public:
    std::uint32_t name = 0;  // the property number, see vocabulary.h
    bool is_null = false;
    std::uint32_t modifiers = 0;  // carried, not interpreted

    // The type tag, 7 to 25.
    virtual std::uint32_t type() const = 0;
    virtual ~property_t() = default;
    // A new property of the same class with all fields copied.
    virtual std::unique_ptr<property_t> clone() const = 0;
    // The value as text, whatever `is_null` says.
    virtual std::string toString() const = 0;
    // Whether this value stands in the relation `rel_op`, a rel_op_t, to `other`. Throws
    // errors::tql_incomparable if `other` is of another class, if two enums are of different
    // types, or with "Unknown relative operator".
    virtual bool compare(std::uint32_t rel_op, const property_t& other) const = 0;

    // Same class and all fields equal. Unlike REL_EQUAL it tells nulls with different values
    // apart, and object references with different origins.
    bool operator==(const property_t& other) const;

    // The common fields in wire order. They stand in front of the value on the wire and are all
    // that prints.
    template <class Self, class Visitor>
    static void header(Self& self, Visitor& visit)
    {
        visit("name", self.name);
        visit("is_null", self.is_null);
        visit("modifiers", self.modifiers);
    }

protected:
    property_t() = default;
    explicit property_t(std::uint32_t number) : name(number) {}
    property_t(const property_t&) = default;
    property_t& operator=(const property_t&) = default;

    // Throws errors::tql_incomparable unless `other` has the tag; the text names what kind of
    // value a property with this tag compares with.
    static void requireType(std::uint32_t tag, const property_t& other);
    // The relation if at least one of the two is null.
    int relationOfNulls(const property_t& other) const;
    // Applies one of the operators 1 to 8 to a relation; throws for any other.
    static bool relationHolds(std::uint32_t rel_op, int relation);
};

using property_map = std::map<std::uint32_t, Held<property_t>>;

// The relation of two values that are not null.
template <class T>
int relationOf(const T& a, const T& b)
{
    if (b < a)
        return 2;
    return a < b ? -2 : 0;
}
// A shorter list is less, whatever it holds; lists of equal length go element by element.
int relationOf(const std::vector<std::uint32_t>& a, const std::vector<std::uint32_t>& b);
// Sets have no order: unlike sets are both "greater" than each other. Elements count by `id`.
int relationOf(const std::set<object_reference_t>& a, const std::set<object_reference_t>& b);

// The fields and operations that follow from the type of the value. `Self` is the derived class.
template <class Self, std::uint32_t Tag, class Value>
class property_value_t : public property_t {
public:
    static constexpr std::uint32_t tag = Tag;

    Value value{};

    property_value_t() = default;
    explicit property_value_t(std::uint32_t number, Value initial = Value())
        : property_t(number), value(std::move(initial))
    {}

    std::uint32_t type() const override { return Tag; }
    std::unique_ptr<property_t> clone() const override { return std::make_unique<Self>(self()); }
    bool compare(std::uint32_t rel_op, const property_t& other) const override
    {
        requireType(Tag, other);
        const auto& that = static_cast<const Self&>(other);
        return relationHolds(rel_op, is_null || that.is_null ? relationOfNulls(that)
                                                             : self().relation(that));
    }

    // The relation to a property of the same class, neither of them null.
    int relation(const Self& other) const { return relationOf(value, other.value); }
    bool sameValue(const Self& other) const { return value == other.value; }

    // What follows the header on the wire.
    template <class Object, class Visitor>
    static void content(Object& object, Visitor& visit)
    {
        visit("value", object.value);
    }

private:
    const Self& self() const { return static_cast<const Self&>(*this); }
};

// Ordered by bytes; the relation is 1 or -1 where two texts differ in nothing but case.
class property_string_t final : public property_value_t<property_string_t, 7, std::string> {
public:
    using property_value_t::property_value_t;
    std::string toString() const override;
    // Knows REL_CONTAINS_IGNORING_CASE too, for two texts that are not null.
    bool compare(std::uint32_t rel_op, const property_t& other) const override;
    int relation(const property_string_t& other) const;
};

class property_string_list_t final
    : public property_value_t<property_string_list_t, 8, std::list<std::string>> {
public:
    using property_value_t::property_value_t;
    std::string toString() const override;
};

class property_object_set_t final
    : public property_value_t<property_object_set_t, 9, std::set<object_reference_t>> {
public:
    using property_value_t::property_value_t;
    std::string toString() const override;
    // Knows REL_SUBSET, REL_SUPERSET and REL_INTERSECTS too. A null set is a subset of anything,
    // and anything is a superset of it; it intersects nothing.
    bool compare(std::uint32_t rel_op, const property_t& other) const override;
};

// Ordered by the `id` of the reference alone.
class property_object_t final : public property_value_t<property_object_t, 10, object_reference_t> {
public:
    using property_value_t::property_value_t;
    std::string toString() const override;
    // Knows REL_MEMBER_OF too, for which `other` is a property_object_set_t; false if either is
    // null.
    bool compare(std::uint32_t rel_op, const property_t& other) const override;
};

class property_version_t final : public property_value_t<property_version_t, 11, version_t> {
public:
    using property_value_t::property_value_t;
    std::string toString() const override;
};

class property_action_t final : public property_value_t<property_action_t, 12, std::int32_t> {
public:
    using property_value_t::property_value_t;
    std::string toString() const override;
};

class property_real_t final : public property_value_t<property_real_t, 13, double> {
public:
    using property_value_t::property_value_t;
    std::string toString() const override;
};

class property_bignum_t final : public property_value_t<property_bignum_t, 14, BigNum> {
public:
    using property_value_t::property_value_t;
    std::string toString() const override;
};

// A GID, see id.h.
class property_gid_t final : public property_value_t<property_gid_t, 15, std::uint32_t> {
public:
    using property_value_t::property_value_t;
    std::string toString() const override;
};

class property_gid_list_t final
    : public property_value_t<property_gid_list_t, 16, std::vector<std::uint32_t>> {
public:
    using property_value_t::property_value_t;
    std::string toString() const override;
};

// Seconds since 1970 UTC.
class property_date_t final : public property_value_t<property_date_t, 17, std::int64_t> {
public:
    using property_value_t::property_value_t;
    // Shows the low 32 bits alone.
    std::string toString() const override;
};

class property_index_t final : public property_value_t<property_index_t, 18, std::uint32_t> {
public:
    using property_value_t::property_value_t;
    std::string toString() const override;
};

class property_int_t final : public property_value_t<property_int_t, 19, std::int32_t> {
public:
    using property_value_t::property_value_t;
    std::string toString() const override;
};

class property_uint_t final : public property_value_t<property_uint_t, 20, std::uint32_t> {
public:
    using property_value_t::property_value_t;
    std::string toString() const override;
};

class property_boolean_t final : public property_value_t<property_boolean_t, 21, bool> {
public:
    using property_value_t::property_value_t;
    std::string toString() const override;
};

// Bytes.
class property_blob_t final : public property_value_t<property_blob_t, 22, std::string> {
public:
    using property_value_t::property_value_t;
    std::string toString() const override;
};

// Bytes.
class property_lob_t final : public property_value_t<property_lob_t, 23, std::string> {
public:
    using property_value_t::property_value_t;
    std::string toString() const override;
};

class property_oid_t final
    : public property_value_t<property_oid_t, 24, std::vector<std::uint32_t>> {
public:
    using property_value_t::property_value_t;
    std::string toString() const override;
};

// One value of an enumeration that `enum_type` names. Only values of one type compare.
class property_enum_t final : public property_value_t<property_enum_t, 25, std::uint32_t> {
public:
    std::uint32_t enum_type = 0;

    property_enum_t() = default;
    explicit property_enum_t(std::uint32_t number, std::uint32_t type = 0,
                             std::uint32_t initial = 0)
        : property_value_t(number, initial), enum_type(type)
    {}
    std::string toString() const override;
    int relation(const property_enum_t& other) const;
    bool sameValue(const property_enum_t& other) const;

    template <class Object, class Visitor>
    static void content(Object& object, Visitor& visit)
    {
        visit("enum_type", object.enum_type);
        visit("value", object.value);
    }
};

// Calls `visit.operator()<C>()` with the class C of a type tag, and gives true; gives false, and
// calls nothing, if no class has the tag.
template <class Visitor>
bool withPropertyClass(std::uint32_t tag, Visitor&& visit)
{
    const auto tryOne = [&]<class C>() {
        if (tag != C::tag)
            return false;
        visit.template operator()<C>();
        return true;
    };
    const auto tryAll = [&]<class... C>() {
        return (tryOne.template operator()<C>() || ...);
    };
    return tryAll.template operator()<
        property_string_t, property_string_list_t, property_object_set_t, property_object_t,
        property_version_t, property_action_t, property_real_t, property_bignum_t, property_gid_t,
        property_gid_list_t, property_date_t, property_index_t, property_int_t, property_uint_t,
        property_boolean_t, property_blob_t, property_lob_t, property_oid_t, property_enum_t>();
}

// The accessors by which a setting is read. Each leaves `out` alone and throws errors::tql, with
// the code errors::tqlIllegalType and a text that names the property, if the value is null or of
// another type; so a caller to whom a null means "keep the default" tests `is_null` first.
void getString(const property_t& property, std::string& out);
void getBool(const property_t& property, bool& out);
// Only the low 17 bits of a value's enum_type count, and must be `enumType`.
void getEnum(const property_t& property, std::uint32_t& out, std::uint32_t enumType);

}  // namespace tql
