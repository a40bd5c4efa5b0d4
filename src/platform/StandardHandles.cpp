// The standard descriptors of the process: numbers 0, 1 and 2 belong to them for good.

#include "platform/Proactor.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>

namespace platform {

namespace {

struct Standard {
    bool missing = false;  // at the start of the process
    Token handle = 0;      // 0: not asked for yet
};

std::array<Standard, 3> standards;

int openNothing(int fd)
{
    return open("/dev/null", fd == STDIN_FILENO ? O_RDONLY : O_WRONLY);
}

// Before main, so that nothing else can open a descriptor first.
[[maybe_unused]] const bool preparedEarly = (prepareStandardDescriptors(), true);

}  // namespace

void prepareStandardDescriptors()
{
    static bool prepared = false;
    if (prepared)
        return;
    prepared = true;
    // In ascending order, so that each gets the lowest free number, its own.
    for (int fd = 0; fd < 3; ++fd) {
        if (fcntl(fd, F_GETFD) >= 0)
            continue;
        standards[static_cast<std::size_t>(fd)].missing = true;
        openNothing(fd);
    }
}

void closeDescriptor(int fd)
{
    if (fd <= STDERR_FILENO) {
        const int nothing = openNothing(fd);
        if (nothing >= 0) {
            // In one step: the number is never free.
            dup2(nothing, fd);
            close(nothing);
            return;
        }
    }
    close(fd);
}

Handle getStdHandle(int which)
{
    int fd = 0;
    if (which == STD_INPUT_HANDLE)
        fd = STDIN_FILENO;
    else if (which == STD_OUTPUT_HANDLE)
        fd = STDOUT_FILENO;
    else {
        setLastError(ERROR_INVALID_HANDLE);
        return Handle::none;
    }

    Proactor& proactor = Proactor::instance();
    Standard& standard = standards[static_cast<std::size_t>(fd)];
    if (standard.missing)
        return Handle::none;
    if (standard.handle == 0)
        standard.handle = tokenOf(adoptDescriptor(fd, true));
    // Once closed it is gone: what has the number now is nobody's input or output.
    return proactor.find(standard.handle) ? static_cast<Handle>(standard.handle) : Handle::none;
}

}  // namespace platform
