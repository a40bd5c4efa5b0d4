// A value on the heap with one owner, copied by value: what a record owns lives in a Held member,
// so that records write no copy, no destructor and no comparison.
//
// A Held can be null, and a copy of a null Held is null. A T with a clone() that gives a
// std::unique_ptr<T> is copied by it, so that a derived object keeps its class; any other T is
// copied by its copy constructor. T may be incomplete where the member is declared.
#pragma once

#include <concepts>
#include <memory>
#include <utility>

template <class T>
class Held {
public:
    Held() = default;
    // Takes ownership; a null pointer gives a null Held.
    explicit Held(std::unique_ptr<T> object) noexcept : owned(std::move(object)) {}
    // Takes a copy of `object`.
    explicit Held(const T& object) : owned(copyOf(object)) {}
    Held(const Held& other) : owned(other.owned ? copyOf(*other.owned) : nullptr) {}
    Held(Held&& other) noexcept = default;
    ~Held() = default;

    // The copy is complete before the old object goes, so that an exception changes nothing, and
    // the source may be the target, or be owned by what the target holds.
    Held& operator=(const Held& other)
    {
        if (this != &other)
            *this = Held(other);
        return *this;
    }
    Held& operator=(Held&& other) noexcept
    {
        // By way of a local, so that the old object, which may own `other`, is destroyed last.
        std::unique_ptr<T> taken = std::move(other.owned);
        owned.swap(taken);
        return *this;
    }

    // A const Held gives a const object: what is held is part of its value.
    explicit operator bool() const noexcept { return owned != nullptr; }
    T* get() noexcept { return owned.get(); }
    const T* get() const noexcept { return owned.get(); }
    T& operator*() { return *owned; }
    const T& operator*() const { return *owned; }
    T* operator->() noexcept { return owned.get(); }
    const T* operator->() const noexcept { return owned.get(); }

    // Destroys what is held and takes ownership of `object`.
    void reset(std::unique_ptr<T> object = nullptr) noexcept { owned = std::move(object); }

    // Two null ones are equal; otherwise both must hold something, and T decides.
    friend bool operator==(const Held& a, const Held& b)
    {
        return a.owned && b.owned ? *a.owned == *b.owned : !a.owned && !b.owned;
    }

private:
    static std::unique_ptr<T> copyOf(const T& object)
    {
        if constexpr (requires {
                          {
                              object.clone()
                              } -> std::same_as<std::unique_ptr<T>>;
                      })
            return object.clone();
        else
            return std::make_unique<T>(object);
    }

    std::unique_ptr<T> owned;
};
