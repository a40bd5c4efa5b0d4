// The worker, and netcheckctl, with servers as Debian has them.
#include "tests/servers/Server.h"
#include "tests/support/Worker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <set>

namespace {

using namespace support;
using servers::Server;
using testing::Contains;
using testing::MatchesRegex;
using testing::StartsWith;
using Settings = std::vector<Setting>;
using Texts = std::vector<std::string>;

enum Service { http = 1, dns = 3, smtp = 4, pop3 = 5, ftp = 7, imap = 8 };

struct Row {
    const char* name;
    Service service;
    std::size_t port;  // which one of the server's
    Settings settings = {};
    std::int32_t result = 0;
    const char* strings = "";  // a regular expression for all of them, with "~" behind each
    // One for a line of the log, with its type in front. All other lines must be trace lines.
    const char* line = ".*";
};

void expectRow(const Row& row, const CheckResult& result)
{
    EXPECT_EQ(result.result, row.result) << row.name;
    // A good answer and a bad one have a reply time, a failure has none.
    EXPECT_EQ(result.replytime >= 0, row.result == 0 || row.result == 6) << row.name;
    std::string strings;
    for (const std::string& text : result.result_strings)
        strings += text + "~";
    EXPECT_THAT(strings, MatchesRegex(row.strings)) << row.name;
}

// Has one worker make all checks: one after the other, and then all at once. Last, netcheckctl
// checks the targets, in which each * stands for the address and the first port.
void expectGood(const Server& server, const std::vector<Row>& rows, Texts targets)
{
    Worker worker;
    const auto send = [&](std::uint32_t i) {
        worker.send({.host = "second.test",
                     .id = {i},
                     .service = rows[i].service,
                     .port = server.port(rows[i].port),
                     .properties = rows[i].settings});
    };
    worker.readLine("0 netcheck is alive");
    for (std::uint32_t i = 0; i < rows.size(); ++i) {
        const auto before = static_cast<std::ptrdiff_t>(worker.frames().size());
        send(i);
        expectRow(rows[i], worker.readResult());
        const Texts all = worker.transcript();
        const Texts lines(all.begin() + before, all.end());
        EXPECT_THAT(lines, Contains(MatchesRegex(rows[i].line))) << rows[i].name;
        EXPECT_THAT(lines, Contains(StartsWith("0 ")).Times(*rows[i].line == '0' ? 1 : 0))
            << rows[i].name;
    }
    for (std::uint32_t i = 0; i < rows.size(); ++i)
        send(i);
    std::set<std::uint32_t> ended;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const CheckResult result = worker.readResult();
        expectRow(rows.at(result.check_id.at(0)), result);
        ended.insert(result.check_id[0]);
    }
    EXPECT_EQ(ended.size(), rows.size());
    const ProcessEnd end = worker.stop();
    EXPECT_EQ(end.code, 0);
    EXPECT_EQ(end.errors, "");

    for (std::string& target : targets)
        target.replace(target.find('*'), 1, "127.0.0.1:" + std::to_string(server.port(0)));
    targets.insert(targets.begin(), "check");
    const ProcessEnd all = Process({.program = NETCHECKCTL, .arguments = targets}).waitForEnd();
    EXPECT_EQ(all.code, 0) << all.output << all.errors;
}

Settings login(const char* user, const char* password, bool tls = false)
{
    return {textSetting(517, user), textSetting(535, password), boolSetting(559, tls)};
}

Settings get(std::uint32_t version, const char* url, const char* status = "",
             const char* content = "", bool tls = false)
{
    return {textSetting(534, url),     textSetting(542, status),
            textSetting(543, content), enumSetting(557, 0x10020, version),
            boolSetting(559, tls),     textSetting(563, "agent")};
}

Settings ask(const char* host, const char* expected = "")
{
    return {textSetting(518, host), textSetting(519, expected)};
}

TEST(RealServers, Nginx)
{
    const char* const configuration = R"(
daemon off; master_process off; pid {dir}/pid; error_log stderr info; events {}
http {
  access_log {dir}/log; client_body_temp_path {dir}/temp; proxy_temp_path {dir}/temp;
  fastcgi_temp_path {dir}/temp; uwsgi_temp_path {dir}/temp; scgi_temp_path {dir}/temp;
  ssl_certificate {dir}/cert; ssl_certificate_key {dir}/key;
  root {dir}; default_type text/plain; server_tokens off;
  server {
    listen 127.0.0.1:{0};
    location = / { return 200 "$request_uri $server_protocol [$http_user_agent]"; }
    location = /moved { return 302 http://elsewhere.test/; }
    location = /pieces { ssi on; ssi_types text/plain; }
  }
  server { listen 127.0.0.1:{0}; server_name second.test; return 200 "second, $http_host"; }
  server { listen 127.0.0.1:{1} ssl; ssl_protocols TLSv1.2; location = / { return 200 $ssl_protocol; } }
  server { listen 127.0.0.1:{2} ssl; ssl_protocols TLSv1.3; location = / { return 200 $ssl_protocol; } }
})";
    // Its middle stands right before the limit for what a check reads, its tail behind it.
    std::string big(0x104000, 'x');
    big.replace(0, 4, "head").replace(0xFF000, 6, "middle").replace(0x102000, 4, "tail");
    const Server nginx("/usr/sbin/nginx -p {dir} -e stderr -c", 3,
                       {{"configuration", configuration},
                        {"big", big},
                        {"text", std::string(10000, 'x') + "tail"},
                        {"pieces", "one<!--# echo var='request_uri' -->two"}});
    const char* const good = "HTTP/1.1 200 OK\r\n~Server: nginx\r\n~.*Connection: close\r\n~.*";
    const char* const text =
        "HTTP/1.1 200 OK\r\n~Server: nginx\r\n~Date: [^~]*\r\n~Content-Type: text/plain\r\n"
        "~Content-Length: 10004\r\n~Last-Modified: [^~]*\r\n~Connection: close\r\n"
        "~ETag: [^~]*\r\n~Accept-Ranges: bytes\r\n~";
    const char* const no = "HTTP/1.1 404 Not Found\r\n~.*";
    const char* const bad = "HTTP/1.1 400 Bad Request\r\n~.*";
    const char* const moved = "HTTP/1.1 302 .*~Location: http://elsewhere.test/\r\n~.*";
    const char* const noStatus = "1024 Bad reply from http-check: HTTP/1.1 404 .*";
    const char* const noMatch = "1024 Http content did not match pattern";
    const std::vector<Row> rows = {
        {"1.0, no header", http, 0, get(0, "/", "", "\r\n\r\n/ HTTP/1\\.0 \\[]$"), 0, good},
        {"1.0, no URL", http, 0, get(0, "", "", "\r\n\r\n/ HTTP/1\\.0 \\[]$"), 0, good},
        {"1.0, URL", http, 0, get(0, "http://second.test/", "", "second, $"), 0, good},
        {"1.1", http, 0, get(1, "http://a/?b=c", "", "/\\?b=c HTTP/1.1 \\[agent]$"), 0, good},
        {"its host", http, 0, get(1, "http://second.test:8", "", "second.test:8$"), 0, good},
        {"request's host", http, 0, get(1, "/", "", "second, second.test$"), 0, good},
        {"missing", http, 0, get(1, "http://a/no"), 6, no, noStatus},
        {"missing wanted", http, 0, get(0, "/no", "^404$", "nginx"), 0, no},
        {"moved", http, 0, get(0, "/moved"), 6, moved},
        {"moved wanted", http, 0, get(1, "http://a/moved", "^3"), 0, moved},
        {"headers", http, 0, get(0, "/text", "^200$"), 0, text},
        {"other content", http, 0, get(0, "/text", "", "other"), 6, text, noMatch},
        {"big, head", http, 0, get(0, "/big", "", "\r\n\r\nheadx"), 0, good},
        {"big, middle", http, 0, get(1, "http://a/big", "", "xmiddlex"), 0, good},
        {"big, tail", http, 0, get(0, "/big", "", "xtailx"), 6, good, noMatch},
        {"chunks", http, 0, get(1, "http://a/pieces", "", "chunked\r\n.*\nd\r\none/piecestwo\r\n0"),
         0, good},
        {"TLS 1.2", http, 1, get(0, "/", "", "\nTLSv1\\.2$", true), 0, good},
        {"TLS 1.3", http, 2, get(1, "/", "", "\nTLSv1\\.3$", true), 0, good},
        {"TLS 1.2, end", http, 1, get(1, "/text", "", "xtail$", true), 0, text},
        {"TLS 1.3, end", http, 2, get(0, "/text", "", "xtail$", true), 0, text},
        {"TLS 1.2, big", http, 1, get(0, "/big", "", "xmiddlex", true), 0, good},
        {"TLS 1.3, big", http, 2, get(1, "/big", "", "xtailx", true), 6, good, noMatch},
        {"TLS to HTTP", http, 0, get(0, "/", "", "", true), 4, "", "0 HTTP: writeBegin fails.*"},
        {"HTTP to TLS", http, 1, get(0, "/"), 6, bad},
    };
    expectGood(nginx, rows, {"http://*/", "http://*/text", "tcp://*"});
}

TEST(RealServers, Dovecot)
{
    // Without the delay and the penalty, a wrong password doesn't hold up others.
    const char* const configuration =
        "base_dir = {dir}/run\nlog_path = {dir}/log\nlisten = 127.0.0.1\nprotocols = imap pop3\n"
        "default_internal_user = {user}\ndefault_internal_group = {group}\n"
        "default_login_user = {user}\nmail_location = maildir:{dir}/mail\n"
        "ssl_cert = <{dir}/cert\nssl_key = <{dir}/key\nssl = yes\n"
        "disable_plaintext_auth = no\nauth_failure_delay = 0\n"
        "passdb {\n driver = static\n args = password=secret\n}\n"
        "userdb {\n driver = static\n args = uid={user} gid={group} home={dir}/home\n}\n"
        "service anvil {\n chroot =\n unix_listener anvil-auth-penalty {\n mode = 0\n }\n}\n"
        "service pop3-login {\n chroot =\n inet_listener pop3 {\n port = {0}\n }\n"
        " inet_listener pop3s {\n port = {1}\n }\n}\n"
        "service imap-login {\n chroot =\n inet_listener imap {\n port = {2}\n }\n"
        " inet_listener imaps {\n port = {3}\n }\n}\n";
    const Server dovecot("/usr/sbin/dovecot -F -c", 4, {{"configuration", configuration}});
    const char* const hello = "\\+OK Dovecot \\(Debian\\) ready\\.\r\n~";
    const char* const out = "\\* OK .*\r\n\\* BYE [^~]*\r\n0 OK Logout [^~]*\r\n~";
    const char* const both =
        "\\* OK [^~]*\r\n0 OK [^~]* Logged in\r\n~\\* BYE [^~]*\r\n0 OK Logout [^~]*\r\n~";
    const char* const noPop3 = "1024 POP3: bad reply";
    const char* const noImap = "1024 IMAP: bad reply";
    const std::vector<Row> rows = {
        {"POP3", pop3, 0, login("user", "secret"), 0, hello},
        {"POP3, wrong password", pop3, 0, login("user", "wrong"), 6, hello, noPop3},
        {"POP3, no user", pop3, 0, login("", "wrong"), 0, hello},
        {"POP3S", pop3, 1, login("user", "secret", true), 0, hello},
        {"POP3S, wrong password", pop3, 1, login("user", "wrong", true), 6, hello, noPop3},
        {"POP3S, no user", pop3, 1, login("", "", true), 0, hello},
        {"TLS to POP3", pop3, 0, login("", "", true), 5, "", "0 POP3: readBegin: .*"},
        {"IMAP", imap, 2, login("user", "secret"), 0, both},
        {"IMAP, wrong password", imap, 2, login("user", "wrong"), 6, "", noImap},
        {"IMAP, no user", imap, 2, login("", "wrong"), 0, out},
        {"IMAPS", imap, 3, login("user", "secret", true), 0, both},
        {"IMAPS, wrong password", imap, 3, login("user", "wrong", true), 6, "", noImap},
        {"IMAPS, no user", imap, 3, login("", "", true), 0, out},
        {"TLS to IMAP", imap, 2, login("", "", true), 4, "", "0 IMAP: writeBegin fails.*"},
        {"IMAP to TLS", imap, 3, login("", ""), 5, "", "0 IMAP: readBegin: .*"},
    };
    expectGood(dovecot, rows, {"pop3://*", "pop3://user:secret@*", "tcp://*"});
}

TEST(RealServers, Exim)
{
    // It verifies any address at its first port, and none at the second.
    const char* const configuration =
        "primary_hostname = mail.test\ndaemon_smtp_ports = {0} : {1}\nkeep_environment =\n"
        "local_interfaces = 127.0.0.1\nspool_directory = {dir}/spool\npid_file_path = {dir}/pid\n"
        "exim_user = {user}\nexim_group = {group}\nadmin_groups = {group}\n"
        "log_file_path = {dir}/%slog\nsmtp_banner = mail.test is here\\nand willing\n"
        "helo_allow_chars = _\ntls_advertise_hosts =\nacl_smtp_vrfy = accept\nbegin routers\n"
        "all:\n driver = redirect\n condition = ${if eq{$received_port}{{0}}}\n data = "
        ":blackhole:\n";
    const Server exim("/usr/sbin/exim4 -bdf -C", 2, {{"configuration", configuration}});
    const char* const hello = "220-mail\\.test is here\r\n220 and willing\r\n~";
    const Settings verify = {boolSetting(541, true)};
    const std::vector<Row> rows = {
        {"no VRFY", smtp, 0, {}, 0, hello, "1024 Sending SMTP request QUIT\r\n"},
        {"VRFY allowed", smtp, 0, verify, 0, hello, "1024 SMTP reply: 250 <root@localhost> .*"},
        {"VRFY refused", smtp, 1, verify, 0, hello, "1024 SMTP processReply: code = 550"},
    };
    expectGood(exim, rows, {"smtp://*", "smtp://*?vrfy=true", "ftp://*", "tcp://*"});
}

TEST(RealServers, ProFTPD)
{
    std::string configuration =
        "ServerName here\nDefaultAddress 127.0.0.1\nPort {0}\nSocketBindTight on\nUseIPv6 off\n"
        "UseReverseDNS off\nUser {user}\nGroup {group}\nUseFtpUsers off\nRequireValidShell off\n"
        "AuthOrder mod_auth_file.c\nAuthFileOptions InsecurePerms\nAuthUserFile {dir}/users\n"
        "DelayEngine off\nControlsEngine off\nWtmpLog off\nTransferLog none\nPidFile {dir}/pid\n"
        "ScoreboardFile {dir}/scores\nDisplayConnect {dir}/welcome\n";
    // Only a root user's server may lock somebody into a directory. For another, this user is
    // like all users.
    if (geteuid() == 0)
        configuration +=
            "<Anonymous {dir}>\nUser {user}\nUserAlias anonymous {user}\n</Anonymous>\n";
    const std::string secret = "$1$ftp$t1wRdaewfA1QV9M9Tq7qB/:1:1::/:/\n";
    const Server proftpd("/usr/sbin/proftpd -n -c", 1,
                         {{"configuration", configuration},
                          {"users", "user:" + secret + "anonymous:" + secret + "{user}:" + secret},
                          {"welcome", "Welcome\n220 to all\n"}});
    const char* const hello = "220-Welcome\r\n 220 to all\r\n220 ProFTPD Server \\(here\\) .*\r\n~";
    const char* const refused = "1024 FTP processReply: code = 530";
    const std::vector<Row> rows = {
        {"no login", ftp, 0, login("", "wrong"), 0, hello},
        {"user", ftp, 0, login("user", "secret"), 0, hello},
        {"anonymous", ftp, 0, login("anonymous", "secret"), 0, hello},
        {"wrong password", ftp, 0, login("user", "wrong"), 6, hello, refused},
        {"no such user", ftp, 0, login("other", "secret"), 6, hello, refused},
    };
    expectGood(proftpd, rows, {"ftp://*", "ftp://user:secret@*", "tcp://*"});
}

TEST(RealServers, NSD)
{
    const char* const configuration = R"(
server: ip-address: 127.0.0.1@{0} username: "" database: "" pidfile: "" xfrdfile: ""
  zonesdir: {dir} xfrdir: {dir} zonelistfile: {dir}/zones
remote-control: control-enable: no
zone: name: example.com zonefile: zone)";
    const char* const zone =
        "@ 60 SOA www root 1 60 60 60 60\n@ 60 NS www\nwww 60 A 192.0.2.1\n"
        "text 60 TXT text\nalias 60 CNAME middle\nmiddle 60 CNAME Several\n"
        "several 60 A 192.0.2.2\nseveral 60 A 192.0.2.3\nseveral 60 A 192.0.2.4\n"
        "away 60 CNAME www.elsewhere.test.\n";
    const Server nsd("/usr/sbin/nsd -d -c", 1, {{"configuration", configuration}, {"zone", zone}});
    const char* const none = "0 Bad reply from dns server";
    const char* const code = "0 Bad reply from dns server \\(flags\\)";
    const char* const other = "0 Bad reply from dns server \\(tokens\\)";
    const std::vector<Row> rows = {
        {"the usual name", dns, 0},
        {"address", dns, 0, ask("www.example.com", "192.0.2.1")},
        {"dot at the end", dns, 0, ask("www.example.com.", "192.0.2.1")},
        {"other address", dns, 0, ask("www.example.com", "192.0.2.2"), 6, "", other},
        {"capitals", dns, 0, ask("WWW.Example.Com", "192.0.2.1")},
        {"the last", dns, 0, ask("several.example.com", "192.0.2.1, 192.0.2.9;192.0.2.4")},
        {"the others", dns, 0, ask("several.example.com", "192.0.2.2 192.0.2.3"), 6, "", other},
        {"chain", dns, 0, ask("alias.example.com", "192.0.2.4")},
        {"chain without end", dns, 0, ask("away.example.com"), 6, "", none},
        {"no such name", dns, 0, ask("missing.example.com"), 6, "", code},
        {"no address", dns, 0, ask("text.example.com"), 6, "", none},
        {"refused", dns, 0, ask("www.elsewhere.test"), 6, "", code},
    };
    expectGood(nsd, rows, {"dns://*/www.example.com?expect=192.0.2.1"});
}

}  // namespace
