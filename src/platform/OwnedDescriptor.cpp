#include "platform/OwnedDescriptor.h"

#include "platform/Proactor.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace platform {

void OwnedDescriptor::reset(int descriptor)
{
    if (fd >= 0)
        close(fd);
    fd = descriptor;
}

OwnedDescriptor OwnedDescriptor::duplicate() const
{
    const int second = fcntl(fd, F_DUPFD_CLOEXEC, 0);
    if (second < 0)
        failWith(errno);
    return OwnedDescriptor(second);
}

bool Pipe::open()
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return failWith(errno);
    reading.reset(ends[0]);
    writing.reset(ends[1]);
    return true;
}

}  // namespace platform
