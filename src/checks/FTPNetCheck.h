// A short FTP control dialogue (RFC 959): greeting, login if there is a user, QUIT. No data
// connection is opened.
//
//   state   waits for, or has sent   reply that passes   next state
//   1       the greeting             220                 2 with a user, else 4
//   2       USER                     230 / 331           4 / 3
//   3       PASS                     230, 201            4
//   4       QUIT                     221                 the check has gone well
//
// State 0 is that of connecting. The greeting goes into the result.
#pragma once

#include "checks/Exchange.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

// Looks for the line that ends a reply of complete lines (RFC 959, 4.2). *judged is how much of
// the reply earlier calls have seen, and grows with this one.
ReplyVerdict readFtpReply(std::string_view reply, std::size_t* judged);

class FTPNetCheck : public NetCheck {
public:
    using NetCheck::NetCheck;
    ~FTPNetCheck() override = default;

    void start() override;
    void ioReady(io::Selectable* s) override;

private:
    enum State : std::uint32_t { idle, greeting, userName, passWord, quit };
    static const Transition transitions[6];

    std::string request() const;
    void received();
    void processReply(std::int32_t code);

    std::unique_ptr<io::SocketConnector> connector;
    std::unique_ptr<io::Socket> socket;
    std::uint32_t state = idle;
    std::string reply;
    std::string user;      // the property user
    std::string password;  // the property checkPassword
    std::size_t judged = 0;
    Exchange exchange{this, ftpTexts};
};
