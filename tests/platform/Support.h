// Small things that the tests of the platform share.
#pragma once

#include "platform/Overlapped.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace platform {

// One overlapped operation and the ends that it has met.
struct Op {
    struct End {
        std::uint32_t error;
        std::uint32_t bytes;
        bool operator==(const End&) const = default;
    };

    Op() { overlapped.event = this; }
    Op(const Op&) = delete;
    Op& operator=(const Op&) = delete;

    Overlapped overlapped;
    std::vector<End> ends;
    std::function<void()> then;               // runs inside the routine
    std::vector<const Op*>* order = nullptr;  // notes who ended when

    bool ended() const { return !ends.empty(); }
    bool endedWith(std::uint32_t error, std::uint32_t bytes) const
    {
        return ends == std::vector<End>{{error, bytes}};
    }

    static void routine(std::uint32_t error, std::uint32_t bytes, Overlapped* overlapped)
    {
        Op& op = *static_cast<Op*>(overlapped->event);
        op.ends.push_back({error, bytes});
        if (op.order)
            op.order->push_back(&op);
        if (op.then)
            op.then();
    }
};

inline std::ostream& operator<<(std::ostream& out, const Op::End& end)
{
    return out << "{error " << end.error << ", " << end.bytes << " bytes}";
}

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

// A pipe. The test closes the ends that it doesn't hand over.
struct RawPipe {
    RawPipe()
    {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        reading = ends[0];
        writing = ends[1];
    }
    int reading;
    int writing;
};

inline constexpr std::uint32_t loopback = 0x0100007F;  // 127.0.0.1 in memory order

inline sockaddr_in rawAddress(const Endpoint& endpoint)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = endpoint.address;
    address.sin_port = htons(endpoint.port);
    return address;
}

// A plain listening socket of the test, so that its peer can misbehave.
struct RawListener {
    explicit RawListener(int backlog = 16)
    {
        fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address = rawAddress({loopback, 0});
        EXPECT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(::listen(fd, backlog), 0);
        socklen_t length = sizeof address;
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
        endpoint = {loopback, ntohs(address.sin_port)};
    }
    ~RawListener() { close(fd); }
    RawListener(const RawListener&) = delete;
    RawListener& operator=(const RawListener&) = delete;

    int accept() const { return ::accept4(fd, nullptr, nullptr, SOCK_CLOEXEC); }

    int fd;
    Endpoint endpoint;
};

// Closes a plain socket so that its peer gets a reset.
inline void reset(int fd)
{
    const linger now{.l_onoff = 1, .l_linger = 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    close(fd);
}

// A connect and what it has told.
struct Attempt {
    explicit Attempt(const Endpoint& peer, SocketHandle useSocket = tcpSocket())
        : socket(useSocket), handle(createConnect(socket, peer, &Attempt::ended, this))
    {}
    ~Attempt()
    {
        closeHandle(handle);
        closeSocket(socket);
    }
    Attempt(const Attempt&) = delete;
    Attempt& operator=(const Attempt&) = delete;

    bool isOver() const { return !codes.empty(); }

    // Waits for the end. False if it doesn't come.
    bool finish() const
    {
        WaitList list;
        list.append(handle);
        std::uint32_t result = WAIT_IO_COMPLETION;
        while (result == WAIT_IO_COMPLETION)
            result = waitForMultipleObjectsEx(list, 10'000);
        return result == 0 && isOver();
    }

    std::vector<std::uint32_t> codes;  // should come to one
    SocketHandle socket;
    Handle handle;

private:
    static void ended(void* context, std::uint32_t code)
    {
        static_cast<Attempt*>(context)->codes.push_back(code);
    }
};

// A connected socket, and the plain one at its other end.
struct Connection {
    Connection() : attempt(listener.endpoint), peer(listener.accept())
    {
        EXPECT_TRUE(attempt.finish());
        EXPECT_EQ(attempt.codes, std::vector<std::uint32_t>{0});
    }
    ~Connection()
    {
        if (peer >= 0)
            close(peer);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void resetByPeer() { reset(std::exchange(peer, -1)); }
    void send(const std::string& text) const
    {
        EXPECT_EQ(::send(peer, text.data(), text.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(text.size()));
    }

    RawListener listener;
    Attempt attempt;
    int peer;
    const SocketHandle& socket = attempt.socket;
};

// Starts a receive of up to `size` bytes.
struct Receive : Op {
    explicit Receive(SocketHandle socket, std::uint32_t size = 4096) : buffer(size)
    {
        result = wsaRecv(socket, buffer.data(), size, &overlapped, &Op::routine);
        code = result == 0 ? 0 : static_cast<std::uint32_t>(wsaGetLastError());
    }
    bool started() const { return result == 0 || code == ERROR_IO_PENDING; }
    std::string text() const { return std::string(buffer.data(), ends.at(0).bytes); }

    std::vector<char> buffer;
    int result;
    std::uint32_t code;
};

struct Send : Op {
    Send(SocketHandle socket, std::string text) : data(std::move(text))
    {
        result = wsaSend(socket, data.data(), static_cast<std::uint32_t>(data.size()), &overlapped,
                         &Op::routine);
        code = result == 0 ? 0 : static_cast<std::uint32_t>(wsaGetLastError());
    }
    bool started() const { return result == 0 || code == ERROR_IO_PENDING; }

    std::string data;
    int result;
    std::uint32_t code;
};

// Starts a read on a pipe, file or device.
struct Read : Op {
    explicit Read(Handle handle, std::uint32_t size = 4096) : buffer(size)
    {
        started = readFileEx(handle, buffer.data(), size, &overlapped, &Op::routine);
        code = started ? 0 : getLastError();
    }
    std::string text() const { return std::string(buffer.data(), ends.at(0).bytes); }

    std::vector<char> buffer;
    bool started;
    std::uint32_t code;
};

struct Write : Op {
    Write(Handle handle, std::string text) : data(std::move(text))
    {
        started = writeFileEx(handle, data.data(), static_cast<std::uint32_t>(data.size()),
                              &overlapped, &Op::routine);
        code = started ? 0 : getLastError();
    }

    std::string data;
    bool started;
    std::uint32_t code;
};

// All that comes until the end of the stream.
inline std::string readAll(Handle handle)
{
    std::string all;
    for (;;) {
        Read read(handle);
        if (!read.started)
            return all;
        if (!waitUntil([&] { return read.ended(); })) {
            ADD_FAILURE() << "no end of stream";
            closeHandle(handle);
            sleepEx(0);
            return all;
        }
        if (read.ends[0].error != 0)
            return all;
        all += read.text();
    }
}

}  // namespace platform
