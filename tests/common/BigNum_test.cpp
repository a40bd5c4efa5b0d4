#include "common/BigNum.h"

#include <gtest/gtest.h>

#include <csignal>
#include <limits>
#include <string>
#include <vector>

namespace {

using namespace std::string_literals;

// A number from bytes, most significant first.
BigNum number(const std::string& bytes)
{
    BigNum value;
    value.bn_set_data(bytes.data(), bytes.size());
    return value;
}

// With `slack` bytes more room than the number's limbs need.
std::string bytesOf(const BigNum& value, std::size_t slack = 3)
{
    std::string buffer(value.limbCount() * 4 + slack, 'x');
    std::size_t size = buffer.size();
    value.bn_get_data(buffer.data(), &size);
    EXPECT_EQ(buffer.substr(size), std::string(buffer.size() - size, '\0'));
    return buffer.substr(0, size);
}

// Around the borders of limbs, ascending.
const std::vector<std::string> interesting = {
    "",
    "\x01",
    "\x7f",
    "\xff",
    "\x01\x02",
    "\x7f\xff\xff\xff",
    "\x80\x00\x00\x00"s,
    "\xff\xff\xff\xff",
    "\x01\x00\x00\x00\x00"s,
    "\x7f\xff\xff\xff\xff\xff\xff\xff",
    "\x80\x00\x00\x00\x00\x00\x00\x01"s,
    "\xff\xff\xff\xff\xff\xff\xff\xff",
    "\x01\x02\x03\x04\x05\x06\x07\x08\x09",
    std::string(40, '\xff'),
    std::string(1040, '\xa5'),
};

// Adds bytes, most significant first, as one does on paper.
std::string sumOnPaper(std::string left, std::string right)
{
    const std::size_t size = std::max(left.size(), right.size()) + 1;
    left.insert(0, size - left.size(), '\0');
    right.insert(0, size - right.size(), '\0');
    unsigned carry = 0;
    for (std::size_t i = size; i-- > 0;) {
        carry += static_cast<unsigned char>(left[i]) + static_cast<unsigned char>(right[i]);
        left[i] = static_cast<char>(carry);
        carry >>= 8;
    }
    return left.substr(std::min(left.find_first_not_of('\0'), left.size()));
}

TEST(BigNum, BytesBothWays)
{
    for (const std::string& bytes : interesting) {
        const BigNum value = number(bytes);
        EXPECT_EQ(bytesOf(value), bytes);
        EXPECT_EQ(bytesOf(value, 0), bytes);
        EXPECT_EQ(value.limbCount(), (bytes.size() + 3) / 4);
        EXPECT_EQ(number("\0\0\0\0\0"s + bytes), value);

        std::string little = "left over";
        value.toBytes(&little, 0);
        EXPECT_EQ(little, std::string(bytes.rbegin(), bytes.rend()));
        BigNum back(99);
        back.fromBytes(little + "\0\0\0\0\0"s);
        EXPECT_EQ(back, value);
        EXPECT_EQ(back.limbCount(), value.limbCount());
    }
}

TEST(BigNum, LittleEndianBytesHaveAMinimum)
{
    struct Case {
        std::string bytes;
        std::size_t minimum;
        std::string wanted;
    };
    const Case cases[] = {
        {"\x01\x02", 4, "\x02\x01\0\0"s},
        {"", 4, "\0\0\0\0"s},
        {"", 0, ""},
        {"\x01\x02\x03\x04\x05", 4, "\x05\x04\x03\x02\x01"},
        {"\x01", 6, "\x01\0\0\0\0\0"s},
    };
    for (const Case& c : cases) {
        std::string out;
        number(c.bytes).toBytes(&out, c.minimum);
        EXPECT_EQ(out, c.wanted);
    }
}

TEST(BigNum, FromSmallNumbers)
{
    EXPECT_EQ(BigNum(), BigNum(0));
    EXPECT_EQ(BigNum(0).limbCount(), 0u);
    EXPECT_EQ(bytesOf(BigNum(0x01020304)), "\x01\x02\x03\x04");
}

TEST(BigNum, ComparesByValue)
{
    for (std::size_t i = 0; i < interesting.size(); ++i) {
        for (std::size_t j = 0; j < interesting.size(); ++j) {
            const BigNum left = number(interesting[i]);
            const BigNum right = number(interesting[j]);
            EXPECT_EQ(left < right, i < j) << i << " " << j;
            EXPECT_EQ(left > right, i > j) << i << " " << j;
            EXPECT_EQ(left == right, i == j) << i << " " << j;
        }
    }
}

TEST(BigNum, Adds)
{
    for (const std::string& left : interesting) {
        for (const std::string& right : interesting) {
            const BigNum a = number(left);
            const BigNum b = number(right);
            EXPECT_EQ(bytesOf(a + b), sumOnPaper(left, right));
            EXPECT_EQ(bytesOf(a), left);
            EXPECT_EQ(bytesOf(b), right);
        }
    }
    EXPECT_EQ((BigNum(0xffffffff) + BigNum(1)).limbCount(), 2u);
    EXPECT_EQ((BigNum(0x7fffffff) + BigNum(1)).limbCount(), 1u);
}

TEST(BigNum, ShiftingDoubles)
{
    for (const std::string& bytes : interesting) {
        std::string wanted = bytes;
        BigNum stepwise = number(bytes);
        for (int count = 0; count <= 97; ++count) {
            BigNum atOnce = number(bytes);
            atOnce.shiftLeft(count);
            EXPECT_EQ(bytesOf(atOnce), wanted) << count;
            EXPECT_EQ(stepwise, atOnce) << count;
            stepwise.shiftLeft(1);
            wanted = sumOnPaper(wanted, wanted);
        }
        BigNum unchanged = number(bytes);
        unchanged.shiftLeft(-1);
        unchanged.shiftLeft(std::numeric_limits<int>::min());
        EXPECT_EQ(bytesOf(unchanged), bytes);
    }
}

TEST(BigNum, PrintsDecimalDigits)
{
    BigNum value;
    EXPECT_EQ(value.toString(), "0");
    value = BigNum(1);
    std::string wanted = "1";
    for (int power = 0; power < 400; ++power) {
        EXPECT_EQ(value.toString(), wanted) << "2 to the power of " << power;
        value.shiftLeft(1);
        int carry = 0;
        for (auto digit = wanted.rbegin(); digit != wanted.rend(); ++digit) {
            carry += (*digit - '0') * 2;
            *digit = static_cast<char>('0' + carry % 10);
            carry /= 10;
        }
        if (carry != 0)
            wanted.insert(0, 1, '1');
    }
    // Zeros inside and at the end of groups of nine.
    EXPECT_EQ(BigNum(1000000000).toString(), "1000000000");
    EXPECT_EQ(number("\x0d\xe0\xb6\xb3\xa7\x64\x00\x07"s).toString(), "1000000000000000007");
}

TEST(BigNum, CopiesKeepTheirValue)
{
    for (const std::string& bytes : interesting) {
        BigNum original = number(bytes);
        BigNum shifted = original;
        BigNum replaced = original;
        BigNum grown = original;
        const BigNum kept = original;
        shifted.shiftLeft(5);
        replaced.fromBytes("other");
        grown.resize(grown.limbCount() + 2);
        EXPECT_EQ(bytesOf(kept), bytes);
        EXPECT_EQ(bytesOf(original), bytes);
        original.shiftLeft(64);
        EXPECT_EQ(bytesOf(kept), bytes);
        original = kept;
        const BigNum& same = original;
        original = same;
        EXPECT_EQ(original, kept);
    }
}

TEST(BigNum, ResizedValuesStayTheSameNumber)
{
    BigNum value = number("\x01\x02\x03\x04\x05");
    value.resize(7);
    EXPECT_EQ(value.limbCount(), 7u);
    EXPECT_EQ(bytesOf(value), "\x01\x02\x03\x04\x05");
    EXPECT_EQ(value.toString(), "4328719365");
    std::string little;
    value.toBytes(&little, 4);
    EXPECT_EQ(little, "\x05\x04\x03\x02\x01");
    EXPECT_EQ(bytesOf(value + BigNum(1)), "\x01\x02\x03\x04\x06");
    value.shiftLeft(8);
    EXPECT_EQ(value, number("\x01\x02\x03\x04\x05\x00"s));
}

TEST(BigNum, ThousandCopies)
{
    const BigNum original = number("\x01\x02\x03\x04\x05");
    const std::vector<BigNum> copies(1000, original);
    EXPECT_EQ(original.toString(), "4328719365");
    EXPECT_EQ(copies.back(), original);
}

void copyTooOften()
{
    const BigNum original(7);
    const std::vector<BigNum> copies(1001, original);
}

TEST(BigNumDeathTest, StopsTheProcess)
{
    const auto aborted = testing::KilledBySignal(SIGABRT);
    EXPECT_EXIT(number("\x01\x02\x03\x04\x05").resize(1), aborted,
                "^Assertion failed: Bad reallocation in BigNum\n$");
    char buffer[7];
    std::size_t size = sizeof buffer;
    EXPECT_EXIT(number("\x01\x02\x03\x04\x05").bn_get_data(buffer, &size), aborted,
                "^Assertion failed: Buffer given to bn_get_data is too small \\(wanted 8\\)\n$");
    EXPECT_EXIT(copyTooOften(), aborted, "^$");
}

}  // namespace
