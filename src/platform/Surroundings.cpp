// What a program asks of its surroundings: addresses of names, its own, and the terminal.

#include "platform/Process.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace platform {

std::vector<std::uint32_t> resolveIpv4(const std::string& host, std::string* why)
{
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;  // one entry an address
    addrinfo* found = nullptr;
    const int result = getaddrinfo(host.c_str(), nullptr, &hints, &found);
    if (result != 0) {
        *why = result == EAI_SYSTEM ? std::strerror(errno) : gai_strerror(result);
        return {};
    }
    std::vector<std::uint32_t> addresses;
    for (const addrinfo* entry = found; entry; entry = entry->ai_next) {
        sockaddr_in address{};
        std::memcpy(&address, entry->ai_addr, sizeof address);
        if (std::find(addresses.begin(), addresses.end(), address.sin_addr.s_addr) ==
            addresses.end())
            addresses.push_back(address.sin_addr.s_addr);
    }
    freeaddrinfo(found);
    if (addresses.empty())
        *why = "no address";
    return addresses;
}

bool hostName(std::string* name)
{
    char buffer[1024];
    if (gethostname(buffer, sizeof buffer) != 0)
        return false;
    // A name that was cut has no zero byte.
    buffer[sizeof buffer - 1] = '\0';
    *name = buffer;
    return true;
}

bool standardOutputIsTerminal()
{
    return isatty(STDOUT_FILENO) == 1;
}

bool standardErrorIsTerminal()
{
    return isatty(STDERR_FILENO) == 1;
}

int terminalColumns()
{
    winsize size{};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0)
        return 80;
    return size.ws_col;
}

}  // namespace platform
