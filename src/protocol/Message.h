// Messages: classes with plain members, and of each a constant table of its fields.
//
//     struct ServerNamePort final : MessageOf<ServerNamePort> {
//         std::string text0;
//         std::int32_t number1 = 0;
//
//         static constexpr Field fields[] = {
//             text<&ServerNamePort::text0>(256),
//             number<&ServerNamePort::number1>(1, 65535),
//         };
//         static constexpr Schema layout = sequence("ServerNamePort", "BE_SERVER_NAME_PORT", 2, fields);
//     };
//
// One engine, the operations of Message, goes by the table: it writes, reads and compares. What a
// message owns lies in members that copy by clone, so no message writes a copy, a destructor or a
// comparison.
//
// All fields are always written, in both numberings. Fields behind the required ones can be absent
// when a message is read, and keep the values of a new object then.
#pragma once

#include "common/Held.h"
#include "common/assertion.h"
#include "protocol/BerEncoding.h"
#include "protocol/BerPrimitives.h"
#include "protocol/BerValue.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

namespace protocol {

class Message;
struct Field;
struct Schema;

// What the engine can do with a field, by the kind of its member. `value` is the member's address.
struct FieldKind {
    // From `to` on, in the middle of a writer's bytes. Gives the place behind.
    char* (*put)(const Field& field, const void* value, BerOutput& output, char* to, bool legacy);
    // A value that will read the member. `owner` is the class that the field is in.
    BerChild (*child)(const Field& field, void* value, BerTag tag, bool legacy, const char* owner);
    // As BerConstructed::readChild.
    bool (*read)(const Field& field, void* value, BerTag tag, bool legacy,
                 std::string_view content);
    bool (*equal)(const void* a, const void* b);
    bool (*less)(const void* a, const void* b);
    // What users call it: "text", "int32", "ListOfCheck".
    const char* (*description)();
    // What each element of a list or set is; null for all others.
    const Field* (*element)();
    // The class of a nested message; null for all others.
    const Schema* (*nested)();
    bool (*isEnumerated)();
    bool (*isSet)();
};

// One of the classes that a union can hold.
struct Alternative {
    std::uint32_t number;
    std::unique_ptr<BerValue> (*make)();
};

struct Field {
    const FieldKind* kind;
    void* (*member)(Message& message);  // its address; null in elements of lists
    const char* name = nullptr;         // for messages about it, and for those who show it
    std::size_t maxLength = 0;          // of a text, in bytes
    std::int32_t minimum = std::numeric_limits<std::int32_t>::min();  // of an int32
    std::int32_t maximum = std::numeric_limits<std::int32_t>::max();
    const Alternative* alternatives = nullptr;  // of a union
    std::size_t alternativeCount = 0;
};

struct Schema {
    enum class Form {
        topLevel,     // an application tag in both numberings
        alternative,  // of a union: a context tag; an application tag in the old numbering
        sequence,
    };

    const char* name;
    Form form;
    std::uint32_t number;  // of the tag; of a sequence 0
    const char* tagName;   // of a sequence: "BE_CHECK"
    std::size_t required;  // fields that must be there
    const Field* fields;   // in wire order
    std::size_t fieldCount;

    constexpr BerTag tag(bool legacy) const
    {
        switch (form) {
        case Form::topLevel:
            return applicationTag(number);
        case Form::alternative:
            return legacy ? applicationTag(number) : contextTag(number);
        case Form::sequence:
            break;
        }
        return legacy ? BE_SEQ_LEGACY : BE_SEQ_CURRENT;
    }
};

// Throws EBer unless the tag is the one expected. `name` is that of the expected tag without its
// numbering, which stands behind it in the text: "BE_CHECK" gives "BE_CHECK_CURRENT".
void requireNumberedTag(BerTag tag, BerTag expected, const char* name, bool legacy);

class Message : public BerConstructed {
public:
    BerTag tag(bool legacy) const final { return schema().tag(legacy); }
    // Field by field; values by value, lists by length and elements, what is owned by what it is.
    bool operator==(const BerValue& other) const final;
    // True if every field is less, or greater: no order for containers. Lists compare
    // lexicographically; what is owned, if both are there.
    bool operator<(const BerValue& other) const final;
    bool operator>(const BerValue& other) const final;
    void write(BerOutput& output, bool legacy) const final
    {
        output.end(put(output, output.begin(), legacy));
    }

    virtual const Schema& schema() const = 0;
};

// Its members are defined and instantiated in Messages.cpp, for all messages: whoever makes one
// would otherwise compile every class that it can hold.
template <class Self>
class MessageOf : public Message {
public:
    std::unique_ptr<BerValue> clone() const final;
    const Schema& schema() const final;
    BerChild child(std::size_t index, BerTag tag, bool legacy) final;
    std::size_t requiredChildren() const final;
    bool readChild(std::size_t index, BerTag tag, bool legacy, std::string_view content) final;
    char* put(BerOutput& output, char* to, bool legacy) const final;
};

// Says of which type a list lacks an element.
[[noreturn]] void refuseNullCopy(const std::type_info& element);

// A list of messages, held by owned pointers, any of which can be null. To copy a list with a null
// element is an assertion.
template <class T>
class OwnedList {
public:
    OwnedList() = default;
    OwnedList(OwnedList&&) noexcept = default;
    OwnedList& operator=(OwnedList&&) noexcept = default;
    OwnedList(const OwnedList& other)
    {
        for (const Held<T>& element : other.elements) {
            if (!element)
                refuseNullCopy(typeid(T));
            elements.push_back(element);
        }
    }
    OwnedList& operator=(const OwnedList& other) { return *this = OwnedList(other); }
    ~OwnedList() = default;

    Held<T>& emplace_back()
    {
        if (elements.empty())
            elements.reserve(8);
        return elements.emplace_back();
    }
    void push_back(T message) { elements.emplace_back(std::make_unique<T>(std::move(message))); }
    std::size_t size() const { return elements.size(); }
    bool empty() const { return elements.empty(); }
    auto begin() { return elements.begin(); }
    auto end() { return elements.end(); }
    auto begin() const { return elements.begin(); }
    auto end() const { return elements.end(); }

private:
    std::vector<Held<T>> elements;
};

// An integer that can be null.
template <class T>
class Nullable {
public:
    Nullable() = default;
    Nullable(T initial) : present(true), number(initial) {}  // NOLINT(google-explicit-constructor)

    // Of a null it is an assertion.
    T value() const
    {
        if (!present)
            assertion("Value of null taken");
        return number;
    }

    bool present = false;
    T number = 0;  // means nothing in a null
};

// What a field's bytes can be read as, by the kinds of members. The functions of fields below make
// entries of tables.

struct TextKind {
    using member_t = std::string;
    static bool read(const Field& field, member_t& value, BerTag tag, bool legacy,
                     std::string_view content)
    {
        if (tag != (legacy ? BE_STRING_LEGACY : BE_STRING_CURRENT) ||
            content.size() > field.maxLength)
            return false;
        value.append(content);
        return true;
    }
    static char* put(const Field& field, const member_t& value, BerOutput& output, char* to,
                     bool legacy)
    {
        const BerTag tag = legacy ? BE_STRING_LEGACY : BE_STRING_CURRENT;
        return putText(output, to, tag, value, field.maxLength);
    }
    static BerChild child(const Field& field, member_t& value, BerTag tag, bool legacy,
                          const char* owner);
    static bool equal(const member_t& a, const member_t& b) { return a == b; }
    static bool less(const member_t& a, const member_t& b) { return a < b; }
    static const char* description() { return "text"; }
};

// Of the four integers; an int32 has bounds.
template <class T>
struct NumberKind {
    using member_t = T;
    static bool read(const Field& field, T& value, BerTag tag, bool legacy,
                     std::string_view content);
    static char* put(const Field& field, const T& value, BerOutput& output, char* to,
                     bool /*legacy*/)
    {
        using Limits = std::numeric_limits<T>;
        if constexpr (std::is_same_v<T, std::int32_t>)
            return putInteger(output, to, BE_INTEGER, value, field.minimum, field.maximum);
        else
            return putInteger(output, to, BE_INTEGER, value, Limits::min(), Limits::max());
    }
    static BerChild child(const Field& field, T& value, BerTag tag, bool legacy, const char* owner);
    static bool equal(const T& a, const T& b) { return a == b; }
    static bool less(const T& a, const T& b) { return a < b; }
    static const char* description();
};
template <>
const char* NumberKind<std::int32_t>::description();
template <>
const char* NumberKind<std::uint32_t>::description();
template <>
const char* NumberKind<std::int64_t>::description();
template <>
const char* NumberKind<std::uint64_t>::description();
extern template struct NumberKind<std::int32_t>;
extern template struct NumberKind<std::uint32_t>;
extern template struct NumberKind<std::int64_t>;
extern template struct NumberKind<std::uint64_t>;

template <class T>
struct NullableKind {
    using member_t = Nullable<T>;
    static char* put(const Field& field, const member_t& value, BerOutput& output, char* to,
                     bool legacy);
    static BerChild child(const Field& field, member_t& value, BerTag tag, bool legacy,
                          const char* owner);
    static bool equal(const member_t& a, const member_t& b)
    {
        return a.present == b.present && (!a.present || a.number == b.number);
    }
    static bool less(const member_t& a, const member_t& b)
    {
        return a.present && b.present && a.number < b.number;
    }
    static const char* description();
};
template <>
const char* NullableKind<std::int32_t>::description();
template <>
const char* NullableKind<std::uint32_t>::description();
extern template struct NullableKind<std::int32_t>;
extern template struct NullableKind<std::uint32_t>;

// The remaining values of one wrapper: bool, double and BigNum.
template <class Wrapper, class T>
struct WrappedKind {
    using member_t = T;
    static bool read(const Field& /*field*/, T& value, BerTag tag, bool /*legacy*/,
                     std::string_view content) requires std::is_same_v<T, bool>
    {
        if (tag != BE_BOOLEAN || content.size() > 1)
            return false;
        value = !content.empty() && content[0] != '\0';
        return true;
    }
    static char* put(const Field& /*field*/, const T& value, BerOutput& output, char* to,
                     bool /*legacy*/)
    {
        if constexpr (std::is_same_v<T, bool>)
            return putBoolean(output, to, BE_BOOLEAN, value);
        else if constexpr (std::is_same_v<T, double>)
            return putReal(output, to, BE_REAL, value);
        else
            return putBigNum(output, to, BE_INTEGER, value);
    }
    static BerChild child(const Field& field, T& value, BerTag tag, bool legacy, const char* owner);
    static bool equal(const T& a, const T& b) { return a == b; }
    static bool less(const T& a, const T& b) { return a < b; }
    static const char* description();
};
using BooleanKind = WrappedKind<BerBoolean, bool>;
using RealKind = WrappedKind<BerReal, double>;
using BigNumKind = WrappedKind<BerBigNum, BigNum>;
template <>
BerChild BooleanKind::child(const Field& field, bool& value, BerTag tag, bool legacy,
                            const char* owner);
template <>
const char* BooleanKind::description();
template <>
BerChild RealKind::child(const Field& field, double& value, BerTag tag, bool legacy,
                         const char* owner);
template <>
const char* RealKind::description();
template <>
BerChild BigNumKind::child(const Field& field, BigNum& value, BerTag tag, bool legacy,
                           const char* owner);
template <>
const char* BigNumKind::description();

void requireTag(BerTag tag, BerTag expected, const char* name);

// The classes of enumerated values differ in nothing but their names.
template <class Self>
class BerEnumeratedOf : public BerEnumerated {
public:
    explicit BerEnumeratedOf(std::int32_t* field) : BerEnumerated(field) {}
    explicit BerEnumeratedOf(std::int32_t initial) : BerEnumerated(initial) {}
    std::unique_ptr<BerValue> clone() const final
    {
        return std::make_unique<Self>(static_cast<const Self&>(*this));
    }
};

template <class Enumerated>
struct EnumeratedKind {
    using member_t = std::int32_t;
    static char* put(const Field& /*field*/, const std::int32_t& value, BerOutput& output, char* to,
                     bool /*legacy*/)
    {
        return putEnumerated(output, to, BE_ENUMERATED, value);
    }
    static bool read(const Field& /*field*/, std::int32_t& value, BerTag tag, bool /*legacy*/,
                     std::string_view content)
    {
        return tag == BE_ENUMERATED && readInteger(content, &value);
    }
    static BerChild child(const Field& /*field*/, std::int32_t& value, BerTag tag, bool /*legacy*/,
                          const char* /*owner*/)
    {
        requireTag(tag, BE_ENUMERATED, "BE_ENUMERATED");
        return std::make_unique<Enumerated>(&value);
    }
    static bool equal(const std::int32_t& a, const std::int32_t& b) { return a == b; }
    static bool less(const std::int32_t& a, const std::int32_t& b) { return a < b; }
    static const char* description() { return Enumerated::name; }
    static bool isEnumerated() { return true; }
};

// What a message or an element of a list owns, of any class.
bool equalOwned(const BerValue* a, const BerValue* b);
bool lessOwned(const BerValue* a, const BerValue* b);
// Says of a null that it can't be written. `name` is null for an element.
[[noreturn]] void refuseNull(const char* name);
template <class T>
struct NestedKind {
    using member_t = Held<T>;
    static char* put(const Field& field, const member_t& value, BerOutput& output, char* to,
                     bool legacy)
    {
        if (!value)
            refuseNull(field.name);
        return value->put(output, to, legacy);
    }
    static BerChild child(const Field& field, member_t& value, BerTag tag, bool legacy,
                          const char* /*owner*/)
    {
        // An element is there whatever its tag turns out to be.
        const bool isElement = field.member == nullptr;
        if (isElement)
            value.reset(std::make_unique<T>());
        requireNumberedTag(tag, T::layout.tag(legacy), T::layout.tagName, legacy);
        if (!isElement)
            value.reset(std::make_unique<T>());
        return lend(*value);
    }
    static bool equal(const member_t& a, const member_t& b) { return equalOwned(a.get(), b.get()); }
    static bool less(const member_t& a, const member_t& b) { return lessOwned(a.get(), b.get()); }
    static const char* description() { return T::layout.name; }
    static const Schema* nested() { return &T::layout; }
};

// A value of one of several classes.
struct UnionKind {
    using member_t = Held<BerValue>;
    static char* put(const Field& field, const member_t& value, BerOutput& output, char* to,
                     bool legacy)
    {
        if (!value)
            refuseNull(field.name);
        if (value->hasChildren())
            return static_cast<const BerConstructed&>(*value).put(output, to, legacy);
        output.end(to);
        value->write(output, legacy);
        return output.begin();
    }
    static BerChild child(const Field& field, member_t& value, BerTag tag, bool legacy,
                          const char* owner);
    static bool equal(const member_t& a, const member_t& b) { return equalOwned(a.get(), b.get()); }
    static bool less(const member_t& a, const member_t& b) { return lessOwned(a.get(), b.get()); }
    static const char* description() { return "union"; }
};

// An int32, a text of at most 65536 bytes, a real or a null: BerIntegerTemplate<int>, BerString,
// BerReal or BerNull, in its owning form.
struct VariantKind : UnionKind {
    static BerChild child(const Field& field, member_t& value, BerTag tag, bool legacy,
                          const char* owner);
    static const char* description() { return "variant"; }
};

template <class Kind>
constexpr bool hasRead = requires(const Field& field, typename Kind::member_t& value)
{
    Kind::read(field, value, BerTag(), false, std::string_view());
};

template <class List>
struct ListKind {
    using list_t = typename List::list_t;
    using member_t = list_t;
    static char* put(const Field& /*field*/, const list_t& value, BerOutput& output, char* to,
                     bool legacy)
    {
        return List::put(value, output, to, legacy);
    }
    static BerChild child(const Field& /*field*/, list_t& value, BerTag tag, bool legacy,
                          const char* /*owner*/)
    {
        requireNumberedTag(tag, List::listTag(legacy), List::tagName, legacy);
        return std::make_unique<List>(&value);
    }
    static bool equal(const list_t& a, const list_t& b)
    {
        return std::equal(a.begin(), a.end(), b.begin(), b.end(), List::kind_t::equal);
    }
    static bool less(const list_t& a, const list_t& b)
    {
        return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                            List::kind_t::less);
    }
    static const char* description() { return List::name; }
    static const Field* element() { return &List::element; }
    static bool isSet() { return List::listTag(false) == BE_SET_CURRENT; }
};

template <class Kind>
inline constexpr FieldKind fieldKind = {
    [](const Field& field, const void* value, BerOutput& output, char* to, bool legacy) {
        return Kind::put(field, *static_cast<const typename Kind::member_t*>(value), output, to,
                         legacy);
    },
    [](const Field& field, void* value, BerTag tag, bool legacy, const char* owner) {
        return Kind::child(field, *static_cast<typename Kind::member_t*>(value), tag, legacy,
                           owner);
    },
    [](const Field& field, void* value, BerTag tag, bool legacy, std::string_view content) {
        if constexpr (hasRead<Kind>)
            return Kind::read(field, *static_cast<typename Kind::member_t*>(value), tag, legacy,
                              content);
        else
            return false;
    },
    [](const void* a, const void* b) {
        return Kind::equal(*static_cast<const typename Kind::member_t*>(a),
                           *static_cast<const typename Kind::member_t*>(b));
    },
    [](const void* a, const void* b) {
        return Kind::less(*static_cast<const typename Kind::member_t*>(a),
                          *static_cast<const typename Kind::member_t*>(b));
    },
    [] { return Kind::description(); },
    []() -> const Field* {
        if constexpr (requires { Kind::element(); })
            return Kind::element();
        else
            return nullptr;
    },
    []() -> const Schema* {
        if constexpr (requires { Kind::nested(); })
            return Kind::nested();
        else
            return nullptr;
    },
    [] {
        if constexpr (requires { Kind::isEnumerated(); })
            return Kind::isEnumerated();
        else
            return false;
    },
    [] {
        if constexpr (requires { Kind::isSet(); })
            return Kind::isSet();
        else
            return false;
    },
};

template <auto Member>
struct MemberOf;
template <class Class, class T, T Class::*Member>
struct MemberOf<Member> {
    using type = T;
    static void* address(Message& message) { return &(static_cast<Class&>(message).*Member); }
};

// A field of any kind that has neither bounds nor a name.
template <class Kind, auto Member>
constexpr Field plain(const char* name = nullptr)
{
    static_assert(std::is_same_v<typename Kind::member_t, typename MemberOf<Member>::type>);
    return {.kind = &fieldKind<Kind>, .member = MemberOf<Member>::address, .name = name};
}

template <auto Member>
constexpr Field text(std::size_t maxLength)
{
    Field field = plain<TextKind, Member>();
    field.maxLength = maxLength;
    return field;
}
template <auto Member>
constexpr Field number()
{
    return plain<NumberKind<typename MemberOf<Member>::type>, Member>();
}
template <auto Member>
constexpr Field number(std::int32_t minimum, std::int32_t maximum)
{
    Field field = plain<NumberKind<std::int32_t>, Member>();
    field.minimum = minimum;
    field.maximum = maximum;
    return field;
}
template <auto Member>
constexpr Field nullable()
{
    using Integer = decltype(std::declval<typename MemberOf<Member>::type>().number);
    return plain<NullableKind<Integer>, Member>();
}
template <auto Member>
constexpr Field boolean()
{
    return plain<BooleanKind, Member>();
}
template <auto Member>
constexpr Field real()
{
    return plain<RealKind, Member>();
}
template <auto Member>
constexpr Field bignum()
{
    return plain<BigNumKind, Member>();
}
template <auto Member, class Enumerated>
constexpr Field enumerated()
{
    return plain<EnumeratedKind<Enumerated>, Member>();
}
template <auto Member, class T>
constexpr Field nested(const char* name)
{
    return plain<NestedKind<T>, Member>(name);
}
template <auto Member, class List>
constexpr Field list()
{
    return plain<ListKind<List>, Member>();
}
template <auto Member>
constexpr Field variant(const char* name)
{
    return plain<VariantKind, Member>(name);
}

template <class T>
std::unique_ptr<BerValue> makeMessage()
{
    return std::make_unique<T>();
}
template <class... T>
inline constexpr Alternative alternativesOf[] = {{T::layout.number, makeMessage<T>}...};

template <auto Member, class... T>
constexpr Field unionOf(const char* name)
{
    Field field = plain<UnionKind, Member>(name);
    field.alternatives = alternativesOf<T...>;
    field.alternativeCount = sizeof...(T);
    return field;
}

// The tables of classes.
template <std::size_t Count>
constexpr Schema topLevel(const char* name, std::uint32_t number, std::size_t required,
                          const Field (&fields)[Count])
{
    return {name, Schema::Form::topLevel, number, nullptr, required, fields, Count};
}
constexpr Schema topLevel(const char* name, std::uint32_t number)
{
    return {name, Schema::Form::topLevel, number, nullptr, 0, nullptr, 0};
}
template <std::size_t Count>
constexpr Schema alternative(const char* name, std::uint32_t number, std::size_t required,
                             const Field (&fields)[Count])
{
    return {name, Schema::Form::alternative, number, nullptr, required, fields, Count};
}
constexpr Schema alternative(const char* name, std::uint32_t number)
{
    return {name, Schema::Form::alternative, number, nullptr, 0, nullptr, 0};
}
template <std::size_t Count>
constexpr Schema sequence(const char* name, const char* tagName, std::size_t required,
                          const Field (&fields)[Count])
{
    return {name, Schema::Form::sequence, 0, tagName, required, fields, Count};
}

}  // namespace protocol
