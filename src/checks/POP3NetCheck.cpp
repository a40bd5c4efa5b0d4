#include "checks/POP3NetCheck.h"

#include "common/assertion.h"
#include "types/vocabulary.h"

ReplyVerdict readPop3Reply(std::string_view reply)
{
    using Kind = ReplyVerdict::Kind;
    if (!reply.starts_with('+'))
        return {Kind::bad, "POP3: bad reply"};
    return {.kind = endsInLineEnd(reply) ? Kind::complete : Kind::incomplete};
}

void POP3NetCheck::start()
{
    readProperty(tql::property::useSsl, useSsl);
    readProperty(tql::property::user, user);
    readProperty(tql::property::checkPassword, password);
    connect(connector);
}

void POP3NetCheck::ioReady(io::Selectable* s)
{
    if (s == connector.get()) {
        connected();
    } else if (s == out && state == idle) {
        selector->remove(out);
        state = greeting;
        exchange.waitFor(*in);
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

void POP3NetCheck::connected()
{
    if (exchange.connected(connector.get(), useSsl, &socket, &sslSocket, &in, &out))
        exchange.waitFor(*out);
}

std::string POP3NetCheck::request()
{
    reply.clear();
    switch (state) {
    case userName:
        return "USER " + user + "\r\n";
    case passWord:
        return "PASS " + password + "\r\n";
    case quit:
        return "QUIT\r\n";
    default:
        assertion("Unknown state");
    }
}

void POP3NetCheck::received()
{
    std::string_view chunk;
    if (exchange.receive(*in, &reply, &chunk))
        judgePop3();
}

void POP3NetCheck::judgePop3()
{
    if (reply.empty())
        assertion("Empty reply?!");
    if (exchange.accepts(readPop3Reply(reply), *in))
        goOn();
}

void POP3NetCheck::goOn()
{
    switch (state) {
    case greeting:
        state = user.empty() ? quit : userName;
        stat.result_strings.push_back(reply);
        break;
    case userName:
        state = passWord;
        break;
    case passWord:
        state = quit;
        break;
    case quit:
        state = idle;
        finish();
        return;
    default:
        assertion("Unknown state");
    }
    exchange.waitFor(*out);
}
