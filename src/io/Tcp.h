// TCP connections: the attempt, and the connected socket with its two streams. IPv4 only.
#pragma once

#include "io/Stream.h"
#include "platform/Overlapped.h"

#include <atomic>
#include <cstdint>
#include <string>

namespace io {

// A failed TCP connect.
class EConnection : public error::ESystemError {
    using ESystemError::ESystemError;
};

// Something that can be handed to a child process.
class Passable {
public:
    Passable() = default;
    Passable(const Passable&) = delete;
    Passable& operator=(const Passable&) = delete;
    virtual ~Passable() = default;
    virtual void prepareSubProcess() = 0;
};

// Makes the socket calls available; safe to call many times. Throws a system error.
void startWinsock();

// The code of the socket call that failed last.
std::uint32_t lastSocketError();
// The code of a transfer that did not start; 0 if it is under way. `result` is that of the call.
std::uint32_t startError(int result);
// "10.0.0.1:80". `address` in network byte order.
std::string endpointText(std::uint32_t address, std::uint16_t port);

// One connection attempt. It starts at construction; when the selector hands the connector out,
// the attempt is over. Can be destroyed at any time.
class SocketConnector : public Selectable {
public:
    // targetAddress in network byte order, targetPort in host byte order. Throws EConnection if
    // there is no socket to be had.
    SocketConnector(std::uint32_t targetAddress, std::uint16_t targetPort);
    ~SocketConnector() override;

    std::string name() const override;
    platform::Handle osHandle() override { return thread; }
    bool isReady() override { return false; }

    // Hands over the connected socket, once. Throws EConnection if the attempt failed, or runs
    // still.
    platform::SocketHandle takeSocket();

    std::uint32_t targetAddress() const { return address; }
    std::uint16_t targetPort() const { return port; }

private:
    // Shared by the connector and the running attempt.
    struct ConnectAttempt {
        std::atomic<std::uint32_t> refs{0};
        std::uint32_t result = platform::WSAEINPROGRESS;
        std::uint32_t address = 0;
        std::uint16_t port = 0;
        platform::SocketHandle socket = platform::SocketHandle::invalid;
    };
    static void attemptEnded(void* context, std::uint32_t code);
    static void dropReference(ConnectAttempt* attempt);

    std::uint32_t address;
    std::uint16_t port;
    ConnectAttempt* attempt = nullptr;
    platform::Handle thread = platform::Handle::none;  // signalled when the attempt is over
};

// What the two streams of a socket share.
struct Socket_Stream_Base {
    std::string peer;  // "10.0.0.1:80"
    platform::SocketHandle socket = platform::SocketHandle::invalid;
};

class Socket_IStream : public IStream {
public:
    explicit Socket_IStream(Socket_Stream_Base* owner);
    ~Socket_IStream() override;

    std::string name() const override;
    bool isReady() override;
    void issueOverlapped() override;

    std::uint64_t readBegin(char** data) override;
    void readCommit(std::uint64_t count) override;
    void close() override;  // shuts the receiving direction down

private:
    static void received(std::uint32_t e, std::uint32_t n, platform::Overlapped* overlapped);
    void check();

    char buffer[4096];
    char* read_pos = buffer;
    char* end_pos = buffer;
    bool read_pending = false;
    std::uint32_t error = 0;
    platform::Overlapped overlapped;
    bool at_end = false;
    Socket_Stream_Base* base;
};

class Socket_OStream : public OStream {
public:
    explicit Socket_OStream(Socket_Stream_Base* owner);
    ~Socket_OStream() override;

    std::string name() const override;
    bool isReady() override;
    void issueOverlapped() override;

    std::uint64_t writeBegin(char** space) override;
    void writeCommit(std::uint64_t count) override;
    void close() override;  // shuts the sending direction down: the peer sees the end

private:
    static void sent(std::uint32_t e, std::uint32_t n, platform::Overlapped* overlapped);
    void check();

    char buffer[4096];
    char* send_pos = buffer;
    char* fill_pos = buffer;
    bool write_pending = false;
    platform::Overlapped overlapped;
    std::uint32_t error = 0;
    Socket_Stream_Base* base;
};

// A connected socket, made from a connector that the selector has handed out.
class Socket : public Passable, public Socket_Stream_Base {
public:
    // Throws what takeSocket throws.
    explicit Socket(SocketConnector& connector);
    ~Socket() override;

    void prepareSubProcess() override;  // throws error::EFatal

    std::uint32_t peer_address;  // network byte order
    std::uint16_t peer_port;     // host byte order
    Socket_IStream istream;
    Socket_OStream ostream;
};

}  // namespace io
