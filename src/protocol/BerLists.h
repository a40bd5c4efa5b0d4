// Lists and sets: views of a list member, made for one read or one write of it.
//
// A set differs in its tag alone: it keeps the order of arrival and doesn't reject duplicates.
#pragma once

#include "protocol/Message.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace protocol {

// The kind, the list and the name of the tag of elements.
template <class Kind>
struct ElementsOf {
    using kind_t = Kind;
    using list_t = std::vector<typename Kind::member_t>;
};
template <class T>
struct ElementsOf<NestedKind<T>> {
    using kind_t = NestedKind<T>;
    using list_t = OwnedList<T>;
};

[[noreturn]] void refuseListCopy(const char* name);

// `Self` is the derived class. It has a `name` and an `element`, the bounds of its elements.
template <class Self, class Kind, bool IsSet = false>
class BerList : public BerConstructed {
public:
    using kind_t = typename ElementsOf<Kind>::kind_t;
    using list_t = typename ElementsOf<Kind>::list_t;
    static constexpr const char* tagName = IsSet ? "BE_SET" : "BE_SEQ";
    static constexpr BerTag listTag(bool legacy)
    {
        if (IsSet)
            return legacy ? BE_SET_LEGACY : BE_SET_CURRENT;
        return legacy ? BE_SEQ_LEGACY : BE_SEQ_CURRENT;
    }

    // The list must outlive the view.
    explicit BerList(list_t* viewed) : elements(viewed) {}
    // A list is always made anew around its member.
    BerList(const BerList& other) : BerConstructed(other), elements(nullptr)
    {
        refuseListCopy(Self::name);
    }
    BerList& operator=(const BerList&) = delete;

    std::unique_ptr<BerValue> clone() const final { refuseListCopy(Self::name); }
    BerTag tag(bool legacy) const final { return listTag(legacy); }
    bool operator==(const BerValue& other) const final
    {
        const auto* const that = dynamic_cast<const Self*>(&other);
        return that != nullptr && ListKind<Self>::equal(*elements, *that->elements);
    }
    bool operator<(const BerValue& other) const final
    {
        const auto* const that = dynamic_cast<const Self*>(&other);
        return that != nullptr && ListKind<Self>::less(*elements, *that->elements);
    }
    bool operator>(const BerValue& other) const final
    {
        const auto* const that = dynamic_cast<const Self*>(&other);
        return that != nullptr && ListKind<Self>::less(*that->elements, *elements);
    }
    void write(BerOutput& output, bool legacy) const final
    {
        output.end(put(*elements, output, output.begin(), legacy));
    }
    // Appends an element, and gives what will read it.
    BerChild child(std::size_t /*index*/, BerTag tag, bool legacy) final
    {
        return Kind::child(Self::element, elements->emplace_back(), tag, legacy, Self::name);
    }
    bool readChild(std::size_t /*index*/, BerTag tag, bool legacy, std::string_view content) final
    {
        if constexpr (hasRead<Kind>) {
            if (elements->empty())
                elements->reserve(4);
            const bool isRead =
                Kind::read(Self::element, elements->emplace_back(), tag, legacy, content);
            if (!isRead)
                elements->pop_back();  // child() appends it anew
            return isRead;
        }
        return false;
    }
    std::size_t requiredChildren() const final { return 0; }
    bool isRepeated() const final { return true; }
    char* put(BerOutput& output, char* to, bool legacy) const final
    {
        return put(*elements, output, to, legacy);
    }
    // The same, without a view.
    static char* put(const list_t& elements, BerOutput& output, char* to, bool legacy)
    {
        to = putBeginning(output.reserve(to), listTag(legacy));
        for (const auto& each : elements)
            to = Kind::put(Self::element, each, output, to, legacy);
        return putEndOfContents(output.reserve(to));
    }

private:
    list_t* elements;
};

// Elements without bounds.
template <class Kind>
constexpr Field elementOf()
{
    return {.kind = &fieldKind<Kind>, .member = nullptr};
}
constexpr Field textElement(std::size_t maxLength)
{
    return {.kind = &fieldKind<TextKind>, .member = nullptr, .maxLength = maxLength};
}

}  // namespace protocol
