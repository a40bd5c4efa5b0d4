// The bytes around a bad place, for people who look at them in a hex dump of the input.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace dump {

// "190 (0xbe)"
std::string offsetText(std::uint64_t offset);

// Lines of 16 bytes as "hexdump -C" has them: the one in which the mark lies, with "^^" under its
// byte, the one before it and at most two behind. `bytes` begin at `begin` of the stream, and the
// mark, an offset in the stream too, lies in them or at their end. Lines begin at multiples of 16
// of the stream; what is not among the bytes is blank in them.
std::string bytesAround(std::string_view bytes, std::uint64_t begin, std::uint64_t mark);

}  // namespace dump
