// TLS client sockets: OpenSSL works over two memory BIOs and never touches the socket.
//
//   in:   socket -> istream.cipher -> istream.bio -> SSL_read  -> istream.buffer -> reader
//   out:  writer -> ostream.buffer -> SSL_write -> ostream.bio -> ostream.cipher -> socket
//
// The handshake takes the same two paths. It starts in the first pass of a selector that holds
// the output stream, which becomes ready when the handshake is done. Its failure makes both
// streams ready, and their next call throws it.
//
// The peer's certificate isn't verified, no server name is sent, and the library's defaults
// decide on versions and ciphers.
#pragma once

#include "io/Stream.h"
#include "io/Tcp.h"
#include "platform/Overlapped.h"

#include <cstdint>
#include <string>

struct bio_st;
struct ssl_st;
struct ssl_ctx_st;

namespace io {

// Prepares OpenSSL, once: a later call returns at once. It reads no configuration file.
void loadOpenSsl();

// A connected socket that speaks TLS, made from a connector that the selector has handed out.
class SSLSocket : public Passable {
public:
    // Throws what takeSocket throws, and error::ESystemError if TLS can't be set up.
    explicit SSLSocket(SocketConnector& connector);
    ~SSLSocket() override;

    void prepareSubProcess() override;  // assertion

    class SSL_Socket_OStream;

    class SSL_Socket_IStream : public IStream {
    public:
        SSL_Socket_IStream(SSLSocket* owningSocket, SSL_Socket_OStream* counterpart);
        ~SSL_Socket_IStream() override;

        std::string name() const override;
        bool isReady() override;
        void issueOverlapped() override;

        std::uint64_t readBegin(char** data) override;
        void readCommit(std::uint64_t count) override;
        void close() override;  // throws what readBegin would

    private:
        friend class SSLSocket;
        friend class SSL_Socket_OStream;

        static void received(std::uint32_t e, std::uint32_t n, platform::Overlapped* overlapped);
        std::uint32_t receiveSize() const;
        void countReceived(std::uint32_t n);
        void takeCipherText(std::uint32_t n);
        void decrypt();
        void check();

        SSLSocket* owner;
        SSL_Socket_OStream* other;
        char buffer[4096];  // plain text for the reader
        char* read_pos = buffer;
        char* end_pos = buffer;
        platform::Overlapped overlapped;
        bool read_pending = false;
        std::uint32_t error = 0;
        bio_st* bio;              // feeds `ssl`, which owns it from SSL_set_bio on
        char cipher[4096];        // target of the receive
        bool want_write = false;  // SSL_read or the handshake asked for a write
        bool at_end = false;

        // Where the next receive begins within a TLS record, in bytes.
        std::uint32_t header_left;      // of its header; 0: within its body
        std::uint32_t record_left = 0;  // of its body, once the header is known
    };

    class SSL_Socket_OStream : public OStream {
    public:
        SSL_Socket_OStream(SSLSocket* owningSocket, SSL_Socket_IStream* counterpart);
        ~SSL_Socket_OStream() override;

        std::string name() const override;
        bool isReady() override;
        void issueOverlapped() override;

        std::uint64_t writeBegin(char** space) override;
        void writeCommit(std::uint64_t count) override;
        void close() override;  // throws what writeBegin would

    private:
        friend class SSLSocket;
        friend class SSL_Socket_IStream;

        static void sent(std::uint32_t e, std::uint32_t n, platform::Overlapped* overlapped);
        void issueSocketWrite();
        void encrypt();
        void check();

        SSLSocket* owner;
        SSL_Socket_IStream* other;
        char buffer[4096];  // plain text from the writer
        char* send_pos = buffer;
        char* fill_pos = buffer;
        platform::Overlapped overlapped;
        bool write_pending = false;
        std::uint32_t error = 0;
        bio_st* bio;                // filled by `ssl`, which owns it from SSL_set_bio on
        char cipher[4096];          // source of the send
        char* cipher_pos = cipher;  // what is not yet sent
        char* cipher_end = cipher;
        bool want_read = false;  // SSL_write or the handshake asked for a read
    };

    SSL_Socket_IStream istream;
    SSL_Socket_OStream ostream;

private:
    enum class Side { input, output };

    // The handshake runs, or the socket is shutting down: no plain text goes either way.
    bool isHeldUp() const { return connect_pending || accept_pending || shutdown_pending; }
    bool inHandshake() const { return connect_pending || accept_pending; }
    void stepHandshake(Side side);
    void fail(const std::string& text);
    void changed();

    std::string peer;            // "10.0.0.1:443"
    std::uint32_t peer_address;  // network byte order
    std::uint16_t peer_port;     // host byte order
    platform::SocketHandle socket = platform::SocketHandle::invalid;
    ssl_ctx_st* ctx = nullptr;
    ssl_st* ssl = nullptr;
    bool connect_pending = false;
    bool accept_pending = false;    // for a server's side, which nothing makes yet
    bool shutdown_pending = false;  // a stream was closed
    std::string failure;            // of TLS: the first one stays
};

}  // namespace io
