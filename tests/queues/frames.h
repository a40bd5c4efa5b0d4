// Frames as bytes: in hexadecimal, out of events, back into events.
#pragma once

#include "queues/event.h"
#include "tests/queues/MemoryStreams.h"

#include <memory>
#include <sstream>
#include <string>
#include <string_view>

namespace frames {

// "0A 0b" or "0A0b".
inline std::string unhex(std::string_view hex)
{
    std::string digits;
    for (const char c : hex)
        if (c != ' ' && c != '\n')
            digits += c;
    std::string bytes;
    for (std::size_t at = 0; at + 1 < digits.size(); at += 2)
        bytes += static_cast<char>(std::stoi(digits.substr(at, 2), nullptr, 16));
    return bytes;
}

inline std::string encode(const queues::event& e)
{
    memory::Output output;
    protocol::ioprim link(nullptr, &output);
    link << e;
    link.flush();
    return output.sent;
}

inline std::unique_ptr<queues::event> decode(std::string_view bytes)
{
    memory::Input input(bytes);
    protocol::ioprim link(&input, nullptr);
    std::unique_ptr<queues::event> e;
    link >> e;
    return e;
}

// What an event of this class carries; a std::bad_cast if it is another.
template <class Event>
const auto& payload(const std::unique_ptr<queues::event>& e)
{
    return dynamic_cast<const Event&>(*e).data;
}

inline std::string print(const queues::event& e, int indent = 0)
{
    std::ostringstream text;
    printEvent(text, e, indent);
    return text.str();
}

}  // namespace frames
