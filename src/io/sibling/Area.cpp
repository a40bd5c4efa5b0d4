#include "io/sibling/Area.h"

#include "common/assertion.h"
#include "common/text.h"

namespace io {
namespace {

constexpr std::uint64_t flagBits = 3;
constexpr std::uint64_t alignment = 8;
// A block without room for a message is never chosen.
constexpr std::uint64_t smallestArea = SiblingArea::headerSize + alignment;
// Offsets are cut to 32 bits in the notices that siblings send each other.
constexpr std::uint64_t largestRegion = std::uint64_t{1} << 32U;

// Where the payload of `length` bytes of the block at `b` ends, taken up to a multiple of 8.
std::uint64_t alignedEnd(std::uint64_t b, std::uint64_t length)
{
    return (b + length + SiblingArea::headerSize + alignment - 1) & ~(alignment - 1);
}

bool isMisaligned(std::uint64_t offset)
{
    return (offset & flagBits) != 0;
}

std::string hex(std::uint64_t value)
{
    return hex64ToString(value);
}

std::string text(std::uint64_t value)
{
    return uint64ToString(value);
}

}  // namespace

void SiblingArea::initArea(char* base, std::uint64_t size, std::uint64_t start,
                           std::uint64_t length)
{
    if (size > largestRegion)
        assertion("Region of " + text(size) + " bytes, most are " + text(largestRegion));
    if (start > size || length > size - start || start % alignment != 0 ||
        length % alignment != 0 || (length != 0 && length < smallestArea))
        assertion("Area at " + text(start) + " of " + text(length) + " bytes in a region of " +
                  text(size));
    region_base = base;
    region_size = size;
    mastart = start;
    masize = length;
    write_size = 0;
    write_offset = 0;
    block_off = noBlock;
    if (length == 0)
        return;
    initFree(start, start, areaEnd());
    block_off = start;
}

// ---- Any block of the region -------------------------------------------------------------------

SiblingArea::Header& SiblingArea::header(std::uint64_t b) const
{
    return *reinterpret_cast<Header*>(region_base + b);
}

std::uint64_t SiblingArea::prevOffset(std::uint64_t b) const
{
    return header(b).prev_offset & ~flagBits;
}

std::uint64_t SiblingArea::nextOffset(std::uint64_t b) const
{
    const Header& block = header(b);
    const std::uint64_t pad = (block.prev_offset & padFlag) != 0 ? alignment : 0;
    return alignedEnd(b, block.size) + pad;
}

void SiblingArea::checkOffset(std::uint64_t offset) const
{
    if (offset >= region_size)
        assertion("Offset out of range: " + text(offset) + " !< " + text(region_size));
}

void SiblingArea::checkHeader(std::uint64_t offset) const
{
    checkOffset(offset);
    if (offset % alignment != 0)
        assertion("Block offset misaligned: " + text(offset));
    checkOffset(offset + headerSize - 1);
}

std::uint64_t SiblingArea::messageSize(std::uint64_t b) const
{
    checkHeader(b);
    const Header block = header(b);
    if ((block.prev_offset & usedFlag) == 0 || block.size == 0)
        assertion("Block at " + text(b) + " holds no message");
    if (block.size > region_size - b - headerSize)
        assertion("Offset out of range: " + text(b) + " + " + text(headerSize) + " + " +
                  text(block.size) + " !< " + text(region_size));
    return block.size;
}

void SiblingArea::setPrevOffset(std::uint64_t b, std::uint64_t offset)
{
    if (isMisaligned(offset))
        assertion("prev_offset misaligned");
    Header& block = header(b);
    block.prev_offset = offset | (block.prev_offset & flagBits);
}

void SiblingArea::initUsed(std::uint64_t b, std::uint64_t prev, std::uint64_t next,
                           std::uint64_t length)
{
    if (isMisaligned(prev))
        assertion("Misaligned prev_offset: " + hex(prev));
    if (length == 0)
        assertion("Creating empty block");
    Header& block = header(b);
    block.prev_offset = prev | usedFlag;
    const std::uint64_t align = alignedEnd(b, length);
    if (next == align + alignment)
        block.prev_offset |= padFlag;
    else if (next != align)
        assertion("Invalid next_offset: " + text(next) + ", align: " + text(align) +
                  ", my: " + text(b) + ", len: " + text(length));
    block.size = length;
    if (nextOffset(b) != next)
        assertion("initUsed next_offset is " + text(nextOffset(b)) + " but should be " +
                  text(next));
}

void SiblingArea::initFree(std::uint64_t b, std::uint64_t prev, std::uint64_t next)
{
    if (isMisaligned(prev))
        assertion("Misaligned prev_offset: " + hex(prev));
    Header& block = header(b);
    block.prev_offset = prev;
    block.size = next - b - headerSize;
    if (nextOffset(b) != next)
        assertion("initFree next_offset is " + text(nextOffset(b)) + " but should be " +
                  text(next));
}

// ---- The own area ------------------------------------------------------------------------------

// A size that is beyond all bounds can bring the sum round to a place within them.
bool SiblingArea::endsInArea(std::uint64_t b) const
{
    const std::uint64_t next = nextOffset(b);
    return header(b).size <= areaEnd() - b && next > mastart && next <= areaEnd();
}

bool SiblingArea::leavesHeader(std::uint64_t next) const
{
    return next == areaEnd() || next + headerSize <= areaEnd();
}

char* SiblingArea::beginBlock()
{
    if (block_off == noBlock)
        assertion("SiblingOStream::writeBegin(), ready but no free blocks");
    if (block_off < mastart || block_off > areaEnd() - headerSize)
        assertion("SiblingOStream::writeBegin(): Invalid block_off: " + text(block_off) +
                  " mastart: " + text(mastart) + " masize: " + text(masize) +
                  " bsize: " + text(headerSize));
    const std::uint64_t next = nextOffset(block_off);
    if (!endsInArea(block_off))
        assertion("writeBegin(): next_offset out of bounds " + hex(next));
    write_size = next - block_off - headerSize;
    write_offset = 0;
    if (write_size == 0)
        assertion("No space available in SiblingOStream::writeBegin()");
    return payload(block_off);
}

std::uint64_t SiblingArea::finishBlock()
{
    const std::uint64_t b = block_off;
    const std::uint64_t w = write_offset;
    const std::uint64_t next = nextOffset(b);
    if (!endsInArea(b))
        assertion("writeCommit(): next_offset out of bounds " + hex(next));
    if (w > next - b - headerSize)
        assertion("Overcommit in SiblingOStream");

    if (w + 2 * headerSize > next - b) {
        // The rest can't hold a header of its own: 8 bytes of it at the most are no payload.
        initUsed(b, prevOffset(b), next, w);
        block_off = next;
        if (!leavesHeader(nextOffset(b)))
            assertion("(nosplit) Next Offset of block is at " + text(nextOffset(b)) +
                      " and the end of our area is at " + text(areaEnd()));
    } else {
        const std::uint64_t rest = alignedEnd(b, w);
        if (rest < mastart || rest + headerSize > areaEnd())
            assertion("new_offset " + text(rest) + " out of bounds; mastart: " + text(mastart) +
                      " masize: " + text(masize));
        initUsed(b, prevOffset(b), rest, w);
        initFree(rest, b, next);
        if (nextOffset(rest) != next)
            assertion("Bad next_offset - block header has " + text(nextOffset(rest)) +
                      " and we expected " + text(next));
        if (!leavesHeader(nextOffset(rest)))
            assertion("(split) Next Offset of new block is at " + text(nextOffset(rest)) +
                      " and the end of our area is at " + text(areaEnd()));
        if (next < areaEnd())
            setPrevOffset(next, rest);
        block_off = rest;
    }
    findFreeBlock();
    return b;
}

void SiblingArea::findFreeBlock()
{
    const std::uint64_t end = areaEnd();
    // A search that starts at the end of the area comes back to the block there, the first one.
    const std::uint64_t start = block_off == end ? mastart : block_off;
    std::uint64_t cur = start;
    bool isWrapped = false;
    do {
        if (cur > end - headerSize)
            assertion("search_off at " + text(cur) + " with end of area at " + text(end));
        checkOffset(cur);
        const std::uint64_t next = nextOffset(cur);
        if (!endsInArea(cur))
            assertion("next_off (" + text(next) + " is beyond our area");
        if (!isUsed(cur) && next != cur + headerSize) {
            block_off = cur;
            return;
        }
        // Without this, a size that leads past the start would keep the search going for ever.
        if (isWrapped && next > start)
            assertion("Search for a free block has passed its start at " + text(start));
        isWrapped = isWrapped || next == end;
        cur = next == end ? mastart : next;
    } while (cur != start);
    block_off = noBlock;
    setWriteReady(false);
}

void SiblingArea::freeBlock(std::uint64_t b, bool writing)
{
    checkHeader(b);
    if (!isOwn(b) || !isUsed(b))
        assertion("Block at " + text(b) + " is no message of ours");
    const std::uint64_t merged = mergeWithNeighbours(b, writing);
    if (block_off == noBlock) {
        block_off = merged;
        findFreeBlock();
        if (block_off != noBlock)
            setWriteReady(true);
    }
}

void SiblingArea::abandonBlock()
{
    if (block_off != noBlock)
        mergeWithNeighbours(block_off, false);
}

// Makes the block at `b` one free block with the free ones on both sides, and returns where it
// begins. block_off follows if it was one of them.
std::uint64_t SiblingArea::mergeWithNeighbours(std::uint64_t b, bool writing)
{
    const std::uint64_t end = areaEnd();
    std::uint64_t first = b;
    std::uint64_t next = nextOffset(b);
    if (!endsInArea(b) || !leavesHeader(next))
        assertion("next_off (" + text(next) + " is beyond our area");
    // The place of a message that is being written can't move. Behind it, there is just more room
    // than it was told of.
    if (next < end && !isUsed(next) && !(writing && next == block_off)) {
        if (block_off == next)
            block_off = b;
        const std::uint64_t follower = nextOffset(next);
        if (!endsInArea(next) || !leavesHeader(follower))
            assertion("next_off (" + text(follower) + " is beyond our area");
        next = follower;
    }
    if (b != mastart) {
        const std::uint64_t prev = prevOffset(b);
        if (prev < mastart || prev >= b || prev % alignment != 0 || nextOffset(prev) != b)
            assertion("prev_offset of block at " + text(b) + " is " + text(prev) +
                      ", where no block before it begins");
        if (!isUsed(prev)) {
            first = prev;
            if (block_off == b)
                block_off = first;
        }
    }
    initFree(first, first == mastart ? mastart : prevOffset(first), next);
    if (next < end)
        setPrevOffset(next, first);
    return first;
}

}  // namespace io
