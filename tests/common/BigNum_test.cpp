#include "common/BigNum.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <malloc.h>
#include <string>
#include <vector>

// Bytes that weren't 0 when an array of this program was freed: a number must leave zeros behind.
static std::size_t leftBytes = 0;

void* operator new[](std::size_t size)
{
    return std::calloc(1, size);
}

void operator delete[](void* array) noexcept
{
    const char* bytes = static_cast<const char*>(array);
    const char* end = bytes + malloc_usable_size(array);
    leftBytes += end - bytes - std::count(bytes, end, '\0');
    std::free(array);
}

void operator delete[](void* array, std::size_t /*size*/) noexcept
{
    operator delete[](array);
}

namespace {

using namespace std::string_literals;

// A number from bytes, most significant first.
BigNum number(const std::string& bytes)
{
    BigNum value;
    value.bn_set_data(bytes.data(), bytes.size());
    return value;
}

// Around the borders of limbs, ascending.
const std::vector<std::string> interesting = {"",
                                              "\x01",
                                              "\x7f\xff\xff\xff",
                                              "\x80\x00\x00\x00"s,
                                              "\xff\xff\xff\xff",
                                              "\x01\x00\x00\x00\x00"s,
                                              "\x80\x00\x00\x00\x00\x00\x00\x01"s,
                                              "\xff\xff\xff\xff\xff\xff\xff\xff"};

TEST(BigNum, BytesBothWays)
{
    for (const std::string& bytes : interesting) {
        const BigNum value = number("\0\0\0\0\0"s + bytes);
        std::string buffer(value.limbCount() * 4 + 3, 'x');
        std::size_t size = buffer.size();
        value.bn_get_data(buffer.data(), &size);
        EXPECT_EQ(buffer, bytes + std::string(buffer.size() - bytes.size(), '\0'));
        std::string little = "left over";
        value.toBytes(&little, size + 3);
        EXPECT_EQ(little, std::string(bytes.rbegin(), bytes.rend()) + "\0\0\0"s);
        BigNum back(99);
        back.fromBytes(little);
        EXPECT_EQ(back, value);
    }
}

TEST(BigNum, ComparesAddsAndShifts)
{
    for (const std::string& left : interesting) {
        const BigNum a = number(left);
        for (const std::string& right : interesting) {
            EXPECT_EQ(a < number(right), &left < &right);
            EXPECT_EQ(a == number(right), &left == &right);
        }
        BigNum doubled = a;
        for (int count = 0; count <= 66; ++count) {
            BigNum shifted = a;  // shares the limbs
            shifted.shiftLeft(count);
            EXPECT_EQ(shifted, doubled) << count;
            doubled = doubled + doubled;
        }
        EXPECT_EQ(a, number(left));
    }
    EXPECT_EQ(number("\xff\xff\xff\xff\xff") + BigNum(1), number("\x01\0\0\0\0\0"s));
}

TEST(BigNum, PrintsDecimalDigits)
{
    EXPECT_EQ(BigNum().toString(), "0");
    EXPECT_EQ(number("\x0d\xe0\xb6\xb3\xa7\x64\x00\x07"s).toString(), "1000000000000000007");
    EXPECT_EQ(number("\x01"s + std::string(16, '\0')).toString(),
              "340282366920938463463374607431768211456");
}

TEST(BigNum, LeavesZerosBehind)
{
    const BigNum secret = number(std::string(40, '\x5a'));
    leftBytes = 0;
    BigNum value = secret + secret;
    value.resize(100);
    value.shiftLeft(1);
    value.bn_set_data("x", 1);
    value = secret + value;
    value = BigNum(3);
    EXPECT_EQ(leftBytes, 0U);
}

}  // namespace
