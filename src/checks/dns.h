// DNS messages (RFC 1035): writes one question, reads the sections of a reply.
//
// The functions work in place on a datagram and allocate nothing but the texts they give. All
// positions point into one buffer: `message` is its first byte, the base of compression offsets,
// and `end` one past its last valid byte. Numbers are big-endian. The header of 12 bytes is the
// caller's.
#pragma once

#include "common/errors.h"

#include <cstdint>
#include <string>
#include <string_view>

// A reply that doesn't hold what it announces, or a question that can't be written: the fault of
// the datagram or of the configuration, never of the process.
class EDnsMessage : public error::TextException {
    using TextException::TextException;
};

struct DnsRecord {
    std::string name;  // in dotted form, with a trailing dot
    std::uint32_t type = 0;
    std::uint32_t rclass = 0;
    std::uint32_t ttl = 0;  // seconds
    std::string data;       // a name in dotted form for the types that hold one, else raw bytes
};

// Writes a question at `position` and gives the position behind it. Throws EDnsMessage: "DNS name
// too long", "DNS label too long" or "Not enough buffer space".
char* dnsEncodeQuestion(char* position, const char* end, std::string_view name, std::uint16_t qtype,
                        std::uint16_t qclass);

// The readers give the position behind the entry at `position`. They throw EDnsMessage with "Read
// beyond end of DNS datagram", and read no byte at or past `end`.
const char* dnsSkipQuestion(const char* message, const char* position, const char* end);
const char* dnsDecodeName(std::string& out, const char* message, const char* position,
                          const char* end);
const char* dnsDecodeRecord(DnsRecord& out, const char* message, const char* position,
                            const char* end);
