// The DNS check: asks a DNS server for the address of one host name over UDP, once, and judges
// the answer. A server that stays silent ends in the time limit of all checks.
//
//   state                   registered   left by
//   waiting to send         sender       the sender: the query is committed
//   sending                 sender       the sender: the query has left
//   waiting for the reply   receiver     a datagram; one with another ID changes nothing
#pragma once

#include "checks/NetCheck.h"
#include "io/Udp.h"

#include <optional>
#include <string>
#include <string_view>

// What a datagram means for the check that reads it.
struct DnsJudgement {
    enum class Kind { answer, badReply, otherId };
    Kind kind = Kind::answer;
    std::string line = {};  // the log line; empty for an answer
};

// Judges a reply to the question for `queryName`. `expected` holds the addresses that are good,
// separated by any of ", ;:"; empty: any address is. A reply that doesn't hold what it announces
// is a bad reply.
DnsJudgement judgeDnsReply(std::string_view datagram, const std::string& queryName,
                           const std::string& expected);

class DNSNetCheck : public NetCheck {
public:
    // A check that gets no socket is made all the same, and fails at its start.
    DNSNetCheck(io::Selector<Handler*>* mainSelector, ParentHandler* owner,
                const remcheck::remcheck_conf& request);
    ~DNSNetCheck() override = default;

    void start() override;
    void ioReady(io::Selectable* s) override;

private:
    void send();
    void sent();
    void receive();

    std::string queryName;
    std::string expected;
    std::optional<io::UDPClientSocket> socket;
    std::string socketFailure;  // why there is no socket
};
