#include "parent/Report.h"

#include "common/shown.h"
#include "common/text.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <map>

namespace parent {

namespace {

constexpr int interruptedExitCode = 130;  // 128 + SIGINT, as shells have it

std::string padRight(const std::string& text, std::size_t width)
{
    const std::size_t have = shownWidth(text);
    return have < width ? text + std::string(width - have, ' ') : text;
}

std::string padLeft(const std::string& text, std::size_t width)
{
    const std::size_t have = shownWidth(text);
    return have < width ? std::string(width - have, ' ') + text : text;
}

std::string replyTimeText(const Outcome& outcome)
{
    const std::optional<std::int32_t> time = outcome.replyTime();
    return time ? intToString(*time) + " ms" : "-";
}

const char* colourOf(Severity severity)
{
    switch (severity) {
    case Severity::ok:
        return "\x1b[32m";
    case Severity::warning:
        return "\x1b[33m";
    case Severity::critical:
        return "\x1b[31m";
    case Severity::unknown:
        break;
    }
    return "\x1b[35m";
}

class TableReport final : public Report {
public:
    TableReport(std::ostream& stream, Console& messages, bool inColour)
        : Report(stream, messages), colour(inColour)
    {}

    void begin(const std::vector<Check>& checks, bool rounds) override
    {
        withRounds = rounds;
        for (const Check& check : checks) {
            const std::size_t width = shownWidth(shown(check.target.text));
            targetWidth = std::max(targetWidth, std::min(width, maximumTargetWidth));
        }
        std::string header = withRounds ? "ROUND  " : "";
        header += padRight("TARGET", targetWidth) + "  " + padRight("RESULT", resultWidth) + "  " +
                  padLeft("REPLY TIME", timeWidth) + "  TEXT\n";
        write(header);
    }

    void add(const Outcome& outcome) override
    {
        const std::string name = outcome.name();
        std::string row = withRounds ? padLeft(uintToString(outcome.round), 5) + "  " : "";
        row += padRight(shown(outcome.check->target.text), targetWidth) + "  ";
        // The escape sequences take no room, so the padding is reckoned without them.
        row += colour ? colourOf(outcome.severity()) + name + "\x1b[0m" : name;
        row += padRight("", resultWidth - std::min(resultWidth, name.size())) + "  ";
        row += padLeft(replyTimeText(outcome), timeWidth) + "  " + outcome.words();
        row.erase(row.find_last_not_of(' ') + 1);
        write(row + "\n");
    }

    void end(const Summary& summary) override { write("\n" + summary.text() + "\n"); }

private:
    static constexpr std::size_t maximumTargetWidth = 60;
    static constexpr std::size_t resultWidth = 14;  // "CONNECT FAILED"
    static constexpr std::size_t timeWidth = 10;

    bool colour;
    bool withRounds = false;
    std::size_t targetWidth = 6;
};

class JsonReport final : public Report {
public:
    using Report::Report;

    void begin(const std::vector<Check>&, bool) override {}

    void add(const Outcome& outcome) override
    {
        const Check& check = *outcome.check;
        const bool answered = outcome.kind == Outcome::Kind::answered;
        nlohmann::ordered_json object;
        object["target"] = check.target.text;
        object["address"] = outcome.kind == Outcome::Kind::unresolved
                                ? nlohmann::ordered_json()
                                : nlohmann::ordered_json(dottedAddress(check.address));
        object["port"] = check.target.port;
        object["service"] = check.target.kind->name;
        object["result"] = outcome.name();
        object["resultCode"] = orNull(answered, outcome.result.result);
        object["replyTimeMs"] =
            orNull(outcome.replyTime().has_value(), outcome.replyTime().value_or(0));
        const std::string checkedAt = answered ? isoTime(outcome.result.ctime) : "";
        object["checkedAt"] = orNull(!checkedAt.empty(), checkedAt);
        object["strings"] = nlohmann::ordered_json::array();
        for (const std::string& text : outcome.result.result_strings)
            object["strings"].push_back(text);
        object["text"] = outcome.words();
        object["round"] = outcome.round;
        object["attempt"] = outcome.attempt;

        write(object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n");
    }

    void end(const Summary& summary) override { console.line(summary.text()); }

private:
    template <class T>
    static nlohmann::ordered_json orNull(bool present, const T& value)
    {
        return present ? nlohmann::ordered_json(value) : nlohmann::ordered_json();
    }
};

// The form of the Monitoring Plugins Development Guidelines:
//   TCP OK - 127.0.0.1:22 12 ms | 'tcp://127.0.0.1:22'=12ms;100;500;0
// What went wrong stands in front; the performance data keep the order of the targets, so that
// they are the same series each time.
class PluginReport final : public Report {
public:
    using Report::Report;

    void begin(const std::vector<Check>& all, bool) override { checks = &all; }
    void add(const Outcome& outcome) override { outcomes.emplace(outcome.check, outcome); }

    void end(const Summary& summary) override
    {
        std::string text = service() + " " + stateName(exitCode(summary)) + " - ";
        std::string separator;
        const auto add = [&](const std::string& part) {
            text += separator + part;
            separator = ", ";
        };
        if (!summary.trouble.empty())
            add(summary.trouble);
        if (summary.interrupted)
            add("interrupted");
        for (const Outcome& outcome : worstFirst())
            add(itemText(outcome));

        std::string data;
        std::map<std::string, unsigned> seen;
        for (const Check& check : *checks)
            data += " " + performanceData(check, &seen);
        writeLine(text, data);
    }

    void refuse(const std::vector<std::string>& reasons) override
    {
        std::string text;
        for (const std::string& reason : reasons)
            text += (text.empty() ? "" : ", ") + reason;
        writeLine("NETCHECK UNKNOWN - " + text, "");
    }

    int exitCode(const Summary& summary) const override
    {
        return summary.interrupted || !summary.trouble.empty()
                   ? parent::exitCode(Severity::unknown)
                   : parent::exitCode(summary.tally.worst());
    }

private:
    static const char* stateName(int code)
    {
        const std::array<const char*, 4> names = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};
        return names.at(static_cast<std::size_t>(code));
    }

    // The kind that all targets share, in capitals.
    std::string service() const
    {
        for (const Check& check : *checks) {
            if (check.target.kind != checks->front().target.kind)
                return "NETCHECK";
        }
        std::string name = checks->empty() ? "netcheck" : checks->front().target.kind->name;
        for (char& c : name)
            c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
        return name;
    }

    // An outcome for each check, in the order of the targets within each severity. A check
    // without one has not come to its end.
    std::vector<Outcome> worstFirst() const
    {
        std::vector<Outcome> all;
        for (const Check& check : *checks) {
            const auto found = outcomes.find(&check);
            if (found != outcomes.end()) {
                all.push_back(found->second);
            } else {
                Outcome unfinished;
                unfinished.check = &check;
                unfinished.reason = "unfinished";
                all.push_back(unfinished);
            }
        }
        std::stable_sort(all.begin(), all.end(), [](const Outcome& a, const Outcome& b) {
            return a.severity() > b.severity();
        });
        return all;
    }

    static std::string itemText(const Outcome& outcome)
    {
        std::string text = shown(outcome.check->endpoint());
        if (outcome.severity() != Severity::ok)
            text += " " + outcome.name();
        if (outcome.replyTime())
            text += " " + replyTimeText(outcome);
        const std::string words = outcome.words();
        return words.empty() ? text : text + " (" + words + ")";
    }

    std::string performanceData(const Check& check, std::map<std::string, unsigned>* seen) const
    {
        // A label can't hold "="; the same target given twice gets labels that differ.
        std::string label;
        for (const char c : shown(check.target.text)) {
            if (c == '\'')
                label += "''";
            else
                label += c == '=' ? ':' : c;
        }
        const unsigned times = ++(*seen)[label];
        if (times > 1)
            label += "#" + uintToString(times);

        const auto threshold = [](std::int32_t value) {
            return value > 0 ? intToString(value) : std::string();
        };
        const auto found = outcomes.find(&check);
        const std::optional<std::int32_t> time =
            found == outcomes.end() ? std::nullopt : found->second.replyTime();
        return "'" + label + "'=" + (time ? intToString(*time) + "ms" : "U") + ";" +
               threshold(check.warnIfAbove) + ";" + threshold(check.alertIfAbove) + ";0";
    }

    // The first "|" of the line separates text from data, so neither may hold one.
    void writeLine(std::string text, std::string data)
    {
        std::replace(text.begin(), text.end(), '|', '/');
        std::replace(data.begin(), data.end(), '|', '/');
        write(text + (data.empty() ? "" : " |") + data + "\n");
    }

    const std::vector<Check>* checks = nullptr;
    std::map<const Check*, Outcome> outcomes;
};

}  // namespace

void Report::refuse(const std::vector<std::string>& reasons)
{
    for (const std::string& reason : reasons)
        console.message(reason);
}

void Report::write(const std::string& text)
{
    console.erase();
    out << text << std::flush;
}

int Report::exitCode(const Summary& summary) const
{
    if (!summary.trouble.empty())
        return parent::exitCode(Severity::unknown);
    return summary.interrupted ? interruptedExitCode : parent::exitCode(summary.tally.worst());
}

std::unique_ptr<Report> makeReport(Format format, std::ostream& out, Console& console, bool colour)
{
    switch (format) {
    case Format::json:
        return std::make_unique<JsonReport>(out, console);
    case Format::plugin:
        return std::make_unique<PluginReport>(out, console);
    case Format::table:
        break;
    }
    return std::make_unique<TableReport>(out, console, colour);
}

std::string isoTime(std::int64_t seconds)
{
    constexpr std::int64_t firstSecond = -62'167'219'200;  // 0000-01-01 00:00:00
    constexpr std::int64_t lastSecond = 253'402'300'799;   // 9999-12-31 23:59:59
    if (seconds < firstSecond || seconds > lastSecond)
        return "";
    const std::chrono::sys_seconds time{std::chrono::seconds(seconds)};
    const auto day = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clock(time - day);
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02dZ",
                  static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                  static_cast<unsigned>(date.day()), static_cast<int>(clock.hours().count()),
                  static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()));
    return text.data();
}

}  // namespace parent
