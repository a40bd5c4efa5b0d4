#include "platform/ErrorCode.h"

#include <cerrno>
#include <cstring>

namespace platform {

namespace {

thread_local std::uint32_t lastError = ERROR_SUCCESS;

struct Mapping {
    int errnoValue;
    std::uint32_t onFiles;
    std::uint32_t onPipes;
    std::uint32_t onSockets;
    std::uint32_t inCompletions;
};

constexpr Mapping everywhere(int errnoValue, std::uint32_t code)
{
    return {errnoValue, code, code, code, code};
}

constexpr Mapping perKind(int errnoValue, std::uint32_t handles, std::uint32_t sockets)
{
    return {errnoValue, handles, handles, sockets, sockets};
}

constexpr Mapping mappings[] = {
    everywhere(0, ERROR_SUCCESS),
    everywhere(EAGAIN, ERROR_IO_PENDING),
    everywhere(EINPROGRESS, ERROR_IO_PENDING),
    perKind(EPIPE, ERROR_BROKEN_PIPE, WSAECONNRESET),
    // A socket that serves as standard input or output: the peer has gone, as with a pipe.
    {ECONNRESET, WSAECONNRESET, ERROR_BROKEN_PIPE, WSAECONNRESET, WSAECONNRESET},
    everywhere(ENOENT, ERROR_FILE_NOT_FOUND),
    everywhere(ENOTDIR, ERROR_PATH_NOT_FOUND),
    everywhere(EEXIST, ERROR_ALREADY_EXISTS),
    perKind(EACCES, ERROR_ACCESS_DENIED, WSAEACCES),
    perKind(EPERM, ERROR_ACCESS_DENIED, WSAEACCES),
    everywhere(EISDIR, ERROR_ACCESS_DENIED),
    everywhere(EROFS, ERROR_ACCESS_DENIED),
    perKind(EBADF, ERROR_INVALID_HANDLE, WSAENOTSOCK),
    everywhere(ENOTSOCK, WSAENOTSOCK),
    perKind(EMFILE, ERROR_TOO_MANY_OPEN_FILES, WSAEMFILE),
    perKind(ENFILE, ERROR_TOO_MANY_OPEN_FILES, WSAEMFILE),
    everywhere(ENOMEM, ERROR_NOT_ENOUGH_MEMORY),
    everywhere(ENOBUFS, WSAENOBUFS),
    everywhere(ENOSPC, ERROR_DISK_FULL),
    everywhere(EIO, ERROR_IO_DEVICE),
    everywhere(ENAMETOOLONG, ERROR_FILENAME_EXCED_RANGE),
    everywhere(ECANCELED, ERROR_OPERATION_ABORTED),
    // The streams take 10022 in a completion for a broken rule of their own, so the end of an
    // operation never carries it.
    {EINVAL, ERROR_INVALID_PARAMETER, ERROR_INVALID_PARAMETER, WSAEINVAL, WSAEFAULT},
    everywhere(EFAULT, WSAEFAULT),
    everywhere(ECONNREFUSED, WSAECONNREFUSED),
    everywhere(ETIMEDOUT, WSAETIMEDOUT),
    everywhere(ENETUNREACH, WSAENETUNREACH),
    everywhere(EHOSTUNREACH, WSAEHOSTUNREACH),
    everywhere(EADDRNOTAVAIL, WSAEADDRNOTAVAIL),
    everywhere(EADDRINUSE, WSAEADDRINUSE),
    everywhere(ENOTCONN, WSAENOTCONN),
    everywhere(ECONNABORTED, WSAECONNABORTED),
    everywhere(ESHUTDOWN, WSAESHUTDOWN),
    everywhere(EMSGSIZE, WSAEMSGSIZE),
    everywhere(EALREADY, WSAEINPROGRESS),
};

struct Text {
    std::uint32_t code;
    const char* text;
};

// The texts of the errno values, in the C locale.
constexpr Text texts[] = {
    {ERROR_SUCCESS, "Success"},
    {ERROR_FILE_NOT_FOUND, "No such file or directory"},
    {ERROR_PATH_NOT_FOUND, "Not a directory"},
    {ERROR_TOO_MANY_OPEN_FILES, "Too many open files"},
    {ERROR_ACCESS_DENIED, "Permission denied"},
    {ERROR_INVALID_HANDLE, "Bad file descriptor"},
    {ERROR_NOT_ENOUGH_MEMORY, "Cannot allocate memory"},
    {ERROR_INVALID_PARAMETER, "Invalid argument"},
    {ERROR_BROKEN_PIPE, "Broken pipe"},
    {ERROR_DISK_FULL, "No space left on device"},
    {ERROR_MOD_NOT_FOUND, "Can not access a needed shared library"},
    {ERROR_PROC_NOT_FOUND, "Undefined symbol in shared library"},
    {ERROR_ALREADY_EXISTS, "File exists"},
    {ERROR_FILENAME_EXCED_RANGE, "File name too long"},
    {ERROR_OPERATION_ABORTED, "Operation canceled"},
    {ERROR_IO_PENDING, "Operation now in progress"},
    {ERROR_IO_DEVICE, "Input/output error"},
    {WSAEACCES, "Permission denied"},
    {WSAEFAULT, "Bad address"},
    {WSAEINVAL, "Invalid argument"},
    {WSAEMFILE, "Too many open files"},
    {WSAEINPROGRESS, "Operation now in progress"},
    {WSAENOTSOCK, "Socket operation on non-socket"},
    {WSAEMSGSIZE, "Message too long"},
    {WSAEADDRINUSE, "Address already in use"},
    {WSAEADDRNOTAVAIL, "Cannot assign requested address"},
    {WSAENETUNREACH, "Network is unreachable"},
    {WSAECONNABORTED, "Software caused connection abort"},
    {WSAECONNRESET, "Connection reset by peer"},
    {WSAENOBUFS, "No buffer space available"},
    {WSAENOTCONN, "Transport endpoint is not connected"},
    {WSAESHUTDOWN, "Cannot send after transport endpoint shutdown"},
    {WSAETIMEDOUT, "Connection timed out"},
    {WSAECONNREFUSED, "Connection refused"},
    {WSAEHOSTUNREACH, "No route to host"},
};

}  // namespace

std::uint32_t errorCode(int errnoValue, ErrorSource source)
{
    for (const Mapping& mapping : mappings) {
        if (mapping.errnoValue != errnoValue)
            continue;
        switch (source) {
        case ErrorSource::file:
            return mapping.onFiles;
        case ErrorSource::pipe:
            return mapping.onPipes;
        case ErrorSource::socket:
            return mapping.onSockets;
        case ErrorSource::socketCompletion:
            return mapping.inCompletions;
        }
    }
    return UNMAPPED_ERRNO + static_cast<std::uint32_t>(errnoValue);
}

std::optional<std::string> errorText(std::uint32_t code)
{
    for (const Text& entry : texts) {
        if (entry.code == code)
            return entry.text;
    }
    // Linux numbers errors up to 4095.
    if (code > UNMAPPED_ERRNO && code <= UNMAPPED_ERRNO + 4095) {
        if (const char* text = strerrordesc_np(static_cast<int>(code - UNMAPPED_ERRNO)))
            return text;
    }
    return std::nullopt;
}

std::uint32_t getLastError()
{
    return lastError;
}

void setLastError(std::uint32_t code)
{
    lastError = code;
}

}  // namespace platform
