// Memory for the nodes of the selectors' containers.
//
// A wait for one selectable makes a selector, registers one member and takes it out again, and
// every log line makes such a wait. Its nodes come from lists of free ones, which grow as needed
// and are kept; without them, half of that selector's life goes by in malloc and free.
//
// Selectors belong to one thread, so nothing here is locked. With AddressSanitizer the nodes come
// from the heap, for it to see what becomes of them.
#pragma once

#include <cstddef>
#include <functional>
#include <list>
#include <map>
#include <new>
#include <set>
#include <utility>

namespace io {

#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool poolsNodes = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr bool poolsNodes = false;
#else
inline constexpr bool poolsNodes = true;
#endif
#else
inline constexpr bool poolsNodes = true;
#endif

template <std::size_t nodeSize>
class NodePool {
public:
    static void* take()
    {
        if (!free)
            return ::operator new(nodeSize);
        Node* const node = free;
        free = node->next;
        return node;
    }
    static void give(void* memory) { free = new (memory) Node{free}; }

private:
    struct Node {
        Node* next;
    };
    static_assert(nodeSize >= sizeof(Node));
    inline static Node* free = nullptr;
};

template <class T>
struct NodeAllocator {
    using value_type = T;

    NodeAllocator() = default;
    template <class U>
    NodeAllocator(const NodeAllocator<U>&)
    {}

    T* allocate(std::size_t count)
    {
        static_assert(alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
        if (poolsNodes && count == 1)
            return static_cast<T*>(NodePool<sizeof(T)>::take());
        return static_cast<T*>(::operator new(count * sizeof(T)));
    }
    void deallocate(T* memory, std::size_t count)
    {
        if (poolsNodes && count == 1)
            NodePool<sizeof(T)>::give(memory);
        else
            ::operator delete(memory);
    }

    template <class U>
    bool operator==(const NodeAllocator<U>&) const
    {
        return true;
    }
};

template <class T>
using PooledList = std::list<T, NodeAllocator<T>>;
template <class T>
using PooledSet = std::set<T, std::less<T>, NodeAllocator<T>>;
template <class Key, class T>
using PooledMap = std::map<Key, T, std::less<Key>, NodeAllocator<std::pair<const Key, T>>>;

}  // namespace io
