#include "common/text.h"

#include "common/errors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>

namespace {

constexpr double infinite = std::numeric_limits<double>::infinity();

TEST(Text, NumbersToText)
{
    struct Case {
        std::string got;
        std::string wanted;
    };
    const Case cases[] = {
        {uintToString(7, true), "07"},
        {uintToString(123, true), "123"},
        {uintToString(0), "0"},
        {uintToString(4294967295u), "4294967295"},
        {intToString(-7), "-7"},
        {intToString(7, true), "07"},
        {intToString(-7, true), "-7"},
        {intToString(std::numeric_limits<std::int32_t>::min()), "-2147483648"},
        {uint64ToString(18446744073709551615u), "18446744073709551615"},
        {int64ToString(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808"},
        {sizeToString(std::numeric_limits<std::size_t>::max()), "18446744073709551615"},
        {hexToString(10, 2), "0a"},
        {hexToString(300, 2), "12c"},
        {hexToString(0, 0), "0"},
        {hexToString(0xffffffff, 10), "00ffffffff"},
        {hex64ToString(0xfedcba9876543210u), "fedcba9876543210"},
        {hex64ToString(1, 130), std::string(129, '0') + "1"},
        {doubleToString(1.5, -1, -1), "1.500000"},
        {doubleToString(1.5, -1, 2), "1.50"},
        {doubleToString(1.5, 0, 2), "1.50"},
        {doubleToString(-1.5, 8, 1), "    -1.5"},
        {doubleToString(2.5, -1, 0), "2"},
        {doubleToString(0.0, -1, -1), "0.000000"},
        {doubleToString(std::nan(""), 10, 2), "nan"},
        {doubleToString(infinite, 10, 2), "inf"},
        {doubleToString(-infinite, -1, -1), "-inf"},
        {dottedAddress(0), "0.0.0.0"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.got, c.wanted);
}

TEST(Text, LongDoublesAreCutAt127Characters)
{
    const std::string text = doubleToString(1e300, -1, -1);
    EXPECT_EQ(text.size(), 127u);
    EXPECT_EQ(text.substr(0, 5), "10000");
    EXPECT_EQ(doubleToString(1.0, 1000, 1), std::string(127, ' '));
}

TEST(Text, DottedAddressReadsNetworkByteOrder)
{
    const unsigned char bytes[4] = {10, 0, 200, 255};
    std::uint32_t address;
    std::copy(bytes, bytes + 4, reinterpret_cast<unsigned char*>(&address));
    EXPECT_EQ(dottedAddress(address), "10.0.200.255");
}

// The result as text, or the text of the exception.
std::string outcome(const std::function<std::string()>& parse)
{
    try {
        return parse();
    } catch (const error::EParseError& e) {
        return e.text();
    }
}

TEST(Text, TextToIntegers)
{
    struct Case {
        std::string text;
        const char* asLong;
        const char* asULong;
    };
    const Case cases[] = {
        {"", "0", "0"},
        {"0", "0", "0"},
        {"220", "220", "220"},
        {" 22", "22", "22"},
        {"+22", "22", "22"},
        {"\t\n-22", "-22", "4294967274"},
        {"-1", "-1", "4294967295"},
        {"007", "7", "7"},
        {"2147483647", "2147483647", "2147483647"},
        {"2147483648", "2147483647", "2147483648"},
        {"-2147483648", "-2147483648", "2147483648"},
        {"-2147483649", "-2147483648", "2147483647"},
        {"4294967295", "2147483647", "4294967295"},
        {"4294967296", "2147483647", "4294967295"},
        {"-4294967295", "-2147483648", "1"},
        {"-4294967296", "-2147483648", "4294967295"},
        {"9999999999", "2147483647", "4294967295"},
        {"-9999999999", "-2147483648", "4294967295"},
        {"99999999999999999999", "2147483647", "4294967295"},
        {"-99999999999999999999", "-2147483648", "4294967295"},
        {"-18446744073709551615", "-2147483648", "4294967295"},
        {"12x", R"(Error parsing: "12x")", R"(Error parsing: "12x")"},
        {"12 ", R"(Error parsing: "12 ")", R"(Error parsing: "12 ")"},
        {"abc", R"(Error parsing: "abc")", R"(Error parsing: "abc")"},
        {"   ", R"(Error parsing: "   ")", R"(Error parsing: "   ")"},
        {"-", R"(Error parsing: "-")", R"(Error parsing: "-")"},
        {"0x10", R"(Error parsing: "0x10")", R"(Error parsing: "0x10")"},
        {"1\"\n", R"(Error parsing: "1\"\n")", R"(Error parsing: "1\"\n")"},
        {std::string("12\0", 3), R"(Error parsing: "12\000")", R"(Error parsing: "12\000")"},
        {std::string("\0", 1), R"(Error parsing: "\000")", R"(Error parsing: "\000")"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(outcome([&] { return int64ToString(stringToLong(c.text)); }), c.asLong)
            << quoteString(c.text);
        EXPECT_EQ(outcome([&] { return int64ToString(stringToULong(c.text)); }), c.asULong)
            << quoteString(c.text);
    }
}

TEST(Text, TextToDouble)
{
    struct Case {
        std::string text;
        const char* wanted;
    };
    const Case cases[] = {
        {"", "0.000000"},
        {"1.5", "1.500000"},
        {" -2e3", "-2000.000000"},
        {"nan", "nan"},
        {"inf", "inf"},
        {"-inf", "-inf"},
        {"1e999", "inf"},
        {"x", "Error parsing: \"x\""},
        {"1.5 ", "Error parsing: \"1.5 \""},
        {"1,5", "Error parsing: \"1,5\""},
        {"a\"\n", "Error parsing: \"a\"\n\""},  // as it is, without escapes
    };
    for (const Case& c : cases)
        EXPECT_EQ(outcome([&] { return doubleToString(stringToDouble(c.text), -1, -1); }),
                  c.wanted);

    const std::string withZero("1.5\0", 4);
    EXPECT_EQ(outcome([&] { return doubleToString(stringToDouble(withZero), -1, -1); }),
              "Error parsing: \"" + withZero + "\"");
}

TEST(Text, QuotesEveryByteByItsRule)
{
    EXPECT_EQ(quoteString(""), R"("")");
    EXPECT_EQ(quoteString("a\x01\n"), R"("a\001\n")");
    EXPECT_EQ(quoteString(std::string_view("\0\x07\x08\x09\x0a\x0b\x0c\x0d\x0e\x1f", 10)),
              R"("\000\a\b\t\n\v\f\r\016\037")");
    EXPECT_EQ(quoteString(R"("'\)"), R"("\"\'\\")");
    for (int byte = 32; byte < 256; ++byte) {
        if (byte == '"' || byte == '\'' || byte == '\\')
            continue;
        const std::string text(1, static_cast<char>(byte));
        EXPECT_EQ(quoteString(text), '"' + text + '"') << byte;
    }
}

TEST(Text, LowerCaseLeavesOtherBytesAlone)
{
    EXPECT_EQ(toLower("Content-TYPE: [Z]@`\xc4\xff"), "content-type: [z]@`\xc4\xff");
}

TEST(Text, Splits)
{
    struct Case {
        const char* text;
        const char* separators;
        std::list<std::string> filled;
        std::list<std::string> all;
    };
    const Case cases[] = {
        {"", ",", {}, {""}},
        {",", ",", {}, {"", ""}},
        {"a", ",", {"a"}, {"a"}},
        {"a,,b", ",", {"a", "b"}, {"a", "", "b"}},
        {"a,", ",", {"a"}, {"a", ""}},
        {",,a", ",", {"a"}, {"", "", "a"}},
        {"a b,c", ", ", {"a", "b", "c"}, {"a", "b", "c"}},
        {"a, b", ", ", {"a", "b"}, {"a", "", "b"}},
        {"a,b", "", {"a,b"}, {"a,b"}},
    };
    for (const Case& c : cases) {
        const std::string_view separators = c.separators;
        EXPECT_EQ(split(c.text, separators, false), c.filled) << c.text;
        EXPECT_EQ(split(c.text, separators, true), c.all) << c.text;
        if (separators.size() != 1)
            continue;
        EXPECT_EQ(split(c.text, separators[0], false), c.filled) << c.text;
        EXPECT_EQ(split(c.text, separators[0], true), c.all) << c.text;
        EXPECT_THAT(splitToVector(c.text, separators[0], false),
                    testing::ElementsAreArray(c.filled));
        EXPECT_THAT(splitToVector(c.text, separators[0], true), testing::ElementsAreArray(c.all));
    }
}

}  // namespace
