// Frames from a hostile peer.
//
// The input is a count of piece sizes, the sizes, and a stream of frames:
//     0      count, of which the low 4 bits count
//     1      so many bytes: sizes of the pieces in which the stream arrives, less 1, in turn
//     1 + n  the frames
// Each frame is read twice, a byte at a time and in those pieces, and must come out the same. It
// is written and read again, and must stay the same.
//
// Some frames end the process by design: the walk over the frame refuses those beforehand, and the
// target stops in front of them. Of all others, walk and reader must agree on the end.

#include "common/errors.h"
#include "queues/FrameWalk.h"
#include "queues/event.h"
#include "tests/queues/MemoryStreams.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

void require(bool holds, const char* what)
{
    if (!holds) {
        std::cerr << what << '\n';
        std::abort();
    }
}

// Walks over the frame at the start of the bytes. False if it is no frame.
bool walk(std::string_view bytes, queues::WalkedFrame* walked)
{
    try {
        *walked = queues::walkFrame(bytes);
        // A part of the frame must be found short, and never said to lack more than it does.
        if (walked->whole) {
            const queues::WalkedFrame part =
                queues::walkFrame(bytes.substr(0, walked->size - 1 - walked->size / 3));
            require(!part.whole && part.size <= walked->size, "a part is taken for more");
        }
        return true;
    } catch (const queues::EBadFrame&) {
        return false;
    }
}

// Null if the bytes are no whole and acceptable frame.
std::unique_ptr<queues::event> read(memory::Input& input)
{
    protocol::ioprim link(&input, nullptr);
    std::unique_ptr<queues::event> e;
    try {
        link >> e;
    } catch (const error::Exception&) {
        require(!e, "an event with an exception");
    } catch (const std::bad_alloc&) {
        require(!e, "an event with an exception");
    } catch (const std::length_error&) {
        require(!e, "an event with an exception");
    }
    return e;
}

std::string encode(const queues::event& e)
{
    memory::Output output;
    protocol::ioprim link(nullptr, &output);
    link << e;
    link.flush();
    return output.sent;
}

std::string print(const queues::event& e)
{
    std::ostringstream text;
    printEvent(text, e);
    return text.str();
}

void requireSame(const queues::event& a, const queues::event& b, const char* what)
{
    require(a.type == b.type && a.exception == b.exception, what);
    require(print(a) == print(b) && encode(a) == encode(b), what);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    if (rest.empty())
        return 0;
    const std::size_t sizes = std::min<std::size_t>(data[0] & 0x0F, rest.size() - 1);
    rest.remove_prefix(1);
    std::vector<std::size_t> pieces;
    for (const char less : rest.substr(0, sizes))
        pieces.push_back(static_cast<unsigned char>(less) + std::size_t{1});
    if (pieces.empty())
        pieces.push_back(4096);
    rest.remove_prefix(sizes);

    queues::WalkedFrame walked;
    while (!rest.empty() && walk(rest, &walked)) {
        memory::Input bytewise(rest, 1);
        const auto first = read(bytewise);

        memory::Input piecewise;
        std::string_view left = rest;
        for (std::size_t i = 0; !left.empty(); ++i) {
            piecewise.append(left.substr(0, pieces[i % pieces.size()]));
            left.remove_prefix(std::min(left.size(), pieces[i % pieces.size()]));
        }
        const auto second = read(piecewise);
        require(!first == !second, "the pieces decide whether a frame is read");
        require(!first == !walked.whole, "walk and reader disagree on a frame");
        if (!first)
            return 0;
        require(bytewise.committed == walked.size, "walk and reader disagree on the end");
        requireSame(*first, *second, "the pieces change what is read");

        memory::Input again(encode(*first));
        const auto third = read(again);
        require(third != nullptr, "what was written can't be read");
        requireSame(*first, *third, "writing and reading change an event");
        requireSame(*first, *first->clone(), "a clone differs");

        rest.remove_prefix(bytewise.committed);
    }
    return 0;
}
