// ber-dump: shows messages of the client protocol.

#include "dump/BerCommandLine.h"

int main(int argc, char** argv)
{
    return dump::runBerCommandLine(argc, argv);
}
