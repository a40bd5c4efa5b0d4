// The services of the demo: each listens on a free port of loopback from its making to its end,
// and is played inside this process, from the main selector. They end with whatever is under way,
// at any time.
#pragma once

#include "platform/Overlapped.h"

#include <cstdint>

namespace parent {

class DemoService {
public:
    DemoService() = default;
    DemoService(const DemoService&) = delete;
    DemoService& operator=(const DemoService&) = delete;
    virtual ~DemoService() = default;

    virtual std::uint16_t port() const = 0;

protected:
    // Any free port.
    static platform::Endpoint loopback();
    // The port that a socket is bound to. Throws error::ESystemError.
    static std::uint16_t portOf(platform::SocketHandle socket);
    // Throws error::ESystemError for the last error: the service can't do `what`.
    [[noreturn]] static void fail(const char* what);
};

}  // namespace parent
