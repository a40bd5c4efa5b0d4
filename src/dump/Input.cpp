#include "dump/Input.h"

#include "common/errors.h"
#include "common/shown.h"

#include <CLI/CLI.hpp>

#include <array>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <new>
#include <system_error>

namespace dump {

namespace {

bool readStream(const std::string& program, std::istream& in, const std::string& name,
                const std::function<void(std::string_view)>& take)
{
    std::array<char, 65536> piece{};
    while (std::cout && in.peek() != std::istream::traits_type::eof()) {
        const std::streamsize count = in.readsome(piece.data(), piece.size());
        take({piece.data(), static_cast<std::size_t>(count)});
        if (in.rdbuf()->in_avail() <= 0)
            std::cout.flush();
    }
    if (!flushOutput(program))
        return false;
    if (in.bad())
        tell(program, name + ": it can't be read");
    return !in.bad();
}

bool inputIsTerminal()
{
    std::error_code unknown;  // what can't be told is no terminal
    return std::filesystem::is_character_file("/dev/stdin", unknown) &&
           std::filesystem::canonical("/dev/stdin", unknown) != "/dev/null";
}

}  // namespace

void tell(const std::string& program, const std::string& text)
{
    std::cerr << program << ": " << text << '\n' << std::flush;
}

int runProgram(CLI::App& app, int argc, char** argv, const char* piece,
               const std::function<int()>& run)
{
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        // Help and version are "errors" with code 0.
        return app.exit(e) == 0 ? 0 : wrongUsage;
    }
    try {
        return run();
    } catch (const error::Exception& e) {
        tell(app.get_name(), shown(e.text()));
    } catch (const std::bad_alloc&) {
        tell(app.get_name(), std::string("there is not enough memory for ") + piece);
    }
    return unreadable;
}

int showList(const std::string& program, const std::function<void()>& print)
{
    try {
        print();
    } catch (const error::EParseError& e) {
        tell(program, e.text());
        return wrongUsage;
    }
    return flushOutput(program) ? allUnderstood : unreadable;
}

std::optional<std::string> inputPath(const std::string& program,
                                     const std::vector<std::string>& operands)
{
    if (operands.size() > 1) {
        tell(program, "one FILE at a time");
        return {};
    }
    if (operands.empty() && inputIsTerminal()) {
        tell(program, "name a FILE, or '-' for what is typed; see --help");
        return {};
    }
    return operands.empty() ? "-" : operands.front();
}

bool flushOutput(const std::string& program)
{
    std::cout.flush();
    if (!std::cout)
        tell(program, "the output can't be written");
    return static_cast<bool>(std::cout);
}

bool readInput(const std::string& program, const std::string& path,
               const std::function<void(std::string_view)>& take)
{
    if (path == "-")
        return readStream(program, std::cin, "standard input", take);
    std::error_code why;
    const auto status = std::filesystem::status(path, why);
    std::ifstream file;
    if (!why && !std::filesystem::is_directory(status))
        file.open(path, std::ios::binary);
    if (file.is_open())
        return readStream(program, file, shown(path), take);
    tell(program, shown(path) + ": " +
                      (why                                     ? why.message()
                       : std::filesystem::is_directory(status) ? "it is a directory"
                                                               : "it can't be read"));
    return false;
}

}  // namespace dump
