// TCP and UDP sockets: transfers, and the calls that make, bind, shut down and close them.

#include "platform/Proactor.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace platform {

namespace {

constexpr int transferFlags = MSG_DONTWAIT | MSG_NOSIGNAL;

template <class Call>
ssize_t uninterrupted(const Call& call)
{
    ssize_t result = 0;
    do {
        ++Proactor::instance().calls.transfers;
        result = call();
    } while (result < 0 && errno == EINTR);
    return result;
}

int failWith(std::uint32_t code)
{
    setLastError(code);
    return SOCKET_ERROR;
}

int failWithErrno()
{
    return failWith(errorCode(errno, ErrorSource::socket));
}

Descriptor* findSocket(SocketHandle socket)
{
    Descriptor* const descriptor = Proactor::instance().find(tokenOf(socket));
    const bool isSocket = descriptor && (descriptor->medium == Medium::stream ||
                                         descriptor->medium == Medium::datagram ||
                                         descriptor->medium == Medium::listener);
    if (!isSocket)
        setLastError(WSAENOTSOCK);
    return isSocket ? descriptor : nullptr;
}

// ---- Streams
//
// The kernel reports a reset once, to whichever call comes first, and shows an orderly end from
// then on. So the first hard error is kept: what was received before it can still be read, and
// after that every call gives the error again.

std::uint32_t keepError(Descriptor& descriptor, int errnoValue, ErrorSource source)
{
    if (!descriptor.connected)
        return errorCode(errnoValue == EPIPE ? ENOTCONN : errnoValue, source);
    if (descriptor.stickyError == 0)
        descriptor.stickyError = errorCode(errnoValue, ErrorSource::socketCompletion);
    return descriptor.stickyError;
}

Outcome receiveStream(Descriptor& descriptor, ErrorSource source)
{
    const Operation& operation = descriptor.read;
    if (descriptor.drained)
        return Outcome::failed(descriptor.stickyError);
    if (!descriptor.readable && descriptor.stickyError == 0)
        return Outcome::blocked();

    const ssize_t received = uninterrupted(
        [&] { return recv(descriptor.fd, operation.target, operation.count, transferFlags); });
    if (received > 0) {
        // A read that comes back short has emptied the socket, and what comes later makes a new
        // edge. Not so an end or an error that was reported already.
        if (static_cast<std::size_t>(received) < operation.count && !descriptor.hungUp)
            descriptor.readable = false;
        return Outcome::moved(static_cast<std::uint32_t>(received));
    }
    if (received < 0 && errno != EAGAIN)
        keepError(descriptor, errno, source);
    if (descriptor.stickyError != 0) {
        descriptor.drained = true;
        return Outcome::failed(descriptor.stickyError);
    }
    if (received == 0)
        return Outcome::moved(0);
    if (errno == EAGAIN) {
        descriptor.readable = false;
        return Outcome::blocked();
    }
    return Outcome::failed(errorCode(errno, source));
}

Outcome sendStream(Descriptor& descriptor, ErrorSource source)
{
    const Operation& operation = descriptor.write;
    if (descriptor.stickyError != 0)
        return Outcome::failed(descriptor.stickyError);
    if (!descriptor.writable)
        return Outcome::blocked();

    const ssize_t sent = uninterrupted(
        [&] { return send(descriptor.fd, operation.source, operation.count, transferFlags); });
    if (sent >= 0) {
        if (static_cast<std::size_t>(sent) < operation.count)
            descriptor.writable = false;
        return Outcome::moved(static_cast<std::uint32_t>(sent));
    }
    if (errno == EAGAIN) {
        descriptor.writable = false;
        return Outcome::blocked();
    }
    // Our own doing, and no reason not to read on.
    if (errno == EPIPE && descriptor.sendShut)
        return Outcome::failed(WSAESHUTDOWN);
    return Outcome::failed(keepError(descriptor, errno, source));
}

// ---- Datagrams
//
// Each stands for itself: an error belongs to one datagram, and nothing is kept.

Outcome receiveDatagram(Descriptor& descriptor, ErrorSource source)
{
    const Operation& operation = descriptor.read;
    if (descriptor.receiveShut)
        return Outcome::failed(WSAESHUTDOWN);
    if (!descriptor.readable)
        return Outcome::blocked();

    sockaddr_in from{};
    socklen_t length = sizeof from;
    const ssize_t size = uninterrupted([&] {
        return recvfrom(descriptor.fd, operation.target, operation.count, transferFlags | MSG_TRUNC,
                        reinterpret_cast<sockaddr*>(&from), &length);
    });
    if (size < 0) {
        if (errno != EAGAIN)
            return Outcome::failed(errorCode(errno, source));
        descriptor.readable = false;
        return Outcome::blocked();
    }
    if (operation.from)
        *operation.from = fromSockaddr(from);
    if (static_cast<std::size_t>(size) > operation.count)
        return Outcome::moved(operation.count, WSAEMSGSIZE);
    return Outcome::moved(static_cast<std::uint32_t>(size));
}

Outcome sendDatagram(Descriptor& descriptor, ErrorSource source)
{
    const Operation& operation = descriptor.write;
    if (descriptor.sendShut)
        return Outcome::failed(WSAESHUTDOWN);
    // Here it would go to this host; whoever gives no address means none.
    if (operation.to.address == 0)
        return Outcome::failed(WSAEADDRNOTAVAIL);
    if (!descriptor.writable)
        return Outcome::blocked();

    const sockaddr_in to = toSockaddr(operation.to);
    const ssize_t sent = uninterrupted([&] {
        return sendto(descriptor.fd, operation.source, operation.count, transferFlags,
                      reinterpret_cast<const sockaddr*>(&to), sizeof to);
    });
    if (sent >= 0)
        return Outcome::moved(static_cast<std::uint32_t>(sent));
    if (errno != EAGAIN)
        return Outcome::failed(errorCode(errno, source));
    descriptor.writable = false;
    return Outcome::blocked();
}

int startTransfer(SocketHandle socket, Direction direction, const Operation& request)
{
    Proactor& proactor = Proactor::instance();
    ++proactor.operationsStarted;
    const Descriptor* const descriptor = findSocket(socket);
    if (!descriptor)
        return SOCKET_ERROR;
    if (descriptor->medium == Medium::listener)
        return failWith(WSAENOTCONN);
    // Its result would read as the end of the stream.
    if (descriptor->medium == Medium::stream && direction == Direction::read && request.count == 0)
        return failWith(WSAEINVAL);
    switch (proactor.start(tokenOf(socket), direction, request)) {
    case Proactor::Start::finished:
        return 0;
    case Proactor::Start::pending:
        return failWith(ERROR_IO_PENDING);
    case Proactor::Start::failed:
        break;
    }
    return SOCKET_ERROR;
}

}  // namespace

Outcome transferSocket(Descriptor& descriptor, Direction direction, ErrorSource source)
{
    const bool reads = direction == Direction::read;
    if (descriptor.medium == Medium::stream)
        return reads ? receiveStream(descriptor, source) : sendStream(descriptor, source);
    return reads ? receiveDatagram(descriptor, source) : sendDatagram(descriptor, source);
}

sockaddr_in toSockaddr(const Endpoint& endpoint)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = endpoint.address;
    address.sin_port = htons(endpoint.port);
    return address;
}

Endpoint fromSockaddr(const sockaddr_in& address)
{
    return {address.sin_addr.s_addr, ntohs(address.sin_port)};
}

int wsaStartup()
{
    Proactor::instance();
    return 0;
}

int wsaGetLastError()
{
    return static_cast<int>(getLastError());
}

// ---- Making and closing

SocketHandle tcpSocket()
{
    Proactor& proactor = Proactor::instance();
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        failWithErrno();
        return SocketHandle::invalid;
    }
    // A small request behind another one must not wait until the peer has acknowledged that: peers
    // take 40 ms for it, which would count as their reply time.
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    // epoll learns of it once it connects: an idle new socket reports a hang-up.
    return static_cast<SocketHandle>(proactor.insert(fd, Medium::stream));
}

SocketHandle udpSocket()
{
    Proactor& proactor = Proactor::instance();
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        failWithErrno();
        return SocketHandle::invalid;
    }
    const Token token = proactor.insert(fd, Medium::datagram);
    if (const std::uint32_t code = proactor.registerEdges(token, *proactor.find(token))) {
        proactor.close(token);
        failWith(code);
        return SocketHandle::invalid;
    }
    return static_cast<SocketHandle>(token);
}

int bind(SocketHandle socket, const Endpoint& local)
{
    const Descriptor* const descriptor = findSocket(socket);
    if (!descriptor)
        return SOCKET_ERROR;
    const sockaddr_in address = toSockaddr(local);
    if (::bind(descriptor->fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        return failWithErrno();
    return 0;
}

int getSockName(SocketHandle socket, Endpoint* local)
{
    const Descriptor* const descriptor = findSocket(socket);
    if (!descriptor)
        return SOCKET_ERROR;
    sockaddr_in address{};
    socklen_t length = sizeof address;
    if (getsockname(descriptor->fd, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        return failWithErrno();
    *local = fromSockaddr(address);
    return 0;
}

int shutdown(SocketHandle socket, int how)
{
    Descriptor* const descriptor = findSocket(socket);
    if (!descriptor)
        return SOCKET_ERROR;
    if (how != SD_RECEIVE && how != SD_SEND && how != SD_BOTH)
        return failWith(WSAEINVAL);
    // The kernel would end the attempt.
    if (descriptor->medium == Medium::stream && descriptor->waitable != 0)
        return failWith(WSAENOTCONN);

    static_assert(SD_RECEIVE == SHUT_RD && SD_SEND == SHUT_WR && SD_BOTH == SHUT_RDWR);
    const int failure = ::shutdown(descriptor->fd, how) == 0 ? 0 : errno;
    const Token token = tokenOf(socket);
    Proactor& proactor = Proactor::instance();
    for (const Direction direction : {Direction::read, Direction::write}) {
        if (how != SD_BOTH && how != (direction == Direction::read ? SD_RECEIVE : SD_SEND))
            continue;
        (direction == Direction::read ? descriptor->receiveShut : descriptor->sendShut) = true;
        (direction == Direction::read ? descriptor->readable : descriptor->writable) = true;
        // What is under way learns of it now. Whatever the kernel thinks, it ends.
        proactor.retry(token, *descriptor, direction);
        if (descriptor->operation(direction).state == Operation::State::armed)
            proactor.finish(token, *descriptor, direction, WSAESHUTDOWN, 0);
    }
    // A datagram socket has no peer to tell, and is shut down all the same.
    if (failure == 0 || (failure == ENOTCONN && descriptor->medium == Medium::datagram))
        return 0;
    return failWith(errorCode(failure, ErrorSource::socket));
}

int closeSocket(SocketHandle socket)
{
    if (!findSocket(socket))
        return SOCKET_ERROR;
    Proactor::instance().close(tokenOf(socket));
    return 0;
}

// ---- Overlapped operations

int wsaRecv(SocketHandle socket, void* buffer, std::uint32_t count, Overlapped* overlapped,
            CompletionRoutine routine)
{
    return wsaRecvFrom(socket, buffer, count, nullptr, overlapped, routine);
}

int wsaSend(SocketHandle socket, const void* buffer, std::uint32_t count, Overlapped* overlapped,
            CompletionRoutine routine)
{
    return wsaSendTo(socket, buffer, count, Endpoint{}, overlapped, routine);
}

int wsaRecvFrom(SocketHandle socket, void* buffer, std::uint32_t count, Endpoint* from,
                Overlapped* overlapped, CompletionRoutine routine)
{
    Operation request;
    request.target = buffer;
    request.count = count;
    request.from = from;
    request.overlapped = overlapped;
    request.routine = routine;
    return startTransfer(socket, Direction::read, request);
}

int wsaSendTo(SocketHandle socket, const void* buffer, std::uint32_t count, const Endpoint& to,
              Overlapped* overlapped, CompletionRoutine routine)
{
    Operation request;
    request.source = buffer;
    request.count = count;
    request.to = to;
    request.overlapped = overlapped;
    request.routine = routine;
    return startTransfer(socket, Direction::write, request);
}

}  // namespace platform
