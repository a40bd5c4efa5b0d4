// The command line of ber-dump.
#pragma once

namespace dump {

// Does what the arguments say, and gives the exit code of the process.
int runBerCommandLine(int argc, char** argv);

}  // namespace dump
