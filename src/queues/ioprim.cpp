#include "queues/ioprim.h"

#include "common/assertion.h"
#include "common/errors.h"
#include "common/text.h"
#include "queues/lastEvent.h"

#include <algorithm>
#include <new>
#include <stdexcept>

namespace protocol {

ioprim::~ioprim()
{
    forgetEvents(*this);
}

// The old area is given up before anything that can throw.
void ioprim::newWriteArea()
{
    const std::uint64_t placed = wused;
    wused = 0;
    wlen = 0;
    if (placed != 0)
        out->writeCommit(placed);
    out->waitReady();
    wlen = out->writeBegin(&wbuf);
}

void ioprim::newPrimArea(std::size_t n)
{
    newWriteArea();
    if (wlen < n)
        assertion("New write area of size " + uint64ToString(wlen) +
                  " too small for primitive write");
}

void ioprim::writeBytes(std::size_t n, const void* data)
{
    const char* from = static_cast<const char*>(data);
    while (n != 0) {
        if (wused == wlen)
            newWriteArea();
        const std::size_t part = std::min<std::size_t>(n, wlen - wused);
        std::memcpy(wbuf + wused, from, part);
        wused += part;
        from += part;
        n -= part;
    }
}

void ioprim::flush()
{
    if (wused == 0)
        return;
    const std::uint64_t placed = wused;
    wused = 0;
    wlen = 0;
    out->writeCommit(placed);
    out->waitReady();
}

void ioprim::readToTheEnd(std::size_t n, void* data)
{
    if (n == 0)
        return;
    char* to = static_cast<char*>(data);
    while (n != 0) {
        if (rused == rlen) {
            const std::uint64_t taken = rused;
            // Both at once, so that no stale bytes show if readBegin throws.
            rused = 0;
            rlen = 0;
            if (taken != 0)
                in->readCommit(taken);
            in->waitReady();
            rlen = in->readBegin(&rbuf);
        }
        const std::size_t part = std::min<std::size_t>(n, rlen - rused);
        std::memcpy(to, rbuf + rused, part);
        rused += part;
        to += part;
        n -= part;
    }
    // An exhausted area is committed at once, so that the stream's own readiness says whether
    // more input is waiting.
    if (rused == rlen && rused != 0) {
        const std::uint64_t taken = rused;
        rused = 0;
        rlen = 0;
        in->readCommit(taken);
    }
}

void ioprim::Nesting::refuse()
{
    throw error::ERange("nesting too deep: more than " + uintToString(maximumDepth) +
                        " records within each other");
}

ioprim& operator<<(ioprim& stream, const std::string& value)
{
    stream << static_cast<std::uint64_t>(value.size());
    stream.writeBytes(value.size(), value.data());
    return stream;
}

ioprim& operator>>(ioprim& stream, std::string& value)
{
    constexpr std::uint64_t addressSpace = std::uint64_t{1} << 47;
    constexpr std::size_t firstStep = 4096;

    value.clear();
    std::uint64_t length = 0;
    stream >> length;
    if (length > value.max_size())
        throw std::length_error("string of the wire");
    if (length > addressSpace)
        throw std::bad_alloc();

    // The length is the sender's word only: each step takes at most as much again as has arrived.
    for (std::size_t arrived = 0; arrived < length;) {
        const std::size_t step =
            std::min<std::uint64_t>(length - arrived, std::max(arrived, firstStep));
        value.resize(arrived + step);
        stream.readBytes(step, value.data() + arrived);
        arrived += step;
    }
    return stream;
}

}  // namespace protocol
