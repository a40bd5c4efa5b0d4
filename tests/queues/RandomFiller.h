// Fills any payload with values drawn from a seed. A visitor of fields, like those of fields.h.
#pragma once

#include "queues/fields.h"
#include "types/Held.h"
#include "types/property.h"

#include <random>

class RandomFiller {
public:
    explicit RandomFiller(std::uint32_t seed) : source(seed) {}

    template <class T>
    void operator()(const char* /*label*/, T&& value)
    {
        fill(value);
    }

    void fill(Time& value) { value = {static_cast<std::int32_t>(bits()), 250000}; }
    void fill(queues::Ipv4Field<std::uint32_t>& value) { fill(value.address); }
    void fill(BigNum& value) { value = BigNum(static_cast<std::int32_t>(source() >> 1)); }
    void fill(std::string& value)
    {
        // Now and then longer than what a reader takes memory for at first.
        value.resize(below(20) == 0 ? 9000 : below(20));
        for (char& c : value)
            c = static_cast<char>(source());
    }
    void fill(Held<tql::property_t>& value)
    {
        tql::withPropertyClass(6 + static_cast<std::uint32_t>(below(20)), [&]<class C>() {
            auto property = std::make_unique<C>();
            tql::property_t::header(*property, *this);
            C::content(*property, *this);
            value.reset(std::move(property));
        });
    }
    template <class T>
    void fill(T& value)
    {
        if constexpr (std::is_arithmetic_v<T> || std::is_enum_v<T>) {
            value = static_cast<T>(bits());
        } else if constexpr (queues::Record<T>) {
            T::fields(value, *this);
        } else if constexpr (requires { value.first; }) {
            fill(value.first);
            fill(value.second);
        } else if constexpr (requires { typename T::key_type; }) {
            for (std::size_t count = below(4); count > 0; --count) {
                typename T::key_type key{};
                fill(key);
                if constexpr (requires { typename T::mapped_type; })
                    fill(value[key]);
                else
                    value.insert(key);
            }
        } else {
            // Shorter with each level, so that trees end.
            ++level;
            value.resize(level > 4 ? 0 : below(4));
            for (auto& element : value)
                fill(element);
            --level;
        }
    }

private:
    std::size_t below(std::size_t bound) { return source() % bound; }
    // All widths of numbers, zero among them.
    std::uint64_t bits() { return (std::uint64_t{source()} << 32 | source()) >> below(64); }

    std::mt19937 source;
    unsigned level = 0;
};
