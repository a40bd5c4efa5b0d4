#include "checks/dns.h"

#include <algorithm>
#include <cstddef>

namespace {

constexpr std::size_t maxNameLength = 225;
constexpr std::size_t maxLabelLength = 63;
constexpr std::size_t maxDataLength = 1023;

// A name whose pointers form a loop, or that grows through them, ends here. A name as DNS knows
// it has at most 255 bytes, and fewer pointers than labels.
constexpr int maxPointers = 64;
constexpr std::size_t maxDecodedLength = 4096;

// The top two bits of the byte in front of a label.
constexpr unsigned kindMask = 0xC0;
constexpr unsigned labelKind = 0x00;
constexpr unsigned pointerKind = 0xC0;

[[noreturn]] void overrun()
{
    throw EDnsMessage("Read beyond end of DNS datagram");
}

std::size_t roomBetween(const char* position, const char* end)
{
    return static_cast<std::size_t>(end - position);
}

void require(const char* position, const char* end, std::size_t count)
{
    if (roomBetween(position, end) < count)
        overrun();
}

unsigned byteAt(const char* position)
{
    return static_cast<unsigned char>(*position);
}

std::uint32_t readNumber(const char** position, int bytes)
{
    std::uint32_t value = 0;
    for (; bytes > 0; --bytes)
        value = value << 8 | byteAt((*position)++);
    return value;
}

char* writeNumber(char* position, std::uint16_t value)
{
    *position++ = static_cast<char>(value >> 8);
    *position++ = static_cast<char>(value & 0xFF);
    return position;
}

// NS, MD, MF, CNAME, MB, MG, MR, PTR.
bool holdsName(std::uint32_t type)
{
    return (type >= 2 && type <= 5) || (type >= 7 && type <= 9) || type == 12;
}

}  // namespace

char* dnsEncodeQuestion(char* position, const char* end, std::string_view name, std::uint16_t qtype,
                        std::uint16_t qclass)
{
    if (name.size() > maxNameLength)
        throw EDnsMessage("DNS name too long");
    while (!name.empty()) {
        const std::string_view label = name.substr(0, name.find('.'));
        name.remove_prefix(std::min(label.size() + 1, name.size()));
        if (label.empty())
            continue;
        if (label.size() > maxLabelLength)
            throw EDnsMessage("DNS label too long");
        if (roomBetween(position, end) < 1 + label.size())
            throw EDnsMessage("Not enough buffer space");
        *position++ = static_cast<char>(label.size());
        position = std::copy(label.begin(), label.end(), position);
    }
    if (roomBetween(position, end) < 5)
        throw EDnsMessage("Not enough buffer space");
    *position++ = 0;
    position = writeNumber(position, qtype);
    return writeNumber(position, qclass);
}

const char* dnsSkipQuestion(const char*, const char* position, const char* end)
{
    for (;;) {
        require(position, end, 1);
        const unsigned byte = byteAt(position++);
        if (byte == 0)
            break;
        if ((byte & kindMask) == labelKind) {
            require(position, end, byte);
            position += byte;
        } else if ((byte & kindMask) == pointerKind) {
            require(position, end, 1);
            ++position;
            break;
        }
    }
    require(position, end, 4);
    return position + 4;
}

const char* dnsDecodeName(std::string& out, const char* message, const char* position,
                          const char* end)
{
    out.clear();
    const char* behind = nullptr;  // the first pointer, which ends the name's own bytes
    int pointers = 0;
    for (;;) {
        require(position, end, 1);
        const unsigned byte = byteAt(position++);
        if (byte == 0)
            return behind != nullptr ? behind : position;
        if ((byte & kindMask) == labelKind) {
            require(position, end, byte);
            if (out.size() + byte + 1 > maxDecodedLength)
                overrun();
            out.append(position, byte).push_back('.');
            position += byte;
        } else if ((byte & kindMask) == pointerKind) {
            require(position, end, 1);
            const std::size_t offset = (byte & ~kindMask) << 8 | byteAt(position++);
            if (++pointers > maxPointers || offset >= roomBetween(message, end))
                overrun();
            if (behind == nullptr)
                behind = position;
            position = message + offset;
        }
        // The other two kinds mean nothing: such a byte is passed over by itself.
    }
}

const char* dnsDecodeRecord(DnsRecord& out, const char* message, const char* position,
                            const char* end)
{
    position = dnsDecodeName(out.name, message, position, end);
    require(position, end, 10);
    out.type = readNumber(&position, 2);
    out.rclass = readNumber(&position, 2);
    out.ttl = readNumber(&position, 4);
    const std::size_t length = readNumber(&position, 2);
    if (length > maxDataLength)
        overrun();
    require(position, end, length);
    if (holdsName(out.type))
        dnsDecodeName(out.data, message, position, end);
    else
        out.data.assign(position, length);
    return position + length;
}
