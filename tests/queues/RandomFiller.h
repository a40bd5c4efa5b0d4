// Fills any payload with values drawn from a seed. A visitor of fields, like those of fields.h.
#pragma once

#include "common/BigNum.h"
#include "queues/fields.h"
#include "types/Held.h"
#include "types/id.h"
#include "types/property.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

class RandomFiller {
public:
    explicit RandomFiller(std::uint32_t seed) : source(seed) {}

    template <class T>
    void operator()(const char* /*label*/, T&& value)
    {
        fill(value);
    }

    void fill(bool& value) { value = below(2) != 0; }
    void fill(std::uint16_t& value) { value = static_cast<std::uint16_t>(source()); }
    void fill(std::int32_t& value) { value = static_cast<std::int32_t>(bits()); }
    void fill(std::uint32_t& value) { value = static_cast<std::uint32_t>(bits()); }
    void fill(std::int64_t& value) { value = static_cast<std::int64_t>(bits()); }
    void fill(std::uint64_t& value) { value = bits(); }
    void fill(double& value) { value = static_cast<double>(bits()) / 1024 - 1e9; }
    void fill(Time& value)
    {
        fill(value.sec);
        value.usec = static_cast<std::int32_t>(below(1000000));
    }
    void fill(std::string& value)
    {
        // Now and then longer than a stream's buffer.
        value.resize(below(20) == 0 ? 5000 + below(5000) : below(20));
        for (char& c : value)
            c = static_cast<char>(source());
    }
    void fill(BigNum& value)
    {
        std::string bytes;
        fill(bytes);
        value.fromBytes(std::string_view(bytes).substr(0, 100));
    }
    template <queues::WireEnum E>
    void fill(E& value)
    {
        value = static_cast<E>(bits());
    }
    void fill(queues::Ipv4Field<std::uint32_t>& value) { fill(value.address); }
    template <std::size_t N>
    void fill(tql::small_vector<N>& value)
    {
        value.resize(below(N + 1));
        for (std::uint32_t& number : value)
            fill(number);
    }
    void fill(tql::version_t& value)
    {
        fill(value.first);
        fill(value.second);
    }
    void fill(Held<tql::property_t>& value)
    {
        value.reset();
        tql::withPropertyClass(6 + static_cast<std::uint32_t>(below(20)), [&]<class C>() {
            auto property = std::make_unique<C>();
            tql::property_t::header(*property, *this);
            C::content(*property, *this);
            value.reset(std::move(property));
        });
    }
    template <class A, class B>
    void fill(std::pair<A, B>& value)
    {
        fill(value.first);
        fill(value.second);
    }
    template <class T>
    void fill(std::list<T>& value)
    {
        fillSequence(value);
    }
    template <class T>
    void fill(std::vector<T>& value)
    {
        fillSequence(value);
    }
    template <class T>
    void fill(std::set<T>& value)
    {
        value.clear();
        for (std::size_t count = below(4); count > 0; --count) {
            T element{};
            fill(element);
            value.insert(std::move(element));
        }
    }
    template <class K, class V>
    void fill(std::map<K, V>& value)
    {
        value.clear();
        for (std::size_t count = below(4); count > 0; --count) {
            K key{};
            fill(key);
            fill(value[key]);
        }
    }
    template <queues::Record T>
    void fill(T& value)
    {
        T::fields(value, *this);
    }

    std::size_t below(std::size_t bound) { return source() % bound; }

private:
    // All widths of numbers, zero among them.
    std::uint64_t bits()
    {
        const std::uint64_t value = std::uint64_t{source()} << 32 | source();
        return value >> below(64);
    }
    template <class Sequence>
    void fillSequence(Sequence& value)
    {
        // Shorter with each level, so that trees end.
        ++level;
        value.resize(level > 4 ? 0 : below(4));
        for (auto& element : value)
            fill(element);
        --level;
    }

    std::mt19937 source;
    unsigned level = 0;
};
