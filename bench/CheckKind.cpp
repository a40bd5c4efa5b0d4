#include "CheckKind.h"

#include <string_view>

namespace bench {

namespace {

void putNumber(std::string* bytes, std::uint64_t value, int width)
{
    for (; width > 0; --width, value >>= 8)
        bytes->push_back(static_cast<char>(value & 0xFF));
}

// Encodes a property map. Settings come in the order of their numbers.
class Settings {
public:
    Settings& text(std::uint32_t number, std::string_view value)
    {
        begin(number, 7);
        putNumber(&entries, value.size(), 8);
        entries += value;
        return *this;
    }
    Settings& flag(std::uint32_t number)
    {
        begin(number, 21);
        putNumber(&entries, 1, 4);
        return *this;
    }
    Settings& choice(std::uint32_t number, std::uint32_t type, std::uint32_t value)
    {
        begin(number, 25);
        putNumber(&entries, type, 4);
        putNumber(&entries, value, 4);
        return *this;
    }
    std::string bytes() const
    {
        std::string map;
        putNumber(&map, count, 4);
        return map + entries;
    }

private:
    void begin(std::uint32_t number, std::uint32_t tag)
    {
        ++count;
        for (const std::uint32_t word : {number, tag, number, 0U, 0U})
            putNumber(&entries, word, 4);
    }

    std::string entries;
    std::uint32_t count = 0;
};

constexpr std::uint32_t user = 517;
constexpr std::uint32_t dnsHost = 518;
constexpr std::uint32_t dnsIp = 519;
constexpr std::uint32_t httpUrl = 534;
constexpr std::uint32_t password = 535;
constexpr std::uint32_t executeVrfy = 541;
constexpr std::uint32_t httpContentRegex = 543;
constexpr std::uint32_t httpVersion = 557;
constexpr std::uint32_t httpVersionType = 0x10020;
constexpr std::uint32_t useSsl = 559;

constexpr std::size_t bodySize = 65536;

std::string httpReply(const std::string& body)
{
    return "HTTP/1.1 200 OK\r\n"
           "Date: Mon, 01 Jan 2024 00:00:00 GMT\r\n"
           "Server: bench\r\n"
           "Content-Type: text/html; charset=utf-8\r\n"
           "Cache-Control: no-cache\r\n"
           "Content-Length: " +
           std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
}

// What the content pattern looks for stands in the last line.
std::string longBody()
{
    const std::string last = "<p>The service is <b>ready</b> since 1234 days.</p>\n";
    std::string body;
    for (int row = 1; body.size() + last.size() < bodySize; ++row)
        body += "<tr><td>row " + std::to_string(row) + "</td><td>some text</td></tr>\n";
    body.resize(bodySize - last.size());
    return body + last;
}

CheckKind http(const char* name, bool version11, Transport transport)
{
    CheckKind kind{.name = name, .service = 1, .resultStrings = 7};
    Settings settings;
    settings.text(httpUrl, version11 ? "http://localhost:8080/status" : "/status");
    if (version11)
        settings.choice(httpVersion, httpVersionType, 1);
    if (transport == Transport::tls)
        settings.flag(useSsl);
    kind.transport = transport;
    kind.settings = settings.bytes();
    kind.requestEnd = "\r\n\r\n";
    kind.turns = {{version11 ? "GET /status HTTP/1.1\r\nHost: localhost:8080\r\nConnection: close"
                             : "GET /status HTTP/1.0",
                   httpReply("<html><body>The service is ready.</body></html>\n")}};
    return kind;
}

constexpr const char* longReply = "http-body";

CheckKind httpBody()
{
    CheckKind kind = http(longReply, true, Transport::tcp);
    kind.settings = Settings()
                        .text(httpUrl, "http://localhost:8080/status")
                        .text(httpContentRegex, "<b>(up|ready)</b> since [0-9]+ days")
                        .choice(httpVersion, httpVersionType, 1)
                        .bytes();
    kind.turns[0].reply = httpReply(longBody());
    kind.waitsForEnd = true;
    return kind;
}

CheckKind dns()
{
    using namespace std::string_literals;
    const std::string question = "\3www\7example\3org\0\0\1\0\1"s;
    const std::string address = "\xC0\x0C\0\1\0\1\0\0\0\x3C\0\4\xC0\0\2\7"s;  // 192.0.2.7
    return {.name = "dns",
            .service = 3,
            .transport = Transport::udp,
            .settings =
                Settings().text(dnsHost, "www.example.org").text(dnsIp, "192.0.2.7").bytes(),
            .requestEnd = "",
            .turns = {{"\0\x75\1\0\0\1\0\0\0\0\0\0"s + question,
                       "\0\x75\x81\x80\0\1\0\1\0\0\0\0"s + question + address}}};
}

CheckKind mailbox(CheckKind kind, Transport transport)
{
    Settings settings;
    settings.text(user, "probe").text(password, "secret");
    if (transport == Transport::tls)
        settings.flag(useSsl);
    kind.transport = transport;
    kind.settings = settings.bytes();
    return kind;
}

CheckKind pop3(const char* name, Transport transport)
{
    return mailbox({.name = name,
                    .service = 5,
                    .resultStrings = 1,
                    .greeting = "+OK mailbox ready\r\n",
                    .turns = {{"USER probe", "+OK password, please\r\n"},
                              {"PASS secret", "+OK logged in\r\n"},
                              {"QUIT", "+OK bye\r\n"}}},
                   transport);
}

CheckKind imap(const char* name, Transport transport)
{
    return mailbox({.name = name,
                    .service = 8,
                    .resultStrings = 2,
                    .greeting = "* OK IMAP4rev1 ready\r\n",
                    .waitsForGreeting = false,
                    .turns = {{"0 LOGIN probe secret", "0 OK logged in\r\n"},
                              {"0 LOGOUT", "* BYE bye\r\n0 OK done\r\n"}}},
                   transport);
}

std::vector<CheckKind> makeKinds()
{
    std::vector<CheckKind> kinds;
    kinds.push_back({.name = "tcp",
                     .service = 6,
                     .checksAlone = 5000,
                     .checks = 20000,
                     .rounds = 4,
                     .settings = Settings().bytes(),
                     .waitsForEnd = true});
    kinds.push_back(dns());
    kinds.push_back({.name = "smtp",
                     .service = 4,
                     .resultStrings = 1,
                     .settings = Settings().flag(executeVrfy).bytes(),
                     .greeting = "220 mail.example.org ESMTP ready\r\n",
                     .turns = {{"HELO ", "250 mail.example.org\r\n"},
                               {"VRFY root@localhost", "252 send some mail, will try\r\n"},
                               {"QUIT", "221 bye\r\n"}}});
    kinds.push_back({.name = "ftp",
                     .service = 7,
                     .resultStrings = 1,
                     .settings = Settings().text(user, "probe").text(password, "secret").bytes(),
                     .greeting = "220 ftp.example.org ready\r\n",
                     .turns = {{"USER probe", "331 password, please\r\n"},
                               {"PASS secret", "230 logged in\r\n"},
                               {"QUIT", "221 bye\r\n"}}});
    kinds.push_back(http("http10", false, Transport::tcp));
    kinds.push_back(http("http11", true, Transport::tcp));
    kinds.push_back(httpBody());
    kinds.push_back(http("https", true, Transport::tls));
    kinds.push_back(pop3("pop3", Transport::tcp));
    kinds.push_back(pop3("pop3s", Transport::tls));
    kinds.push_back(imap("imap", Transport::tcp));
    kinds.push_back(imap("imaps", Transport::tls));

    for (CheckKind& kind : kinds) {
        const bool isDear = kind.transport == Transport::tls || kind.name == longReply;
        if (isDear) {
            kind.checksAlone = 400;
            kind.checks = 1500;
            kind.rounds = 1;
        }
        kind.tenThousand = kind.transport == Transport::tcp && !isDear;
    }
    return kinds;
}

}  // namespace

const std::vector<CheckKind>& checkKinds()
{
    static const std::vector<CheckKind> kinds = makeKinds();
    return kinds;
}

}  // namespace bench
