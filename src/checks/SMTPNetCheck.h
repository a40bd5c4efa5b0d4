// A short SMTP dialogue (RFC 5321): greeting, HELO, VRFY of one fixed mailbox if wanted, QUIT. No
// mail is sent.
//
//   state   waits for, or has sent   reply that passes   next state
//   1       the greeting             220                 2
//   2       HELO                     250                 3 with VRFY, else 4
//   3       VRFY                     any                 4
//   4       QUIT                     any                 the check has gone well
//
// State 0 is that of connecting. The greeting goes into the result.
#pragma once

#include "checks/Exchange.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

// Looks for the last line of a reply of complete lines (RFC 5321, 4.2.1): the first whose fourth
// character is no hyphen. Its first three characters are the code, whatever they hold. Counts the
// lines before it.
ReplyVerdict readSmtpReply(std::string_view reply, std::size_t* continuationLines);

class SMTPNetCheck : public NetCheck {
public:
    using NetCheck::NetCheck;
    ~SMTPNetCheck() override = default;

    void start() override;
    void ioReady(io::Selectable* s) override;

private:
    enum State : std::uint32_t { idle, greeting, helo, vrfy, quit };
    static const Transition transitions[4];

    std::string request() const;
    void received();
    void processReply(std::int32_t code);

    std::unique_ptr<io::SocketConnector> connector;
    std::unique_ptr<io::Socket> socket;
    bool executeVrfy = false;  // the property smtpExecuteVrfy
    std::string reply;
    std::uint32_t state = idle;
    Exchange exchange{this, smtpTexts};
};
