// Values to bytes and bytes to values, over one input and one output stream.
//
// The format is a plain memory image of numbers in native byte order (little-endian here), with
// length-prefixed strings: nothing is aligned or padded, and there is no frame length, version or
// checksum. An event's extent is known only by decoding it.
//
//   int32, uint32, enumerations      4   the number
//   int64, uint64                    8   the number
//   double                           8   IEEE 754
//   float                            4   IEEE 754
//   bool                             4   0 or 1; any other value reads as true
//   uint16                           4   widened; reading keeps the low 16 bits
//   string                       8 + n   uint64 byte count, then the bytes
//   Time                             8   sec, usec as int32
//   list, vector, set        4 + ...     int32 count, then the elements; a set ascending
//   map                      4 + ...     int32 count, then key and value, keys ascending
//
// For example the string "ok" is 02 00 00 00 00 00 00 00 6F 6B.
//
// Reading blocks: once an event has begun, the decoder waits on its input stream alone until the
// frame is whole.
#pragma once

#include "common/Time.h"
#include "io/Stream.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace protocol {

class ioprim {
public:
    // Neither stream is owned; either may be null in one that only writes or only reads.
    ioprim(io::IStream* source, io::OStream* sink) : in(source), out(sink) {}
    ioprim(const ioprim&) = delete;
    ioprim& operator=(const ioprim&) = delete;
    virtual ~ioprim();

    // Places n bytes, at most 8, as one unit that is never split over two write areas.
    void writePrim(std::size_t n, const void* data)
    {
        if (wlen - wused < n)
            newPrimArea(n);
        std::memcpy(wbuf + wused, data, n);
        wused += n;
    }
    // The same for a number. A function of its own, so that the size is known where gcc doesn't
    // inline it: a record of many fields is written half as fast by calls of memcpy.
    template <class Number>
    void writeNumber(Number value)
    {
        if (wlen - wused < sizeof value)
            newPrimArea(sizeof value);
        std::memcpy(wbuf + wused, &value, sizeof value);
        wused += sizeof value;
    }
    // Places n bytes of any length.
    void writeBytes(std::size_t n, const void* data);
    // Takes n bytes; waits for them. Throws io::EEndOfStream and system errors.
    void readBytes(std::size_t n, void* data)
    {
        if (n >= rlen - rused) {
            readToTheEnd(n, data);
        } else if (n != 0) {
            std::memcpy(data, rbuf + rused, n);
            rused += n;
        }
    }
    // The same for a number.
    template <class Number>
    Number readNumber()
    {
        Number value;
        if (sizeof value >= rlen - rused) {
            readToTheEnd(sizeof value, &value);
        } else {
            std::memcpy(&value, rbuf + rused, sizeof value);
            rused += sizeof value;
        }
        return value;
    }
    // A text with its count of bytes in front, in one step where it lies in one area.
    void writeText(const std::string& text);
    // Takes memory as the bytes arrive. A length that no string can have throws std::length_error,
    // one that no memory can hold std::bad_alloc, both before a byte of it is read.
    void readText(std::string* text);
    // Commits what was placed and waits until the output stream has sent it.
    void flush();

    io::IStream* input() const { return in; }

    // How deeply records within records may nest on reading. One more is error::ERange.
    static constexpr unsigned maximumDepth = 200;

    // Counts one level of nesting for its lifetime.
    class Nesting {
    public:
        explicit Nesting(ioprim& stream) : link(stream)
        {
            if (link.depth == maximumDepth)
                refuse();
            ++link.depth;
        }
        ~Nesting() { --link.depth; }
        Nesting(const Nesting&) = delete;
        Nesting& operator=(const Nesting&) = delete;

    private:
        [[noreturn]] static void refuse();

        ioprim& link;
    };

private:
    void newWriteArea();
    void newReadArea();
    void commitUsedUpArea();
    void newPrimArea(std::size_t n);
    // Takes n bytes where the read area holds no more than these, so that it is used up.
    void readToTheEnd(std::size_t n, void* data);

    char* wbuf = nullptr;
    std::uint64_t wlen = 0;
    std::uint64_t wused = 0;
    char* rbuf = nullptr;
    std::uint64_t rlen = 0;
    std::uint64_t rused = 0;
    io::IStream* in;
    io::OStream* out;
    unsigned depth = 0;
};

inline ioprim& operator<<(ioprim& stream, std::int32_t value)
{
    stream.writeNumber(value);
    return stream;
}
inline ioprim& operator<<(ioprim& stream, std::uint32_t value)
{
    stream.writeNumber(value);
    return stream;
}
inline ioprim& operator<<(ioprim& stream, std::int64_t value)
{
    stream.writeNumber(value);
    return stream;
}
inline ioprim& operator<<(ioprim& stream, std::uint64_t value)
{
    stream.writeNumber(value);
    return stream;
}
inline ioprim& operator<<(ioprim& stream, double value)
{
    stream.writeNumber(value);
    return stream;
}
inline ioprim& operator<<(ioprim& stream, float value)
{
    stream.writeNumber(value);
    return stream;
}
inline ioprim& operator<<(ioprim& stream, bool value)
{
    return stream << static_cast<std::uint32_t>(value);
}
inline ioprim& operator<<(ioprim& stream, std::uint16_t value)
{
    return stream << static_cast<std::uint32_t>(value);
}
inline ioprim& operator<<(ioprim& stream, const std::string& value)
{
    stream.writeText(value);
    return stream;
}
inline ioprim& operator<<(ioprim& stream, const Time& value)
{
    return stream << value.sec << value.usec;
}
// A pointer would go out as a bool.
ioprim& operator<<(ioprim& stream, const void* value) = delete;

inline ioprim& operator>>(ioprim& stream, std::int32_t& value)
{
    value = stream.readNumber<std::int32_t>();
    return stream;
}
inline ioprim& operator>>(ioprim& stream, std::uint32_t& value)
{
    value = stream.readNumber<std::uint32_t>();
    return stream;
}
inline ioprim& operator>>(ioprim& stream, std::int64_t& value)
{
    value = stream.readNumber<std::int64_t>();
    return stream;
}
inline ioprim& operator>>(ioprim& stream, std::uint64_t& value)
{
    value = stream.readNumber<std::uint64_t>();
    return stream;
}
inline ioprim& operator>>(ioprim& stream, double& value)
{
    value = stream.readNumber<double>();
    return stream;
}
inline ioprim& operator>>(ioprim& stream, float& value)
{
    value = stream.readNumber<float>();
    return stream;
}
inline ioprim& operator>>(ioprim& stream, bool& value)
{
    std::uint32_t word = 0;
    stream >> word;
    value = word != 0;
    return stream;
}
inline ioprim& operator>>(ioprim& stream, std::uint16_t& value)
{
    std::uint32_t word = 0;
    stream >> word;
    value = static_cast<std::uint16_t>(word);
    return stream;
}
inline ioprim& operator>>(ioprim& stream, std::string& value)
{
    stream.readText(&value);
    return stream;
}
inline ioprim& operator>>(ioprim& stream, Time& value)
{
    return stream >> value.sec >> value.usec;
}

}  // namespace protocol
