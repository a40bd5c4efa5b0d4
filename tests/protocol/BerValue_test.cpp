#include "common/text.h"
#include "protocol/Messages.h"
#include "tests/common/outcome.h"
#include "tests/support/Process.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <sstream>
#include <thread>

namespace {

using namespace protocol;
using namespace std::string_literals;
template <class T>
using Number = BerIntegerTemplate<T>;

std::string hex(std::string_view bytes)
{
    std::string digits;
    for (const char c : bytes)
        digits += hexToString(static_cast<unsigned char>(c), 2);
    return digits;
}

struct Sink final : BerOutput {
    void write(const char* bytes, std::size_t count) override { digits += hex({bytes, count}); }
    std::string digits;
};

std::string unhex(const std::string& digits)
{
    std::string bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2)
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    return bytes;
}

std::string written(const BerValue& value, bool legacy = false)
{
    Sink sink;
    return outcome<EBer>([&] { return value.write(sink, legacy), ""; }) + sink.digits;
}

std::string feed(BerPrimitive& value, const std::string& content, std::size_t piece = 1)
{
    return outcome<EBer>([&] {
        value.prepare(content.size());
        for (std::size_t at = 0; at < content.size(); at += piece)
            value.append(content.data() + at, std::min(piece, content.size() - at));
        return value.readDone(), "";
    });
}

// A row is the bytes of a value, only read if behind a "<", and the value or the failure.
template <class Wrapper>
void expectBytes(const std::string& tooLong, const std::string& table)
{
    using Field = std::remove_cvref_t<decltype(std::declval<Wrapper>().get())>;
    std::istringstream rows(table);
    for (std::string bytes, value; std::getline(rows >> bytes >> std::ws, value, ',');) {
        SCOPED_TRACE(bytes);
        const std::string all = unhex(bytes.substr(bytes.find('<') + 1));
        const std::string content = all.substr(all[1] < 0 ? 2 + (all[1] & 0x7F) : 2);
        auto field = std::make_unique<Field>(77);
        auto viewing = std::make_unique<Wrapper>(field.get());
        Wrapper owning(Field(78));
        const std::string failure = feed(*viewing, content);
        EXPECT_EQ(feed(owning, content, 2000), failure);  // in one piece
        if constexpr (std::is_same_v<Field, BigNum>)
            EXPECT_EQ(field->toString() + failure, value);
        else
            EXPECT_EQ(failure.empty() ? (std::ostringstream() << *field).str() : failure, value);
        if (bytes[0] == '<')
            continue;
        const std::unique_ptr<BerValue> copies[] = {viewing->clone(), owning.clone(),
                                                    Wrapper(*field).clone()};
        *field = Field(79);
        viewing.reset();
        field.reset();
        for (const auto& copy : copies)
            EXPECT_TRUE(written(*copy, true) == bytes && *copy == *copies[0]);
    }
    EXPECT_EQ(feed(*std::make_unique<Wrapper>(Field(77)), std::string(std::stoul(tooLong), '\0')),
              "Data value exceeds maximum allowed length " + tooLong);
}

TEST(BerTag, IdentifierAndLengthBytes)
{
    std::istringstream rows(R"(t 1 20 t 9 21 t 129 30 t 137 31 t 247 fe t 248 1f1f t 259 7f20
        t 1023 ff7f t 1024 1f8100 t 131071 ffff7f t 131072 1f818000 t 16777215 ffffff7f
        t 16777216 1f81808000 t 2147483647 ffffffff7f t 2147483648 1f8180808000
        t 4294967295 ff81ffffff7f l 0 00 l 127 7f l 128 8180 l 255 81ff l 256 820100 l 65535 82ffff
        l 65536 83010000 l 16777215 83ffffff l 16777216 8401000000 l 4294967295 84ffffffff)");
    std::uint32_t number = 0;
    for (std::string what, bytes; rows >> what >> number >> bytes;) {
        char head[mostHeadBytes];
        char* const end = what == "t" ? putTag(head, number) : putLength(head, number);
        EXPECT_EQ(hex({head, end}), bytes) << what << number;
    }
}

TEST(BerValue, BytesBothWays)
{
    const std::string both = "020100 0,02017f 127,02020080 128,020200c8 200,02027fff 32767,"
                             "0203008000 32768,02037fffff 8388607,020400800000 8388608,"
                             "02047fffffff 2147483647,<0200 0,<020400000005 5,";
    const std::string negative = "0201ff -1,020180 -128,0202ff7f -129,02028000 -32768,0203ff7fff "
                                 "-32769,0203800000 -8388608,0204ff7fffff -8388609,<0202ffff -1,"
                                 "020480000000 -2147483648,";
    expectBytes<Number<int>>("5 > 4", both + negative);
    expectBytes<Number<unsigned>>("6 > 5", both + R"(02050080000000 2147483648,<0201ff 255,
        020500ffffffff 4294967295,<02050100000000 data out of range in BerIntegerTemplate)");
    expectBytes<Number<long>>("9 > 8", both + negative + R"(0205ff7fffffff -2147483649,
        020780000000000000 -36028797018963968,02080080000000000000 36028797018963968,
        02087fffffffffffffff 9223372036854775807,02088000000000000000 -9223372036854775808)");
    expectBytes<Number<unsigned long>>("10 > 9",
                                       both + R"(0209008000000000000000 9223372036854775808,
        020900ffffffffffffffff 18446744073709551615,<0208ffffffffffffffff 18446744073709551615,
        <0209ffffffffffffffffff data out of range in BerIntegerTemplate)");
    expectBytes<CheckType>("5 > 4", R"(0a00 0,0a0101 1,0a017f 127,0a020080 128,0a027fff 32767,
        0a03008000 32768,0a037fffff 8388607,0a0400800000 8388608,0a047fffffff 2147483647,
        0a04ffffffff -1,<0a0180 -128,<0a0100 0)");
    expectBytes<BerBoolean>("2 > 1", "010100 0,010101 1,<0100 0,<010180 1");
    expectBytes<BerReal>("61 > 60",
                         R"(0900 0,090140 inf,090141 -inf,090d00312e353030303030652b3030 1.5,
        090e00342e393430363536652d333234 4.94066e-324,<0905002d696e66 -inf,<090100 0,<090160 0,
        090f002d312e303030303030652d333030 -1e-300,<0903003100 Parse error in real number,
        <090131 Unsupported real number format revceived,<093c00)" +
                             std::string(118, '3') + " 3.33333e+58");
    EXPECT_EQ(written(BerReal(std::stod("nan"))) + written(BerReal(-0.0)), "0901600900");
    BigNum longest(1);
    longest.shiftLeft(1040 * 8 - 1);
    expectBytes<BerBigNum>("1041 > 1040", "0200 0,020180 128,<02020001 1,<02020000 0,0282041080" +
                                              std::string(2078, '0') + " " + longest.toString());
    EXPECT_DEATH(BerBigNum{longest + longest}, "bn_get_data is too small .wanted 1044.");
    EXPECT_EQ(written(*BerNull().clone()), "0500");
    EXPECT_EQ(feed(*std::make_unique<BerNull>(), "x"),
              "Data value exceeds maximum allowed length 1 > 0");
}

TEST(BerReal, HasTheDigitsOfPrintf)
{
    std::mt19937_64 source(1);
    const auto expectDigits = [](double value) {
        char shown[40];
        std::snprintf(shown, sizeof shown, "%e", value);
        const std::string bytes = unhex(written(BerReal(value)));
        ASSERT_EQ(bytes.substr(std::min<std::size_t>(bytes.size(), 3)), shown);
    };
    for (int i = 0; i < 20'000; ++i) {
        // Seven digits, and a half behind them, by all powers of ten; and what lies beside.
        const auto digits = static_cast<double>(source() % 10'000'000) + (i % 2 == 0 ? 0.5 : 0);
        const double near = digits * std::pow(10, i % 60 - 30);
        for (const double value :
             {near, -near, std::nextafter(near, 0), std::nextafter(near, 1e99)})
            expectDigits(value == 0 ? 1 : value);
        expectDigits(std::ldexp(static_cast<double>(source() | 1U), i % 1000 - 560));
    }
    for (int power = -320; power < 308; ++power)
        expectDigits(std::pow(10, power));
}

TEST(BerValue, IntegersKeepTheirBounds)
{
    const auto expectBounds = []<class T>(T least, T greatest, const std::string& type) {
        for (T value : {T(least - 1), T(greatest + 1)}) {
            const std::string bytes = written(Number<T>(value));
            Number<T> bounded(&value, least, greatest);
            std::ostringstream text;
            text << " " << least << " <= " << value << " <= " << greatest;
            const std::string failure = "data out of range in BerIntegerTemplate<" + type + ">::";
            EXPECT_EQ(written(bounded), failure + "write" + text.str());
            EXPECT_EQ(feed(bounded, unhex(bytes).substr(2)), failure + "readDone" + text.str());
        }
    };
    expectBounds(-5, 65535, "int");
    expectBounds(200U, 0xfffffffe, "unsigned int");
    expectBounds(INT64_MIN + 1, INT64_MAX - 1, "long");
    expectBounds(1UL, UINT64_MAX - 1, "unsigned long");
}

TEST(BerString, LengthTagAndOwnership)
{
    std::string field;
    auto viewing = std::make_unique<BerString>(&field, 300, BE_STRING_LEGACY);
    EXPECT_EQ(feed(*viewing, std::string(301, 'w')) + field,
              "String exceeds allowed length 301 > 300");
    EXPECT_EQ(feed(*viewing, std::string(300, 'w'), 7), "");
    const std::unique_ptr<BerValue> copy = viewing->clone();
    field += "\xff";
    EXPECT_EQ(written(*viewing), "String exceeds allowed length 301 > 300");
    viewing.reset();
    EXPECT_EQ(written(*copy), "1682012c" + std::string(600, '7'));
    EXPECT_EQ(written(BerString("\0"s, 1)) + written(BerString("\xff", 1), true), "0401001601ff");
}

TEST(BerValue, Comparisons)
{
    const auto relation = [](const BerValue& a, const BerValue& b) {
        return (a == b ? "="s : "") + (a < b ? "<" : "") + (a > b ? ">" : "") +
               (b == a ? "=" : "") + (b < a ? "<" : "") + (b > a ? ">" : "");
    };
    int unread[] = {1, 2};
    const auto unset = BerString(static_cast<std::string*>(nullptr), 9, BE_STRING_CURRENT).clone();
    EXPECT_EQ(relation(Number<int>(-1), Number<int>(99)), "");
    EXPECT_EQ(relation(CheckType(0), CheckType(-1)), "<>");
    EXPECT_EQ(relation(Number<int>(&unread[0]), Number<int>(&unread[1])), "==");
    EXPECT_EQ(relation(CheckType(1), Severity(1)), "");
    EXPECT_EQ(relation(BerNull(), BerNull()), "==");
    EXPECT_EQ(relation(BerString("b", 1, BE_STRING_LEGACY), BerString("b", 2)), "==");
    EXPECT_EQ(relation(BerString("aa", 2), BerString("b", 1)), "<>");
    EXPECT_EQ(relation(BerString("", 1), BerNull()), "");
    EXPECT_EQ(relation(*unset, *unset), "==");
    EXPECT_EQ(relation(*unset, BerString("", 1)), "");
}

// A pointer is no truth value: BerBoolean would own a true instead of viewing the field.
static_assert(!std::is_constructible_v<BerBoolean, const bool*>);
static_assert(!std::is_constructible_v<BerBoolean, int*>);

struct Wide final : BerEnumeratedOf<Wide> {
    using BerEnumeratedOf::BerEnumeratedOf;
    char rest[300] = {};  // more than what is kept for others
};

// Without sanitizers, values are made in the memory of others that are gone.
TEST(BerValue, MemoryIsUsedAgainByOneValueAtATime)
{
    const auto make = [](std::uint32_t seed) -> std::unique_ptr<BerValue> {
        if (seed % 5 == 0)
            return Number<unsigned>(seed).clone();
        if (seed % 5 == 1)
            return BerReal(seed).clone();
        if (seed % 5 == 2)
            return BerString(std::string(seed % 60, 'x') + std::to_string(seed), 99).clone();
        if (seed % 5 == 3) {
            Check check;
            check.text0 = std::to_string(seed);
            return check.clone();
        }
        return Wide(static_cast<std::int32_t>(seed)).clone();
    };
    std::mt19937 source(1);
    std::vector<std::pair<std::unique_ptr<BerValue>, std::uint32_t>> values;
    // At its most, more than the bound of what is kept. One thread goes on with the values of
    // the one before.
    const auto run = [&] {
        for (const std::size_t count : {5'000, 10, 50'000, 1'000}) {
            while (values.size() < count) {
                const auto seed = static_cast<std::uint32_t>(source());
                values.emplace_back(make(seed), seed);
            }
            while (values.size() > count) {
                std::swap(values[source() % values.size()], values.back());
                ASSERT_TRUE(*values.back().first == *make(values.back().second));
                values.pop_back();
            }
        }
    };
    for (int i = 0; i < 2; ++i)
        std::thread(run).join();
    run();
}

TEST(BerSkipper, ConsumesAndRefuses)
{
    const std::unique_ptr<BerValue> text = makeSkipper(BE_STRING_LEGACY)->clone();
    const std::unique_ptr<BerValue> tree = makeSkipper(contextTag(40))->clone();
    auto& skipper = dynamic_cast<BerConstructed&>(*tree);
    EXPECT_TRUE(skipper.requiredChildren() == 0 && skipper.isRepeated());
    const BerChild nested = skipper.child(7, BE_SEQ_LEGACY, false);
    const BerChild leaf = dynamic_cast<BerConstructed&>(*nested).child(0, BE_INTEGER, false);
    EXPECT_EQ(feed(dynamic_cast<BerPrimitive&>(*leaf), std::string(70000, 'x')), "");
    EXPECT_TRUE(*text == *leaf && leaf->tag(true) == BE_INTEGER);
    EXPECT_TRUE(*tree == *nested && nested->tag(false) == BE_SEQ_LEGACY);
    EXPECT_FALSE(*text == *tree || *tree == *text || text->operator==(Number<int>(1)));
    for (const auto& [value, name] : {std::pair(text.get(), "BerPrimitiveSkipper"s),
                                      std::pair(tree.get(), "BerConstructedSkipper"s)}) {
        EXPECT_DEATH(value->operator<(*value), " failed: Cannot call operator< for " + name + "\n");
        EXPECT_DEATH(value->operator>(*value), " failed: Cannot call operator> for " + name + "\n");
        EXPECT_DEATH(written(*value), " failed: " + name + "::write invoked\n");
    }
}

TEST(BerValue, AnIndependentReaderSeesTheSame)
{
    char ends[4];
    char* const begun = putBeginning(ends, BE_SEQ_CURRENT);
    const std::string digits =
        hex({ends, begun}) + written(Number<int>(-129)) +
        written(Number<unsigned long>(UINT64_MAX)) + written(BerBigNum(BigNum(0x01020304))) +
        written(CheckType(200)) + written(BerBoolean(true)) + written(BerNull()) +
        written(BerString("abc", 3)) + written(BerString("", 0)) +
        written(BerString("abc", 3, BE_STRING_LEGACY)) + hex({begun, putEndOfContents(begun)});
    support::Process shell(
        {"/bin/sh", {"-c", "openssl asn1parse -inform DER | cut -c28- | tr -d ' \n'"}});
    shell.sendBytes(unhex(digits));
    shell.closeInput();
    EXPECT_EQ(shell.waitForEnd().output,
              ":SEQUENCE:INTEGER:-81:INTEGER:FFFFFFFFFFFFFFFF:INTEGER:01020304:ENUMERATED:C8"
              ":BOOLEAN:1:NULL:OCTETSTRING:abc:OCTETSTRING:IA5STRING:abc:EOC");
}

}  // namespace
