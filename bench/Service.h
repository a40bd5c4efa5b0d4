// The probed service: a process of its own that listens on loopback and holds the dialogue of one
// kind of check with any number of clients, in one epoll loop.
//
// It withholds the last step of each dialogue until more dialogues than it shall hold have come
// that far, and then serves the oldest: so that as many checks are really under way together. The
// last step is the last reply, or the close of the connection if the client waits for that.
//
// TLS: the library's defaults for a server, session tickets included (two with TLS 1.3), and a
// self-signed certificate with a P-256 key, made at the first use.
#pragma once

#include "CheckKind.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <sys/types.h>

namespace bench {

class Service {
public:
    // Starts the process. It ends with this object, or with its parent.
    explicit Service(const CheckKind& kind);
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    // Host byte order. Many, so that connections in TIME_WAIT never use up the local ports of one
    // target.
    const std::vector<std::uint16_t>& ports() const { return portNumbers; }

    // How many dialogues it withholds the last step of. May be called by a child process.
    void hold(std::size_t dialogues);
    // How many those are now.
    std::size_t held() const { return shared->held; }

private:
    struct Shared {
        std::atomic<std::size_t> toHold{0};
        std::atomic<std::size_t> held{0};
    };
    class Loop;

    void openPort(Transport transport);

    Shared* shared;  // with the process
    int wake;
    std::vector<int> sockets;
    std::vector<std::uint16_t> portNumbers;
    pid_t process = -1;
};

}  // namespace bench
