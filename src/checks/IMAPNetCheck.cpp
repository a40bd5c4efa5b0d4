#include "checks/IMAPNetCheck.h"

#include "common/assertion.h"
#include "types/vocabulary.h"

ReplyVerdict readImapReply(std::string_view reply, std::size_t* judged)
{
    using Kind = ReplyVerdict::Kind;
    if (!endsInLineEnd(reply))
        return {};
    std::string_view rest = reply.substr(*judged);
    std::string_view line;
    while (takePiece(&rest, "\r\n", &line)) {
        if (line.starts_with('*'))
            continue;
        if (line.starts_with("0 OK"))
            return {.kind = Kind::complete};
        return {Kind::bad, "IMAP: bad reply"};
    }
    *judged = reply.size();
    return {};
}

void IMAPNetCheck::start()
{
    readProperty(tql::property::useSsl, useSsl);
    readProperty(tql::property::user, user);
    readProperty(tql::property::checkPassword, password);
    connect(connector);
}

void IMAPNetCheck::ioReady(io::Selectable* s)
{
    if (s == connector.get()) {
        connected();
    } else if (s == in) {
        received();
    } else if (s == out) {
        if (requestSent)
            exchange.drained(*out, *in, nullptr);
        else
            exchange.send(*out, [this] { return request(); });
    } else {
        assertion("Unknown selector");
    }
}

void IMAPNetCheck::connected()
{
    if (!exchange.connected(connector.get(), useSsl, &socket, &sslSocket, &in, &out))
        return;
    state = user.empty() ? logout : login;
    exchange.waitFor(*out);
}

std::string IMAPNetCheck::request()
{
    reply.clear();
    judged = 0;
    switch (state) {
    case login:
        return "0 LOGIN " + user + " " + password + "\r\n";
    case logout:
        return "0 LOGOUT\r\n";
    default:
        assertion("Unknown state");
    }
}

void IMAPNetCheck::received()
{
    std::string_view chunk;
    if (exchange.receive(*in, &reply, &chunk))
        judgeImap();
}

void IMAPNetCheck::judgeImap()
{
    if (reply.empty())
        assertion("Empty reply?!");
    if (exchange.accepts(readImapReply(reply, &judged), *in))
        goOn();
}

void IMAPNetCheck::goOn()
{
    switch (state) {
    case login:
        state = logout;
        stat.result_strings.push_back(reply);
        exchange.waitFor(*out);
        break;
    case logout:
        state = idle;
        stat.result_strings.push_back(reply);
        finish();
        break;
    default:
        assertion("Unknown state");
    }
}
