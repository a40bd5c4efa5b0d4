// Pipes, terminals and files: reads and writes on descriptors that may be shared with other
// processes and therefore stay in blocking mode.

#include "platform/Proactor.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace platform {

namespace {

// A pipe that reports room takes this much without blocking: it has a free page.
constexpr std::size_t writeAfterPoll = 4096;

// One try, as read(2) and write(2) give it. -1 with EAGAIN: not now.

ssize_t tryPlain(const Descriptor& descriptor, Direction direction, const iovec& area)
{
    return direction == Direction::read ? read(descriptor.fd, area.iov_base, area.iov_len)
                                        : write(descriptor.fd, area.iov_base, area.iov_len);
}

ssize_t tryNowait(const Descriptor& descriptor, Direction direction, const iovec& area)
{
    // Offset -1: at the current position, and so on pipes, too.
    return direction == Direction::read ? preadv2(descriptor.fd, &area, 1, -1, RWF_NOWAIT)
                                        : pwritev2(descriptor.fd, &area, 1, -1, RWF_NOWAIT);
}

ssize_t tryAfterPoll(const Descriptor& descriptor, Direction direction, iovec area)
{
    const bool reads = direction == Direction::read;
    pollfd state{descriptor.fd, static_cast<short>(reads ? POLLIN : POLLOUT), 0};
    ++Proactor::instance().calls.waits;
    const int ready = poll(&state, 1, 0);
    if (ready < 0)
        return -1;
    if (ready == 0) {
        errno = EAGAIN;
        return -1;
    }
    if (!reads)
        area.iov_len = std::min(area.iov_len, writeAfterPoll);
    return tryPlain(descriptor, direction, area);
}

ssize_t trySocket(const Descriptor& descriptor, Direction direction, const iovec& area)
{
    constexpr int flags = MSG_DONTWAIT | MSG_NOSIGNAL;
    return direction == Direction::read ? recv(descriptor.fd, area.iov_base, area.iov_len, flags)
                                        : send(descriptor.fd, area.iov_base, area.iov_len, flags);
}

ssize_t tryOnce(Descriptor& descriptor, Direction direction, const iovec& area)
{
    ++Proactor::instance().calls.transfers;
    if (descriptor.medium == Medium::file)
        return tryPlain(descriptor, direction, area);
    if (descriptor.medium == Medium::pipeSocket)
        return trySocket(descriptor, direction, area);
    if (!descriptor.refusesNowait) {
        const ssize_t moved = tryNowait(descriptor, direction, area);
        if (moved >= 0 || (errno != EOPNOTSUPP && errno != ENOSYS))
            return moved;
        descriptor.refusesNowait = true;  // terminals, for instance
    }
    return tryAfterPoll(descriptor, direction, area);
}

bool startTransfer(Handle handle, Direction direction, const Operation& request)
{
    Proactor& proactor = Proactor::instance();
    ++proactor.operationsStarted;
    const Descriptor* const descriptor = proactor.find(tokenOf(handle));
    if (!descriptor || (descriptor->medium != Medium::file && descriptor->medium != Medium::pipe &&
                        descriptor->medium != Medium::pipeSocket)) {
        setLastError(ERROR_INVALID_HANDLE);
        return false;
    }
    return proactor.start(tokenOf(handle), direction, request) != Proactor::Start::failed;
}

}  // namespace

Outcome transferPipe(Descriptor& descriptor, Direction direction)
{
    const Operation& operation = descriptor.operation(direction);
    if (operation.count == 0)
        return Outcome::moved(0);
    const bool reads = direction == Direction::read;
    // An iovec serves both directions, and so has no const.
    const iovec area{reads ? operation.target : const_cast<void*>(operation.source),
                     operation.count};
    ssize_t moved = 0;
    do
        moved = tryOnce(descriptor, direction, area);
    while (moved < 0 && errno == EINTR);

    if (moved > 0)
        return Outcome::moved(static_cast<std::uint32_t>(moved));
    if (moved == 0)
        return reads ? Outcome::failed(ERROR_BROKEN_PIPE) : Outcome::moved(0);
    if (errno == EAGAIN)
        return Outcome::blocked();
    // No pipe gives this: it is a terminal whose other side has gone.
    if (reads && errno == EIO && descriptor.medium == Medium::pipe)
        return Outcome::failed(ERROR_BROKEN_PIPE);
    return Outcome::failed(errorCode(errno, ErrorSource::pipe));
}

Handle adoptDescriptor(int descriptor, bool inherited)
{
    struct stat status {};
    if (fstat(descriptor, &status) != 0) {
        setLastError(errorCode(errno, ErrorSource::file));
        return Handle::none;
    }
    if (!inherited)
        fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    Medium medium = Medium::pipe;
    if (S_ISSOCK(status.st_mode))
        medium = Medium::pipeSocket;
    else if (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode) || S_ISBLK(status.st_mode))
        medium = Medium::file;
    return static_cast<Handle>(Proactor::instance().insert(descriptor, medium));
}

bool readFileEx(Handle handle, void* buffer, std::uint32_t count, Overlapped* overlapped,
                CompletionRoutine routine)
{
    Operation request;
    request.target = buffer;
    request.count = count;
    request.overlapped = overlapped;
    request.routine = routine;
    return startTransfer(handle, Direction::read, request);
}

bool writeFileEx(Handle handle, const void* buffer, std::uint32_t count, Overlapped* overlapped,
                 CompletionRoutine routine)
{
    Operation request;
    request.source = buffer;
    request.count = count;
    request.overlapped = overlapped;
    request.routine = routine;
    return startTransfer(handle, Direction::write, request);
}

void retryFile(Handle handle)
{
    Proactor& proactor = Proactor::instance();
    for (const Direction direction : {Direction::read, Direction::write}) {
        if (Descriptor* descriptor = proactor.find(tokenOf(handle)))
            proactor.retry(tokenOf(handle), *descriptor, direction);
    }
}

std::uint64_t raiseDescriptorLimit()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return 0;
    const rlimit raised{limit.rlim_max, limit.rlim_max};
    if (limit.rlim_cur != limit.rlim_max && setrlimit(RLIMIT_NOFILE, &raised) == 0)
        return raised.rlim_cur;
    return limit.rlim_cur;
}

}  // namespace platform
