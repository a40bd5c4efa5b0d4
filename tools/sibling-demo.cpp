// sibling-demo: processes that exchange messages through shared memory.

#include "siblings/CommandLine.h"

int main(int argc, char** argv)
{
    return siblings::runCommandLine(argc, argv);
}
