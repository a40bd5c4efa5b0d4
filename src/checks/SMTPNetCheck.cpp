#include "checks/SMTPNetCheck.h"

#include "common/assertion.h"
#include "common/text.h"
#include "platform/Process.h"
#include "types/vocabulary.h"

const Transition SMTPNetCheck::transitions[4] = {
    {greeting, 220, helo},
    {helo, 250, vrfy},
    {vrfy, Transition::anyCode, quit},
    {quit, Transition::anyCode, idle},
};

ReplyVerdict readSmtpReply(std::string_view reply, std::size_t* continuationLines)
{
    using Kind = ReplyVerdict::Kind;
    std::string_view line;
    *continuationLines = 0;
    while (takePiece(&reply, "\r\n", &line)) {
        if (line.size() < 4)
            return {Kind::bad, "SMTP: too small reply"};
        if (line[3] != '-')
            return {.kind = Kind::complete, .code = line.substr(0, 3)};
        ++*continuationLines;
    }
    if (*continuationLines == 0)
        return {Kind::bad, "SMTP: tokenize_reply return empty result"};
    return {};
}

void SMTPNetCheck::start()
{
    readProperty(tql::property::smtpExecuteVrfy, executeVrfy);
    connect(connector);
}

void SMTPNetCheck::ioReady(io::Selectable* s)
{
    if (s == connector.get()) {
        if (!exchange.connected(connector.get(), &socket))
            return;
        state = greeting;
        exchange.waitFor(socket->istream);
    } else if (socket != nullptr && s == &socket->istream) {
        received();
    } else if (socket != nullptr && s == &socket->ostream) {
        if (requestSent)
            exchange.drained(socket->ostream, socket->istream, &reply);
        else
            exchange.send(socket->ostream, [this] { return request(); });
    } else {
        assertion("Unknown selector");
    }
}

std::string SMTPNetCheck::request() const
{
    switch (state) {
    case helo: {
        std::string name;
        if (platform::hostName(&name))
            return "HELO " + name + "\r\n";
        log("SMTP: gethostname fails", logOrdinary);
        return "HELO locahost\r\n";
    }
    case vrfy:
        return "VRFY root@localhost\r\n";
    case quit:
        return "QUIT\r\n";
    default:
        assertion("unknown state");
    }
}

void SMTPNetCheck::received()
{
    std::string_view chunk;
    if (!exchange.receive(socket->istream, &reply, &chunk))
        return;
    // The chunk has to hold both characters of the line end: one that brings the second alone
    // waits for another.
    if (!endsInLineEnd(chunk)) {
        if (traceWanted())
            log("SMTP: will wait for more data", logTrace);
        exchange.waitFor(socket->istream);
        return;
    }

    std::size_t continuationLines = 0;
    const ReplyVerdict verdict = readSmtpReply(reply, &continuationLines);
    for (std::size_t i = 0; i < continuationLines && traceWanted(); ++i)
        log("SMTP: Not the last line in multiline reply", logTrace);
    // A code that is no number is thrown through the check, and ends the process.
    if (exchange.accepts(verdict, socket->istream))
        processReply(stringToLong(std::string(verdict.code)));
}

void SMTPNetCheck::processReply(std::int32_t code)
{
    if (traceWanted())
        log("SMTP processReply: code = " + intToString(code), logTrace);
    const bool greeted = state == greeting;
    if (!exchange.takeStep(transitions, code, &state))
        return;
    if (greeted)
        stat.result_strings.push_back(reply);
    if (state == vrfy && !executeVrfy)
        state = quit;
    if (state == idle)
        finish();
    else
        exchange.waitFor(socket->ostream);
}
