// netcheckctl: the parent of workers for people.

#include "parent/CommandLine.h"

int main(int argc, char** argv)
{
    return parent::runCommandLine(argc, argv);
}
