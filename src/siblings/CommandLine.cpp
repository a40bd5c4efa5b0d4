#include "siblings/CommandLine.h"

#include "common/errors.h"
#include "common/shown.h"
#include "common/text.h"
#include "platform/Crash.h"
#include "platform/Overlapped.h"
#include "siblings/Child.h"
#include "siblings/Group.h"

#include <CLI/CLI.hpp>

#include <array>
#include <iostream>
#include <limits>
#include <new>
#include <span>
#include <string>

namespace siblings {

namespace {

const char* const program = "sibling-demo";

constexpr int allWell = 0;
constexpr int notWell = 1;
constexpr int cannotRun = 2;  // or the output can't be written
constexpr int wrongUsage = 3;

constexpr std::uint32_t mostChildren = 250;
constexpr std::uint32_t largestMessage = 1 << 30;
constexpr std::uint64_t largestRegion = std::uint64_t{1} << 32U;
constexpr double longest = 1'000'000;  // seconds, 11 days

const char* const footer =
    R"(The parent and its children write to each other, each to each, as fast as they can, through
shared memory. Every message has a number, and is checked by who receives it. One that is larger
than the room goes in pieces. A table shows what each has sent and received, and "-" for one that
didn't tell in time; MB are millions of bytes.

Commands on standard input, one a line:
  kill ID   kills a child, at whatever it is doing; the others go on
  stop ID   has a child end in an orderly way
  start     starts one more; up to 4 can be there beyond --children
  quit      ends all in an orderly way, with a summary

So do an interrupt (Control-C) and --duration. The end of the input ends nothing, unless no child is
left.

Exit codes:
  0  every message came once, in order and whole
  1  one did not, or a child failed or was killed without a request
  2  the children can't be started, or the output can't be written
  3  wrong usage
)";

bool isDigits(const std::string& text)
{
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// A whole number. The library's own reading would take "0x10" and "1e3".
CLI::Validator wholeNumber(std::uint32_t minimum, std::uint32_t maximum, const char* what)
{
    return {[minimum, maximum, what](std::string& text) -> std::string {
                if (isDigits(text) && stringToULong(text) >= minimum &&
                    stringToULong(text) <= maximum)
                    return "";
                return "'" + shown(text) + "' is no " + what + " from " + uintToString(minimum) +
                       " to " + uintToString(maximum);
            },
            "", ""};
}

// A decimal number: digits, with a point among or before them.
CLI::Validator seconds(double minimum)
{
    return {[minimum](std::string& text) -> std::string {
                std::string digits = text;
                if (const std::size_t point = digits.find('.'); point != std::string::npos)
                    digits.erase(point, 1);
                if (isDigits(digits) && stringToDouble(text) >= minimum &&
                    stringToDouble(text) <= longest)
                    return "";
                return "'" + shown(text) + "' is no number of seconds from " +
                       (minimum > 0 ? doubleToString(minimum, -1, 2) : "0") + " to " +
                       doubleToString(longest, -1, 0);
            },
            "", ""};
}

void addOptions(CLI::App& app, Options* options)
{
    app.add_option("--children", options->children, "How many children to start; 4 if not given")
        ->type_name("N")
        ->check(wholeNumber(1, mostChildren, "number of children"));
    app.add_option("--size", options->messageSize, "Size of a message; 1024 if not given")
        ->type_name("BYTES")
        ->check(wholeNumber(1, largestMessage, "number of bytes"));
    app.add_option("--area", options->areaSize,
                   "Memory in which each process writes its messages; 1048576 if not given")
        ->type_name("BYTES")
        ->check(wholeNumber(24, std::numeric_limits<std::int32_t>::max(), "number of bytes"));
    app.add_option("--interval", options->interval,
                   "Seconds from one table to the next; 1 if not given")
        ->type_name("S")
        ->check(seconds(0.01));
    app.add_option("--duration", options->duration,
                   "Seconds until the end; 0, or if not given: until told to end, see below")
        ->type_name("S")
        ->check(seconds(0));
    app.add_option("--kill-after", options->killAfter,
                   "Seconds until the first child is killed; 0, or if not given: none is")
        ->type_name("S")
        ->check(seconds(0));
    app.footer(footer);
}

// What the options say together.
void checkTogether(const Options& options)
{
    const std::uint64_t areas = std::uint64_t{options.children} + spareAreas + 1;
    if (areas > largestRegion / ((std::uint64_t{options.areaSize} + 7) / 8 * 8))
        throw CLI::ValidationError("--area: " + uint64ToString(areas) + " areas of " +
                                   uintToString(options.areaSize) + " bytes, for the parent, " +
                                   uintToString(options.children) + " children and " +
                                   uintToString(spareAreas) + " more, do not fit in 4 GiB");
}

void complain(const std::string& text)
{
    std::cerr << program << ": " << text << '\n' << std::flush;
}

int run(const Options& options)
{
    std::array<char, 4096> path{};
    if (!platform::moduleFileName(path.data(), path.size())) {
        complain("the path of this program can't be told");
        return cannotRun;
    }
    platform::raiseDescriptorLimit();
    switch (Group(options, path.data()).run()) {
    case Group::Outcome::good:
        return allWell;
    case Group::Outcome::bad:
        return notWell;
    case Group::Outcome::outputBroken:
        complain("the output can't be written");
        break;
    }
    return cannotRun;
}

// As Group starts it.
bool isChild(std::span<char*> arguments)
{
    return arguments.size() == 4 && std::string("--as-child") == arguments[1] &&
           isDigits(arguments[2]) && isDigits(arguments[3]);
}

}  // namespace

int runCommandLine(int argc, char** argv)
{
    std::ios::sync_with_stdio(false);
    Options options;
    CLI::App app("Shows siblings: processes that exchange messages through shared memory.",
                 program);
    app.set_version_flag("--version", std::string(program) + " " + NETCHECK_VERSION);
    app.failure_message([](const CLI::App*, const CLI::Error& e) {
        return "sibling-demo: " + shown(e.what()) + "\nTry 'sibling-demo --help'.\n";
    });
    addOptions(app, &options);

    const std::span arguments(argv, static_cast<std::size_t>(argc));
    try {
        if (isChild(arguments))
            return runChild(
                {.size = stringToULong(arguments[2]), .window = stringToULong(arguments[3])});
        app.parse(argc, argv);
        checkTogether(options);
        return run(options);
    } catch (const CLI::ParseError& e) {
        // Help and version are "errors" with code 0.
        return app.exit(e) == 0 ? 0 : wrongUsage;
    } catch (const error::Exception& e) {
        complain(shown(e.text()));
    } catch (const std::bad_alloc&) {
        complain("there is not enough memory");
    }
    return cannotRun;
}

}  // namespace siblings
