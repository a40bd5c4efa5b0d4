// The allocator of shared areas, beside a model, and the faults that it finds in headers.
#include "io/sibling/Area.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <random>
#include <vector>

namespace {

constexpr std::uint64_t regionSize = 70000;
constexpr std::uint64_t start = 64;
constexpr std::uint64_t noBlock = io::SiblingArea::noBlock;

class Area : public io::SiblingArea {
public:
    explicit Area(std::uint64_t length, std::uint64_t at = start)
        : memory(regionSize / 8, ~std::uint64_t{0})
    {
        initArea(reinterpret_cast<char*>(memory.data()), regionSize, at, length);
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
    // Called only when it changes.
    void setWriteReady(bool ready) override
    {
        EXPECT_NE(ready, isReady);
        isReady = ready;
    }
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
            std::uint64_t place = noBlock;  // of the message that is being written
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
                    const std::uint64_t b = place;
                    std::memset(area.payload(b), static_cast<int>(b / 8), count);
                    writing = false;
                    ASSERT_EQ(area.finishBlock(), b);
                    messages.emplace(b, count);
                } else if (writing && choice == 5) {
                    writing = false;
                    area.abandonBlock();
                } else if (!writing && choice < 6 && area.block_off != noBlock) {
                    writing = true;
                    place = area.block_off;
                    ASSERT_EQ(area.beginBlock(), area.payload(place));
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
        std::uint64_t at;
        std::uint64_t length;
        std::uint64_t message;
        std::uint64_t next;  // the block behind it, from its start
        bool isPadded;
        std::uint64_t room;  // of the block at block_off
    } rows[] = {
        {4096, 4096, 100, 120, false, 3960}, {64, 144, 120, 144, true, 0},
        {64, 144, 121, 144, false, 0},       {64, 144, 128, 144, false, 0},
        {64, 144, 112, 128, false, 0},       {64, 144, 104, 120, false, 8},
    };
    for (const auto& row : rows) {
        Area area(row.length, row.at);
        EXPECT_EQ(area.write(row.message), row.at);
        EXPECT_EQ(area.nextOffset(row.at) - row.at, row.next) << row.message;
        EXPECT_EQ(area.header(row.at).prev_offset, row.at | (row.isPadded ? 3U : 1U));
        EXPECT_EQ(area.header(row.at).size, row.message);
        EXPECT_EQ(area.messageSize(row.at), row.message);
        EXPECT_EQ(area.block_off, row.room == 0 ? noBlock : row.at + row.next);
        EXPECT_EQ(area.isReady, row.room != 0);
        if (row.room != 0) {
            EXPECT_EQ(area.header(area.block_off).size, row.room);
            EXPECT_EQ(area.header(area.block_off).prev_offset, row.at);
        }
    }
    Area area(144);
    area.write(120);
    area.setPrevOffset(start, start + 8);
    EXPECT_EQ(area.header(start).prev_offset, (start + 8) | 3U);
}

// Five blocks of 24 bytes: room in front of block_off is taken only when the end has been reached.
TEST(Area, SearchesOnFromTheLastMessageAndWraps)
{
    Area area(120);
    for (int count = 0; count != 3; ++count)
        area.write(8);
    area.freeBlock(64, false);
    const std::uint64_t places[] = {136, 160, 64};
    for (const std::uint64_t place : places) {
        EXPECT_EQ(area.block_off, place);
        EXPECT_EQ(area.write(8), place);
    }
    EXPECT_EQ(area.block_off, noBlock);
    area.freeBlock(112, false);
    EXPECT_EQ(area.block_off, 112U);
}

// Used blocks of 24 bytes at 64 and 88, a free one from 112 to the end at 1088; the region ends
// at 70000. One header is overwritten, then comes the operation.
TEST(Area, FindsBrokenHeadersAndArguments)
{
    enum Operation { begin, finish, find, release, setPrev, used, unused, offset, message, init };
    constexpr std::uint64_t most = ~std::uint64_t{0};
    const char* const noMessage = "is no message of ours";
    const struct {
        const char* text;
        Operation operation;
        std::uint64_t at;  // of the header that is overwritten
        io::SiblingArea::Header header;
        std::uint64_t block_off;
        std::uint64_t argument;
    } rows[] = {
        {"prev_offset misaligned", setPrev, 112, {88, 960}, 112, 90},
        {"Misaligned prev_offset: 41", used, 112, {65, 8}, 112, 136},
        {"Misaligned prev_offset: 42", unused, 112, {66, 8}, 112, 136},
        {"Creating empty block", used, 112, {88, 0}, 112, 128},
        {"Invalid next_offset: 152, align: 136, my: 112, len: 8", used, 112, {88, 8}, 112, 152},
        {"Invalid next_offset: 128, align: 136, my: 112, len: 8", used, 112, {88, 8}, 112, 128},
        {"initFree next_offset is 144 but should be 137", unused, 112, {88, 0}, 112, 137},
        {"Offset out of range: 70000 !< 70000", offset, 112, {88, 960}, 112, 70000},
        {"Offset out of range: 70007 !< 70000", message, 112, {88, 960}, 112, 69992},
        {"range: 18446744073709551608 !< 70000", release, 112, {88, 960}, 112, most - 7},
        {"Block offset misaligned: 68", release, 112, {88, 960}, 112, 68},
        {"Block offset misaligned: 68", message, 112, {88, 960}, 112, 68},
        {"Block at 112 holds no message", message, 112, {88, 960}, 112, 112},
        {"Block at 88 holds no message", message, 88, {65, 0}, 112, 88},
        {"range: 88 . 16 . 69897 !< 70000", message, 88, {65, 69897}, 112, 88},
        {"range: 88 . 16 . 18446744073709551615 !<", message, 88, {65, most}, 112, 88},
        {"writeBegin.., ready but no free blocks", begin, 112, {88, 960}, noBlock, 0},
        {"Invalid block_off: 56 mastart: 64 masize: 1024 bsize: 16", begin, 112, {88, 960}, 56, 0},
        {"Invalid block_off: 1080 mastart: 64", begin, 112, {88, 960}, 1080, 0},
        {"writeBegin..: next_offset out of bounds 448", begin, 112, {88, 968}, 112, 0},
        {"writeBegin..: next_offset out of bounds 78", begin, 112, {88, most - 7}, 112, 0},
        {"writeBegin..: next_offset out of bounds 80", begin, 112, {88, most}, 112, 0},
        {"No space available in SiblingOStream::writeBegin..", begin, 112, {88, 0}, 112, 0},
        {"writeCommit..: next_offset out of bounds 448", finish, 112, {88, 968}, 112, 8},
        {"writeCommit..: next_offset out of bounds 78", finish, 112, {88, most - 7}, 112, 8},
        {"Overcommit in SiblingOStream", finish, 112, {88, 960}, 112, 961},
        {"Overcommit in SiblingOStream", finish, 112, {88, 960}, 112, most},
        {"Creating empty block", finish, 112, {88, 960}, 112, 0},
        {".nosplit. Next Offset of block is at 1080 and the end of our area is at 1088",
         finish,
         112,
         {88, 952},
         112,
         952},
        {".split. Next Offset of new block is at 1080 and the end of our area is at 1088",
         finish,
         112,
         {88, 952},
         112,
         8},
        {"new_offset 24 out of bounds; mastart: 64 masize: 1024", finish, 0, {0, 200}, 0, 8},
        {"search_off at 1080 with end of area at 1088", find, 112, {88, 960}, 1080, 0},
        {"search_off at 1080 with end of area at 1088", find, 112, {89, 952}, 112, 0},
        {"next_off .1096 is beyond our area", find, 112, {88, 968}, 112, 0},
        {"next_off .120 is beyond our area", find, 112, {88, most - 7}, 112, 0},
        {"passed its start at 112", find, 64, {65, 1008}, 112, 1},
        {"Block at 112 is no message of ours", release, 112, {88, 960}, 112, 112},
        {noMessage, release, 0, {1, 8}, 112, 0},
        {noMessage, release, 1088, {65, 8}, 112, 1088},
        {"next_off .1096 is beyond our area", release, 88, {65, 992}, 112, 88},
        {"next_off .1080 is beyond our area", release, 88, {65, 976}, 112, 88},
        {"next_off .96 is beyond our area", release, 88, {65, most - 7}, 112, 88},
        {"next_off .1096 is beyond our area", release, 112, {88, 968}, 112, 88},
        {"next_off .1080 is beyond our area", release, 112, {88, 952}, 112, 88},
        {"next_off .112 is beyond our area", release, 112, {88, most - 15}, 112, 88},
        {"prev_offset of block at 88 is 72, where no block before", release, 88, {73, 8}, 112, 88},
        {"prev_offset of block at 88 is 68, where no block before", release, 88, {69, 8}, 112, 88},
        {"prev_offset of block at 88 is 40, where no block before", release, 88, {41, 8}, 112, 88},
        {"prev_offset of block at 88 is 88, where no block before", release, 88, {89, 8}, 112, 88},
        {"Region of 4294967297 bytes, most are 4294967296", init, 64, {4294967297, 64}, 112, 24},
        {"Area at 64 of 16 bytes in a region of 70000", init, 64, {70000, 64}, 112, 16},
        {"Area at 64 of 28 bytes in a region of 70000", init, 64, {70000, 64}, 112, 28},
        {"Area at 68 of 24 bytes in a region of 70000", init, 64, {70000, 68}, 112, 24},
        {"Area at 64 of 69944 bytes in a region of 70000", init, 64, {70000, 64}, 112, 69944},
        {"Area at 64 of 18446744073709551608 bytes in", init, 64, {70000, 64}, 112, most - 7},
        {"Area at 64 of 24 bytes in a region of 56", init, 64, {56, 64}, 112, 24},
    };
    for (const auto& row : rows) {
        Area a(1024);
        a.write(8);
        a.write(8);
        const auto operate = [&] {
            a.header(row.at) = row.header;
            a.block_off = row.block_off;
            a.write_offset = row.argument;
            switch (row.operation) {
            case begin:
                a.beginBlock();
                break;
            case finish:
                a.finishBlock();
                break;
            case find:
                a.header(112).prev_offset |= row.argument;
                a.findFreeBlock();
                break;
            case release:
                a.freeBlock(row.argument, false);
                break;
            case setPrev:
                a.setPrevOffset(row.at, row.argument);
                break;
            case used:
                a.initUsed(row.at, row.header.prev_offset, row.argument, row.header.size);
                break;
            case unused:
                a.initFree(row.at, row.header.prev_offset, row.argument);
                break;
            case offset:
                a.checkOffset(row.argument);
                break;
            case message:
                a.messageSize(row.argument);
                break;
            case init:
                a.initArea(a.region_base, row.header.prev_offset, row.header.size, row.argument);
                break;
            }
        };
        EXPECT_DEATH(operate(), row.text) << row.text;
    }
}

}  // namespace
