#include "tests/support/UdpServer.h"

#include "tests/support/Limit.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace support {

UdpServer::UdpServer(Answer itsAnswer)
    : answer(std::move(itsAnswer)), descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
{
    own.sin_family = AF_INET;
    own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof own;
    if (bind(descriptor, reinterpret_cast<sockaddr*>(&own), length) != 0 ||
        getsockname(descriptor, reinterpret_cast<sockaddr*>(&own), &length) != 0)
        throw std::system_error(errno, std::generic_category(), "UDP server");
    thread = std::thread([this] { run(); });
}

UdpServer::~UdpServer()
{
    stopping = true;
    reply({.bytes = {}, .from = own}, "");  // whatever wakes the thread, it sees the flag
    thread.join();
    close(descriptor);
}

void UdpServer::run()
{
    std::array<char, 65536> buffer;
    for (;;) {
        Query query;
        socklen_t length = sizeof query.from;
        const ssize_t size = recvfrom(descriptor, buffer.data(), buffer.size(), 0,
                                      reinterpret_cast<sockaddr*>(&query.from), &length);
        if (stopping || size < 0)
            return;
        query.bytes.assign(buffer.data(), static_cast<std::size_t>(size));
        if (answer) {
            for (const std::string& datagram : answer(query.bytes))
                reply(query, datagram);
        }
        const std::lock_guard lock(mutex);
        queries.push_back(std::move(query));
        changed.notify_all();
    }
}

UdpServer::Query UdpServer::waitForQuery(std::size_t index)
{
    std::unique_lock lock(mutex);
    if (!changed.wait_until(lock, usualLimit(), [&] { return index < queries.size(); }))
        throw LimitPassed("the limit passed while a server waited for a query");
    return queries[index];
}

void UdpServer::reply(const Query& query, const std::string& datagram) const
{
    sendto(descriptor, datagram.data(), datagram.size(), 0,
           reinterpret_cast<const sockaddr*>(&query.from), sizeof query.from);
}

}  // namespace support
