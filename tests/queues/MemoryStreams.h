// Streams without a descriptor: input that comes in given pieces, output into areas of a given
// size. They are always ready, so an ioprim on them never waits.
#pragma once

#include "io/Stream.h"

#include <algorithm>
#include <cstdint>
#include <list>
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
    void append(std::string_view piece) { pieces.emplace_back(piece.begin(), piece.end()); }

    std::string name() const override { return "memory"; }
    bool isReady() override { return true; }
    std::uint64_t readBegin(char** data) override
    {
        if (pieces.empty())
            throw io::EEndOfStream(this, "");
        *data = pieces.front().data();
        return pieces.front().size();
    }
    void readCommit(std::uint64_t count) override
    {
        std::vector<char>& first = pieces.front();
        committed += count;
        first.erase(first.begin(), first.begin() + static_cast<std::ptrdiff_t>(count));
        if (first.empty())
            pieces.pop_front();
    }
    void close() override {}

    std::uint64_t committed = 0;

private:
    std::list<std::vector<char>> pieces;
};

// Offers areas of one size and keeps what was committed. To commit more than was offered is for a
// sanitizer to see, in both streams.
class Output : public io::OStream {
public:
    explicit Output(std::size_t areaSize = 4096) : size(areaSize) {}

    std::string name() const override { return "memory"; }
    bool isReady() override { return true; }
    std::uint64_t writeBegin(char** space) override
    {
        area.assign(size, '\xEE');
        *space = area.data();
        return size;
    }
    void writeCommit(std::uint64_t count) override
    {
        sent.append(area.data(), count);
        area = {};
    }
    void close() override {}

    std::string sent;

private:
    std::size_t size;
    std::vector<char> area;
};

}  // namespace memory
