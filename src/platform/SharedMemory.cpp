#include "platform/SharedMemory.h"

#include "platform/Proactor.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <limits>

namespace platform {

SharedMemory::~SharedMemory()
{
    if (address)
        munmap(address, length);
    if (file >= 0)
        close(file);
}

bool SharedMemory::create(std::uint64_t bytes)
{
    if (bytes == 0 || bytes > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max()))
        return failWith(EINVAL);
    file = memfd_create("siblings", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (file < 0 || ftruncate(file, static_cast<off_t>(bytes)) != 0 ||
        fcntl(file, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0)
        return failWith(errno);
    return map(bytes);
}

bool SharedMemory::attach(int descriptor)
{
    file = descriptor;
    const int seals = fcntl(file, F_GET_SEALS);
    struct stat status {};
    if (seals < 0 || (seals & F_SEAL_SHRINK) == 0 || fstat(file, &status) != 0 ||
        status.st_size == 0)
        return failWith(EINVAL);
    if (fcntl(file, F_SETFD, FD_CLOEXEC) != 0)
        return failWith(errno);
    return map(static_cast<std::uint64_t>(status.st_size));
}

bool SharedMemory::map(std::uint64_t bytes)
{
    void* const mapped = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (mapped == MAP_FAILED)
        return failWith(errno);
    address = static_cast<char*>(mapped);
    length = bytes;
    return true;
}

}  // namespace platform
