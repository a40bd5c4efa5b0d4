// The records of the object database: an object with its subtree, and the select expression by
// which objects are asked for.
//
// Each owns what it holds, and lists its fields once, in wire order.
#pragma once

#include "common/Held.h"
#include "types/id.h"
#include "types/property.h"

#include <cstdint>
#include <list>
#include <set>
#include <vector>

namespace tql {

struct object_t {
    std::uint32_t class_ = 0;  // class number, see vocabulary.h
    std::int32_t flags = 0;    // carried, not interpreted
    std::set<std::uint32_t> tags;
    id_t id;
    version_t version;
    property_map properties;
    std::vector<object_t> children;  // the object's subtree
    object_origin_t origin;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("class_", self.class_);
        visit("flags", self.flags);
        visit("tags", self.tags);
        visit("id", self.id);
        visit("version", self.version);
        visit("properties", self.properties);
        visit("children", self.children);
        visit("origin", self.origin);
    }
    bool operator==(const object_t&) const = default;
};

// One condition: a property of the object, compared with the value of `prop`.
struct relative_expr_t {
    Held<property_t> prop;     // the property number and the value to compare with
    std::uint32_t rel_op = 0;  // rel_op_t

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("prop", self.prop);
        visit("rel_op", self.rel_op);
    }
    bool operator==(const relative_expr_t&) const = default;
};

struct select_t {
    std::uint32_t class_ = 0;  // class number of the objects wanted
    std::int32_t flags = 0;    // carried, not interpreted
    std::uint32_t tag = 0;
    std::vector<select_t> next;       // further selects below this one
    std::vector<select_t> cond_next;  // the same, under a condition
    std::list<relative_expr_t> where;
    std::set<std::uint32_t> wanted_properties;  // which properties are to come back

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("class_", self.class_);
        visit("flags", self.flags);
        visit("tag", self.tag);
        visit("next", self.next);
        visit("cond_next", self.cond_next);
        visit("where", self.where);
        visit("wanted_properties", self.wanted_properties);
    }
    bool operator==(const select_t&) const = default;
};

}  // namespace tql
