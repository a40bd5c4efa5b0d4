#include "checks/Exchange.h"

#include "common/assertion.h"
#include "common/errors.h"
#include "common/log.h"
#include "queues/records/services.h"

#include <algorithm>
#include <optional>

const ExchangeTexts smtpTexts = {
    .name = "SMTP",
    .sending = "Sending SMTP request ",
    .sendingIsWhole = false,
    .drained = "SMTP: request sent, will wait for reply",
    .chunk = "SMTP reply: ",
    .connection = {.refused = "SMTP: TCP connection failed",
                   .failed = "SMTP: Failed to create TCP connection: "},
    .writeBegin = "SMTP: writeBegin fails",
    .writeCommit = "SMTP: writeCommit fails",
    .readBegin = "SMTP: readBegin: ",
    .readCommit = "SMTP: readCommit: ",
};

const ExchangeTexts ftpTexts = {
    .name = "FTP",
    .sending = "Sending FTP request",
    .sendingIsWhole = true,
    .drained = "FTP: request sent, will wait for reply",
    .chunk = "FTP reply: ",
    .connection = {.refused = "FTP: TCP connection failed",
                   .failed = "FTP: Failed to create TCP connection: "},
    .writeBegin = "FTP: writeBegin fails",
    .writeCommit = "FTP: writeCommit fails",
    .readBegin = "FTP: readBegin: ",
    .readCommit = "FTP: readCommit: ",
};

const ExchangeTexts httpTexts = {
    .name = "HTTP",
    .sending = "Sending HTTP request ",
    .sendingIsWhole = false,
    .drained = "HTTP: request sent, will wait for reply",
    .chunk = "HTTP reply: ",
    .connection = {.refused = "HTTP: TCP connection failed",
                   .failed = "HTTP: Failed to create TCP connection: "},
    .writeBegin = "HTTP: writeBegin fails",
    .writeCommit = "HTTP: writeCommit fails",
    .readBegin = "HTTP: readBegin: ",
    .readCommit = "HTTP: readCommit: ",
};

const ExchangeTexts pop3Texts = {
    .name = "POP3",
    .sending = "Sending POP3 request",
    .sendingIsWhole = true,
    .drained = "POP3: request sent, will wait for reply",
    .chunk = "POP3 reply: ",
    .connection = {.refused = "POP3: TCP connection failed",
                   .failed = "POP3: Failed to create TCP connection: "},
    .writeBegin = "POP3: writeBegin fails",
    .writeCommit = "POP3: writeCommit fails",
    .readBegin = "POP3: readBegin: ",
    .readCommit = "POP3: readCommit: ",
};

const ExchangeTexts imapTexts = {
    .name = "IMAP",
    .sending = "Sending IMAP request",
    .sendingIsWhole = true,
    .drained = "IMAP: request sent, will wait for reply",
    .chunk = "IMAP reply: ",
    .connection = {.refused = "IMAP: TCP connection failed",
                   .failed = "IMAP: Failed to create TCP connection: "},
    .writeBegin = "IMAP: writeBegin fails",
    .writeCommit = "IMAP: writeCommit fails",
    .readBegin = "IMAP: readBegin: ",
    .readCommit = "IMAP: readCommit: ",
};

namespace {

// The text of the exception that an operation on a stream throws, if it throws one. What follows
// from it is done outside of any try block, since it can end the check.
template <class Operation>
std::optional<std::string> failureOf(const Operation& operation)
{
    try {
        operation();
    } catch (const error::Exception& e) {
        return e.text();
    }
    return std::nullopt;
}

}  // namespace

bool Exchange::connected(io::SocketConnector* connector, bool useSsl,
                         std::unique_ptr<io::Socket>* socket,
                         std::unique_ptr<io::SSLSocket>* sslSocket, io::IStream** in,
                         io::OStream** out)
{
    if (!(useSsl ? connected(connector, sslSocket) : connected(connector, socket)))
        return false;
    if (useSsl) {
        *in = &(*sslSocket)->istream;
        *out = &(*sslSocket)->ostream;
    } else {
        *in = &(*socket)->istream;
        *out = &(*socket)->ostream;
    }
    return true;
}

void Exchange::sendText(io::OStream& out, const std::string& request)
{
    if (traceWanted())
        log(texts.sendingIsWhole ? texts.sending : texts.sending + request, logTrace);

    char* space = nullptr;
    std::uint64_t room = 0;
    if (const auto failure = failureOf([&] { room = out.writeBegin(&space); })) {
        fail(texts.writeBegin + *failure, services::RESULT_WRITE_FAILED);
        return;
    }
    if (request.size() >= room) {
        fail(std::string(texts.name) + ": Buffer too small", services::RESULT_WRITE_FAILED);
        return;
    }
    std::copy(request.begin(), request.end(), space);
    if (const auto failure = failureOf([&] { out.writeCommit(request.size()); })) {
        fail(texts.writeCommit + *failure, services::RESULT_WRITE_FAILED);
        return;
    }
    check->requestSent = true;
    waitFor(out);
}

void Exchange::drained(io::OStream& out, io::IStream& in, std::string* reply)
{
    if (traceWanted())
        log(texts.drained, logTrace);
    check->selector->remove(&out);
    check->requestSent = false;
    if (reply != nullptr)
        reply->clear();
    waitFor(in);
}

bool Exchange::receive(io::IStream& in, std::string* reply, std::string_view* chunk)
{
    const std::size_t before = reply->size();
    if (take(in, reply, true) != Received::chunk)
        return false;
    if (reply->size() > maximumReply) {
        fail(std::string(texts.name) + ": reply too long", services::RESULT_BAD_REPLY);
        return false;
    }
    *chunk = std::string_view(*reply).substr(before);
    return true;
}

Exchange::Received Exchange::receiveOrEnd(io::IStream& in, std::string* reply)
{
    return take(in, reply, false);
}

Exchange::Received Exchange::take(io::IStream& in, std::string* reply, bool endIsFailure)
{
    check->selector->remove(&in);
    char* data = nullptr;
    std::size_t count = 0;
    std::optional<std::string> failure;
    try {
        count = in.readBegin(&data);
    } catch (const io::EEndOfStream& e) {
        if (!endIsFailure)
            return Received::end;
        failure = e.text();
    } catch (const error::Exception& e) {
        failure = e.text();
    }
    if (failure) {
        fail(texts.readBegin + *failure, services::RESULT_READ_FAILED);
        return Received::failure;
    }
    const std::size_t before = reply->size();
    reply->append(data, count);
    failure = failureOf([&] { in.readCommit(count); });
    if (failure) {
        fail(texts.readCommit + *failure, services::RESULT_READ_FAILED);
        return Received::failure;
    }
    if (traceWanted())
        log(std::string(texts.chunk).append(*reply, before), logTrace);
    return Received::chunk;
}

bool Exchange::accepts(const ReplyVerdict& verdict, io::IStream& in)
{
    if (verdict.line != nullptr && traceWanted())
        log(verdict.line, logTrace);
    if (verdict.kind == ReplyVerdict::Kind::incomplete)
        waitFor(in);
    else if (verdict.kind == ReplyVerdict::Kind::bad)
        check->finishWith(services::RESULT_BAD_REPLY);
    return verdict.kind == ReplyVerdict::Kind::complete;
}

bool Exchange::takeStep(std::span<const Transition> steps, std::int32_t code, std::uint32_t* state)
{
    bool known = false;
    for (const Transition& step : steps) {
        if (step.from != *state)
            continue;
        known = true;
        if (step.code == code || step.code == Transition::anyCode) {
            *state = step.to;
            return true;
        }
    }
    if (!known)
        assertion("unknown state");
    check->finishWith(services::RESULT_BAD_REPLY);
    return false;
}

void Exchange::fail(const std::string& line, std::int32_t result)
{
    log(line, logOrdinary);
    check->finishWith(result);
}
