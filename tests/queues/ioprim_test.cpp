// The primitive encoding: forms of values, areas of the streams, hostile lengths.

#include "queues/ioprim.h"

#include "common/errors.h"
#include "queues/fields.h"
#include "tests/queues/MemoryStreams.h"
#include "tests/queues/frames.h"

#include <cstdint>
#include <limits>
#include <list>
#include <map>
#include <new>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using frames::unhex;
using protocol::ioprim;

template <class T>
std::string written(const T& value, std::size_t areaSize = 4096)
{
    memory::Output output(areaSize);
    ioprim link(nullptr, &output);
    link << value;
    link.flush();
    return output.sent;
}

template <class T>
T readFrom(std::string_view bytes, T value = T{})
{
    memory::Input input(bytes);
    ioprim link(&input, nullptr);
    link >> value;
    EXPECT_EQ(input.committed, bytes.size()) << "bytes are left, or were not committed";
    return value;
}

template <class T>
void expectForm(const T& value, const char* hex)
{
    SCOPED_TRACE(hex);
    EXPECT_EQ(written(value), unhex(hex));
    EXPECT_EQ(readFrom<T>(unhex(hex)), value);
}

TEST(ioprim, writesAndReadsEachFormToTheByte)
{
    expectForm<std::int32_t>(-2, "FE FF FF FF");
    expectForm<std::uint32_t>(0x01020304, "04 03 02 01");
    expectForm<std::int64_t>(-2, "FE FF FF FF FF FF FF FF");
    expectForm<std::uint64_t>(0x0102030405060708, "08 07 06 05 04 03 02 01");
    expectForm<double>(-1.5, "00 00 00 00 00 00 F8 BF");
    expectForm<bool>(true, "01 00 00 00");
    expectForm<std::uint16_t>(0xFFFE, "FE FF 00 00");
    expectForm<std::string>("", "00 00 00 00 00 00 00 00");
    expectForm<std::string>(std::string("o\0k", 3), "03 00 00 00 00 00 00 00 6F 00 6B");
    expectForm(Time(-1, 500000), "FF FF FF FF 20 A1 07 00");
    expectForm(queues::queue_t::none, "FF FF FF FF");
    expectForm(static_cast<queues::queue_t>(77), "4D 00 00 00");
    expectForm(std::list<std::int32_t>{3, 1}, "02 00 00 00 03 00 00 00 01 00 00 00");
    expectForm(std::set<std::uint32_t>{3, 1}, "02 00 00 00 01 00 00 00 03 00 00 00");
    expectForm(std::map<std::uint32_t, bool>{{9, true}, {2, false}},
               "02 00 00 00 02 00 00 00 00 00 00 00 09 00 00 00 01 00 00 00");
    expectForm(std::vector<std::pair<bool, std::uint16_t>>{{true, 7}},
               "01 00 00 00 01 00 00 00 07 00 00 00");
}

TEST(ioprim, acceptsMoreThanItWrites)
{
    EXPECT_TRUE(readFrom<bool>(unhex("02 00 00 00")));
    EXPECT_TRUE(readFrom<bool>(unhex("00 00 00 80")));
    EXPECT_EQ(readFrom<std::uint16_t>(unhex("34 12 01 00")), 0x1234);

    // A container is emptied first, whatever its count says.
    for (const char* none : {"00 00 00 00", "FF FF FF FF", "00 00 00 80"}) {
        EXPECT_EQ(readFrom(unhex(none), std::list<bool>{true}), std::list<bool>());
        EXPECT_EQ(readFrom(unhex(none), std::set<bool>{true}), std::set<bool>());
        EXPECT_EQ(readFrom(unhex(none), std::vector<int>{1}), std::vector<int>());
        EXPECT_EQ(readFrom(unhex(none), std::map<int, int>{{1, 2}}), (std::map<int, int>()));
    }
    // Out of order and twice: a set has each once, a map the last.
    EXPECT_EQ(readFrom<std::set<int>>(unhex("03 00 00 00  02 00 00 00  01 00 00 00  02 00 00 00")),
              (std::set<int>{1, 2}));
    EXPECT_EQ((readFrom<std::map<int, int>>(unhex("03 00 00 00  02 00 00 00 05 00 00 00"
                                                  "01 00 00 00 06 00 00 00"
                                                  "02 00 00 00 07 00 00 00"))),
              (std::map<int, int>{{1, 6}, {2, 7}}));
}

// Two values and a text, through areas of every size that can hold a primitive.
TEST(ioprim, splitsTextsOverAreasButNeverANumber)
{
    const std::string text = "abcdefghijklmnopqrstuvwxyz";
    const std::string whole = written(std::uint32_t{7}) + written(text) + written(-3.25);
    for (std::size_t areaSize = 8; areaSize <= whole.size() + 1; ++areaSize) {
        SCOPED_TRACE(areaSize);
        memory::Output output(areaSize);
        ioprim link(nullptr, &output);
        link << std::uint32_t{7} << text << -3.25;
        EXPECT_LE(output.sent.size(), whole.size());
        link.flush();
        EXPECT_EQ(output.sent, whole);
    }

    // With 8 bytes an area, the first number's area goes out half used: a number isn't split.
    memory::Output output(8);
    ioprim link(nullptr, &output);
    link << std::uint32_t{7} << text;
    EXPECT_EQ(output.sent, written(std::uint32_t{7}) + written(text).substr(0, 8 + 24));
}

TEST(ioprim, commitsOnceAFlushAndNotWithoutBytes)
{
    memory::Output output;
    ioprim link(nullptr, &output);
    link.flush();
    EXPECT_EQ(output.commits, 0U);
    for (int i = 0; i < 100; ++i)
        link << i << std::string("text");
    EXPECT_EQ(output.commits, 0U) << "nothing shows before the flush";
    link.flush();
    link.flush();
    EXPECT_EQ(output.commits, 1U);
    EXPECT_EQ(output.sent.size(), 100U * 16);
    link << 1;
    link.flush();
    EXPECT_EQ(output.sent.substr(std::size_t{100} * 16), written(1))
        << "the area was the stream's again";
}

TEST(ioprim, givesUpAnAreaThatTheStreamTookBack)
{
    memory::Output output(8);
    ioprim link(nullptr, &output);
    link << std::uint64_t{1};
    output.failure = true;
    EXPECT_THROW(link << std::uint64_t{2}, error::ESystemError);
    EXPECT_THROW(link << std::uint64_t{2}, error::ESystemError);
    output.failure = false;
    link << std::uint64_t{3};
    link.flush();
    EXPECT_EQ(output.sent, written(std::uint64_t{1}) + written(std::uint64_t{3}));
}

TEST(ioprimDeathTest, needsRoomForANumberButNotForBytes)
{
    memory::Output output(3);
    ioprim link(nullptr, &output);
    link.writeBytes(8, "12345678");
    link.flush();
    EXPECT_EQ(output.sent, "12345678");
    EXPECT_DEATH(link << std::int32_t{1},
                 "^Assertion failed: New write area of size 3 too small for primitive write\n");
    memory::Output seven(7);
    ioprim narrow(nullptr, &seven);
    EXPECT_DEATH(narrow << std::uint32_t{1} << std::int64_t{1},
                 "New write area of size 7 too small for primitive write");
}

TEST(ioprim, readsValuesThatLieAcrossPieces)
{
    const std::string whole = written(std::uint32_t{7}) + written(std::string("hello")) +
                              written(std::string()) + written(-3.25);
    for (std::size_t piece = 1; piece <= whole.size(); ++piece) {
        SCOPED_TRACE(piece);
        memory::Input input(whole, piece);
        ioprim link(&input, nullptr);
        std::uint32_t number = 0;
        std::string text;
        std::string empty = "not";
        double real = 0;
        link >> number >> text >> empty >> real;
        EXPECT_EQ(number, 7U);
        EXPECT_EQ(text, "hello");
        EXPECT_EQ(empty, "");
        EXPECT_EQ(real, -3.25);
        EXPECT_EQ(input.committed, whole.size());
    }
}

// The stream's readiness says whether more is waiting, so an area is committed as soon as it is
// used up, and not before.
TEST(ioprim, commitsAReadAreaWhenItIsUsedUp)
{
    memory::Input input;
    input.append(unhex("01 00 00 00 02 00 00 00"));
    ioprim link(&input, nullptr);
    std::int32_t value = 0;
    link >> value;
    EXPECT_EQ(input.committed, 0U);
    link.readBytes(0, nullptr);
    link >> value;
    EXPECT_EQ(value, 2);
    EXPECT_EQ(input.committed, 8U);
    link.readBytes(0, nullptr);
    EXPECT_EQ(input.begins, 1U) << "no bytes wanted, but the stream was touched";

    EXPECT_THROW(link >> value, io::EEndOfStream);
    input.append(unhex("03 00 00 00"));
    link >> value;
    EXPECT_EQ(value, 3) << "bytes from before the exception";
}

TEST(ioprim, takesNoMemoryForWhatHasNotArrived)
{
    struct Case {
        const char* name;
        std::uint64_t length;
        bool tooLongForAString;
    };
    const Case refused[] = {
        {"every bit", std::numeric_limits<std::uint64_t>::max(), true},
        {"no string is that long", std::uint64_t{1} << 63, true},
        {"2^60", std::uint64_t{1} << 60, false},
        {"just beyond the address space", (std::uint64_t{1} << 47) + 1, false},
    };
    for (const Case& c : refused) {
        SCOPED_TRACE(c.name);
        memory::Input input(written(c.length) + "body");
        ioprim link(&input, nullptr);
        std::string text;
        if (c.tooLongForAString)
            EXPECT_THROW(link >> text, std::length_error);
        else
            EXPECT_THROW(link >> text, std::bad_alloc);
        EXPECT_LT(text.capacity(), 100U);
    }

    // These can be held; they just don't come.
    for (const std::uint64_t length : {std::uint64_t{1} << 47, std::uint64_t{1} << 31}) {
        memory::Input input(written(length) + std::string(10000, 'x'));
        ioprim link(&input, nullptr);
        std::string text;
        EXPECT_THROW(link >> text, io::EEndOfStream);
        EXPECT_LE(text.capacity(), 4U * 10000);
    }
    memory::Input input(unhex("FF FF FF 7F 01 00 00 00"));
    ioprim link(&input, nullptr);
    std::vector<std::int32_t> numbers;
    EXPECT_THROW(link >> numbers, io::EEndOfStream);
    EXPECT_LT(numbers.capacity(), 100U);
}

TEST(ioprim, readsLongTextsWhole)
{
    for (const std::size_t size : {4095, 4096, 4097, 8192, 8193, 1000000}) {
        std::string text(size, '\0');
        for (std::size_t i = 0; i < size; ++i)
            text[i] = static_cast<char>(i * 7 + i / 251);
        EXPECT_TRUE(readFrom<std::string>(written(text, 1000)) == text) << size;
    }
}

}  // namespace
