// A show without a network: services that play a script on loopback, and checks of them.
#pragma once

#include "parent/Console.h"

#include <ostream>
#include <string>

namespace parent {

struct DemoSettings {
    std::string worker;  // path of the program
    bool verbose = false;
    bool colour = false;
};

// Says what is expected, makes the checks, and says what came. Gives the exit code of the
// process: 0 if every result is as expected and the worker came to an orderly end, 2 if not, 3 if
// the demo could not be run, 130 if the user interrupted it. Throws error::ESystemError if there
// is no socket to be had, or no TLS.
int runDemo(const DemoSettings& settings, std::ostream& out, Console& console);

}  // namespace parent
