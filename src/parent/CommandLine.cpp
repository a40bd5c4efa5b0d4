#include "parent/CommandLine.h"

#include "common/errors.h"
#include "common/shown.h"
#include "common/text.h"
#include "dump/Recording.h"
#include "parent/CheckOptions.h"
#include "parent/Demo.h"
#include "parent/Report.h"
#include "parent/Run.h"
#include "platform/Crash.h"
#include "platform/Process.h"

#include <CLI/CLI.hpp>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace parent {

namespace {

constexpr int unusable = 3;  // the exit code if nothing could be found out

constexpr double maximumInterval = 1'000'000;  // seconds, 11 days

struct Arguments {
    std::vector<std::string> targets;
    std::int32_t warnIfAbove = 0;
    std::int32_t alertIfAbove = 0;
    CheckOptions checkOptions;
    Format format = Format::table;
    bool verbose = false;
    std::uint32_t rounds = 1;
    double interval = 1;
    std::string worker;
    std::optional<std::string> recording;
};

bool isDigits(const std::string& text)
{
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// A whole number from 0 to `maximum`. The library's own reading would take "0x10" and "1e3".
CLI::Validator wholeNumber(std::uint32_t maximum, const char* what)
{
    return {[maximum, what](std::string& text) -> std::string {
                if (isDigits(text) && stringToULong(text) <= maximum &&
                    stringToULong(text) != std::numeric_limits<std::uint32_t>::max())
                    return "";
                return "'" + shown(text) + "' is no " + what + " from 0 to " +
                       uintToString(maximum);
            },
            "", ""};
}

// A decimal number from 0 to `maximum`: digits, with a point among or before them.
CLI::Validator decimalNumber(double maximum, const char* what)
{
    return {[maximum, what](std::string& text) -> std::string {
                std::string digits = text;
                if (const std::size_t point = digits.find('.'); point != std::string::npos)
                    digits.erase(point, 1);
                if (isDigits(digits) && stringToDouble(text) <= maximum)
                    return "";
                return "'" + shown(text) + "' is no " + what + " from 0 to " +
                       doubleToString(maximum, -1, 0);
            },
            "", ""};
}

std::string environmentText(const char* name)
{
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

bool isProgram(const std::filesystem::path& path)
{
    std::error_code ignored;  // what can't be looked at is no program for us
    const auto status = std::filesystem::status(path, ignored);
    using std::filesystem::perms;
    return std::filesystem::is_regular_file(status) &&
           (status.permissions() & (perms::owner_exec | perms::group_exec | perms::others_exec)) !=
               perms::none;
}

// `netcheck` beside this program, else in the PATH. Empty if it is in neither.
std::string findWorker()
{
    std::array<char, 4096> self{};
    if (platform::moduleFileName(self.data(), self.size())) {
        const auto beside = std::filesystem::path(self.data()).parent_path() / "netcheck";
        if (isProgram(beside))
            return beside.string();
    }
    for (const std::string& folder : split(environmentText("PATH"), ':', false)) {
        const auto candidate = std::filesystem::path(folder) / "netcheck";
        if (isProgram(candidate))
            return candidate.string();
    }
    return "";
}

const char* const noWorker =
    "no worker: there is no program 'netcheck' beside this one nor in the PATH; "
    "name one with --worker";

// The checks of the targets; those that can't be understood leave a reason each.
std::vector<Check> parseTargets(const Arguments& arguments, std::vector<std::string>* reasons)
{
    std::vector<Check> checks;
    for (const std::string& text : arguments.targets) {
        try {
            Check check;
            check.target = parseTarget(text);
            check.warnIfAbove = arguments.warnIfAbove;
            check.alertIfAbove = arguments.alertIfAbove;
            checks.push_back(std::move(check));
        } catch (const error::EParseError& e) {
            reasons->push_back(shown(withoutPassword(text)) + ": " + e.text());
        }
    }
    return checks;
}

// Null if none is wanted, or if it can't be made, which leaves a reason.
std::unique_ptr<dump::RecordingWriter> makeRecording(const std::optional<std::string>& path,
                                                     Console& console,
                                                     std::vector<std::string>* reasons)
{
    if (!path)
        return nullptr;
    try {
        return std::make_unique<dump::RecordingWriter>(
            *path, [&console](const std::string& why) { console.message(shown(why)); });
    } catch (const error::ESystemError& e) {
        // A target can have got into the place of the file.
        reasons->push_back(shown(withoutPassword(e.text())));
        return nullptr;
    }
}

// Colour is for people at a terminal who have not declined it (no-color.org).
bool wantsColour()
{
    return platform::standardOutputIsTerminal() && environmentText("NO_COLOR").empty() &&
           environmentText("TERM") != "dumb";
}

int runCheck(const Arguments& arguments, Console& console)
{
    const std::unique_ptr<Report> report =
        makeReport(arguments.format, std::cout, console, wantsColour());
    std::vector<std::string> reasons;
    std::vector<Check> checks = parseTargets(arguments, &reasons);
    std::vector<std::string> notes;
    // With a target missing, an option could seem to go with none.
    if (reasons.empty()) {
        OptionsVerdict verdict = applyOptions(arguments.checkOptions, &checks);
        reasons = std::move(verdict.reasons);
        notes = std::move(verdict.notes);
    }
    RunSettings settings;
    settings.worker = arguments.worker.empty() ? findWorker() : arguments.worker;
    if (settings.worker.empty())
        reasons.emplace_back(noWorker);
    // Last, so that no file is emptied for a run that is not made.
    std::unique_ptr<dump::RecordingWriter> recording;
    if (reasons.empty())
        recording = makeRecording(arguments.recording, console, &reasons);
    if (!reasons.empty()) {
        report->refuse(reasons);
        return unusable;
    }
    for (const std::string& note : notes)
        console.message(note);
    settings.rounds = arguments.rounds;
    settings.interval = Time(arguments.interval);
    settings.verbose = arguments.verbose;
    settings.recording = recording.get();
    resolve(&checks);

    MainSelector selector;
    Run run(selector, checks, settings, *report, console);
    const Summary summary = run.run();
    report->end(summary);
    return report->exitCode(summary);
}

int runDemoCommand(const Arguments& arguments, Console& console)
{
    DemoSettings settings;
    settings.worker = arguments.worker.empty() ? findWorker() : arguments.worker;
    settings.verbose = arguments.verbose;
    settings.colour = wantsColour();
    if (settings.worker.empty()) {
        console.message(noWorker);
        return unusable;
    }
    return runDemo(settings, std::cout, console);
}

// One of the names of the output forms.
bool readFormat(const std::string& text, Format* format)
{
    const std::map<std::string, Format> formats = {
        {"table", Format::table}, {"json", Format::json}, {"plugin", Format::plugin}};
    const auto found = formats.find(text);
    if (found != formats.end())
        *format = found->second;
    return found != formats.end();
}

std::string tlsKinds()
{
    std::string names;
    for (const TargetKind& kind : targetKinds()) {
        if (kind.tls)
            names += (names.empty() ? "" : ", ") + std::string(kind.name);
    }
    return names;
}

std::string checkFooter()
{
    std::string forms;
    for (const TargetKind& kind : targetKinds())
        forms += "  " + kind.form() + "\n";
    return "Targets:\n" + forms +
           R"(HOST is an IPv4 address or a name, whose first IPv4 address is taken. A name that
doesn't resolve is a result of its own, RESOLVE FAILED; the other targets are checked.
NAME is what the DNS server is asked for, www.example.com if not given; with expect=,
the address that it answers must be one of those.
USER and PASSWORD take percent escapes, and need them for "%", "/", "?", "#", "@", and
USER for ":". Line ends are refused. What IMAP wants in quotes is sent in quotes. With
USER alone, the password is that of --password-file, or empty. Reports show it as ***.
PATH and QUERY go to the server as they stand, "#..." doesn't. But for HTTP/1.1 the worker
sorts the query: a change is told, and a URL that would lose something is refused.
With TLS, for )" +
           tlsKinds() +
           R"(, any certificate is accepted.

A check ends after the --alert time and 10 s at the latest, with TIMEOUT.
What a service said that led to BAD REPLY shows with --verbose.

Exit codes:
  0    all OK
  1    at the worst a WARNING
  2    an ALERT, or a service that failed; this outweighs what is unknown
  3    unknown: no result, a name that doesn't resolve, wrong arguments, no worker
  130  interrupted (format plugin: 3)
)";
}

void addOptions(CLI::App& check, Arguments* arguments)
{
    constexpr std::uint32_t maximumMs = std::numeric_limits<std::int32_t>::max();
    check.add_option("TARGET", arguments->targets, "What to check; see below")
        ->required()
        ->type_name("");
    check
        .add_option("--warn", arguments->warnIfAbove,
                    "WARNING for reply times above this; 0: no such threshold")
        ->type_name("MS")
        ->check(wholeNumber(maximumMs, "number of milliseconds"));
    check
        .add_option("--alert", arguments->alertIfAbove,
                    "ALERT for reply times above this; 0: no such threshold")
        ->type_name("MS")
        ->check(wholeNumber(maximumMs, "number of milliseconds"));
    check
        .add_option_function<std::string>(
            "--format",
            [arguments](const std::string& text) {
                if (!readFormat(text, &arguments->format))
                    throw CLI::ValidationError("--format: '" + shown(text) +
                                               "' is none of table, json, plugin");
            },
            "table (the default), json or plugin")
        ->type_name("FORMAT");
    check
        .add_option("--repeat", arguments->rounds, "How many rounds to make; 0: until interrupted")
        ->type_name("N")
        ->check(wholeNumber(maximumMs, "number of rounds"));
    check
        .add_option("--interval", arguments->interval,
                    "Seconds from round to round, 1 if not given; alone: until interrupted")
        ->type_name("S")
        ->check(decimalNumber(maximumInterval, "number of seconds"));
    check
        .add_option("--record", arguments->recording,
                    "Save what the worker is sent, passwords included, and what it sends, for "
                    "netcheck-dump; FILE is overwritten, a new one is readable by you alone")
        ->type_name("FILE");
}

void addCheckOptions(CLI::App& check, CheckOptions* options)
{
    const struct {
        const char* name;
        const char* type;
        std::string help;
        std::optional<std::string>* value;
    } all[] = {
        {"--http-version", "1.0|1.1",
         urlKinds() + ": 1.1 if not given; 1.0 sends no headers, so a server of many sites can't "
                      "tell which is meant",
         &options->httpVersion},
        {"--status-regex", "REGEX",
         urlKinds() + ": what the digits of the status must match (POSIX extended); ^2.. if not "
                      "given",
         &options->statusRegex},
        {"--content-regex", "REGEX",
         urlKinds() + ": what the whole reply must match, headers included, up to 1 MiB",
         &options->contentRegex},
        {"--user-agent", "TEXT", urlKinds() + ": the User-Agent header; none if not given",
         &options->userAgent},
        {"--host-header", "HOST[:PORT]", urlKinds() + ": the Host header in place of the target's",
         &options->hostHeader},
        {"--password-file", "FILE",
         loginKinds() + ": its first line is the password of each target that names a user alone",
         &options->passwordFile},
    };
    for (const auto& one : all) {
        std::optional<std::string>* const value = one.value;
        check
            .add_option_function<std::string>(
                one.name, [value](const std::string& text) { *value = text; }, one.help)
            ->type_name(one.type);
    }
}

void addCommonOptions(CLI::App& command, Arguments* arguments)
{
    command.add_flag("--verbose", arguments->verbose,
                     "Show the worker's log lines, on standard error");
    command
        .add_option("--worker", arguments->worker,
                    "The worker; if not given, 'netcheck' beside this program or in the PATH")
        ->type_name("PATH");
}

// What the options say together.
void finishArguments(const CLI::App& check, Arguments* arguments)
{
    const bool repeats = check.count("--repeat") != 0;
    const bool paces = check.count("--interval") != 0;
    if (paces && !repeats)
        arguments->rounds = 0;
    if (arguments->format == Format::plugin && (repeats || paces))
        throw CLI::ValidationError("--format plugin makes one round: it goes without --repeat and "
                                   "--interval");
    if (arguments->warnIfAbove > 0 && arguments->alertIfAbove > 0 &&
        arguments->warnIfAbove > arguments->alertIfAbove)
        throw CLI::ValidationError("--warn is above --alert, so there could never be a WARNING");
}

}  // namespace

int runCommandLine(int argc, char** argv)
{
    Arguments arguments;
    CLI::App app("Checks network services with the worker 'netcheck', and tells what it found.",
                 "netcheckctl");
    app.set_version_flag("--version", std::string("netcheckctl ") + NETCHECK_VERSION);
    app.require_subcommand(1);
    app.failure_message([](const CLI::App*, const CLI::Error& e) {
        // A target can have got into the place of a value.
        return "netcheckctl: " + shown(withoutPassword(e.what())) +
               "\nTry 'netcheckctl --help' or 'netcheckctl check --help'.\n";
    });
    CLI::App* const check = app.add_subcommand("check", "Checks targets");
    addOptions(*check, &arguments);
    addCheckOptions(*check, &arguments.checkOptions);
    addCommonOptions(*check, &arguments);
    check->footer(checkFooter());
    CLI::App* const demo = app.add_subcommand(
        "demo", "Starts scripted services on loopback and checks them; no network is needed");
    addCommonOptions(*demo, &arguments);

    try {
        app.parse(argc, argv);
        if (check->parsed())
            finishArguments(*check, &arguments);
    } catch (const CLI::ParseError& e) {
        // Help and version are "errors" with code 0.
        return app.exit(e) == 0 ? 0 : unusable;
    }

    Console console(std::cerr,
                    platform::standardErrorIsTerminal() ? platform::terminalColumns() : 0);
    try {
        return check->parsed() ? runCheck(arguments, console) : runDemoCommand(arguments, console);
    } catch (const error::Exception& e) {
        console.message(shown(e.text()));
        return unusable;
    }
}

}  // namespace parent
