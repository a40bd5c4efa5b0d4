// A short POP3 dialogue (RFC 1939), over TCP or TLS: greeting, login if there is a user, QUIT. No
// mail is read.
//
//   state   waits for, or has sent   reply that passes   next state
//   0       the output stream                            1
//   1       the greeting             +                   2 with a user, else 4
//   2       USER                     +                   3
//   3       PASS                     +                   4
//   4       QUIT                     +                   the check has gone well
//
// State 0 is also that of connecting; the output stream is ready when TLS stands. The first
// character of a reply decides. The greeting goes into the result.
#pragma once

#include "checks/Exchange.h"

#include <memory>
#include <string>
#include <string_view>

// Judges a reply of at least one character (RFC 1939, 3).
ReplyVerdict readPop3Reply(std::string_view reply);

class POP3NetCheck : public NetCheck {
public:
    using NetCheck::NetCheck;
    ~POP3NetCheck() override = default;

    void start() override;
    void ioReady(io::Selectable* s) override;

private:
    enum State : std::uint32_t { idle, greeting, userName, passWord, quit };

    void connected();
    std::string request();
    void received();
    void judgePop3();
    void goOn();

    std::unique_ptr<io::SocketConnector> connector;
    std::unique_ptr<io::Socket> socket;
    std::unique_ptr<io::SSLSocket> sslSocket;
    io::IStream* in = nullptr;
    io::OStream* out = nullptr;
    bool useSsl = false;
    std::string user;      // empty: no login
    std::string password;  // the property checkPassword
    std::uint32_t state = idle;
    std::string reply;
    Exchange exchange{this, pop3Texts};
};
