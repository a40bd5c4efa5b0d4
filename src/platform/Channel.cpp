#include "platform/Channel.h"

#include "platform/Proactor.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace platform {

namespace {

constexpr std::size_t controlSize = CMSG_SPACE(Channel::mostDescriptors * sizeof(int));

// Takes the descriptors that came with a message.
void takeDescriptors(msghdr* message, std::vector<OwnedDescriptor>* descriptors)
{
    for (cmsghdr* part = CMSG_FIRSTHDR(message); part; part = CMSG_NXTHDR(message, part)) {
        if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS)
            continue;
        const std::size_t count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t i = 0; i != count; ++i) {
            int fd = -1;
            std::memcpy(&fd, CMSG_DATA(part) + i * sizeof fd, sizeof fd);
            descriptors->emplace_back(fd);
        }
    }
}

}  // namespace

Channel::~Channel()
{
    if (waitable != Handle::none)
        closeHandle(waitable);  // and with it the socket
}

bool Channel::open(OwnedDescriptor* peer)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
        return failWith(errno);
    peer->reset(ends[1]);
    return adopt(OwnedDescriptor(ends[0]));
}

bool Channel::adopt(OwnedDescriptor end)
{
    int type = 0;
    socklen_t length = sizeof type;
    if (getsockopt(end.get(), SOL_SOCKET, SO_TYPE, &type, &length) != 0 || type != SOCK_SEQPACKET) {
        setLastError(ERROR_INVALID_HANDLE);
        return false;
    }
    Proactor& proactor = Proactor::instance();
    std::uint32_t code = 0;
    const Token object = proactor.insertNotifier(end.take(), &code, Medium::channel);
    if (code != ERROR_SUCCESS) {
        setLastError(code);
        return false;
    }
    waitable = static_cast<Handle>(object);
    socket = proactor.findWaitable(object)->descriptor;
    return true;
}

bool Channel::send(const void* data, std::size_t size, std::span<const int> descriptors)
{
    const Descriptor* const descriptor = Proactor::instance().find(socket);
    if (!descriptor || descriptors.size() > mostDescriptors) {
        setLastError(descriptor ? ERROR_INVALID_PARAMETER : ERROR_INVALID_HANDLE);
        return false;
    }
    // The call has no const, for either.
    iovec area{const_cast<void*>(data), size};
    alignas(cmsghdr) std::array<char, controlSize> control{};
    msghdr message{};
    message.msg_iov = &area;
    message.msg_iovlen = 1;
    if (!descriptors.empty()) {
        message.msg_control = control.data();
        message.msg_controllen = CMSG_SPACE(descriptors.size_bytes());
        cmsghdr* const part = CMSG_FIRSTHDR(&message);
        part->cmsg_level = SOL_SOCKET;
        part->cmsg_type = SCM_RIGHTS;
        part->cmsg_len = CMSG_LEN(descriptors.size_bytes());
        std::memcpy(CMSG_DATA(part), descriptors.data(), descriptors.size_bytes());
    }
    ssize_t sent = 0;
    do
        sent = sendmsg(descriptor->fd, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
    while (sent < 0 && errno == EINTR);
    if (sent >= 0)
        return true;
    if (errno == EAGAIN)
        setLastError(ERROR_IO_PENDING);
    else if (errno == ETOOMANYREFS)
        setLastError(ERROR_TOO_MANY_OPEN_FILES);
    else if (errno == EPIPE || errno == ECONNRESET)
        setLastError(ERROR_BROKEN_PIPE);
    else
        failWith(errno);
    return false;
}

Channel::Received Channel::receive(void* data, std::size_t size,
                                   std::vector<OwnedDescriptor>* descriptors)
{
    descriptors->clear();
    Proactor& proactor = Proactor::instance();
    const Descriptor* const descriptor = proactor.find(socket);
    if (!descriptor) {
        setLastError(ERROR_INVALID_HANDLE);
        return Received::failed;
    }
    iovec area{data, size};
    alignas(cmsghdr) std::array<char, controlSize> control{};
    msghdr message{};
    message.msg_iov = &area;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    ssize_t count = 0;
    do
        count = recvmsg(descriptor->fd, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC | MSG_TRUNC);
    while (count < 0 && errno == EINTR);
    if (count < 0 && errno == EAGAIN) {
        if (Waitable* object = proactor.findWaitable(tokenOf(waitable)))
            proactor.setSignalled(*object, false);
        return Received::nothing;
    }
    if (count < 0 && errno == ECONNRESET)
        return Received::end;
    if (count < 0) {
        failWith(errno);
        return Received::failed;
    }
    takeDescriptors(&message, descriptors);
    if (count == 0 && descriptors->empty())
        return Received::end;
    if (static_cast<std::size_t>(count) != size || (message.msg_flags & MSG_CTRUNC) != 0) {
        descriptors->clear();
        setLastError(WSAEMSGSIZE);
        return Received::failed;
    }
    return Received::message;
}

Channel::Received Channel::waitForMessage(void* data, std::size_t size,
                                          std::vector<OwnedDescriptor>* descriptors)
{
    WaitList list;
    list.append(waitable);
    for (;;) {
        const Received received = receive(data, size, descriptors);
        if (received != Received::nothing)
            return received;
        if (waitForMultipleObjectsEx(list, INFINITE) == WAIT_FAILED)
            return Received::failed;
    }
}

}  // namespace platform
