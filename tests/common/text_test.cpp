#include "common/text.h"

#include "common/errors.h"
#include "tests/common/outcome.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using error::EParseError;

TEST(Text, NumbersToTextAndQuoting)
{
    struct Case {
        std::string got, wanted;
    };
    const Case cases[] = {
        {uintToString(7, true), "07"},
        {intToString(-7, true), "-7"},
        {intToString(-2147483647 - 1), "-2147483648"},
        {int64ToString(-9223372036854775807), "-9223372036854775807"},
        {hexToString(10, 2), "0a"},
        {hex64ToString(0xfedcba9876543210u, 17), "0fedcba9876543210"},
        {doubleToString(1.5, -1, -1), "1.500000"},
        {doubleToString(-1.5, 8, 1), "    -1.5"},
        {doubleToString(1.0, 1000, 1), std::string(127, ' ')},
        {doubleToString(-HUGE_VAL, 10, 2), "-inf"},
        {dottedAddress(0xff00c80a), "10.200.0.255"},
        {quoteString({"\0\x01\a\b\t\n\v\f\r\x1f", 10}), R"("\000\001\a\b\t\n\v\f\r\037")"},
        {quoteString("\"'\\ ~\x7f\xff"), "\"\\\"\\'\\\\ ~\x7f\xff\""},
        {toLower("TYPE: [Z]@`\xc4\xff"), "type: [z]@`\xc4\xff"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.got, c.wanted);
}

TEST(Text, TextToNumbers)
{
    struct Case {
        std::string text, asLong, asULong, asDouble;
    };
    const Case cases[] = {
        {"", "0", "0", "0.0"},
        {" +022", "22", "22", "22.0"},
        {"\t\n-22", "-22", "4294967274", "-22.0"},
        {"2147483648", "2147483647", "2147483648", "2147483648.0"},
        {"-2147483649", "-2147483648", "2147483647", "-2147483649.0"},
        {"-4294967295", "-2147483648", "1", "-4294967295.0"},
        {"-4294967296", "-2147483648", "4294967295", "-4294967296.0"},
        {"-18446744073709551616", "-2147483648", "4294967295", "-18446744073709551616.0"},
        {"12 ", R"(Error parsing: "12 ")", R"(Error parsing: "12 ")", R"(Error parsing: "12 ")"},
        {"\n", R"(Error parsing: "\n")", R"(Error parsing: "\n")", "Error parsing: \"\n\""},
        {"-inf", R"(Error parsing: "-inf")", R"(Error parsing: "-inf")", "-inf"},
        {"1e999", R"(Error parsing: "1e999")", R"(Error parsing: "1e999")", "inf"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(outcome<EParseError>([&] { return int64ToString(stringToLong(c.text)); }),
                  c.asLong);
        EXPECT_EQ(outcome<EParseError>([&] { return int64ToString(stringToULong(c.text)); }),
                  c.asULong);
        EXPECT_EQ(
            outcome<EParseError>([&] { return doubleToString(stringToDouble(c.text), -1, 1); }),
            c.asDouble);
    }
}

TEST(Text, Splits)
{
    using Texts = std::list<std::string>;
    EXPECT_EQ(split("", ',', false), Texts{});
    EXPECT_EQ(split("", ',', true), Texts{""});
    EXPECT_EQ(split("a,,b,", ',', false), (Texts{"a", "b"}));
    EXPECT_EQ(split("a,,b,", ',', true), (Texts{"a", "", "b", ""}));
    EXPECT_EQ(split("a, b", ", ", true), (Texts{"a", "", "b"}));
    EXPECT_EQ(splitToVector(",a", ',', true), (std::vector<std::string>{"", "a"}));
}

}  // namespace
