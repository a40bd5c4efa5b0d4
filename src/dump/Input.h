// What the programs that show a stream have in common: where it comes from, and how it ends.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace dump {

// Exit codes.
inline constexpr int allUnderstood = 0;
inline constexpr int notUnderstood = 1;
inline constexpr int unreadable = 2;  // or the output can't be written
inline constexpr int wrongUsage = 3;

// A line on standard error.
void tell(const std::string& program, const std::string& text);

// Nobody types what these programs read: whoever gives no file at a terminal wants to know how it
// goes.
bool inputIsTerminal();

// Flushes the output. False if not all of it could be written, which is told.
bool flushOutput(const std::string& program);

// Passes on the bytes of a file, of standard input for "-", in pieces as they come, and flushes
// what has been shown of them before it waits for more. False if they can't all be read, or not all
// that was shown be written, which is told.
bool readInput(const std::string& program, const std::string& path,
               const std::function<void(std::string_view)>& take);

// Shows the input and gives the exit code. `Stream` has append(), finish() and isUnderstood().
template <class Stream>
int showInput(const std::string& program, const std::string& path, Stream& stream)
{
    if (!readInput(program, path, [&](std::string_view piece) { stream.append(piece); }))
        return unreadable;
    stream.finish();
    if (!flushOutput(program))
        return unreadable;
    return stream.isUnderstood() ? allUnderstood : notUnderstood;
}

}  // namespace dump
