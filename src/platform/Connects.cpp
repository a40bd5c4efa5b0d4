// Connections: attempts to make one, and listening sockets that take them.

#include "platform/Proactor.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace platform {

namespace {

bool nameOf(decltype(getsockname)* call, int fd, Endpoint* endpoint)
{
    sockaddr_in address{};
    socklen_t length = sizeof address;
    if (call(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        return false;
    *endpoint = fromSockaddr(address);
    return true;
}

// The kernel says that there is a connection. On loopback a socket can meet itself, when the port
// that it was given happens to be the one it asks for: nobody listens there.
std::uint32_t connectionMade(Descriptor& descriptor, const Endpoint& peer)
{
    Endpoint local;
    if (nameOf(getsockname, descriptor.fd, &local) && local == peer)
        return WSAECONNREFUSED;
    descriptor.connected = true;
    return ERROR_SUCCESS;
}

// Starts the attempt. ERROR_IO_PENDING: under way; else its result.
std::uint32_t beginConnect(Token token, Descriptor& descriptor, const Endpoint& peer)
{
    // Linux would take it for this host, and connect to whatever listens here.
    if (peer.address == INADDR_ANY)
        return WSAEADDRNOTAVAIL;

    // What an earlier attempt has left.
    descriptor.readable = true;
    descriptor.writable = true;
    descriptor.hungUp = false;
    descriptor.drained = false;
    descriptor.stickyError = 0;

    const sockaddr_in address = toSockaddr(peer);
    const int failure =
        connect(descriptor.fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0
            ? 0
            : errno;
    // An interrupted connect goes on by itself.
    if (failure != 0 && failure != EINPROGRESS && failure != EINTR)
        return errorCode(failure, ErrorSource::socket);
    if (const std::uint32_t code = Proactor::instance().registerEdges(token, descriptor))
        return code;
    return failure == 0 ? connectionMade(descriptor, peer) : std::uint32_t{ERROR_IO_PENDING};
}

}  // namespace

Handle createConnect(SocketHandle socket, const Endpoint& peer,
                     void (*ended)(void* context, std::uint32_t code), void* context)
{
    Proactor& proactor = Proactor::instance();
    ++proactor.operationsStarted;
    const Token token = tokenOf(socket);
    const Token object = proactor.insertWaitable();
    Waitable& waitable = *proactor.findWaitable(object);
    waitable.ended = ended;
    waitable.context = context;

    Descriptor* const descriptor = proactor.find(token);
    std::uint32_t code = ERROR_IO_PENDING;
    if (!descriptor || descriptor->medium != Medium::stream)
        code = WSAENOTSOCK;
    else if (descriptor->waitable != 0)
        code = WSAEINVAL;  // another attempt is under way
    else
        code = beginConnect(token, *descriptor, peer);

    if (code != ERROR_IO_PENDING) {
        proactor.connectEnded(object, code);
    } else {
        descriptor->waitable = object;
        waitable.descriptor = token;
    }
    return static_cast<Handle>(object);
}

void finishConnect(Descriptor& descriptor, std::uint32_t events)
{
    int failure = 0;
    socklen_t length = sizeof failure;
    if (getsockopt(descriptor.fd, SOL_SOCKET, SO_ERROR, &failure, &length) != 0)
        failure = errno;

    std::uint32_t code = ERROR_SUCCESS;
    if (failure == ECONNRESET || failure == EPIPE) {
        // An attempt is refused; only a connection is reset. There was one, then, and the first
        // transfer learns that it is gone.
        descriptor.connected = true;
        descriptor.stickyError = WSAECONNRESET;
    } else if (failure != 0) {
        code = errorCode(failure, ErrorSource::socket);
    } else {
        Endpoint peer;
        const bool hasPeer = nameOf(getpeername, descriptor.fd, &peer);
        if (!hasPeer && !(events & (EPOLLHUP | EPOLLERR)))
            return;  // still under way
        code = hasPeer ? connectionMade(descriptor, peer) : std::uint32_t{WSAENOTCONN};
    }
    // Without this, a receive after a failed attempt would read as an orderly end.
    if (code != ERROR_SUCCESS)
        descriptor.stickyError = code;
    Proactor& proactor = Proactor::instance();
    if (Waitable* waitable = proactor.findWaitable(descriptor.waitable))
        waitable->descriptor = 0;
    proactor.connectEnded(descriptor.waitable, code);
    descriptor.waitable = 0;
}

// ---- Listening

SocketHandle listen(const Endpoint& local, int backlog)
{
    const SocketHandle socket = tcpSocket();
    if (socket == SocketHandle::invalid)
        return socket;
    Proactor& proactor = Proactor::instance();
    Descriptor& descriptor = *proactor.find(tokenOf(socket));
    descriptor.medium = Medium::listener;

    // A port whose last connections are still fading away is free for a listener.
    const int yes = 1;
    setsockopt(descriptor.fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    std::uint32_t code = ERROR_SUCCESS;
    if (bind(socket, local) != 0)
        code = getLastError();
    else if (::listen(descriptor.fd, backlog) != 0)
        code = errorCode(errno, ErrorSource::socket);
    else
        code = proactor.registerEdges(tokenOf(socket), descriptor);
    if (code != ERROR_SUCCESS) {
        closeSocket(socket);
        setLastError(code);
        return SocketHandle::invalid;
    }
    const Token object = proactor.insertWaitable();
    proactor.findWaitable(object)->descriptor = tokenOf(socket);
    descriptor.waitable = object;
    return socket;
}

Handle acceptReady(SocketHandle listener)
{
    const Descriptor* const descriptor = Proactor::instance().find(tokenOf(listener));
    if (!descriptor || descriptor->medium != Medium::listener) {
        setLastError(WSAENOTSOCK);
        return Handle::none;
    }
    return static_cast<Handle>(descriptor->waitable);
}

SocketHandle accept(SocketHandle listener, Endpoint* peer)
{
    Proactor& proactor = Proactor::instance();
    const Descriptor* const descriptor = proactor.find(tokenOf(listener));
    if (!descriptor || descriptor->medium != Medium::listener) {
        setLastError(WSAENOTSOCK);
        return SocketHandle::invalid;
    }
    sockaddr_in address{};
    socklen_t length = sizeof address;
    int fd = -1;
    do
        fd = accept4(descriptor->fd, reinterpret_cast<sockaddr*>(&address), &length,
                     SOCK_NONBLOCK | SOCK_CLOEXEC);
    while (fd < 0 && (errno == EINTR || errno == ECONNABORTED));
    const int failure = fd < 0 ? errno : 0;

    if (failure == EAGAIN) {
        if (Waitable* waitable = proactor.findWaitable(descriptor->waitable))
            proactor.setSignalled(*waitable, false);
    }
    if (failure != 0) {
        setLastError(errorCode(failure, ErrorSource::socket));
        return SocketHandle::invalid;
    }

    const Token token = proactor.insert(fd, Medium::stream);
    Descriptor& accepted = *proactor.find(token);
    accepted.connected = true;
    if (const std::uint32_t code = proactor.registerEdges(token, accepted)) {
        proactor.close(token);
        setLastError(code);
        return SocketHandle::invalid;
    }
    if (peer)
        *peer = fromSockaddr(address);
    return static_cast<SocketHandle>(token);
}

}  // namespace platform
