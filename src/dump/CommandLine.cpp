#include "dump/CommandLine.h"

#include "common/shown.h"
#include "dump/Dump.h"
#include "dump/EventList.h"
#include "dump/Input.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace dump {

namespace {

const char* const program = "netcheck-dump";

struct Arguments {
    std::vector<std::string> operands;
    bool json = false;
    bool fields = false;
    bool events = false;
};

const char* const footer =
    R"(Input is what went through a pipe of a worker, to it or from it: frames, one after the
other. Or a recording, as 'netcheckctl check --record FILE' makes it. Events are shown as they
come, so the input can be a pipe from a worker that runs.

Offsets are those in the input; of a recording, those in the stream of the worker and direction.
Passwords are shown as they went.

Exit codes:
  0  everything was understood
  1  something could not be decoded; what and where is told on standard error
  2  the input can't be read, or the output can't be written
  3  wrong usage
)";

class Help final : public CLI::Formatter {
public:
    std::string make_usage(const CLI::App*, std::string) const override
    {
        return "Usage: netcheck-dump [--json | --fields] [FILE]\n"
               "       netcheck-dump --events [NAME | NUMBER]...\n";
    }
};

int run(const Arguments& arguments)
{
    if (int{arguments.json} + int{arguments.fields} + int{arguments.events} > 1) {
        tell(program, "only one of --json, --fields and --events");
        return wrongUsage;
    }
    if (arguments.events)
        return showList(program, [&] { listEvents(std::cout, arguments.operands); });
    const Form form = arguments.json ? Form::json : arguments.fields ? Form::fields : Form::text;
    const std::unique_ptr<View> view = makeView(form, std::cout, std::cerr);
    Dump dump(*view);
    return showInput(program, arguments.operands, dump);
}

}  // namespace

int runCommandLine(int argc, char** argv)
{
    std::ios::sync_with_stdio(false);
    Arguments arguments;
    CLI::App app("Shows the events that went through the pipes of the worker 'netcheck', or how "
                 "events are encoded.",
                 "netcheck-dump");
    app.formatter(std::make_shared<Help>());
    app.set_version_flag("--version", std::string("netcheck-dump ") + NETCHECK_VERSION);
    app.failure_message([](const CLI::App*, const CLI::Error& e) {
        return "netcheck-dump: " + shown(e.what()) + "\nTry 'netcheck-dump --help'.\n";
    });
    app.add_option("FILE", arguments.operands, "What to show; '-' or nothing for standard input")
        ->type_name("");
    app.add_flag("--json", arguments.json, "A JSON object for each event, one a line");
    app.add_flag("--fields", arguments.fields,
                 "A row for each value, with its offset and its bytes");
    app.add_flag("--events", arguments.events,
                 "Lists the known events, or those with the NAMEs or NUMBERs, and their encoding");
    app.footer(footer);

    return runProgram(app, argc, argv, "a frame", [&] { return run(arguments); });
}

}  // namespace dump
