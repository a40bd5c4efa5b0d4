// The command line of netcheck-dump.
#pragma once

namespace dump {

// Does what the arguments say, and gives the exit code of the process.
int runCommandLine(int argc, char** argv);

}  // namespace dump
