// Streams without a descriptor: input that comes in given pieces, output into areas of a given
// size. They are always ready, so an ioprim on them never waits.
#pragma once

#include "common/assertion.h"
#include "io/Stream.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <string_view>
#include <vector>

namespace memory {

// Shows one piece after the other, then ends. Each piece lies in a block of its own size, so that
// a sanitizer sees every byte read beyond it.
class Input : public io::IStream {
public:
    Input() = default;
    // The whole text in pieces of so many bytes.
    explicit Input(std::string_view bytes, std::size_t pieceSize = std::string_view::npos)
    {
        for (std::size_t at = 0; at < bytes.size(); at += std::min(pieceSize, bytes.size() - at))
            append(bytes.substr(at, pieceSize));
    }
    void append(std::string_view piece)
    {
        if (!piece.empty())
            pieces.emplace_back(piece.begin(), piece.end());
    }

    std::string name() const override { return "memory"; }
    bool isReady() override { return true; }
    std::uint64_t readBegin(char** data) override
    {
        ++begins;
        if (pieces.empty())
            throw io::EEndOfStream(this, "");
        *data = pieces.front().data() + used;
        return pieces.front().size() - used;
    }
    void readCommit(std::uint64_t count) override
    {
        if (pieces.empty() ? count != 0 : count > pieces.front().size() - used)
            assertion("Overcommit in memory::Input");
        committed += count;
        used += count;
        if (!pieces.empty() && used == pieces.front().size()) {
            pieces.pop_front();
            used = 0;
        }
    }
    void close() override {}

    std::uint64_t committed = 0;
    unsigned begins = 0;

private:
    std::list<std::vector<char>> pieces;
    std::size_t used = 0;  // of the first piece
};

// Offers areas of one size and keeps what was committed.
class Output : public io::OStream {
public:
    explicit Output(std::size_t areaSize = 4096) : size(areaSize) {}

    std::string name() const override { return "memory"; }
    bool isReady() override { return true; }
    std::uint64_t writeBegin(char** space) override
    {
        if (failure)
            throw error::ESystemError("broken");
        area.assign(size, '\xEE');
        *space = area.data();
        return size;
    }
    void writeCommit(std::uint64_t count) override
    {
        if (count > area.size())
            assertion("Overcommit in memory::Output");
        ++commits;
        sent.append(area.data(), count);
        area = {};
    }
    void close() override {}

    std::string sent;
    unsigned commits = 0;
    bool failure = false;  // the next writeBegin throws

private:
    std::size_t size;
    std::vector<char> area;
};

}  // namespace memory
