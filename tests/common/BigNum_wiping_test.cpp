// Watches arrays of this program while they are freed: a number must leave zeros behind.

#include "common/BigNum.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>

namespace {

struct Watch {
    bool active = false;
    std::size_t freed = 0;      // arrays
    std::size_t leftBytes = 0;  // bytes in them that weren't 0
};
Watch watch;

// In front of each array stands its size, in the room of the strictest alignment.
constexpr std::size_t prefix = alignof(std::max_align_t);

void* takeArray(std::size_t size)
{
    auto* block = static_cast<char*>(std::malloc(prefix + size));
    if (block == nullptr)
        throw std::bad_alloc();
    std::memcpy(block, &size, sizeof size);
    return block + prefix;
}

void freeArray(void* array)
{
    if (array == nullptr)
        return;
    auto* bytes = static_cast<char*>(array);
    if (watch.active) {
        std::size_t size;
        std::memcpy(&size, bytes - prefix, sizeof size);
        ++watch.freed;
        watch.leftBytes += size - std::count(bytes, bytes + size, '\0');
    }
    std::free(bytes - prefix);
}

}  // namespace

void* operator new[](std::size_t size)
{
    return takeArray(size);
}

void operator delete[](void* array) noexcept
{
    freeArray(array);
}

void operator delete[](void* array, std::size_t /*size*/) noexcept
{
    freeArray(array);
}

namespace {

Watch watched(const std::function<void()>& action)
{
    watch = Watch{.active = true};
    action();
    watch.active = false;
    return watch;
}

BigNum secret()
{
    BigNum value;
    value.fromBytes(std::string(40, '\x5a'));
    return value;
}

TEST(BigNumWiping, TheWatchSeesWhatIsLeft)
{
    char* volatile left = new char[5]{1, 0, 2, 0, 3};
    const Watch seen = watched([&] { delete[] left; });
    EXPECT_EQ(seen.freed, 1u);
    EXPECT_EQ(seen.leftBytes, 3u);
}

TEST(BigNumWiping, LeavesZerosBehind)
{
    struct Case {
        const char* name;
        std::function<void(BigNum&)> action;
        std::size_t leastFreed;  // arrays, that of the value included
    };
    const Case cases[] = {
        {"destruction", [](BigNum&) {}, 1},
        {"assignment", [](BigNum& value) { value = BigNum(3); }, 2},
        {"growth", [](BigNum& value) { value.resize(100); }, 2},
        {"shift", [](BigNum& value) { value.shiftLeft(77); }, 2},
        {"new bytes", [](BigNum& value) { value.bn_set_data("x", 1); }, 2},
        {"new little bytes", [](BigNum& value) { value.fromBytes("x"); }, 2},
        {"sum", [](BigNum& value) { value = value + value; }, 3},
        {"digits", [](BigNum& value) { value.toString(); }, 2},
        {"a copy that changes", [](BigNum& value) { BigNum(value).shiftLeft(1); }, 2},
    };
    for (const Case& c : cases) {
        const Watch seen = watched([&] {
            BigNum value = secret();
            c.action(value);
        });
        EXPECT_GE(seen.freed, c.leastFreed) << c.name;
        EXPECT_EQ(seen.leftBytes, 0u) << c.name;
    }
}

TEST(BigNumWiping, SharedLimbsLiveAsLongAsTheirLastOwner)
{
    auto* first = new BigNum(secret());
    const BigNum second = *first;
    EXPECT_EQ(watched([&] { delete first; }).freed, 0u);
    EXPECT_EQ(second, secret());
}

}  // namespace
