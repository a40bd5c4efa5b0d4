#include "io/Tcp.h"

#include "common/assertion.h"
#include "common/systemError.h"
#include "common/text.h"
#include "io/Selector.h"
#include "platform/ErrorCode.h"

#include <typeinfo>

namespace io {
namespace {

[[maybe_unused]] const bool registered = [] {
    registerManagedClass(typeid(SocketConnector));
    registerManagedClass(typeid(Socket_IStream));
    registerManagedClass(typeid(Socket_OStream));
    return true;
}();

}  // namespace

std::string endpointText(std::uint32_t address, std::uint16_t port)
{
    return dottedAddress(address) + ":" + uintToString(port);
}

std::uint32_t lastSocketError()
{
    return static_cast<std::uint32_t>(platform::wsaGetLastError());
}

// The code of a start that failed; 0 if the operation is under way.
std::uint32_t startError(int result)
{
    const std::uint32_t code = lastSocketError();
    return result != 0 && code != platform::ERROR_IO_PENDING ? code : 0;
}

void startWinsock()
{
    static bool started = false;
    if (started)
        return;
    if (platform::wsaStartup() != 0)
        throwSystemError(lastSocketError(), "Unable to startup Winsock");
    started = true;
}

// ---- Connecting ----------------------------------------------------------------------------

SocketConnector::SocketConnector(std::uint32_t targetAddress, std::uint16_t targetPort)
    : address(targetAddress), port(targetPort)
{
    startWinsock();
    const platform::SocketHandle socket = platform::tcpSocket();
    if (socket == platform::SocketHandle::invalid)
        throw EConnection("Inavlid socket returned from socket(): " +
                          systemErrorText(lastSocketError()));

    // One reference is the connector's, the other that of the running attempt: whoever goes last
    // frees the record. Sockets are made non-inheritable from the start.
    attempt = new ConnectAttempt;
    attempt->address = address;
    attempt->port = port;
    attempt->socket = socket;
    ++attempt->refs;
    ++attempt->refs;
    thread = platform::createConnect(socket, {address, port}, attemptEnded, attempt);
}

SocketConnector::~SocketConnector()
{
    // The wait lists of the selectors hold the handle, so they let go of it before it is freed.
    leaveSelectors();
    platform::closeHandle(thread);
    dropReference(attempt);
}

// The attempt is over, or given up: its result stands before its handle is signalled.
void SocketConnector::attemptEnded(void* context, std::uint32_t code)
{
    auto* const ended = static_cast<ConnectAttempt*>(context);
    ended->result = code;
    dropReference(ended);
}

void SocketConnector::dropReference(ConnectAttempt* attempt)
{
    if (--attempt->refs != 0)
        return;
    if (attempt->socket != platform::SocketHandle::invalid)
        platform::closeSocket(attempt->socket);
    delete attempt;
}

std::string SocketConnector::name() const
{
    return "SocketConnector(" + endpointText(address, port) + ")";
}

platform::SocketHandle SocketConnector::takeSocket()
{
    if (attempt->result != 0)
        throw EConnection("Error connecting to " + endpointText(address, port) + ": " +
                          systemErrorText(attempt->result));
    const platform::SocketHandle taken = attempt->socket;
    attempt->socket = platform::SocketHandle::invalid;
    return taken;
}

// ---- Socket --------------------------------------------------------------------------------

Socket::Socket(SocketConnector& connector)
    : peer_address(connector.targetAddress()),
      peer_port(connector.targetPort()),
      istream(this),
      ostream(this)
{
    socket = connector.takeSocket();
    peer = endpointText(peer_address, peer_port);
}

Socket::~Socket()
{
    if (socket == platform::SocketHandle::invalid)
        assertion("Socket handle invalid in socket destructor");
    platform::shutdown(socket, platform::SD_BOTH);
    platform::closeSocket(socket);
    socket = platform::SocketHandle::invalid;
}

void Socket::prepareSubProcess()
{
    throw error::EFatal("Not implemented");
}

// ---- Receiving -----------------------------------------------------------------------------

Socket_IStream::Socket_IStream(Socket_Stream_Base* owner) : base(owner)
{
    overlapped.event = this;
}

Socket_IStream::~Socket_IStream()
{
    if (base->socket != platform::SocketHandle::invalid && read_pending)
        platform::shutdown(base->socket, platform::SD_RECEIVE);
    while (read_pending)
        platform::sleepEx(platform::INFINITE);
}

std::string Socket_IStream::name() const
{
    return "Socket_IStream(" + base->peer + ")";
}

bool Socket_IStream::isReady()
{
    return error != 0 || at_end || read_pos != end_pos;
}

void Socket_IStream::issueOverlapped()
{
    if (read_pending || read_pos != end_pos)
        return;
    const std::uint32_t failed =
        startError(platform::wsaRecv(base->socket, buffer, sizeof buffer, &overlapped, received));
    if (failed != 0) {
        error = failed;
        changed();
        return;
    }
    read_pending = true;
}

void Socket_IStream::received(std::uint32_t e, std::uint32_t n, platform::Overlapped* overlapped)
{
    auto* const stream = static_cast<Socket_IStream*>(overlapped->event);
    if (!stream->read_pending)
        assertion("Unsolicited callback in Socket_IStream");
    stream->read_pending = false;
    stream->error = e;
    stream->changed();
    if (e == platform::WSAEINVAL)
        assertion("Invalid socket in Socket_IStream callback");
    if (e != 0)
        return;
    if (n == 0) {
        stream->at_end = true;
        return;
    }
    if (n > stream->buffer + sizeof stream->buffer - stream->end_pos)
        assertion("Overcommit in Socket_IStream::callback");
    stream->end_pos += n;
}

void Socket_IStream::check()
{
    if (read_pos != end_pos)
        return;
    if (at_end)
        throw EEndOfStream(this, "");
    if (error != 0)
        throwSystemError(error, "Socket_IStream");
}

std::uint64_t Socket_IStream::readBegin(char** data)
{
    check();
    *data = read_pos;
    return static_cast<std::uint64_t>(end_pos - read_pos);
}

void Socket_IStream::readCommit(std::uint64_t count)
{
    if (count > static_cast<std::uint64_t>(end_pos - read_pos))
        assertion("Overcommit in Socket_IStream");
    read_pos += count;
    if (read_pos == end_pos)
        read_pos = end_pos = buffer;
    changed();
}

void Socket_IStream::close()
{
    check();
    if (platform::shutdown(base->socket, platform::SD_RECEIVE) != 0)
        error = lastSocketError();
    changed();
}

// ---- Sending -------------------------------------------------------------------------------

Socket_OStream::Socket_OStream(Socket_Stream_Base* owner) : base(owner)
{
    overlapped.event = this;
}

Socket_OStream::~Socket_OStream()
{
    if (base->socket != platform::SocketHandle::invalid && write_pending)
        platform::shutdown(base->socket, platform::SD_SEND);
    while (write_pending)
        platform::sleepEx(platform::INFINITE);
}

std::string Socket_OStream::name() const
{
    return "Socket_OStream(" + base->peer + ")";
}

bool Socket_OStream::isReady()
{
    return error != 0 || send_pos == fill_pos;
}

void Socket_OStream::issueOverlapped()
{
    if (write_pending || send_pos == fill_pos)
        return;
    const std::uint32_t failed = startError(
        platform::wsaSend(base->socket, send_pos, static_cast<std::uint32_t>(fill_pos - send_pos),
                          &overlapped, sent));
    if (failed != 0) {
        error = failed;
        changed();
        return;
    }
    write_pending = true;
}

void Socket_OStream::sent(std::uint32_t e, std::uint32_t n, platform::Overlapped* overlapped)
{
    auto* const stream = static_cast<Socket_OStream*>(overlapped->event);
    if (!stream->write_pending)
        assertion("Unsolicited callback in Socket_OStream");
    stream->write_pending = false;
    stream->error = e;
    stream->changed();
    if (e == platform::WSAEINVAL)
        assertion("Invalid socket in Socket_IStream callback");
    if (e != 0)
        return;
    if (n > stream->fill_pos - stream->send_pos)
        assertion("Too large transmission in Socket_OStream");
    stream->send_pos += n;
    if (stream->send_pos == stream->fill_pos)
        stream->send_pos = stream->fill_pos = stream->buffer;
}

void Socket_OStream::check()
{
    if (error != 0)
        throwSystemError(error, "Socket_Ostream(" + name() + ")");
}

std::uint64_t Socket_OStream::writeBegin(char** space)
{
    check();
    *space = fill_pos;
    return static_cast<std::uint64_t>(buffer + sizeof buffer - fill_pos);
}

void Socket_OStream::writeCommit(std::uint64_t count)
{
    if (count > static_cast<std::uint64_t>(buffer + sizeof buffer - fill_pos))
        assertion("Overcommit in Socket_OStream");
    fill_pos += count;
    changed();
}

void Socket_OStream::close()
{
    check();
    if (platform::shutdown(base->socket, platform::SD_SEND) != 0)
        error = lastSocketError();
    changed();
}

}  // namespace io
