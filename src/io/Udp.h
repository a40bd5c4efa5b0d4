// UDP sockets: a datagram that comes in is read, one that is committed is sent. IPv4 only.
//
// Losses are no errors at this level. A receive or send that fails is dropped without a trace:
// a missing reply shows as the owner's own timer running out.
#pragma once

#include "io/Stream.h"
#include "platform/Overlapped.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace io {

class UDPSocket {
public:
    // `size` is the length of each of the two buffers, in bytes. Throws a system error.
    explicit UDPSocket(std::size_t size);
    virtual ~UDPSocket();
    UDPSocket(const UDPSocket&) = delete;
    UDPSocket& operator=(const UDPSocket&) = delete;

    // Shows one received datagram at a time: while a rest of it is unread, no other is received.
    class UDPReceiver : public IStream {
    public:
        UDPReceiver(UDPSocket* owningSocket, std::size_t size);
        ~UDPReceiver() override;

        std::string name() const override;
        bool isReady() override;
        void issueOverlapped() override;

        std::uint64_t readBegin(char** data) override;  // never throws
        void readCommit(std::uint64_t count) override;
        void close() override;  // closes the whole socket

        // Who sent the last datagram; all zero before the first.
        const platform::Endpoint& source() const { return sender; }

    private:
        static void received(std::uint32_t e, std::uint32_t n, platform::Overlapped* overlapped);

        UDPSocket* owner;
        std::vector<char> buffer;
        char* read_pos;
        char* end_pos;
        platform::Endpoint sender;
        platform::Overlapped overlapped;
        bool read_pending = false;
        platform::Endpoint from;  // filled by the receive that is under way
    };

    // Sends what has been committed between two passes of a selector as one datagram. So a whole
    // message is committed before the sender is put into a selector.
    class UDPSender : public OStream {
    public:
        UDPSender(UDPSocket* owningSocket, std::size_t size);
        ~UDPSender() override;

        std::string name() const override;
        bool isReady() override;
        void issueOverlapped() override;

        // `address` in network byte order, `port` in host byte order.
        void setDestination(std::uint32_t address, std::uint16_t port)
        {
            destination = {address, port};
        }

        std::uint64_t writeBegin(char** space) override;  // never throws
        void writeCommit(std::uint64_t count) override;
        void close() override;  // closes the whole socket

    private:
        static void sent(std::uint32_t e, std::uint32_t n, platform::Overlapped* overlapped);

        UDPSocket* owner;
        std::vector<char> buffer;
        char* send_pos;
        char* fill_pos;
        platform::Endpoint destination;
        platform::Overlapped overlapped;
        bool write_pending = false;
    };

protected:
    platform::SocketHandle socket = platform::SocketHandle::invalid;

private:
    void closeSocket();

    std::string peer_name;  // for the names of the streams; stays empty

public:
    UDPReceiver receiver;
    UDPSender sender;
};

// A UDP socket that is bound to a free local port.
class UDPClientSocket : public UDPSocket {
public:
    explicit UDPClientSocket(std::size_t size);  // throws a system error
};

}  // namespace io
