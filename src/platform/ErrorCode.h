// The code numbers of failed operations, and their texts.
//
// The whole system speaks one numbering of error codes, listed here; errno ends in this folder.
// An errno without a counterpart travels as 0x20000000 + errno, so nothing is lost on the way.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace platform {

enum ErrorCode : std::uint32_t {
    ERROR_SUCCESS = 0,
    ERROR_FILE_NOT_FOUND = 2,
    ERROR_PATH_NOT_FOUND = 3,
    ERROR_TOO_MANY_OPEN_FILES = 4,
    ERROR_ACCESS_DENIED = 5,
    ERROR_INVALID_HANDLE = 6,
    ERROR_NOT_ENOUGH_MEMORY = 8,
    ERROR_INVALID_PARAMETER = 87,
    ERROR_BROKEN_PIPE = 109,
    ERROR_DISK_FULL = 112,
    ERROR_MOD_NOT_FOUND = 126,
    ERROR_PROC_NOT_FOUND = 127,
    ERROR_ALREADY_EXISTS = 183,
    WAIT_IO_COMPLETION = 192,
    ERROR_FILENAME_EXCED_RANGE = 206,
    WAIT_TIMEOUT = 258,
    ERROR_MR_MID_NOT_FOUND = 317,
    ERROR_PIPE_CONNECTED = 535,
    ERROR_OPERATION_ABORTED = 995,
    ERROR_IO_PENDING = 997,
    ERROR_IO_DEVICE = 1117,
    WSAEACCES = 10013,
    WSAEFAULT = 10014,
    WSAEINVAL = 10022,
    WSAEMFILE = 10024,
    WSAEINPROGRESS = 10036,
    WSAENOTSOCK = 10038,
    WSAEMSGSIZE = 10040,
    WSAEADDRINUSE = 10048,
    WSAEADDRNOTAVAIL = 10049,
    WSAENETUNREACH = 10051,
    WSAECONNABORTED = 10053,
    WSAECONNRESET = 10054,
    WSAENOBUFS = 10055,
    WSAENOTCONN = 10057,
    WSAESHUTDOWN = 10058,
    WSAETIMEDOUT = 10060,
    WSAECONNREFUSED = 10061,
    WSAEHOSTUNREACH = 10065,
    UNMAPPED_ERRNO = 0x20000000,  // + errno
    WAIT_FAILED = 0xFFFFFFFF,
};

// Where an errno came from: the same errno has another code on a file, a pipe and a socket.
enum class ErrorSource {
    file,              // files, devices, handles
    pipe,              // reads and writes on pipes and terminals
    socket,            // calls on sockets
    socketCompletion,  // the end of an operation on a socket that was under way
};

// The code for an errno.
std::uint32_t errorCode(int errnoValue, ErrorSource source);

// The text of a code, without an end of line; nothing for a code that has none.
std::optional<std::string> errorText(std::uint32_t code);

// The last error of the calling thread. Every operation of this folder that fails sets it.
std::uint32_t getLastError();
void setLastError(std::uint32_t code);

}  // namespace platform
