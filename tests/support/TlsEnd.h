// The server's end of a TLS connection, between the wire and a script. It works over memory, so
// that the server decides what goes out together.
//
// The certificate is self-signed, and made anew by each test program.
#pragma once

#include <memory>
#include <string>
#include <string_view>

struct ssl_st;

namespace support {

// The newest version that a server offers; none: it speaks plain text.
enum class Tls { none, v12, v13 };

class TlsEnd {
public:
    explicit TlsEnd(Tls newest);

    // Takes what came over the wire, and gives the plain text in it.
    std::string receive(std::string_view cipherText);
    // Makes one record of it, or more if it is longer than 16384 bytes. Result as from send(2):
    // there is no room for it while much is left to go out.
    long send(std::string_view plainText);
    void closeNotify();  // tells the peer that no more will come

    bool isReady() const;         // the handshake is done
    const char* version() const;  // "TLSv1.3"

    std::string outgoing;  // to go over the wire; what has gone is the caller's to erase

private:
    void collect();

    std::shared_ptr<ssl_st> ssl;
};

}  // namespace support
