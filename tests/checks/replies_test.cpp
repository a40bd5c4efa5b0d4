// How the checks read replies: pure functions over what has come so far.
#include "checks/FTPNetCheck.h"
#include "checks/HTTPNetCheck.h"
#include "checks/IMAPNetCheck.h"
#include "checks/POP3NetCheck.h"
#include "checks/SMTPNetCheck.h"

#include <gtest/gtest.h>

#include <list>
#include <optional>
#include <string>

namespace {

// "wait", the code or "+" of a complete reply, or the line about a bad one.
std::string shown(const ReplyVerdict& verdict)
{
    switch (verdict.kind) {
    case ReplyVerdict::Kind::incomplete:
        return "wait";
    case ReplyVerdict::Kind::bad:
        return verdict.line;
    default:
        return verdict.code.empty() ? "+" : std::string(verdict.code);
    }
}

std::string smtp(const std::string& reply)
{
    std::size_t continued = 0;
    const std::string text = shown(readSmtpReply(reply, &continued));
    return continued == 0 ? text : std::to_string(continued) + " then " + text;
}

// Judged whole, and also line by line, as chunks bring it.
std::string byLines(ReplyVerdict (*read)(std::string_view, std::size_t*), const std::string& reply)
{
    std::size_t judged = 0;
    const std::string whole = shown(read(reply, &judged));
    judged = 0;
    std::string piecewise = "wait";
    for (std::size_t end = 0; piecewise == "wait" && end < reply.size();) {
        const std::size_t found = reply.find("\r\n", end);
        end = found == reply.npos ? reply.size() : found + 2;
        piecewise = shown(read(std::string_view(reply).substr(0, end), &judged));
    }
    return whole == piecewise ? whole : whole + " | by lines: " + piecewise;
}

std::string ftp(const std::string& reply)
{
    return byLines(readFtpReply, reply);
}

std::string imap(const std::string& reply)
{
    return byLines(readImapReply, reply);
}

std::string pop3(const std::string& reply)
{
    return shown(readPop3Reply(reply));
}

TEST(Replies, AreJudgedByTheirLines)
{
    const char* const smtpShort = "SMTP: too small reply";
    const char* const ftpFirst = "FTP: bad reply (first line)";
    const struct {
        std::string (*judge)(const std::string&);
        std::string reply;
        std::string verdict;
    } cases[] = {
        {smtp, "220 a\r\n", "220"},
        {smtp, "220-a\r\n220-b\r\n220 c\r\n250 d\r\n", "2 then 220"},
        {smtp, "220-a\r\n", "1 then wait"},
        {smtp, "220-a\r\n22\r\n", "1 then SMTP: too small reply"},
        {smtp, "220\r\n", smtpShort},
        {smtp, "\r\n220 a\r\n", "220"},
        {smtp, "\r\n\r\n", "SMTP: tokenize_reply return empty result"},
        {smtp, "220x\r\n", "220"},
        {smtp, "abc d\r\n", "abc"},
        {ftp, "220 a\r\n", "220"},
        {ftp, "220-a\r\nb\r\n 220 c\r\n2\r\n230 d\r\n220 e\r\n", "230"},
        {ftp, "220-a\r\n22x b\r\n220-c\r\n220\r\n", "wait"},
        {ftp, "\r\n", "FTP: tokenize_reply return empty result"},
        {ftp, "220\r\n", "FTP: too small reply"},
        {ftp, "2 0 a\r\n", ftpFirst},
        {ftp, "\xB2\xB2\xB0 a\r\n", ftpFirst},
        {ftp, "220:a\r\n220 b\r\n", "FTP: bad reply (-)"},
        {pop3, "+", "wait"},
        {pop3, "+\r", "wait"},
        {pop3, "+\r\n", "+"},
        {pop3, "+OK\n", "wait"},
        {pop3, "-", "POP3: bad reply"},
        {pop3, "\r\n+OK\r\n", "POP3: bad reply"},
        {imap, "* hi\r\n", "wait"},
        {imap, "\r\n", "wait"},
        {imap, "0 OK", "wait"},
        {imap, "* hi\r\n* bye\r\n0 OKAY\r\n", "+"},
        {imap, "* hi\r\n0 ok\r\n", "IMAP: bad reply"},
        {imap, "0 OK a\r\n1 NO b\r\n", "+"},
        {imap, " * hi\r\n", "IMAP: bad reply"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.judge(c.reply), c.verdict) << c.reply;
}

TEST(Replies, HttpStatusCodeIsTheDigitsBehindTheVersion)
{
    const struct {
        const char* reply;
        std::optional<std::string> code;
    } cases[] = {
        {"HTTP/1.1 200 OK\r\n", "200"},
        {"HTTP/1.1 200", "200"},
        {"HTTP/10.25 2004x", "2004"},
        {"HTTP/1.1 OK", ""},
        {"HTTP/1.1 ", ""},
        {"HTTP/1.1", std::nullopt},
        {"HTTP/1. 200", std::nullopt},
        {"HTTP/.1 200", std::nullopt},
        {"HTTP/1 200", std::nullopt},
        {"HTTP/1.1\t200", std::nullopt},
        {"http/1.1 200", std::nullopt},
        {" HTTP/1.1 200", std::nullopt},
        {"HTTP/1.x 200", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& c : cases)
        EXPECT_EQ(httpStatusCode(c.reply), c.code) << c.reply;
}

TEST(Replies, HttpHeaderLinesKeepTheirEnds)
{
    const struct {
        std::string reply;
        std::list<std::string> lines;
    } cases[] = {
        {"", {}},
        {"a", {"a"}},
        {"a\r\n", {"a\r\n"}},
        {"a\r\nb", {"a\r\nb"}},
        {"a\r\nbc", {"a\r\n", "bc"}},
        {"a\r\n\r", {"a\r\n\r"}},
        {"a\r\n\r\n", {"a\r\n"}},
        {"a\r\n\r\nbody\r\nmore", {"a\r\n"}},
        {"a\r\nb: 1\r\nc: 2\r\n\r\nbody", {"a\r\n", "b: 1\r\n", "c: 2\r\n"}},
        {"a\r\nb: 1\r\n 2\r\n\t3\r\nc\r\n\r\n", {"a\r\n", "b: 1\r\n 2\r\n\t3\r\n", "c\r\n"}},
        {"a\r\n ", {"a\r\n "}},
        {"a\r\n b\r\n", {"a\r\n b\r\n"}},
        {"\r\n\r\nbody", {"\r\n"}},
        {"\r\nab", {"\r\n", "ab"}},
        {"a\nb\rc\r\r\nd\r\n\r\n", {"a\nb\rc\r\r\n", "d\r\n"}},
        {std::string("a\0b\r\nc\0\r\n\r\n", 11),
         {std::string("a\0b\r\n", 5), std::string("c\0\r\n", 4)}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(httpHeaderLines(c.reply), c.lines) << c.reply;
}

}  // namespace
