// The own area of a sibling in the memory that all siblings share.
//
// Siblings map one region. Each owns an area of it, in which it alone writes messages, as blocks;
// its peers read them in place. All positions are offsets in bytes from the start of the region,
// and those of blocks are multiples of 8.
//
// A block, in the byte order of the machine:
//   0   8  offset of the block before it in the area; bit 0: used, bit 1: padded
//   8   8  size: of the message, in a used block; of the room for one, in a free block
//   16     payload, followed by up to 7 bytes up to a multiple of 8, and 8 more if padded
//
// The blocks tile the area without gaps. Next-fit: a message goes in the free block at block_off,
// from which the search for the next one starts. Two free neighbours are merged when a block is
// freed, except with a block in which a message is being written; that one is merged later.
//
// No lock is needed: only the owner writes headers, and a reader looks at a block after it has
// received the notice that it is there. A broken header is an assertion, and nothing is read or
// written outside the region because of it.
#pragma once

#include <cstdint>

namespace io {

class SiblingArea {
public:
    struct Header {
        std::uint64_t prev_offset;  // with the flags in the two lowest bits
        std::uint64_t size;
    };
    static constexpr std::uint64_t headerSize = 16;
    static constexpr std::uint64_t usedFlag = 1;
    static constexpr std::uint64_t padFlag = 2;
    static constexpr std::uint64_t noBlock = ~std::uint64_t{0};

    SiblingArea() = default;
    SiblingArea(const SiblingArea&) = delete;
    SiblingArea& operator=(const SiblingArea&) = delete;
    virtual ~SiblingArea() = default;

    // The region is mapped at `base` and stays the caller's. `start` and `length` of the own area
    // are multiples of 8 within it, `length` is 24 at the least; an area of length 0 stands for a
    // sibling that only reads. The area becomes one free block.
    void initArea(char* base, std::uint64_t size, std::uint64_t start, std::uint64_t length);

    // ---- Any block of the region -----------------------------------------------------------
    // The offset is that of a header within the region: see checkHeader.

    Header& header(std::uint64_t b) const;
    bool isUsed(std::uint64_t b) const { return (header(b).prev_offset & usedFlag) != 0; }
    std::uint64_t prevOffset(std::uint64_t b) const;
    std::uint64_t nextOffset(std::uint64_t b) const;
    void checkOffset(std::uint64_t offset) const;
    // That a whole header lies at the offset.
    void checkHeader(std::uint64_t offset) const;
    // The size of the message in a used block of any sibling, of which all bytes are in the region.
    std::uint64_t messageSize(std::uint64_t b) const;
    char* payload(std::uint64_t b) const { return region_base + b + headerSize; }

    void setPrevOffset(std::uint64_t b, std::uint64_t offset);
    void initUsed(std::uint64_t b, std::uint64_t prev, std::uint64_t next, std::uint64_t length);
    void initFree(std::uint64_t b, std::uint64_t prev, std::uint64_t next);

    // ---- The own area ----------------------------------------------------------------------

    // Where the payload of the next message goes; its room is write_size.
    char* beginBlock();
    // Makes a message of the write_offset bytes at block_off, and moves on to another free block.
    // Returns the offset of the message.
    std::uint64_t finishBlock();
    // Leaves block_off on a free block with room, or on noBlock.
    void findFreeBlock();
    // The message at `b` has been read. `writing`: one is being written at block_off.
    void freeBlock(std::uint64_t b, bool writing);
    // No message is being written at block_off any more, and none has come of it.
    void abandonBlock();
    bool isOwn(std::uint64_t b) const { return b >= mastart && b < areaEnd(); }

    std::uint64_t region_size = 0;
    char* region_base = nullptr;
    std::uint64_t mastart = 0;
    std::uint64_t masize = 0;
    std::uint64_t block_off = noBlock;  // noBlock: none is free
    std::uint64_t write_size = 0;       // room of the message that is being written, in bytes
    std::uint64_t write_offset = 0;     // bytes committed to it

protected:
    // There is room for a message, or no longer.
    virtual void setWriteReady(bool isReady) = 0;

private:
    std::uint64_t areaEnd() const { return mastart + masize; }
    bool endsInArea(std::uint64_t b) const;
    bool leavesHeader(std::uint64_t next) const;
    std::uint64_t mergeWithNeighbours(std::uint64_t b, bool writing);
};

}  // namespace io
