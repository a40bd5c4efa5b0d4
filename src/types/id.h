// The identifiers of the database: of objects, stations and object versions, and where an object
// comes from.
//
// All are plain values, compared by what they hold. The records list their fields once, in wire
// order.
#pragma once

#include <algorithm>
#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>

namespace tql {

// These throw error::ERange with "small vector reference overflow <index> >= <bound>" and
// "small vector resize overflow <size> > <bound>".
[[noreturn]] void throwReferenceOverflow(std::size_t index, std::size_t bound);
[[noreturn]] void throwResizeOverflow(std::size_t size, std::size_t bound);

// At most N numbers, without a heap. Ordered lexicographically; a prefix is less than its
// extension.
template <std::size_t N>
class small_vector {
public:
    small_vector() = default;
    // Throws error::ERange for more than N numbers.
    small_vector(std::initializer_list<std::uint32_t> from)
    {
        resize(from.size());
        std::copy(from.begin(), from.end(), begin());
    }

    std::size_t size() const { return used; }

    // An index at or above size() throws error::ERange, whose text names N as the bound.
    std::uint32_t& operator[](std::size_t index)
    {
        if (index >= used)
            throwReferenceOverflow(index, N);
        return numbers[index];
    }
    const std::uint32_t& operator[](std::size_t index) const
    {
        if (index >= used)
            throwReferenceOverflow(index, N);
        return numbers[index];
    }

    // Numbers that are added are 0. More than N throws error::ERange and changes nothing.
    void resize(std::size_t count)
    {
        if (count > N)
            throwResizeOverflow(count, N);
        if (count > used)
            std::fill(numbers.data() + used, numbers.data() + count, 0U);
        used = count;
    }

    std::uint32_t* begin() { return numbers.data(); }
    std::uint32_t* end() { return numbers.data() + used; }
    const std::uint32_t* begin() const { return numbers.data(); }
    const std::uint32_t* end() const { return numbers.data() + used; }

    friend bool operator==(const small_vector& a, const small_vector& b)
    {
        return std::equal(a.begin(), a.end(), b.begin(), b.end());
    }
    friend std::strong_ordering operator<=>(const small_vector& a, const small_vector& b)
    {
        return std::lexicographical_compare_three_way(a.begin(), a.end(), b.begin(), b.end());
    }

private:
    std::array<std::uint32_t, N> numbers{};
    std::size_t used = 0;
};

// The identifier of an object: a path of up to three numbers, "1.20.3" in text.
struct id_t {
    small_vector<3> val;

    id_t() = default;
    id_t(std::initializer_list<std::uint32_t> path) : val(path) {}

    // The decimal numbers joined by "."; an empty identifier is the empty text.
    std::string toString() const;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("val", self.val);
    }
    // With these come < and > in the order of the numbers.
    bool operator==(const id_t&) const = default;
    std::strong_ordering operator<=>(const id_t& other) const { return val <=> other.val; }
};

// The version of an object.
struct version_t {
    std::uint64_t first = 0;
    std::uint64_t second = 0;

    // "7.1.9" for (7, 9).
    std::string toString() const;

    bool operator==(const version_t&) const = default;
    // By `first`, then by `second`, each by the sign of the 64-bit difference. So the numbers may
    // wrap, but versions that lie 2^63 apart have no order that a sorted container could use.
    bool operator<(const version_t& other) const;
};

// The domain and the user that an object comes from.
struct object_origin_t {
    id_t domain_id;
    id_t user_id;
    std::int32_t type = 37;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("domain_id", self.domain_id);
        visit("user_id", self.user_id);
        visit("type", self.type);
    }
    bool operator==(const object_origin_t&) const = default;
};

// A reference to an object, as properties hold it.
struct object_reference_t {
    id_t id;
    object_origin_t origin;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
        visit("origin", self.origin);
    }
    bool operator==(const object_reference_t&) const = default;
    // References order by `id` alone, so a set of them holds each object once, with the origin
    // that came first. Equality looks at all fields.
    bool operator<(const object_reference_t& other) const { return id < other.id; }
};

// A GID, the number of a station of a grid, as four bytes in hexadecimal, most significant first:
// "0a:0b:0c:0d".
std::string gidToString(std::uint32_t gid);

}  // namespace tql
