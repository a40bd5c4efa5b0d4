// The server's side of TLS, for the services of the demo. OpenSSL works over two memory BIOs:
//
//   network -> take() -> SSL_accept, SSL_read -> plain text
//   plain text -> say() -> SSL_write -> takeOutput() -> network
#pragma once

#include <memory>
#include <string>
#include <string_view>

struct bio_st;
struct ssl_ctx_st;
struct ssl_st;

namespace parent {

// What a server shows of itself: a key and a certificate that it has signed itself, both made
// anew.
class DemoTlsIdentity {
public:
    DemoTlsIdentity();  // throws error::ESystemError

    ssl_ctx_st* context() const { return owned.get(); }

private:
    struct Free {
        void operator()(ssl_ctx_st* context) const;
    };
    std::unique_ptr<ssl_ctx_st, Free> owned;
};

// One connection.
class DemoTls {
public:
    explicit DemoTls(const DemoTlsIdentity& identity);  // throws error::ESystemError

    // Takes bytes that came from the network, and adds the plain text that they hold to `plain`.
    // False once the peer has ended the connection, or has sent what is no TLS.
    bool take(std::string_view bytes, std::string* plain);
    // The handshake is done, and plain text can be sent.
    bool established() const;
    void say(std::string_view plain);
    // Tells the peer that nothing will follow.
    void end();
    // Moves what is to be sent to the network behind `bytes`.
    void takeOutput(std::string* bytes);

private:
    struct Free {
        void operator()(ssl_st* connection) const;
    };
    std::unique_ptr<ssl_st, Free> ssl;
    bio_st* fromNetwork;  // both go with `ssl`
    bio_st* toNetwork;
};

}  // namespace parent
