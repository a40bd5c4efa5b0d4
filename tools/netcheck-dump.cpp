// netcheck-dump: shows the events that went through the pipes of workers.

#include "dump/CommandLine.h"

int main(int argc, char** argv)
{
    return dump::runCommandLine(argc, argv);
}
