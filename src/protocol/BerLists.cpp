#include "protocol/BerLists.h"

namespace protocol {

void refuseListCopy(const char* name)
{
    throw EBer(std::string("Copy constructor of ") + name + " invoked");
}

}  // namespace protocol
