#include "parent/Outcome.h"

#include "common/shown.h"
#include "common/text.h"

#include <algorithm>

namespace parent {

namespace {

struct ResultMeaning {
    const char* name;
    const char* words;  // null: they depend on the check
    std::int32_t result;
    Severity severity;
};

const ResultMeaning meanings[] = {
    {"OK", "", services::RESULT_OK, Severity::ok},
    {"WARNING", nullptr, services::RESULT_WARNING, Severity::warning},
    {"ALERT", nullptr, services::RESULT_ALERT, Severity::critical},
    {"CONNECT FAILED", "no connection could be made", services::RESULT_CONNECT_FAILED,
     Severity::critical},
    {"WRITE FAILED", "sending failed", services::RESULT_WRITE_FAILED, Severity::critical},
    {"READ FAILED", "receiving failed, or the service hung up early", services::RESULT_READ_FAILED,
     Severity::critical},
    {"BAD REPLY", "the service answered wrongly", services::RESULT_BAD_REPLY, Severity::critical},
    {"CLOSE FAILED", "the connection broke before the service closed it",
     services::RESULT_CLOSE_FAILED, Severity::critical},
    {"TIMEOUT", nullptr, services::RESULT_TIMEOUT, Severity::critical},
};

const ResultMeaning* meaningOf(std::int32_t result)
{
    const auto* const found =
        std::find_if(std::begin(meanings), std::end(meanings),
                     [result](const ResultMeaning& meaning) { return meaning.result == result; });
    return found == std::end(meanings) ? nullptr : found;
}

std::string wordsFor(const Check& check, std::int32_t result)
{
    switch (result) {
    case services::RESULT_WARNING:
        return "slower than " + intToString(check.warnIfAbove) + " ms";
    case services::RESULT_ALERT:
        return "slower than " + intToString(check.alertIfAbove) + " ms";
    case services::RESULT_TIMEOUT:
        return "no end within " + secondsText(std::max<std::int64_t>(check.limitMs(), 0));
    default:
        break;
    }
    const ResultMeaning* meaning = meaningOf(result);
    if (meaning == nullptr)
        return "a result of unknown meaning";
    const TargetKind& kind = *check.target.kind;
    if (result == services::RESULT_BAD_REPLY && kind.service == services::SERVICE_HTTP)
        return check.http.contentRegex.empty() ? "no reply with the right status"
                                               : "no reply with the right status and content";
    if (result == services::RESULT_BAD_REPLY && kind.service == services::SERVICE_DNS)
        return "no answer with the right address";
    // Where a handshake fails, the worker sees a stream that can't be written or read.
    if (kind.tls &&
        (result == services::RESULT_WRITE_FAILED || result == services::RESULT_READ_FAILED))
        return std::string(meaning->words) + ", or there is no TLS";
    return meaning->words;
}

// How much of what a service said is worth a place in a line for people.
constexpr std::size_t saidWidth = 100;

std::string firstLine(const std::string& text)
{
    return text.substr(0, text.find_first_of("\r\n"));
}

}  // namespace

int exitCode(Severity severity)
{
    switch (severity) {
    case Severity::ok:
        return 0;
    case Severity::warning:
        return 1;
    case Severity::critical:
        return 2;
    case Severity::unknown:
        break;
    }
    return 3;
}

std::string Outcome::name() const
{
    switch (kind) {
    case Kind::lost:
        return "NO RESULT";
    case Kind::unresolved:
        return "RESOLVE FAILED";
    case Kind::answered:
        break;
    }
    const ResultMeaning* meaning = meaningOf(result.result);
    return meaning == nullptr ? "RESULT " + intToString(result.result) : meaning->name;
}

Severity Outcome::severity() const
{
    const ResultMeaning* meaning = kind == Kind::answered ? meaningOf(result.result) : nullptr;
    return meaning == nullptr ? Severity::unknown : meaning->severity;
}

std::optional<std::int32_t> Outcome::replyTime() const
{
    if (kind != Kind::answered || !services::hasReplyTime(result.result) || result.replytime < 0)
        return std::nullopt;
    return result.replytime;
}

std::string Outcome::words() const
{
    std::string text;
    const auto add = [&text](const std::string& part) {
        if (!part.empty())
            text += (text.empty() ? "" : "; ") + part;
    };
    if (kind != Kind::unresolved && check->hostIsName())
        add(dottedAddress(check->address));
    if (kind != Kind::answered) {
        add(shown(reason));
        return text;
    }
    add(wordsFor(*check, result.result));
    if (!result.result_strings.empty()) {
        // Only of HTTP is what is kept the reply that was judged.
        const bool judged = result.result != services::RESULT_BAD_REPLY ||
                            check->target.kind->service == services::SERVICE_HTTP;
        add((judged ? "" : "its greeting: ") +
            shownShort(firstLine(result.result_strings.front()), saidWidth));
    }
    if (attempt > 1)
        add("sent again after a worker had died");
    return text;
}

void Tally::add(const Outcome& outcome)
{
    ++counts[{outcome.severity(), outcome.name()}];
}

std::uint64_t Tally::total() const
{
    std::uint64_t sum = 0;
    for (const auto& [key, count] : counts)
        sum += count;
    return sum;
}

Severity Tally::worst() const
{
    return counts.empty() ? Severity::unknown : counts.rbegin()->first.first;
}

std::string Tally::text() const
{
    std::string out;
    for (const auto& [key, count] : counts)
        out += (out.empty() ? "" : ", ") + uint64ToString(count) + " " + key.second;
    return out;
}

std::string Summary::text() const
{
    const std::uint64_t done = tally.total();
    const std::string time = secondsText(elapsedMs);
    std::string text;
    if (planned == done && !interrupted)
        text = plural(done, "check") + " in " + time;
    else if (planned == 0)
        text = plural(done, "check") + " done";
    else
        text = uint64ToString(done) + " of " + plural(planned, "check") + " done";
    if (interrupted)
        text = "interrupted after " + time + ": " + text;
    const std::string counted = tally.text();
    return counted.empty() ? text : text + ": " + counted;
}

std::string secondsText(std::int64_t milliseconds)
{
    return int64ToString(milliseconds / 1000) + "." + int64ToString(milliseconds % 1000 / 100) +
           " s";
}

std::string plural(std::uint64_t n, const char* oneThing)
{
    return uint64ToString(n) + " " + oneThing + (n == 1 ? "" : "s");
}

}  // namespace parent
