// The command line of sibling-demo.
#pragma once

namespace siblings {

// Does what the arguments say, and gives the exit code of the process.
int runCommandLine(int argc, char** argv);

}  // namespace siblings
