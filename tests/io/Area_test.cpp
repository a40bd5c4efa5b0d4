// The allocator of shared areas, beside a model, and the faults that it finds in headers.
#include "io/sibling/Area.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <vector>

namespace {

constexpr std::uint64_t regionSize = 70000;
constexpr std::uint64_t start = 64;
constexpr std::uint64_t noBlock = io::SiblingArea::noBlock;

class Area : public io::SiblingArea {
public:
    explicit Area(std::uint64_t length) : memory(regionSize / 8, ~std::uint64_t{0})
    {
        initArea(reinterpret_cast<char*>(memory.data()), regionSize, start, length);
    }
    std::uint64_t write(std::uint64_t length)
    {
        std::memset(beginBlock(), 1, length);
        write_offset = length;
        return finishBlock();
    }
    bool isReady = true;
    std::vector<std::uint64_t> memory;

private:
    void setWriteReady(bool ready) override { isReady = ready; }
};

// A walk over all blocks: they tile the area, and hold what the model says.
void check(const Area& area, const std::map<std::uint64_t, std::uint64_t>& messages, bool writing)
{
    const std::uint64_t end = area.mastart + area.masize;
    std::size_t used = 0;
    bool hasRoom = false;
    bool sawCurrent = false;
    std::uint64_t before = area.mastart;
    for (std::uint64_t b = area.mastart; b != end; b = area.nextOffset(b)) {
        ASSERT_LE(b + 16, end);
        ASSERT_EQ(area.prevOffset(b), before);
        if (area.isUsed(b)) {
            ++used;
            const auto message = messages.find(b);
            ASSERT_NE(message, messages.end());
            ASSERT_EQ(area.header(b).size, message->second);
            for (std::uint64_t at = 0; at != message->second; ++at)
                ASSERT_EQ(area.payload(b)[at], static_cast<char>(b / 8));
        } else {
            hasRoom = hasRoom || area.header(b).size != 0;
            sawCurrent = sawCurrent || b == area.block_off;
            // Only the place of a message in the making keeps two free blocks apart.
            if (b != before && !area.isUsed(before)) {
                ASSERT_TRUE(writing && b == area.block_off);
            }
        }
        before = b;
    }
    ASSERT_EQ(used, messages.size());
    ASSERT_EQ(area.isReady, hasRoom);
    ASSERT_EQ(area.block_off != noBlock, hasRoom);
    ASSERT_EQ(sawCurrent, hasRoom);
    const auto isGuard = [](std::uint64_t word) {
        return word == ~std::uint64_t{0};
    };
    ASSERT_TRUE(std::all_of(area.memory.begin(), area.memory.begin() + start / 8, isGuard));
    ASSERT_TRUE(std::all_of(area.memory.begin() + static_cast<std::ptrdiff_t>(end / 8),
                            area.memory.end(), isGuard));
}

TEST(Area, DoesAsItsModelDoes)
{
    for (const std::uint64_t length : {24U, 32U, 40U, 48U, 64U, 160U, 1024U, 65536U}) {
        for (unsigned seed = 0; seed != 6; ++seed) {
            std::mt19937 random(seed);
            const auto below = [&](std::uint64_t n) {
                return n == 0 ? 0 : random() % n;
            };
            Area area(length);
            std::map<std::uint64_t, std::uint64_t> messages;
            bool writing = false;
            const auto freeOne = [&] {
                auto message = messages.begin();
                std::advance(message, static_cast<std::ptrdiff_t>(below(messages.size())));
                const std::uint64_t b = message->first;
                messages.erase(message);
                area.freeBlock(b, writing);
            };
            for (int step = 0; step != 800; ++step) {
                const std::uint64_t choice = below(10);
                if (writing && choice < 5) {
                    // As often as not near the whole room, where blocks are padded or split.
                    const std::uint64_t room = area.write_size;
                    const std::uint64_t less = below(2) != 0 ? below(34) : below(room);
                    const std::uint64_t count = room - std::min(less, room - 1);
                    area.write_offset = count;
                    const std::uint64_t b = area.block_off;
                    std::memset(area.payload(b), static_cast<int>(b / 8), count);
                    writing = false;
                    ASSERT_EQ(area.finishBlock(), b);
                    messages.emplace(b, count);
                } else if (writing && choice == 5) {
                    writing = false;
                    area.abandonBlock();
                } else if (!writing && choice < 6 && area.block_off != noBlock) {
                    writing = true;
                    ASSERT_EQ(area.beginBlock(), area.payload(area.block_off));
                } else if (!messages.empty()) {
                    freeOne();
                }
                ASSERT_NO_FATAL_FAILURE(check(area, messages, writing))
                    << "area of " << length << ", seed " << seed << ", step " << step;
            }
            if (writing)
                area.abandonBlock();
            writing = false;
            while (!messages.empty())
                freeOne();
            EXPECT_EQ(area.block_off, start);
            EXPECT_EQ(area.header(start).size, length - 16);
        }
    }
}

TEST(Area, LaysBlocksOutAsPeersExpect)
{
    const struct {
        std::uint64_t length;
        std::uint64_t message;
        std::uint64_t next;  // the block behind it, from its start
        bool isPadded;
        std::uint64_t room;  // of the block at block_off
    } rows[] = {
        {4096, 100, 120, false, 3960}, {144, 120, 144, true, 0},  {144, 121, 144, false, 0},
        {144, 128, 144, false, 0},     {144, 112, 128, false, 0}, {144, 104, 120, false, 8},
    };
    for (const auto& row : rows) {
        Area area(row.length);
        EXPECT_EQ(area.write(row.message), start);
        EXPECT_EQ(area.nextOffset(start) - start, row.next) << row.message;
        EXPECT_EQ(area.header(start).prev_offset, start | (row.isPadded ? 3U : 1U));
        EXPECT_EQ(area.header(start).size, row.message);
        EXPECT_EQ(area.block_off, row.room == 0 ? noBlock : start + row.next);
        EXPECT_EQ(area.isReady, row.room != 0);
        if (row.room != 0) {
            EXPECT_EQ(area.header(area.block_off).size, row.room);
        }
    }
    Area area(144);
    area.write(120);
    area.setPrevOffset(start, start + 8);
    EXPECT_EQ(area.header(start).prev_offset, (start + 8) | 3U);
}

TEST(Area, FindsBrokenHeadersAndArguments)
{
    const struct {
        const char* text;
        std::function<void(Area&)> operation;
    } rows[] = {
        {"prev_offset misaligned",
         [](Area& a) {
             a.setPrevOffset(start, 2);
         }},
        {"Misaligned prev_offset: 41",
         [](Area& a) {
             a.initUsed(start, 65, start + 24, 8);
         }},
        {"Misaligned prev_offset: 42",
         [](Area& a) {
             a.initFree(start, 66, start + 24);
         }},
        {"Creating empty block",
         [](Area& a) {
             a.initUsed(start, start, start + 24, 0);
         }},
        {"Invalid next_offset: 104, align: 88, my: 64, len: 8",
         [](Area& a) {
             a.initUsed(start, start, start + 40, 8);
         }},
        {"initFree next_offset is 96 but should be 89",
         [](Area& a) {
             a.initFree(start, start, start + 25);
         }},
        {"Offset out of range: 70000 !< 70000",
         [](Area& a) {
             a.checkOffset(regionSize);
         }},
        {"ready but no free blocks",
         [](Area& a) {
             a.write(1008);
             a.beginBlock();
         }},
        {"Invalid block_off: 1080 mastart: 64 masize: 1024 bsize: 16",
         [](Area& a) {
             a.block_off = 1080;
             a.beginBlock();
         }},
        {"writeBegin..: next_offset out of bounds 448",
         [](Area& a) {
             a.header(start).size = 1016;
             a.beginBlock();
         }},
        {"writeBegin..: next_offset out of bounds",
         [](Area& a) {
             a.header(start).size = ~std::uint64_t{0} - 8;
             a.beginBlock();
         }},
        {"No space available in SiblingOStream::writeBegin..",
         [](Area& a) {
             a.header(start).size = 0;
             a.beginBlock();
         }},
        {"writeCommit..: next_offset out of bounds",
         [](Area& a) {
             a.beginBlock();
             a.header(start).size = 1016;
             a.finishBlock();
         }},
        {"Overcommit in SiblingOStream",
         [](Area& a) {
             a.beginBlock();
             a.write_offset = 1009;
             a.finishBlock();
         }},
        {"search_off at 1084 with end of area at 1088",
         [](Area& a) {
             a.block_off = 1084;
             a.findFreeBlock();
         }},
        {"next_off .1096 is beyond our area",
         [](Area& a) {
             a.header(start).size = 1016;
             a.findFreeBlock();
         }},
        {"is no message of ours",
         [](Area& a) {
             a.freeBlock(start, false);
         }},
        {"is no message of ours",
         [](Area& a) {
             a.freeBlock(0, false);
         }},
        {"misaligned: 68",
         [](Area& a) {
             a.freeBlock(start + 4, false);
         }},
        {"where no block before it begins",
         [](Area& a) {
             a.write(8);
             const std::uint64_t second = a.write(8);
             a.header(second).prev_offset = (start + 8) | 1U;
             a.freeBlock(second, false);
         }},
    };
    for (const auto& row : rows) {
        Area area(1024);
        EXPECT_DEATH(row.operation(area), row.text);
    }
}

}  // namespace
