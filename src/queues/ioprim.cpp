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

void ioprim::newReadArea()
{
    const std::uint64_t taken = rused;
    // Both at once, so that no stale bytes show if readBegin throws.
    rused = 0;
    rlen = 0;
    if (taken != 0)
        in->readCommit(taken);
    in->waitReady();
    rlen = in->readBegin(&rbuf);
}

// An exhausted area is committed at once, so that the stream's own readiness says whether more
// input is waiting.
void ioprim::commitUsedUpArea()
{
    if (rused != rlen || rused == 0)
        return;
    const std::uint64_t taken = rused;
    rused = 0;
    rlen = 0;
    in->readCommit(taken);
}

void ioprim::readToTheEnd(std::size_t n, void* data)
{
    if (n == 0)
        return;
    char* to = static_cast<char*>(data);
    while (n != 0) {
        if (rused == rlen)
            newReadArea();
        const std::size_t part = std::min<std::size_t>(n, rlen - rused);
        std::memcpy(to, rbuf + rused, part);
        rused += part;
        to += part;
        n -= part;
    }
    commitUsedUpArea();
}

void ioprim::writeText(const std::string& text)
{
    const std::uint64_t length = text.size();
    if (length > wlen - wused || wlen - wused - length < sizeof length) {
        writeNumber(length);
        writeBytes(text.size(), text.data());
        return;
    }
    std::memcpy(wbuf + wused, &length, sizeof length);
    if (length != 0)
        std::memcpy(wbuf + wused + sizeof length, text.data(), text.size());
    wused += sizeof length + length;
}

void ioprim::readText(std::string* text)
{
    constexpr std::uint64_t addressSpace = std::uint64_t{1} << 47;
    constexpr std::uint64_t takenOnTrust = 65536;

    text->clear();
    const auto length = readNumber<std::uint64_t>();
    if (length > text->max_size())
        throw std::length_error("string of the wire");
    if (length > addressSpace)
        throw std::bad_alloc();
    if (length == 0)
        return;

    // The length is the sender's word only. Beyond a trifle, the string grows by what arrives, and
    // so has room for twice as much at the most.
    if (length <= takenOnTrust)
        text->reserve(length);
    while (text->size() != length) {
        if (rused == rlen)
            newReadArea();
        const std::size_t part = std::min<std::uint64_t>(length - text->size(), rlen - rused);
        text->append(rbuf + rused, part);
        rused += part;
    }
    commitUsedUpArea();
}

void ioprim::Nesting::refuse()
{
    throw error::ERange("nesting too deep: more than " + uintToString(maximumDepth) +
                        " records within each other");
}

}  // namespace protocol
