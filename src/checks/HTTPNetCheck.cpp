#include "checks/HTTPNetCheck.h"

#include "common/Url.h"
#include "common/errors.h"
#include "common/text.h"
#include "types/vocabulary.h"

namespace {

constexpr std::uint32_t httpVersionType = 0x10020;  // enumeration of the property httpVersion
constexpr std::uint32_t version11 = 1;
constexpr std::size_t maximumContent = 0x100000;  // bytes of a reply that are waited for

void compile(tv_regex_t* pattern, const std::string& text)
{
    const int code = tv_regcomp(pattern, text.c_str(), REG_EXTENDED);
    if (code == REG_OKAY)
        return;
    char words[80];
    tv_regerror(code, pattern, words, sizeof words);
    throw error::EParseError(words);
}

// Throws error::EParseError if there is no saying.
bool matches(const tv_regex_t& pattern, const std::string& text)
{
    const int code = tv_regexec(&pattern, text.c_str(), 0, nullptr, 0);
    if (code != REG_OKAY && code != REG_NOMATCH)
        throw error::EParseError("Error from tv_regexec: " + intToString(code));
    return code == REG_OKAY;
}

// Takes the longest run of digits off the text.
std::string_view takeDigits(std::string_view* text)
{
    std::size_t count = 0;
    while (count < text->size() && (*text)[count] >= '0' && (*text)[count] <= '9')
        ++count;
    const std::string_view digits = text->substr(0, count);
    text->remove_prefix(count);
    return digits;
}

// Takes a number of at least one digit and the character behind it.
bool takeNumber(std::string_view* text, char behind)
{
    if (takeDigits(text).empty() || !text->starts_with(behind))
        return false;
    text->remove_prefix(1);
    return true;
}

}  // namespace

std::optional<std::string> httpStatusCode(std::string_view reply)
{
    constexpr std::string_view protocol = "HTTP/";
    if (!reply.starts_with(protocol))
        return std::nullopt;
    reply.remove_prefix(protocol.size());
    if (!takeNumber(&reply, '.') || !takeNumber(&reply, ' '))
        return std::nullopt;
    return std::string(takeDigits(&reply));
}

std::list<std::string> httpHeaderLines(std::string_view reply)
{
    std::list<std::string> lines;
    std::size_t begin = 0;  // of the current line
    std::size_t end = 0;    // of what is wanted
    for (;;) {
        end = reply.find("\r\n", end);
        if (end == reply.npos || reply.size() - end <= 3) {
            // Nothing or one character behind the last line end belongs to its line.
            end = reply.size();
            break;
        }
        end += 2;
        if (reply.substr(end, 2) == "\r\n")
            break;
        if (reply[end] == ' ' || reply[end] == '\t')
            continue;
        lines.emplace_back(reply.substr(begin, end - begin));
        begin = end;
    }
    if (begin != end)
        lines.emplace_back(reply.substr(begin, end - begin));
    return lines;
}

HTTPNetCheck::~HTTPNetCheck()
{
    tv_regfree(&statusPattern);
    tv_regfree(&contentPattern);
}

void HTTPNetCheck::start()
{
    std::string statusText;
    std::string contentText;
    readProperty(tql::property::useSsl, useSsl);
    readProperty(tql::property::httpStatusRegex, statusText);
    readProperty(tql::property::httpContentRegex, contentText);
    readProperty(tql::property::httpVersion, version, httpVersionType);
    if (findProperty(tql::property::httpUserAgent) != nullptr) {
        std::string userAgent;
        readProperty(tql::property::httpUserAgent, userAgent);
        headers.push_back("User-Agent: " + userAgent);
    }
    if (statusText.empty())
        statusText = "^2..";
    compile(&statusPattern, statusText);
    matchContent = !contentText.empty();
    if (matchContent)
        compile(&contentPattern, contentText);
    readProperty(tql::property::httpUrl, url);
    connect(connector);
}

void HTTPNetCheck::ioReady(io::Selectable* s)
{
    if (s == connector.get()) {
        connected();
    } else if (s == out) {
        if (requestSent)
            exchange.drained(*out, *in, &reply);
        else
            exchange.send(*out, [this] { return request(); });
    } else if (s == in) {
        received();
    }
}

void HTTPNetCheck::connected()
{
    if (exchange.connected(connector.get(), useSsl, &socket, &sslSocket, &in, &out))
        exchange.waitFor(*out);
}

std::string HTTPNetCheck::request() const
{
    std::string target = url;
    std::string block;
    if (version == version11) {
        Url parsed(url);
        block = "Host: " + (parsed.host().empty() ? conf.host : parsed.host());
        if (parsed.port() != 0)
            block += ":" + uintToString(parsed.port());
        block += "\r\nConnection: close\r\n";
        for (const std::string& header : headers)
            block += header + "\r\n";
        parsed.setHost("");
        parsed.setPort(0);
        parsed.setScheme("");
        parsed.setRelative(false);
        target = parsed.toString();
    }
    if (target.empty())
        target = "/";
    return "GET " + target + (version == version11 ? " HTTP/1.1" : " HTTP/1.0") + "\r\n" + block +
           "\r\n";
}

void HTTPNetCheck::received()
{
    switch (exchange.receiveOrEnd(*in, &reply)) {
    case Exchange::Received::failure:
        break;
    case Exchange::Received::end:
        evaluate();
        break;
    case Exchange::Received::chunk:
        if (!matchContent || reply.size() >= maximumContent)
            evaluate();
        else
            exchange.waitFor(*in);
        break;
    }
}

void HTTPNetCheck::evaluate()
{
    const bool good = statusIsGood();
    stat.result_strings.splice(stat.result_strings.end(), httpHeaderLines(reply));
    if (!good) {
        finishWith(services::RESULT_BAD_REPLY);
        return;
    }
    if (matchContent && !matches(contentPattern, reply)) {
        if (traceWanted())
            log("Http content did not match pattern", logTrace);
        finishWith(services::RESULT_BAD_REPLY);
        return;
    }
    finish();
}

bool HTTPNetCheck::statusIsGood() const
{
    const std::optional<std::string> code = httpStatusCode(reply);
    if (!code)
        return false;
    if (matches(statusPattern, *code))
        return true;
    if (traceWanted())
        log("Bad reply from http-check: " + reply, logTrace);
    return false;
}
