#include "parent/DemoService.h"

#include "common/errors.h"

#include <cstring>
#include <string>

namespace parent {

platform::Endpoint DemoService::loopback()
{
    const unsigned char bytes[] = {127, 0, 0, 1};
    platform::Endpoint endpoint;
    std::memcpy(&endpoint.address, bytes, sizeof endpoint.address);
    return endpoint;
}

std::uint16_t DemoService::portOf(platform::SocketHandle socket)
{
    platform::Endpoint local;
    if (platform::getSockName(socket, &local) != 0)
        fail("learn its port");
    return local.port;
}

void DemoService::fail(const char* what)
{
    throwSystemError(static_cast<std::uint32_t>(platform::wsaGetLastError()),
                     std::string("a service of the demo can't ") + what);
}

}  // namespace parent
