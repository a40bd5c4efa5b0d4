#include "parent/Demo.h"

#include "common/text.h"
#include "parent/DemoDialogue.h"
#include "parent/DemoNameServer.h"
#include "parent/DemoTls.h"
#include "parent/Report.h"
#include "parent/Run.h"

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace parent {

namespace {

// ---- What the services play ----------------------------------------------------------------

using Play = DemoScript::Play;

const DemoStep slowClose[] = {{nullptr, "", "", 300}};

const DemoStep mail[] = {
    {nullptr, "220 mail.example.com ready\r\n"},
    {"HELO ", "250 mail.example.com\r\n"},
    {"VRFY ", "252 I can't say, but will take your mail\r\n", "221 no mail to verify, bye\r\n"},
    {"QUIT", "221 bye\r\n"},
};

const DemoStep slowMail[] = {
    {nullptr, "220-mail2.example.com\r\n220 is busy\r\n"},
    {"HELO ", "250 mail2.example.com\r\n", "", 300},
    {"QUIT", "221 bye\r\n"},
};

const DemoStep files[] = {
    {nullptr, "220 files.example.com ready\r\n"},
    {"USER ", "331 and the password?\r\n", "530 log in first\r\n"},
    {"PASS secret", "230 welcome\r\n", "530 wrong password\r\n"},
    {"QUIT", "221 bye\r\n"},
};

const DemoStep web[] = {
    {"GET /index.html",
     "HTTP/1.1 200 OK\r\nContent-Type: text/html\r\nConnection: close\r\n\r\n"
     "<html><title>Status</title><p>All systems are green.</p></html>\r\n",
     "HTTP/1.1 404 Not Found\r\nContent-Type: text/plain\r\nConnection: close\r\n\r\n"
     "There is no such page.\r\n"},
};

const DemoStep mailbox[] = {
    {nullptr, "+OK mailbox of example.com\r\n"},
    {"USER anna", "+OK\r\n", "-ERR who is that?\r\n"},
    {"PASS secret", "+OK 2 messages\r\n", "-ERR wrong password\r\n"},
    {"QUIT", "+OK bye\r\n"},
};

const DemoStep brokenMailbox[] = {
    {nullptr, "+OK mailbox of example.com\r\n"},
    {"USER anna", ""},
};

const DemoStep folders[] = {
    {nullptr, "* OK folders of example.com\r\n"},
    {"0 LOGIN anna secret", "0 OK welcome\r\n", "0 NO wrong password\r\n"},
    {"0 LOGOUT", "* BYE\r\n0 OK bye\r\n"},
};

const DemoScript scripts[] = {
    {"quick", {}},
    {"slow", slowClose},
    {"deaf", {}, Play::refuses},
    {"rude", {}, Play::resets},
    {"endless", {}, Play::stays},
    {"mail", mail},
    {"slow mail", slowMail},
    {"files", files},
    {"web", web, Play::closes, false, "\r\n\r\n"},
    {"web, TLS", web, Play::closes, true, "\r\n\r\n"},
    {"mailbox", mailbox},
    {"mailbox, TLS", mailbox, Play::closes, true},
    {"broken mailbox", brokenMailbox},
    {"folders", folders},
    {"folders, TLS", folders, Play::closes, true},
};

const char* const nameServer = "names";
const DemoName names[] = {
    {"www.example.com", "web.example.com", {}},
    {"web.example.com", nullptr, {192, 0, 2, 1}},
};

// ---- What is checked -----------------------------------------------------------------------

struct CheckScript {
    const char* service;
    const char* front;  // of the target, up to the address
    const char* rest;   // of the target, behind the port
    std::int32_t expected;
    const char* story;
    std::int32_t warnIfAbove = 0;
    std::int32_t alertIfAbove = 0;
    const char* content = "";  // pattern for what a web server sends
};

// A threshold of less than nothing is none, but shortens the time limit, here to one second.
constexpr std::int32_t oneSecondLimit = -9000;

const CheckScript checkScripts[] = {
    {"quick", "tcp://", "", services::RESULT_OK, "accepts, and closes at once"},
    {"slow", "tcp://", "", services::RESULT_WARNING, "closes after 300 ms, warning above 100", 100},
    {"deaf", "tcp://", "", services::RESULT_CONNECT_FAILED, "refuses the connection"},
    {"rude", "tcp://", "", services::RESULT_CLOSE_FAILED, "accepts, and breaks the connection"},
    {"endless", "tcp://", "?connClose=false", services::RESULT_OK, "never closes, and need not"},
    {"endless", "tcp://", "", services::RESULT_TIMEOUT, "never closes, but should within 1 s", 0,
     oneSecondLimit},
    {nameServer, "dns://", "/www.example.com?expect=192.0.2.1", services::RESULT_OK,
     "knows the address, by an alias"},
    {nameServer, "dns://", "/nobody.example.com", services::RESULT_BAD_REPLY,
     "knows of no such name"},
    {"mail", "smtp://", "?vrfy", services::RESULT_OK, "takes mail, and is asked for a mailbox"},
    {"slow mail", "smtp://", "", services::RESULT_ALERT, "answers after 300 ms, alert above 200",
     100, 200},
    {"files", "ftp://anna:secret@", "", services::RESULT_OK, "lets anna in"},
    {"files", "ftp://bert:wrong@", "", services::RESULT_BAD_REPLY,
     "takes no wrong password of bert"},
    {"web", "http://", "/index.html", services::RESULT_OK, "has the page"},
    {"web", "http://", "/missing.html", services::RESULT_BAD_REPLY, "has no such page"},
    {"web, TLS", "https://", "/index.html", services::RESULT_OK,
     "has a page that says that all is green", 0, 0, "systems are (green|fine)"},
    {"web, TLS", "https://", "/index.html?lang=de", services::RESULT_BAD_REPLY,
     "has the page, but not in German", 0, 0, "Alle Systeme"},
    {"mailbox", "pop3://anna:secret@", "", services::RESULT_OK, "lets anna in"},
    {"broken mailbox", "pop3://anna:secret@", "", services::RESULT_READ_FAILED, "hangs up on anna"},
    {"mailbox, TLS", "pop3s://anna:secret@", "", services::RESULT_OK, "lets anna in, with TLS"},
    {"folders", "imap://anna:secret@", "", services::RESULT_OK, "lets anna in"},
    {"folders, TLS", "imaps://anna:secret@", "", services::RESULT_OK, "lets anna in, with TLS"},
    {"folders", "imaps://anna:secret@", "", services::RESULT_WRITE_FAILED, "speaks no TLS"},
};

std::string resultName(std::int32_t result)
{
    Outcome outcome;
    outcome.kind = Outcome::Kind::answered;
    outcome.result.result = result;
    return outcome.name();
}

std::string padded(std::string text, std::size_t width)
{
    text.resize(std::max(width, text.size()), ' ');
    return text;
}

// The table, with what was expected before it and what was not after it.
class DemoReport final : public Report {
public:
    DemoReport(std::ostream& stream, Console& messages, bool colour)
        : Report(stream, messages), table(makeReport(Format::table, stream, messages, colour))
    {}

    void begin(const std::vector<Check>& all, bool rounds) override
    {
        checks = all.data();
        write("Services that play a script on loopback, and what a check of each is expected to "
              "find:\n\n");
        std::size_t width = 0;
        for (const Check& check : all)
            width = std::max(width, check.target.text.size());
        for (std::size_t i = 0; i < all.size(); ++i) {
            write("  " + padded(all[i].target.text, width) + "  " +
                  padded(resultName(checkScripts[i].expected), 14) + "  " + checkScripts[i].story +
                  "\n");
        }
        write("\n");
        table->begin(all, rounds);
    }

    void add(const Outcome& outcome) override
    {
        table->add(outcome);
        const CheckScript& script = checkScripts[outcome.check - checks];
        const std::string expected = resultName(script.expected);
        if (outcome.name() == expected)
            ++asExpected;
        else
            surprises += outcome.check->target.text + ", which " + script.story + ": expected " +
                         expected + ", came " + outcome.name() + "\n";
    }

    void end(const Summary& summary) override
    {
        table->end(summary);
        write(surprises + uint64ToString(asExpected) + " of " + uint64ToString(summary.planned) +
              " as expected\n");
    }

    int exitCode(const Summary& summary) const override
    {
        if (summary.interrupted || !summary.trouble.empty())
            return Report::exitCode(summary);
        return parent::exitCode(asExpected == summary.planned ? Severity::ok : Severity::critical);
    }

private:
    std::unique_ptr<Report> table;
    const Check* checks = nullptr;
    std::uint64_t asExpected = 0;
    std::string surprises;
};

Check makeCheck(const CheckScript& script, std::uint16_t port)
{
    Check check;
    check.target =
        parseTarget(std::string(script.front) + "127.0.0.1:" + uintToString(port) + script.rest);
    check.warnIfAbove = script.warnIfAbove;
    check.alertIfAbove = script.alertIfAbove;
    check.http.contentRegex = script.content;
    return check;
}

}  // namespace

int runDemo(const DemoSettings& settings, std::ostream& out, Console& console)
{
    const DemoTlsIdentity identity;
    MainSelector selector;
    std::map<std::string, std::unique_ptr<DemoService>> playing;
    playing[nameServer] = std::make_unique<DemoNameServer>(selector, names);
    for (const DemoScript& script : scripts)
        playing[script.name] = std::make_unique<DemoDialogue>(selector, script, identity);

    std::vector<Check> checks;
    for (const CheckScript& script : checkScripts)
        checks.push_back(makeCheck(script, playing.at(script.service)->port()));
    resolve(&checks);

    DemoReport report(out, console, settings.colour);
    RunSettings how;
    how.worker = settings.worker;
    how.verbose = settings.verbose;
    Run run(selector, checks, how, report, console);
    const Summary summary = run.run();
    report.end(summary);
    const int code = report.exitCode(summary);
    return code == 0 && !run.workersEndedWell() ? exitCode(Severity::critical) : code;
}

}  // namespace parent
