#include "dump/BerCommandLine.h"

#include "common/shown.h"
#include "dump/BerClasses.h"
#include "dump/BerDump.h"
#include "dump/BerView.h"
#include "dump/Input.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace dump {

namespace {

const char* const program = "ber-dump";

struct Arguments {
    std::vector<std::string> operands;
    bool legacy = false;
    bool json = false;
    bool classes = false;
};

const char* const footer =
    R"(Input is one direction of a connection of the client protocol: messages, one after the other.
They are shown as they come, so the input can be a pipe. Passwords and keys are shown as they went.

Exit codes:
  0  everything was understood
  1  something could not be understood; what and where is told on standard error
  2  the input can't be read, or the output can't be written
  3  wrong usage
)";

class Help final : public CLI::Formatter {
public:
    std::string make_usage(const CLI::App*, std::string) const override
    {
        return "Usage: ber-dump [--legacy] [--json] [FILE]\n"
               "       ber-dump --classes [NAME]...\n";
    }
};

int run(const Arguments& arguments)
{
    if (arguments.classes && (arguments.json || arguments.legacy)) {
        tell(program, "--classes has no other form");
        return wrongUsage;
    }
    if (arguments.classes)
        return showList(program, [&] { listBerClasses(std::cout, arguments.operands); });
    const auto view = makeBerView(arguments.json, std::cout, std::cerr, arguments.legacy);
    BerDump dump(*view, arguments.legacy);
    return showInput(program, arguments.operands, dump);
}

}  // namespace

int runBerCommandLine(int argc, char** argv)
{
    std::ios::sync_with_stdio(false);
    Arguments arguments;
    CLI::App app("Shows messages of the client protocol, or what they are made of.", program);
    app.formatter(std::make_shared<Help>());
    app.set_version_flag("--version", std::string(program) + " " + NETCHECK_VERSION);
    app.failure_message([](const CLI::App*, const CLI::Error& e) {
        return "ber-dump: " + shown(e.what()) + "\nTry 'ber-dump --help'.\n";
    });
    app.add_option("FILE", arguments.operands, "What to show; '-' or nothing for standard input")
        ->type_name("");
    app.add_flag("--legacy", arguments.legacy, "The tags are those of the old numbering");
    app.add_flag("--json", arguments.json, "A JSON object for each message, one a line");
    app.add_flag("--classes", arguments.classes,
                 "Lists the classes of messages, or those with the NAMEs, their tags and fields");
    app.footer(footer);

    return runProgram(app, argc, argv, "a message", [&] { return run(arguments); });
}

}  // namespace dump
