// Fills any message with values drawn from a seed, by its table of fields.
//
// Numbers lie within their bounds and often on them. Whatever a message can own is there, but lists
// within lists within lists are empty: trees end.
#pragma once

#include "protocol/Messages.h"

#include <limits>
#include <random>

class RandomMessage {
public:
    explicit RandomMessage(std::uint32_t seed) : source(seed) {}

    void fill(protocol::Message& message)
    {
        for (std::size_t i = 0; i < message.schema().fieldCount; ++i)
            fill(message.schema().fields[i], message);
    }

    void fill(const protocol::Field& field, protocol::Message& message)
    {
        using namespace protocol;
        void* const member = field.member(message);
        const auto fillIfOneOf = [&]<class... Kind>() {
            return ((field.kind == &fieldKind<Kind> &&
                     set(field, *static_cast<typename Kind::member_t*>(member))) ||
                    ...);
        };
        if (fillIfOneOf.template operator()<
                TextKind, NumberKind<std::int32_t>, NumberKind<std::uint32_t>,
                NumberKind<std::int64_t>, NumberKind<std::uint64_t>, NullableKind<std::int32_t>,
                NullableKind<std::uint32_t>, BooleanKind, RealKind, BigNumKind, UnionKind,
                VariantKind, EnumeratedKind<CheckType>, EnumeratedKind<Decision>,
                EnumeratedKind<SeparatorInclusion>, EnumeratedKind<CheckStatus>,
                EnumeratedKind<RelOperator>, EnumeratedKind<Severity>, ListKind<ListOfCheckStatus>,
                ListKind<ListOfReal>, ListKind<ListOfString128>, ListKind<ListOfString1024>,
                ListKind<SetOfString32>, ListKind<SetOfString128>,
                ListKind<SetOfInteger0x0to0xffffffff>, ListKind<ListOfInteger0x0to0xffffffff>>())
            return;
        const BerChild child = field.kind->child(field, member, BE_SEQ_CURRENT, false, "");
        if (auto* const list = dynamic_cast<BerConstructed*>(child.get()); list->isRepeated()) {
            ++level;
            for (auto count = level > 3 ? 0 : below(4); count > 0; --count)
                fill(dynamic_cast<Message&>(*list->child(0, BE_SEQ_CURRENT, false)));
            --level;
        } else {
            fill(dynamic_cast<Message&>(*child));
        }
    }

private:
    template <class T>
    bool set(const protocol::Field& field, T& value)
    {
        using namespace protocol;
        if constexpr (std::is_same_v<T, std::string>) {
            value = bytes(field.maxLength);
        } else if constexpr (std::is_same_v<T, std::int32_t>) {
            value = integer(field.minimum, field.maximum);
        } else if constexpr (std::is_integral_v<T>) {
            value = integer<T>();
        } else if constexpr (std::is_same_v<T, double>) {
            // None with more digits than go on the wire.
            const double infinity = std::numeric_limits<double>::infinity();
            const double numbers[] = {0, infinity, -infinity, 1e300, integer(-9999, 9999) / 8.0};
            value = numbers[below(std::size(numbers))];
        } else if constexpr (std::is_same_v<T, BigNum>) {
            const std::string limbs = bytes(1040);
            value.bn_set_data(limbs.data(), limbs.size());
        } else if constexpr (requires { value.present; }) {
            value.present = below(2) == 0;
            set(field, value.number);
        } else if constexpr (requires { value.push_back({}); }) {
            value.resize(below(4));
            for (auto& element : value)
                set(*field.kind->element(), element);
        } else if (field.alternativeCount != 0) {
            value.reset(field.alternatives[below(field.alternativeCount)].make());
            fill(dynamic_cast<Message&>(*value));
        } else {
            double real = 0;
            set(field, real);
            const Held<BerValue> values[] = {
                Held<BerValue>(BerIntegerTemplate<std::int32_t>(integer<std::int32_t>())),
                Held<BerValue>(BerString(bytes(65536), 65536)), Held<BerValue>(BerReal(real)),
                Held<BerValue>(BerNull())};
            value = values[below(std::size(values))];
        }
        return true;
    }

    std::string bytes(std::size_t most)
    {
        const std::size_t lengths[] = {0, 1, 127, 128, below(400), most < 2000 ? most : 2};
        std::string text(std::min(most, lengths[below(std::size(lengths))]), '\0');
        for (char& c : text)
            c = static_cast<char>(below(3) == 0 ? 0 : source());
        return text;
    }

    // All widths of numbers, of both signs.
    template <class T>
    T integer(T least = std::numeric_limits<T>::min(), T most = std::numeric_limits<T>::max())
    {
        const auto bits = std::uniform_int_distribution<std::uint64_t>()(source) >> below(64);
        const T numbers[] = {least, most, static_cast<T>(bits), static_cast<T>(~bits)};
        return std::clamp(numbers[below(std::size(numbers))], least, most);
    }

    std::uint32_t below(std::size_t bound) { return static_cast<std::uint32_t>(source() % bound); }

    std::mt19937 source;
    unsigned level = 0;
};
