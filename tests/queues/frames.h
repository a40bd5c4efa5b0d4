// Values and events as bytes: in hexadecimal, written and read.
#pragma once

#include "common/errors.h"
#include "queues/event.h"
#include "queues/typeForms.h"
#include "tests/queues/MemoryStreams.h"

#include <gtest/gtest.h>

namespace frames {

// "0A 0b" gives two bytes.
inline std::string unhex(const std::string& hex)
{
    std::string bytes;
    for (std::size_t at = 0; (at = hex.find_first_not_of(' ', at)) < hex.size(); at += 2)
        bytes += static_cast<char>(std::stoi(hex.substr(at, 2), nullptr, 16));
    return bytes;
}

template <class T>
std::string written(const T& value, std::size_t areaSize = 16)
{
    memory::Output output(areaSize);
    protocol::ioprim link(nullptr, &output);
    link << value;
    link.flush();
    return output.sent;
}

inline std::string written(const std::unique_ptr<queues::event>& e)
{
    return written<queues::event>(*e);
}

// Gives "left " and how many bytes the reader did not commit, or the text of what was thrown.
template <class T>
std::string readInto(T& value, std::string_view bytes, std::size_t pieceSize = 4096)
{
    memory::Input input(bytes, pieceSize);
    protocol::ioprim link(&input, nullptr);
    try {
        link >> value;
        return "left " + std::to_string(bytes.size() - input.committed);
    } catch (const error::Exception& e) {
        return e.text();
    }
}

// The bytes arriving in pieces of every size, and their end at every place. What was read is
// compared by its bytes, and returned.
template <class T>
T expectRead(const std::string& hex)
{
    SCOPED_TRACE(hex);
    const std::string bytes = unhex(hex);
    T copy{};
    for (std::size_t length = 1; length <= bytes.size(); ++length) {
        EXPECT_EQ(readInto(copy, bytes.substr(0, length - 1)), "EOS from memory") << length;
        EXPECT_EQ(readInto(copy, bytes, length), "left 0") << length;
        EXPECT_EQ(written(copy), bytes) << length;
    }
    return copy;
}

// Reads over the given value, and compares with what a writer would have sent.
template <class T>
void expectTaken(T value, const std::string& hex, const std::string& asIf)
{
    EXPECT_EQ(readInto(value, unhex(hex), 4), "left 0") << hex;
    EXPECT_EQ(written(value), unhex(asIf)) << hex;
}

}  // namespace frames
