// The system's event log. Talks to the log socket itself, because the library's way there takes
// locks, which a crashed process may hold.

#include "platform/Crash.h"

#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

namespace platform {

namespace {

// RFC 3164, 4.1.1: facility 1 (user level), severity 3 (error).
constexpr char priority[] = "<11>";
constexpr char separator[] = ": ";

iovec piece(const char* text)
{
    // An iovec serves reading, too, and so has no const.
    return {const_cast<char*>(text), std::strlen(text)};
}

}  // namespace

void reportEvent(const char* source, const char* text)
{
    const int log = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (log < 0)
        return;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "/dev/log");
    iovec pieces[] = {piece(priority), piece(source), piece(separator), piece(text)};
    msghdr message{};
    message.msg_name = &address;
    message.msg_namelen = sizeof address;
    message.msg_iov = pieces;
    message.msg_iovlen = sizeof pieces / sizeof pieces[0];
    sendmsg(log, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    close(log);
}

}  // namespace platform
