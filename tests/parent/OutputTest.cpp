#include "common/shown.h"
#include "parent/Report.h"

#include <gtest/gtest.h>

#include <limits>
#include <sstream>

namespace {

using namespace parent;

using namespace std::string_view_literals;

TEST(Shown, LetsNothingReachTheTerminalThatActsOnIt)
{
    const std::pair<std::string_view, const char*> cases[] = {
        {"220 ready 'x' \"y\"", "220 ready 'x' \"y\""},
        {"a\x1b[2J\a\0b\x7f"sv, "a\\x1b[2J\\x07\\x00b\\x7f"},
        {"a\r\n\tb", "a\\r\\n\\tb"},
        {"\\x1b", "\\\\x1b"},
        {"\xC3\xBC\xE2\x82\xAC\xF0\x9F\x98\x80", "\xC3\xBC\xE2\x82\xAC\xF0\x9F\x98\x80"},
        {"\xC2\x9B[2J", "\\xc2\\x9b[2J"},              // a C1 control in UTF-8
        {"\x9B[2J", "\\x9b[2J"},                       // the same as a byte
        {"\xE2\x80\xAE", "\\xe2\\x80\\xae"},           // a change of direction
        {"\xE2\x80\x8B", "\\xe2\\x80\\x8b"},           // an invisible character
        {"\xE2\x82", "\\xe2\\x82"},                    // cut short
        {"\xC0\x9B", "\\xc0\\x9b"},                    // an overlong form of a control
        {"\xED\xA0\x80", "\\xed\\xa0\\x80"},           // half of a surrogate pair
        {"\xF4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},  // beyond Unicode
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(shown(text), expected);
}

TEST(Shown, IsCutAtWholeCharacters)
{
    EXPECT_EQ(shownShort("abcdefgh", 8), "abcdefgh");
    EXPECT_EQ(shownShort("\xC3\xBC\xC3\xBC\xC3\xBC\xC3\xBC\xC3\xBC\xC3\xBC", 5),
              "\xC3\xBC\xC3\xBC...");
    EXPECT_EQ(shownShort("abc\x1b\x1b\x1b", 8), "abc...");
    EXPECT_EQ(shownLine(std::string(1000, 'x')), std::string(1000, 'x'));
    EXPECT_EQ(shownLine(std::string(1'048'577, '\0')),
              shown(std::string(249, '\0')) + "... (1048577 bytes)");
}

// Checks of "HOST:PORT" on fixed addresses, and what became of them.
class Reports : public testing::Test {
protected:
    Reports()
    {
        // The outcomes point to the checks, which must not move.
        checks.reserve(16);
    }

    const Check* check(const std::string& target, std::int32_t warn = 0, std::int32_t alert = 0)
    {
        Check one;
        one.target = parseTarget(target);
        one.address = 0x0100000A;
        one.warnIfAbove = warn;
        one.alertIfAbove = alert;
        checks.push_back(one);
        return &checks.back();
    }

    void answered(const Check* which, std::int32_t result, std::int32_t replytime,
                  const std::list<std::string>& strings = {})
    {
        failed(which, Outcome::Kind::answered, "");
        services::remcheck_stat& stat = outcomes.back().result;
        stat.ctime = 1'700'000'000;
        stat.result = result;
        stat.replytime = replytime;
        stat.result_strings = strings;
    }

    void failed(const Check* which, Outcome::Kind kind, const std::string& reason)
    {
        Outcome& outcome = outcomes.emplace_back();
        outcome.check = which;
        outcome.kind = kind;
        outcome.reason = reason;
    }

    // All of standard output. Sets the exit code and what the console got.
    std::string report(Format format, bool rounds = false, bool colour = false)
    {
        std::ostringstream out;
        std::ostringstream err;
        Console console(err, 0);
        const std::unique_ptr<Report> form = makeReport(format, out, console, colour);
        form->begin(checks, rounds);
        summary.tally = {};
        for (const Outcome& outcome : outcomes) {
            form->add(outcome);
            summary.tally.add(outcome);
        }
        summary.planned = checks.size();
        summary.elapsedMs = 1234;
        form->end(summary);
        code = form->exitCode(summary);
        messages = err.str();
        return out.str();
    }

    std::vector<Check> checks;
    std::vector<Outcome> outcomes;
    Summary summary;
    int code = -1;
    std::string messages;
};

TEST_F(Reports, TableTellsEachKindOfOutcome)
{
    const Check* ip = check("tcp://10.0.0.1:22", 100, 2000);
    const Check* name = check("tcp://mail.example.com:25?connClose=false");
    answered(ip, services::RESULT_OK, 12);
    answered(name, services::RESULT_OK, 0, {"220 mail\x1b[31m ESMTP\r\nmore"});
    answered(ip, services::RESULT_WARNING, 1999);
    answered(ip, services::RESULT_ALERT, 2147483647);
    answered(ip, services::RESULT_CONNECT_FAILED, -1);
    answered(ip, services::RESULT_WRITE_FAILED, -1);
    answered(ip, services::RESULT_READ_FAILED, -1);
    answered(name, services::RESULT_BAD_REPLY, 5, {std::string(200, 'x')});
    const Check* web = check("https://10.0.0.1/");
    answered(web, services::RESULT_BAD_REPLY, 5, {"HTTP/1.1 404\r\n", "a: b\r\n"});
    answered(web, services::RESULT_WRITE_FAILED, -1);
    answered(check("dns://10.0.0.1/a"), services::RESULT_BAD_REPLY, 5);
    answered(ip, services::RESULT_CLOSE_FAILED, -1);
    answered(ip, services::RESULT_TIMEOUT, -1);
    answered(ip, 8, 17);
    failed(ip, Outcome::Kind::lost, "the worker ended with exit code 3: help\a");
    outcomes.back().attempt = 2;
    failed(name, Outcome::Kind::unresolved, "Name or service not known");
    answered(ip, services::RESULT_OK, 3);
    outcomes.back().attempt = 2;

    const std::string head = "tcp://10.0.0.1:22                          ";
    const std::string named = "tcp://mail.example.com:25?connClose=false  ";
    EXPECT_EQ(
        report(Format::table),
        "TARGET                                     RESULT          REPLY TIME  TEXT\n" + head +
            "OK                   12 ms\n" + named +
            "OK                    0 ms  10.0.0.1; 220 mail\\x1b[31m ESMTP\n" + head +
            "WARNING            1999 ms  slower than 100 ms\n" + head +
            "ALERT           2147483647 ms  slower than 2000 ms\n" + head +
            "CONNECT FAILED           -  no connection could be made\n" + head +
            "WRITE FAILED             -  sending failed\n" + head +
            "READ FAILED              -  receiving failed, or the service hung up early\n" + named +
            "BAD REPLY             5 ms  10.0.0.1; the service answered wrongly; its greeting: " +
            std::string(97, 'x') + "...\n" +
            "https://10.0.0.1/                          BAD REPLY             5 ms  "
            "no reply with the right status; HTTP/1.1 404\n"
            "https://10.0.0.1/                          WRITE FAILED             -  "
            "sending failed, or there is no TLS\n"
            "dns://10.0.0.1/a                           BAD REPLY             5 ms  "
            "no answer with the right address\n" +
            head +
            "CLOSE FAILED             -  the connection broke before the service closed it\n" +
            head + "TIMEOUT                  -  no end within 12.0 s\n" + head +
            "RESULT 8                 -  a result of unknown meaning\n" + head +
            "NO RESULT                -  the worker ended with exit code 3: help\\x07\n" + named +
            "RESOLVE FAILED           -  Name or service not known\n" + head +
            "OK                    3 ms  sent again after a worker had died\n"
            "\n"
            "17 of 4 checks done: 3 OK, 1 WARNING, 1 NO RESULT, 1 RESOLVE FAILED, 1 RESULT 8, "
            "1 ALERT, 3 BAD REPLY, 1 CLOSE FAILED, 1 CONNECT FAILED, 1 READ FAILED, 1 TIMEOUT, "
            "2 WRITE FAILED\n");
    EXPECT_EQ(messages, "");
}

TEST_F(Reports, TableShowsRoundsAndColoursWithoutLosingItsColumns)
{
    const Check* ip = check("tcp://10.0.0.1:22");
    answered(ip, services::RESULT_OK, 12);
    answered(ip, services::RESULT_TIMEOUT, -1);
    outcomes.back().round = 123;
    EXPECT_EQ(report(Format::table, true, true),
              "ROUND  TARGET             RESULT          REPLY TIME  TEXT\n"
              "    1  tcp://10.0.0.1:22  \x1b[32mOK\x1b[0m                   12 ms\n"
              "  123  tcp://10.0.0.1:22  \x1b[31mTIMEOUT\x1b[0m                  -  "
              "no end within 10.0 s\n"
              "\n"
              "2 of 1 check done: 1 OK, 1 TIMEOUT\n");
}

TEST_F(Reports, JsonGivesOneObjectALine)
{
    const Check* ip = check("tcp://10.0.0.1:22");
    const Check* name = check("tcp://mail.example.com:25");
    answered(name, services::RESULT_BAD_REPLY, 5, {"a\n\"b\"\x1b", "\xFF"});
    outcomes.back().round = 2;
    answered(ip, services::RESULT_TIMEOUT, -1);
    outcomes.back().result.ctime = std::numeric_limits<std::int64_t>::max();
    failed(ip, Outcome::Kind::lost, "why");
    outcomes.back().attempt = 2;
    EXPECT_EQ(
        report(Format::json),
        R"({"target":"tcp://mail.example.com:25","address":"10.0.0.1","port":25,"service":"tcp",)"
        R"("result":"BAD REPLY","resultCode":6,"replyTimeMs":5,"checkedAt":"2023-11-14T22:13:20Z",)"
        R"("strings":["a\n\"b\"\u001b",")"
        "\xEF\xBF\xBD"
        R"("],"text":"10.0.0.1; the service answered wrongly; its greeting: a","round":2,"attempt":1})"
        "\n"
        R"({"target":"tcp://10.0.0.1:22","address":"10.0.0.1","port":22,"service":"tcp",)"
        R"("result":"TIMEOUT","resultCode":9,"replyTimeMs":null,"checkedAt":null,)"
        R"("strings":[],"text":"no end within 10.0 s","round":1,"attempt":1})"
        "\n"
        R"({"target":"tcp://10.0.0.1:22","address":"10.0.0.1","port":22,"service":"tcp",)"
        R"("result":"NO RESULT","resultCode":null,"replyTimeMs":null,"checkedAt":null,)"
        R"("strings":[],"text":"why","round":1,"attempt":2})"
        "\n");
    EXPECT_EQ(messages, "3 of 2 checks done: 1 NO RESULT, 1 BAD REPLY, 1 TIMEOUT\n");
}

TEST_F(Reports, PluginPutsTheWorstInFrontAndKeepsTheOrderOfTheData)
{
    const Check* good = check("tcp://10.0.0.1:22", 100, 500);
    answered(good, services::RESULT_OK, 12);
    EXPECT_EQ(report(Format::plugin),
              "TCP OK - 10.0.0.1:22 12 ms | 'tcp://10.0.0.1:22'=12ms;100;500;0\n");
    outcomes.clear();
    const Check* slow = check("tcp://a.example:1?connClose=false", 100, 0);
    const Check* lost = check("tcp://10.0.0.1:2");
    const Check* same = check("tcp://10.0.0.1:2", 0, 500);
    answered(good, services::RESULT_OK, 12, {"a|b"});
    answered(slow, services::RESULT_WARNING, 101);
    failed(lost, Outcome::Kind::lost, "why | not");
    answered(same, services::RESULT_CONNECT_FAILED, -1);
    EXPECT_EQ(report(Format::plugin),
              "TCP CRITICAL - 10.0.0.1:2 CONNECT FAILED (no connection could be made), "
              "10.0.0.1:2 NO RESULT (why / not), "
              "a.example:1 WARNING 101 ms (10.0.0.1; slower than 100 ms), "
              "10.0.0.1:22 12 ms (a/b) | "
              "'tcp://10.0.0.1:22'=12ms;100;500;0 "
              "'tcp://a.example:1?connClose:false'=101ms;100;;0 "
              "'tcp://10.0.0.1:2'=U;;;0 "
              "'tcp://10.0.0.1:2#2'=U;;500;0\n");
    EXPECT_EQ(code, 2);
    EXPECT_EQ(messages, "");
}

TEST_F(Reports, TheWorstOutcomeDecidesTheExitCode)
{
    const struct {
        std::vector<std::int32_t> results;  // -1: lost
        bool interrupted;
        const char* trouble;
        int table;
        int plugin;
    } cases[] = {
        {{0, 0}, false, "", 0, 0},     {{0, 1, 0}, false, "", 1, 1},
        {{2, 1}, false, "", 2, 2},     {{0, 9}, false, "", 2, 2},
        {{0, -1, 1}, false, "", 3, 3}, {{-1, 3}, false, "", 2, 2},
        {{8}, false, "", 3, 3},        {{}, false, "", 3, 3},
        {{0}, true, "", 130, 3},       {{0, 2}, false, "no worker", 3, 3},
    };
    const Check* ip = check("tcp://10.0.0.1:22");
    for (const auto& one : cases) {
        SCOPED_TRACE(testing::PrintToString(one.results));
        outcomes.clear();
        for (const std::int32_t result : one.results) {
            if (result < 0)
                failed(ip, Outcome::Kind::lost, "why");
            else
                answered(ip, result, 1);
        }
        summary.interrupted = one.interrupted;
        summary.trouble = one.trouble;
        report(Format::table);
        EXPECT_EQ(code, one.table);
        report(Format::json);
        EXPECT_EQ(code, one.table);
        report(Format::plugin);
        EXPECT_EQ(code, one.plugin);
    }
}

}  // namespace
