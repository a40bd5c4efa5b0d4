// A short IMAP dialogue (RFC 3501), over TCP or TLS: login if there is a user, LOGOUT. No mail is
// read.
//
//   state   has sent   reply that passes    next state
//   1       LOGIN      a line with "0 OK"   2
//   2       LOGOUT     a line with "0 OK"   the check has gone well
//
// State 0 is that of connecting; the check goes on in state 1 with a user, else in state 2. It
// doesn't wait for the greeting, which comes in front of the first reply. Each reply that passed
// goes into the result.
#pragma once

#include "checks/Exchange.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

// Looks for the line that decides a reply: the first that isn't untagged (RFC 3501, 2.2.2).
// *judged is how much of the reply earlier calls have seen, and grows with this one.
ReplyVerdict readImapReply(std::string_view reply, std::size_t* judged);

class IMAPNetCheck : public NetCheck {
public:
    using NetCheck::NetCheck;
    ~IMAPNetCheck() override = default;

    void start() override;
    void ioReady(io::Selectable* s) override;

private:
    enum State : std::uint32_t { idle, login, logout };

    void connected();
    std::string request();
    void received();
    void judgeImap();
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
    std::size_t judged = 0;
    Exchange exchange{this, imapTexts};
};
