// Small things that the tests of the platform share.
#pragma once

#include "platform/Overlapped.h"

#include <fcntl.h>
#include <pty.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace platform {

struct Fixed {
    Fixed() = default;
    Fixed(const Fixed&) = delete;
    Fixed& operator=(const Fixed&) = delete;
};

// Lets routines run until the condition holds. False if it doesn't within ten seconds.
inline bool waitUntil(const std::function<bool()>& condition)
{
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit)
            return false;
        sleepEx(20);
    }
    return true;
}

using End = std::pair<std::uint32_t, std::uint32_t>;  // of an operation: error and bytes

// One overlapped operation and the ends that its routine was told: one, if all is well.
struct Op : Fixed {
    explicit Op(std::string content) : buffer(std::move(content)) {}

    std::uint32_t size() const { return static_cast<std::uint32_t>(buffer.size()); }
    void begun(int result) { code = result == 0 ? 0 : getLastError(); }
    // The code of a failed start, or what the routine is told in a wait.
    End end() const
    {
        if (code != 0 && code != ERROR_IO_PENDING)
            return {code, 0};
        EXPECT_TRUE(waitUntil([this] { return !ends.empty(); }));
        return ends.size() == 1 ? ends[0] : End(WAIT_FAILED, 0);
    }
    std::string text() const { return buffer.substr(0, end().second); }

    static void routine(std::uint32_t error, std::uint32_t bytes, Overlapped* overlapped)
    {
        Op& op = *static_cast<Op*>(overlapped->event);
        op.ends.emplace_back(error, bytes);
        if (op.then)
            op.then();
    }

    std::string buffer;
    Overlapped overlapped{this};
    std::vector<End> ends;
    std::function<void()> then;  // runs inside the routine
    std::uint32_t code = 0;      // of the start
};

struct Read : Op {
    explicit Read(Handle handle, std::uint32_t room = 4096) : Op(std::string(room, '\0'))
    {
        begun(readFileEx(handle, buffer.data(), room, &overlapped, routine) ? 0 : -1);
    }
    explicit Read(SocketHandle socket, std::uint32_t room = 4096) : Op(std::string(room, '\0'))
    {
        begun(wsaRecv(socket, buffer.data(), room, &overlapped, routine));
    }
};

struct Write : Op {
    Write(Handle handle, std::string text) : Op(std::move(text))
    {
        begun(writeFileEx(handle, buffer.data(), size(), &overlapped, routine) ? 0 : -1);
    }
    Write(SocketHandle socket, std::string text) : Op(std::move(text))
    {
        begun(wsaSend(socket, buffer.data(), size(), &overlapped, routine));
    }
};

// Two connected descriptors, inherited ones: `in` to read from, `out` to write to.
struct Pair : Fixed {
    // "pipe", "socket", "terminal", "file", or the path of a device.
    explicit Pair(const std::string& kind = "pipe")
    {
        int result = 0;
        if (kind == "pipe") {
            result = pipe(fds);
        } else if (kind == "socket") {
            result = socketpair(AF_UNIX, SOCK_STREAM, 0, fds);
        } else if (kind == "terminal") {
            result = openpty(&fds[1], &fds[0], nullptr, nullptr, nullptr);
        } else {
            fds[1] = kind == "file" ? memfd_create("", 0) : open(kind.c_str(), O_WRONLY);
            fds[0] = open(("/proc/self/fd/" + std::to_string(fds[1])).c_str(), O_RDONLY);
        }
        EXPECT_EQ(result, 0);
        in = adoptDescriptor(fds[0], true);
        out = adoptDescriptor(fds[1], true);
    }
    ~Pair()
    {
        closeHandle(in);
        closeHandle(out);
    }
    void put(const std::string& text) const
    {
        EXPECT_EQ(write(fds[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    int fds[2];
    Handle in;
    Handle out;
};

inline constexpr std::uint32_t loopback = 0x0100007F;  // 127.0.0.1 in memory order

struct Listener : Fixed {
    explicit Listener(int backlog = 16) : socket(listen({loopback, 0}, backlog))
    {
        EXPECT_EQ(getSockName(socket, &local), 0);
    }
    ~Listener() { closeSocket(socket); }

    SocketHandle socket;
    Endpoint local;
};

// A connect and what it has told: one code, if all is well.
struct Attempt : Fixed {
    explicit Attempt(const Endpoint& peer, SocketHandle useSocket = tcpSocket()) : socket(useSocket)
    {
        const auto ended = [](void* context, std::uint32_t code) {
            static_cast<Attempt*>(context)->codes.push_back(code);
        };
        handle = createConnect(socket, peer, ended, this);
    }
    ~Attempt()
    {
        closeHandle(handle);
        closeSocket(socket);
    }

    std::vector<std::uint32_t> codes;
    SocketHandle socket;
    Handle handle;
};

}  // namespace platform
