// What people ask of the demonstration while it runs, as lines of standard input.
#pragma once

#include "io/Pipe.h"

#include <cstdint>
#include <string>
#include <vector>

namespace siblings {

struct Command {
    enum Kind : std::uint8_t { nothing, kill, stop, start, quit };

    Kind kind = nothing;
    std::int32_t id = 0;  // of the child, for kill and stop
};

inline constexpr const char* commandForms = "kill ID, stop ID, start, quit";

// Throws error::EParseError, fit to be shown, for a line that is no command. An empty one is one.
Command parseCommand(const std::string& line);

class CommandInput {
public:
    // To wait on, until atEnd.
    io::Selectable* stream() { return &input; }
    // The lines that have come, without their ends. What stands behind the last line end is a line
    // at the end of the input.
    std::vector<std::string> read();
    bool atEnd() const { return ended; }

private:
    io::StdInStream input;
    std::string typed;  // of a line that has not ended yet
    bool ended = false;
};

}  // namespace siblings
