#include "io/Udp.h"

#include "common/assertion.h"
#include "io/Selector.h"
#include "io/Tcp.h"
#include "platform/ErrorCode.h"

#include <typeinfo>

namespace io {
namespace {

[[maybe_unused]] const bool registered = [] {
    registerManagedClass(typeid(UDPSocket::UDPReceiver));
    registerManagedClass(typeid(UDPSocket::UDPSender));
    return true;
}();

// Starts a transfer and says whether it is under way. A reset belongs to an earlier datagram, so
// it is no reason not to start.
template <class Start>
bool isStarted(const Start& start)
{
    for (;;) {
        if (start() == 0)
            return true;
        const std::uint32_t code = lastSocketError();
        if (code != platform::WSAECONNRESET)
            return code == platform::ERROR_IO_PENDING;
    }
}

}  // namespace

// ---- Socket --------------------------------------------------------------------------------

UDPSocket::UDPSocket(std::size_t size) : receiver(this, size), sender(this, size)
{
    startWinsock();
    // The platform makes sockets non-inheritable from the start.
    socket = platform::udpSocket();
    if (socket == platform::SocketHandle::invalid)
        throwSystemError(lastSocketError(), "Could not create UDP socket");
}

UDPSocket::~UDPSocket()
{
    closeSocket();
}

void UDPSocket::closeSocket()
{
    if (socket == platform::SocketHandle::invalid)
        return;
    platform::closeSocket(socket);
    socket = platform::SocketHandle::invalid;
}

UDPClientSocket::UDPClientSocket(std::size_t size) : UDPSocket(size)
{
    if (platform::bind(socket, {}) != 0)
        throwSystemError(lastSocketError(), "Failed to bind listener UDP socket");
}

// ---- Receiving -----------------------------------------------------------------------------

UDPSocket::UDPReceiver::UDPReceiver(UDPSocket* owningSocket, std::size_t size)
    : owner(owningSocket), buffer(size), read_pos(buffer.data()), end_pos(buffer.data())
{
    overlapped.event = this;
}

UDPSocket::UDPReceiver::~UDPReceiver()
{
    if (read_pending && owner->socket != platform::SocketHandle::invalid)
        platform::shutdown(owner->socket, platform::SD_RECEIVE);
    while (read_pending)
        platform::sleepEx(platform::INFINITE);
}

std::string UDPSocket::UDPReceiver::name() const
{
    return "UDPReceiver(" + owner->peer_name + ")";
}

bool UDPSocket::UDPReceiver::isReady()
{
    return read_pos != end_pos;
}

void UDPSocket::UDPReceiver::issueOverlapped()
{
    if (read_pending || read_pos != end_pos)
        return;
    from = {};
    read_pending = isStarted([this] {
        return platform::wsaRecvFrom(owner->socket, buffer.data(),
                                     static_cast<std::uint32_t>(buffer.size()), &from, &overlapped,
                                     received);
    });
    // What can't start now is tried again at every pass.
    if (!read_pending)
        changed();
}

void UDPSocket::UDPReceiver::received(std::uint32_t e, std::uint32_t n,
                                      platform::Overlapped* overlapped)
{
    auto* const stream = static_cast<UDPReceiver*>(overlapped->event);
    if (!stream->read_pending)
        assertion("Unsolicited callback in UDPReceiver");
    stream->read_pending = false;
    stream->changed();
    if (e != 0)
        return;
    stream->end_pos += n;
    stream->sender = stream->from;
}

std::uint64_t UDPSocket::UDPReceiver::readBegin(char** data)
{
    *data = read_pos;
    return static_cast<std::uint64_t>(end_pos - read_pos);
}

void UDPSocket::UDPReceiver::readCommit(std::uint64_t count)
{
    if (count > static_cast<std::uint64_t>(end_pos - read_pos))
        assertion("Overcommit in UDPReceiver");
    read_pos += count;
    if (read_pos == end_pos)
        read_pos = end_pos = buffer.data();
    changed();
}

void UDPSocket::UDPReceiver::close()
{
    owner->closeSocket();
}

// ---- Sending -------------------------------------------------------------------------------

UDPSocket::UDPSender::UDPSender(UDPSocket* owningSocket, std::size_t size)
    : owner(owningSocket), buffer(size), send_pos(buffer.data()), fill_pos(buffer.data())
{
    overlapped.event = this;
}

UDPSocket::UDPSender::~UDPSender()
{
    if (write_pending && owner->socket != platform::SocketHandle::invalid)
        platform::shutdown(owner->socket, platform::SD_SEND);
    while (write_pending)
        platform::sleepEx(platform::INFINITE);
}

std::string UDPSocket::UDPSender::name() const
{
    return "UDPSender(" + owner->peer_name + ")";
}

bool UDPSocket::UDPSender::isReady()
{
    return send_pos == fill_pos;
}

void UDPSocket::UDPSender::issueOverlapped()
{
    if (write_pending || send_pos == fill_pos)
        return;
    write_pending = isStarted([this] {
        return platform::wsaSendTo(owner->socket, send_pos,
                                   static_cast<std::uint32_t>(fill_pos - send_pos), destination,
                                   &overlapped, sent);
    });
    // What can't start now is tried again at every pass.
    if (!write_pending)
        changed();
}

// A datagram is sent whole or it is gone, so the result doesn't matter.
void UDPSocket::UDPSender::sent(std::uint32_t, std::uint32_t, platform::Overlapped* overlapped)
{
    auto* const stream = static_cast<UDPSender*>(overlapped->event);
    if (!stream->write_pending)
        assertion("Unsolicited callback in UDPSender");
    stream->write_pending = false;
    stream->send_pos = stream->fill_pos = stream->buffer.data();
    stream->changed();
}

std::uint64_t UDPSocket::UDPSender::writeBegin(char** space)
{
    *space = fill_pos;
    return static_cast<std::uint64_t>(buffer.data() + buffer.size() - fill_pos);
}

void UDPSocket::UDPSender::writeCommit(std::uint64_t count)
{
    if (count > static_cast<std::uint64_t>(buffer.data() + buffer.size() - fill_pos))
        assertion("Overcommit in UDPSender");
    fill_pos += count;
    changed();
}

void UDPSocket::UDPSender::close()
{
    owner->closeSocket();
}

}  // namespace io
