// The SMTP, FTP, HTTP, POP3 and IMAP checks in dialogues: what they ask, how they judge each reply
// in each state, and what they tell about it.
#include "tests/checks/replaced.h"
#include "tests/support/Case.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/Worker.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <array>
#include <map>
#include <memory>

namespace {

using namespace support;
using Lines = std::vector<std::string>;
using Settings = std::vector<Setting>;

const std::map<std::string, int> services = {
    {"SMTP", 4}, {"FTP", 7}, {"HTTP", 1}, {"POP3", 5}, {"IMAP", 8}};

const Settings none = {};
const Settings verify = {boolSetting(541, true)};
const Settings onlyUser = {textSetting(517, "a b")};
const Settings onlyPassword = {textSetting(535, "p")};
const Settings login = {textSetting(517, "u"), textSetting(535, "p")};
const Setting agent = textSetting(563, "n");
const Setting word = textSetting(543, "wor.d");

// The type of an enumeration has 17 bits that count.
Settings get(std::uint32_t version, const std::string& url, const Setting& its = absentSetting(563))
{
    return {enumSetting(557, 0x30020, version), textSetting(534, url), its};
}

// A dialogue and what the check tells of it, from a text of these parts:
//
//   <text    the server says it; in it, "$" is the end of an entry of the result
//   >text    the server hears it, and nothing else
//   |text    the server says it as soon as the check has told of all before
//   ^line    a line of the log about a reply: a code, or the words
//   #line    the process ends, and this is why
//   !        the server closes; otherwise it waits for the check to leave
//
// "~" is a line end, HOST the name of this machine.
struct Dialogue {
    Dialogue(const std::string& kind, const std::string& shortText)
        : lines({"1024 Scheduling check of type " + std::to_string(services.at(kind))})
    {
        std::array<char, 1024> host = {};
        gethostname(host.data(), host.size());
        const std::string text = replaced(replaced(shortText, "~", "\r\n"), "HOST", host.data());
        for (std::size_t at = 0, end = 0; at < text.size(); at = end) {
            end = std::min(text.find_first_of("<>|^#!", at + 1), text.size());
            add(kind, text[at], text.substr(at + 1, end - at - 1));
        }
        if (text.find('!') == text.npos)
            script.push_back(step::expectEnd());
    }

    void add(const std::string& kind, char mark, const std::string& text)
    {
        const std::string name = "1024 " + kind;
        if (mark == '|') {
            awaited.push_back(lines.back());
            script.push_back(step::waitForRelease());
        }
        if (mark == '>') {
            const bool shown = kind == "SMTP" || kind == "HTTP";
            script.push_back(step::expect(text));
            requests += text;
            lines.push_back("1024 Sending " + kind + " request" + (shown ? " " + text : ""));
            lines.push_back(name + ": request sent, will wait for reply");
        } else if (mark == '<' || mark == '|') {
            script.push_back(step::send(replaced(text, "$", "")));
            lines.push_back(name + " reply: " + script.back().text);
            for (const char character : text)
                character == '$' ? entries.emplace_back() : entries.back() += character;
        } else if (mark == '^') {
            const bool isCode = text.find_first_not_of("0123456789") == text.npos;
            const bool isWhole = text.starts_with("0 ") || text.starts_with("1024 ");
            lines.push_back(isWhole  ? text
                            : isCode ? name + " processReply: code = " + text
                                     : name + ": " + text);
        } else if (mark == '#') {
            errors = "Caught: " + text + "\n";
        }
    }

    Script script;
    std::string requests;
    Lines entries = {""};  // and a part of one that isn't wanted
    Lines awaited;         // each lets the server go on
    Lines lines;
    std::string errors;
};

TEST(Dialogue, Cases)
{
    const std::string quit = "^220>HELO HOST~<250 a~^250>QUIT~<421 b~^421";
    const std::string wait = "^will wait for more data";
    const std::string more = "^Not the last line in multiline reply";
    const std::string end = "readBegin: EOS from Socket_IStream(127.0.0.1:PORT)";
    const std::string v10 = ">GET / HTTP/1.0~~";
    const std::string v11 = " HTTP/1.1~Host: ";
    const std::string close = "~Connection: close~";
    const std::string ok = "<HTTP/1.1 200~$A: b~$~";
    const std::string bad = "^1024 Bad reply from http-check: ";
    const std::string unlike = "^1024 Http content did not match pattern";
    const std::string most(4078, 'u');
    const std::string parse = "#Error parsing: ";
    const std::string mismatch = "#Type mismatch for property_";
    const struct {
        std::string kind;
        Settings settings;
        std::string dialogue;
        std::int32_t result = 0;
    } cases[] = {
        {"SMTP", none, "<220-a~220xb~$" + more + quit},
        {"SMTP", verify,
         "<220 a~$^220>HELO HOST~<250 b~^250>VRFY root@localhost~<550 c~^550>QUIT~<221 d~^221"},
        // All lines are told of again with each chunk, and a line feed alone is no line end.
        {"SMTP", none,
         "<220-a~" + more + "|220-b~" + more + more + "|2" + wait + "|20 c\r" + wait + "|\n" +
             wait + "|250 d~$" + more + more + quit},
        // What follows the last line is no answer to the next request.
        {"SMTP", none, "<220 a~250 b~$^220>HELO HOST~<421 c~^421", 6},
        {"SMTP", none, "<220-a~220~" + more + "^too small reply", 6},
        {"SMTP", none, "<220 a~$^220>HELO HOST~!^0 SMTP: " + end, 5},
        {"SMTP", none, "<abc hello~" + parse + "\"abc\""},
        {"SMTP", none, "<220-a~    b~" + more + parse + "\"   \""},
        {"SMTP", none, "<220 a~$^220>HELO HOST~<2 0 b~" + parse + "\"2 0\""},
        {"SMTP", {textSetting(541, "")}, mismatch + "boolean_t: smtpExecuteVrfy"},

        {"FTP", login, "<220 a~$^220>USER u~<331 b~^331>PASS p~<230 c~^230>QUIT~<221 d~^221"},
        {"FTP", login, "<220 a~$^220>USER u~<230 b~^230>QUIT~<221 c~^221"},
        {"FTP", onlyUser, "<220 a~$^220>USER a b~<331 b~^331>PASS ~<201 c~^201>QUIT~<221 d~^221"},
        {"FTP", onlyPassword, "<220 a~$^220>QUIT~<220 b~^220", 6},
        {"FTP", none,
         "<220-a~|b~ 220 c~|22x d~220-e~|220 f\r" + wait + "|\n" + wait +
             "|~$^220>QUIT~<221-~221 ~^221"},
        {"FTP", none, "<220 a~221 b~$^220>QUIT~<120 c~^120", 6},
        {"FTP", none, "<220:a~^bad reply (-)", 6},
        {"FTP", login, "<220 a~$^220>USER u~<201 b~^201", 6},
        {"FTP", login, "<220 a~$^220>USER u~<331 b~^331>PASS p~<202 c~^202", 6},
        {"FTP", none, "<220-a~!^0 FTP: " + end, 5},
        {"FTP", {boolSetting(517, true)}, mismatch + "string_t: user"},
        {"FTP", {boolSetting(535, true)}, mismatch + "string_t: checkPassword"},

        {"POP3", login, "<+ a~$>USER u~<+ b~>PASS p~<+ c~>QUIT~<+ d~"},
        {"POP3", onlyUser, "<+|OK a|b~$>USER a b~<+OK\r|\n>PASS ~<+~+~x|~>QUIT~<+~"},
        // The first character decides.
        {"POP3", onlyPassword, "<+OK~$>QUIT~<-^bad reply", 6},
        {"POP3", login, "<+OK~$>USER u~<+OK~>PASS p~<-ERR~^bad reply", 6},
        {"POP3", none, "<+OK!^0 POP3: " + end, 5},
        {"POP3", {boolSetting(517, true)}, mismatch + "string_t: user"},
        {"POP3", {boolSetting(535, true)}, mismatch + "string_t: checkPassword"},
        {"POP3", {textSetting(559, "")}, mismatch + "boolean_t: useSsl"},

        {"IMAP", none, ">0 LOGOUT~<* a~* b~0 OK c~$"},
        {"IMAP", login, ">0 LOGIN u p~<~|* a~|* b~|0 |OK\r|\n$>0 LOGOUT~<* c~0 OK~x~$"},
        {"IMAP", onlyUser, ">0 LOGIN a b ~<0 OK~* a~$>0 LOGOUT~<* bye~0 BAD~^bad reply", 6},
        {"IMAP", login, ">0 LOGIN u p~<* a~|0 NO~^bad reply", 6},
        {"IMAP", none, ">0 LOGOUT~<0 BAD!^0 IMAP: " + end, 5},
        {"IMAP", {boolSetting(517, true)}, mismatch + "string_t: user"},
        {"IMAP", {boolSetting(535, true)}, mismatch + "string_t: checkPassword"},
        {"IMAP", {textSetting(559, "")}, mismatch + "boolean_t: useSsl"},

        {"HTTP", get(0, "", agent), v10 + ok},
        {"HTTP", get(2, "http://h:81/?b"), ">GET http://h:81/?b HTTP/1.0~~" + ok},
        {"HTTP", get(1, "", nullBoolSetting(563)), ">GET /" + v11 + "a" + close + "~" + ok},
        {"HTTP", get(1, "s://h:81/x?c=2&b", agent),
         ">GET /x?b=&c=2" + v11 + "h:81" + close + "User-Agent: n~~" + ok},
        {"HTTP", get(0, most), ">GET " + most + " HTTP/1.0~~" + ok},
        {"HTTP", get(0, most + "u"),
         "^1024 Sending HTTP request GET " + most + "u HTTP/1.0~~^0 HTTP: Buffer too small", 4},
        {"HTTP",
         {textSetting(542, "")},
         v10 + "<HTTP/1.1 302~$A: b$" + bad + "HTTP/1.1 302~A: b",
         6},
        {"HTTP", {textSetting(542, "^3")}, v10 + "<HTTP/1.1 302~$"},
        // Without a content pattern, nobody waits for the rest.
        {"HTTP", none, v10 + "<HTTP/1.1 20$" + bad + "HTTP/1.1 20", 6},
        {"HTTP", none, v10 + "!", 6},
        {"HTTP", {word}, v10 + "<HTTP/1.1 20|0~$A: b~$~hello |world|~!"},
        {"HTTP", {textSetting(543, "A: b")}, v10 + ok + "!"},
        {"HTTP", {word}, v10 + ok + "word!" + unlike, 6},
        {"HTTP", {word}, v10 + ok + '\0' + "world!" + unlike, 6},
        {"HTTP", {textSetting(543, "b")}, v10 + "<HTTP/1.1 404~$~b!" + bad + "HTTP/1.1 404~~b", 6},
        {"HTTP", get(1, "x://"), "#Cannot parse authority part of url when not present."},
        {"HTTP", get(1, "x://h:8x"), parse + "\"8x\""},
        {"HTTP", {textSetting(542, "(")}, "#parentheses not balanced"},
        {"HTTP", {textSetting(543, "[a")}, "#brackets ([ ]) not balanced"},
        {"HTTP", {boolSetting(534, true)}, mismatch + "string_t: httpUrl"},
        {"HTTP", {boolSetting(542, true)}, mismatch + "string_t: httpStatusRegex"},
        {"HTTP", {boolSetting(543, true)}, mismatch + "string_t: httpContentRegex"},
        {"HTTP", {boolSetting(557, true)}, mismatch + "t: httpVersion [exp:65568,actual:non-enum"},
        {"HTTP", {boolSetting(563, true)}, mismatch + "string_t: httpUserAgent"},
        {"HTTP", {textSetting(559, "")}, mismatch + "boolean_t: useSsl"},
    };
    std::unique_ptr<Worker> last;
    for (const auto& c : cases) {
        runCase(c.kind + ": " + c.dialogue.substr(0, 80), [&] {
            // A worker goes on from case to case while all is well.
            auto worker = last ? std::move(last) : std::make_unique<Worker>();
            const std::size_t first = std::max<std::size_t>(worker->frames().size(), 1);
            Dialogue dialogue(c.kind, c.dialogue);
            ScriptedServer server(dialogue.script);
            const std::uint32_t port = server.port();
            worker->send({.service = services.at(c.kind), .port = port, .properties = c.settings});
            for (const std::string& line : dialogue.awaited) {
                worker->readLine(line);
                server.release();
            }
            if (dialogue.errors.empty()) {
                const CheckResult result = worker->readResult();
                EXPECT_EQ(result.replytime >= 0, c.result == 0 || c.result == 6);
                dialogue.entries.pop_back();
                EXPECT_EQ(result.result_strings, dialogue.entries);
                dialogue.lines.push_back("result " + std::to_string(c.result));
                const Conversation talk = server.waitForClosed();
                EXPECT_EQ(talk.received + talk.failure, dialogue.requests);
            } else {
                const ProcessEnd ended = worker->waitForEnd();
                EXPECT_EQ(ended.code, 1);
                EXPECT_EQ(ended.errors, dialogue.errors);
            }
            Lines lines;
            for (std::size_t i = first; i < worker->frames().size(); ++i)
                lines.push_back(replaced(worker->frames()[i].line, std::to_string(port), "PORT"));
            EXPECT_EQ(lines, dialogue.lines);
            if (dialogue.errors.empty())
                last = std::move(worker);
        });
    }
}

TEST(Dialogue, NoConnection)
{
    const char* const version =
        "SSL Connect/Accept failed:error:0A00010B:SSL routines::wrong version number";
    RefusingPort refusing;
    ScriptedServer plain({step::send("220 a\r\n"), step::expectEnd()});
    Worker worker;
    for (const auto& entry : services) {
        const std::string& kind = entry.first;
        const auto told = [&](std::uint32_t port, bool useSsl, std::int32_t result) {
            const Settings settings = {boolSetting(559, useSsl)};
            worker.send({.service = entry.second, .port = port, .properties = settings});
            EXPECT_EQ(worker.readResult().result, result);
            return worker.transcript().rbegin()[1];
        };
        const std::string refused = "1024 " + kind + ": TCP connection failed";
        EXPECT_EQ(told(refusing.port(), false, 3), refused);
        EXPECT_EQ(told(refusing.port(), true, 3), refused);
        if (kind == "POP3") {
            const std::string read = "0 POP3: readBegin: SSL_Socket_IStream: ";
            EXPECT_EQ(told(plain.port(), true, 5), read + version);
        } else if (kind == "HTTP" || kind == "IMAP") {
            EXPECT_EQ(told(plain.port(), true, 4), "0 " + kind + ": writeBegin fails" + version);
        }
    }
}

}  // namespace
