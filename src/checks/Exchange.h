// The turns in which the SMTP, FTP, HTTP, POP3 and IMAP checks talk to their service.
//
// A request goes out in two turns of the output stream, and its reply comes in by any number of
// turns of the input stream:
//
//   registered   requestSent   turn
//   out          false         send: the request is committed
//   out          true          drained: it has left; wait for the reply
//   in                         receive: a chunk more of the reply
//
// One of the two streams is registered at a time. The exchange knows the words that each check
// has for its turns; what a check asks, and what it makes of a reply, is its own.
//
// An operation that gives false has ended the check: nothing of it may be touched afterwards.
#pragma once

#include "checks/NetCheck.h"
#include "io/Stream.h"
#include "io/Tcp.h"
#include "io/Tls.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

// The words of a check for the turns of its exchange.
struct ExchangeTexts {
    const char* name;
    const char* sending;  // trace line for a request that is about to be sent
    bool sendingIsWhole;  // false: the request stands behind `sending`
    const char* drained;  // trace line for a request that has left
    const char* chunk;    // trace line for a chunk of a reply, which follows
    ConnectionTexts connection;
    // Ordinary lines for what fails; the reason follows.
    const char* writeBegin;
    const char* writeCommit;
    const char* readBegin;
    const char* readCommit;
};

extern const ExchangeTexts smtpTexts;
extern const ExchangeTexts ftpTexts;
extern const ExchangeTexts httpTexts;
extern const ExchangeTexts pop3Texts;
extern const ExchangeTexts imapTexts;

// A reply of a dialogue that grows beyond this ends its check, so that no service can take the
// memory of the machine.
inline constexpr std::size_t maximumReply = std::size_t{16} << 20;  // bytes

// What a check finds in the reply that it has so far.
struct ReplyVerdict {
    enum class Kind {
        incomplete,  // more has to come
        bad,
        complete,
    };
    Kind kind = Kind::incomplete;
    const char* line = nullptr;  // trace line that tells of it, if there is one
    std::string_view code = {};  // three characters of the reply, where a code decides
};

// A step of a dialogue that is led by reply codes.
struct Transition {
    static constexpr std::int32_t anyCode = -1;

    std::uint32_t from;
    std::int32_t code;
    std::uint32_t to;
};

class Exchange {
public:
    Exchange(NetCheck* itsCheck, const ExchangeTexts& itsTexts) : check(itsCheck), texts(itsTexts)
    {}

    // The connector is ready: makes the socket of its connection, io::Socket or io::SSLSocket,
    // and restarts the stop-watch. False: there is no connection.
    template <class SocketType>
    bool connected(io::SocketConnector* connector, std::unique_ptr<SocketType>* socket);
    // The same for a check that speaks TLS on request.
    bool connected(io::SocketConnector* connector, bool useSsl, std::unique_ptr<io::Socket>* socket,
                   std::unique_ptr<io::SSLSocket>* sslSocket, io::IStream** in, io::OStream** out);

    // Sends what `request`, a function without parameters, gives.
    template <class Request>
    void send(io::OStream& out, const Request& request);

    // The request has left. Empties `reply`, unless it is null, and waits for `in`.
    void drained(io::OStream& out, io::IStream& in, std::string* reply);

    // Appends a chunk to `reply`; *chunk is the same at its place there. The end of the stream is
    // a failure, and so is a reply beyond maximumReply.
    bool receive(io::IStream& in, std::string* reply, std::string_view* chunk);

    // Appends a chunk to `reply`, unless the stream has ended.
    enum class Received { chunk, end, failure };  // failure: the check has ended
    Received receiveOrEnd(io::IStream& in, std::string* reply);

    // Deals with a verdict: waits for more of the reply, or ends a check whose reply is bad. True:
    // the reply is complete.
    bool accepts(const ReplyVerdict& verdict, io::IStream& in);

    // Goes to the next state, or ends a check whose state has no step on this code. An assertion
    // for a state that has no steps at all.
    bool takeStep(std::span<const Transition> steps, std::int32_t code, std::uint32_t* state);

    void waitFor(io::Selectable& stream) { check->selector->add(&stream, check); }

private:
    void sendText(io::OStream& out, const std::string& request);
    Received take(io::IStream& in, std::string* reply, bool endIsFailure);
    void fail(const std::string& line, std::int32_t result);

    NetCheck* check;
    const ExchangeTexts& texts;
};

// True for a text that ends in the two characters of a line end.
inline bool endsInLineEnd(std::string_view text)
{
    return text.ends_with("\r\n");
}

template <class SocketType>
bool Exchange::connected(io::SocketConnector* connector, std::unique_ptr<SocketType>* socket)
{
    *socket = check->makeSocket<SocketType>(connector, texts.connection);
    if (*socket == nullptr) {
        check->finishWith(services::RESULT_CONNECT_FAILED);
        return false;
    }
    check->stopWatch.restart();
    return true;
}

template <class Request>
void Exchange::send(io::OStream& out, const Request& request)
{
    check->selector->remove(&out);
    sendText(out, request());
}
