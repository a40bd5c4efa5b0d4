// Fills any payload with values drawn from a seed, as a visitor of fields like those of fields.h.
//
// Each record that it meets, nested ones too, must list all its members in order. Classes that are
// no aggregates are exempt: their members can't be counted. Wrapped members are counted alone.
#pragma once

#include "queues/records/all.h"
#include "tests/queues/frames.h"

#include <random>
#include <typeinfo>

class RandomFiller {
public:
    explicit RandomFiller(std::uint32_t seed) : source(seed) {}

    // Of an event with this number; empty if there is none.
    std::string frame(std::int32_t number);

    template <class T>
    void operator()(const char* /*label*/, T&& value)
    {
        fill(value);
    }

    void fill(Time& value) { value = {static_cast<std::int32_t>(bits()), 250000}; }
    void fill(queues::Ipv4Field<std::uint32_t>& value) { fill(value.address); }
    void fill(queues::PointInTimeField<Time>& value) { fill(value.time); }
    void fill(BigNum& value) { value = BigNum(static_cast<std::uint32_t>(bits())); }
    void fill(std::string& value)
    {
        // Now and then longer than what a reader takes memory for at first.
        value.resize(below(20) == 0 ? 9000 : below(20));
        for (char& c : value)
            c = static_cast<char>(source());
    }
    void fill(Held<tql::property_t>& value)
    {
        tql::withPropertyClass(6 + below(20), [&]<class C>() {
            auto property = std::make_unique<C>();
            tql::property_t::header(*property, *this);
            C::content(*property, *this);
            value.reset(std::move(property));
        });
    }
    void fill(Held<tsdb::data_interval_t>& value)
    {
        tsdb::withIntervalClass(below(4), [&]<class C>() {
            typename C::fields_t fields;
            fill(fields);
            value.reset(std::make_unique<C>(std::move(fields)));
        });
    }
    void fill(Held<queues::event>& value)
    {
        // An exception ends events within events, and stands for a number without an event.
        std::string bytes = ++level < 4 ? frame(1 + below(195)) : "";
        if (bytes.empty())
            bytes = frame(queues::MESSAGE_EXCEPTION);
        EXPECT_EQ(frames::readInto(value, bytes), "left 0");
        --level;
    }
    template <class T>
    void fill(T& value)
    {
        if constexpr (std::is_floating_point_v<T>) {
            // Never a NaN, which doesn't equal itself.
            value = static_cast<T>(static_cast<std::int64_t>(bits())) / 8;
        } else if constexpr (std::is_arithmetic_v<T> || std::is_enum_v<T>) {
            value = static_cast<T>(bits());
        } else if constexpr (queues::Record<T>) {
            if constexpr (std::is_aggregate_v<T>) {
                MemberCounter listed;
                T::fields(value, listed);
                EXPECT_EQ(listed.count, memberCount<T>()) << typeid(T).name();
            }
            T::fields(value, *this);
            if constexpr (queues::CheckedRecord<T>) {
                value.start = 1 + static_cast<std::int64_t>(bits() >> 2);
                value.end = value.start + static_cast<std::int64_t>(bits() >> 2);
                value.status = below(6);
            }
        } else if constexpr (requires { value.first; }) {
            fill(value.first);
            fill(value.second);
        } else if constexpr (requires { typename T::key_type; }) {
            for (auto count = below(4); count > 0; --count) {
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
    // Counts the fields that are members, each behind the one before.
    struct MemberCounter {
        template <class T>
        void operator()(const char* /*label*/, T&& member)
        {
            count += !std::is_lvalue_reference_v<T> || std::exchange(last, &member) < &member;
        }
        std::size_t count = 0;
        const void* last = nullptr;
    };
    struct Anything {
        template <class T>
        operator T() const;
    };

    // How many members an aggregate has.
    template <class T, class... Members>
    static constexpr std::size_t memberCount()
    {
        if constexpr (requires { T{Members()..., Anything()}; })
            return memberCount<T, Members..., Anything>();
        else
            return sizeof...(Members);
    }

    template <class T>
    std::string frameWith(std::int32_t number)
    {
        std::pair<queues::queue_t, std::int32_t> header;  // `dest` and `inresponse`
        std::pair<bool, T> body{number == queues::MESSAGE_EXCEPTION, T()};
        fill(header);
        fill(body.second);
        return frames::written(std::pair(number, header)) + frames::written(body);
    }

    std::uint32_t below(std::uint32_t bound) { return source() % bound; }
    // All widths of numbers, zero among them.
    std::uint64_t bits() { return (std::uint64_t{source()} << 32 | source()) >> below(64); }

    std::mt19937 source;
    unsigned level = 0;
};

inline std::string RandomFiller::frame(std::int32_t number)
{
#define EVENT(known, name, ...)                                                                    \
    if (number == (known))                                                                         \
        return frameWith<__VA_ARGS__>(number);
#define EVENT_EXCEPTION(known, name) EVENT(known, name, std::string)
#include "queues/EventTable.inc"
    return "";
}
