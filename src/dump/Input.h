// What the programs that show a stream have in common: how they are called, where the stream comes
// from, and how it ends.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
}

namespace dump {

// Exit codes.
inline constexpr int allUnderstood = 0;
inline constexpr int notUnderstood = 1;
inline constexpr int unreadable = 2;  // or the output can't be written
inline constexpr int wrongUsage = 3;

// A line on standard error.
void tell(const std::string& program, const std::string& text);

// Takes in the arguments, runs the program and gives the exit code: of wrong usage, of `run`, or of
// what it throws, which is told. `piece` is what there can be too little memory for.
int runProgram(CLI::App& app, int argc, char** argv, const char* piece,
               const std::function<int()>& run);

// Prints a list and gives the exit code. The list throws EParseError for what it doesn't know.
int showList(const std::string& program, const std::function<void()>& print);

// What the operands name: a file, or "-" for standard input. None if they are wrong, which is told.
// Nobody types what these programs read: whoever gives no file at a terminal wants to know how it
// goes.
std::optional<std::string> inputPath(const std::string& program,
                                     const std::vector<std::string>& operands);

// Flushes the output. False if not all of it could be written, which is told.
bool flushOutput(const std::string& program);

// Passes on the bytes of a file, of standard input for "-", in pieces as they come, and flushes
// what has been shown of them before it waits for more. False if they can't all be read, or not all
// that was shown be written, which is told.
bool readInput(const std::string& program, const std::string& path,
               const std::function<void(std::string_view)>& take);

// Shows the input and gives the exit code. `Stream` has append(), finish() and isUnderstood().
template <class Stream>
int showInput(const std::string& program, const std::vector<std::string>& operands, Stream& stream)
{
    const std::optional<std::string> path = inputPath(program, operands);
    if (!path)
        return wrongUsage;
    if (!readInput(program, *path, [&](std::string_view piece) { stream.append(piece); }))
        return unreadable;
    stream.finish();
    if (!flushOutput(program))
        return unreadable;
    return stream.isUnderstood() ? allUnderstood : notUnderstood;
}

}  // namespace dump
