#include "checks/FTPNetCheck.h"

#include "common/assertion.h"
#include "common/text.h"
#include "types/vocabulary.h"

#include <algorithm>

const Transition FTPNetCheck::transitions[6] = {
    {greeting, 220, userName},  // without a user: quit
    {userName, 230, quit},     {userName, 331, passWord}, {passWord, 230, quit},
    {passWord, 201, quit},     {quit, 221, idle},
};

namespace {

bool beginsWithCode(std::string_view line)
{
    return line.size() >= 4 &&
           std::all_of(line.begin(), line.begin() + 3, [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

ReplyVerdict readFtpReply(std::string_view reply, std::size_t* judged)
{
    using Kind = ReplyVerdict::Kind;
    std::string_view rest = reply.substr(*judged);
    std::string_view line;
    if (*judged == 0) {
        if (!takePiece(&rest, "\r\n", &line))
            return {Kind::bad, "FTP: tokenize_reply return empty result"};
        if (line.size() < 4)
            return {Kind::bad, "FTP: too small reply"};
        if (!beginsWithCode(line))
            return {Kind::bad, "FTP: bad reply (first line)"};
        if (line[3] == ' ')
            return {.kind = Kind::complete, .code = line.substr(0, 3)};
        if (line[3] != '-')
            return {Kind::bad, "FTP: bad reply (-)"};
    }
    while (takePiece(&rest, "\r\n", &line)) {
        if (beginsWithCode(line) && line[3] == ' ')
            return {.kind = Kind::complete, .code = line.substr(0, 3)};
    }
    *judged = reply.size();
    return {};
}

void FTPNetCheck::start()
{
    readProperty(tql::property::user, user);
    readProperty(tql::property::checkPassword, password);
    connect(connector);
}

void FTPNetCheck::ioReady(io::Selectable* s)
{
    if (s == connector.get()) {
        if (!exchange.connected(connector.get(), &socket))
            return;
        state = greeting;
        exchange.waitFor(socket->istream);
    } else if (socket != nullptr && s == &socket->istream) {
        received();
    } else if (socket != nullptr && s == &socket->ostream) {
        if (requestSent) {
            judged = 0;
            exchange.drained(socket->ostream, socket->istream, &reply);
        } else {
            exchange.send(socket->ostream, [this] { return request(); });
        }
    } else {
        assertion("Unknown selector");
    }
}

std::string FTPNetCheck::request() const
{
    switch (state) {
    case userName:
        return "USER " + user + "\r\n";
    case passWord:
        return "PASS " + password + "\r\n";
    case quit:
        return "QUIT\r\n";
    default:
        assertion("unknown state");
    }
}

void FTPNetCheck::received()
{
    std::string_view chunk;
    if (!exchange.receive(socket->istream, &reply, &chunk))
        return;
    if (!endsInLineEnd(chunk)) {
        if (traceWanted())
            log("FTP: will wait for more data", logTrace);
        exchange.waitFor(socket->istream);
        return;
    }

    const ReplyVerdict verdict = readFtpReply(reply, &judged);
    if (exchange.accepts(verdict, socket->istream))
        processReply(stringToLong(std::string(verdict.code)));
}

void FTPNetCheck::processReply(std::int32_t code)
{
    if (traceWanted())
        log("FTP processReply: code = " + intToString(code), logTrace);
    const bool greeted = state == greeting;
    if (!exchange.takeStep(transitions, code, &state))
        return;
    if (greeted)
        stat.result_strings.push_back(reply);
    if (state == userName && user.empty())
        state = quit;
    if (state == idle)
        finish();
    else
        exchange.waitFor(socket->ostream);
}
