// The command line of netcheckctl.
#pragma once

namespace parent {

// Does what the arguments say, and gives the exit code of the process.
int runCommandLine(int argc, char** argv);

}  // namespace parent
