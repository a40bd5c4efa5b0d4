#include "siblings/Commands.h"

#include "common/errors.h"
#include "common/shown.h"
#include "common/text.h"

#include <cstddef>
#include <limits>
#include <utility>

namespace siblings {

namespace {

// What is longer is no command, and is cut rather than kept.
constexpr std::size_t longestLine = 1000;

std::int32_t idOf(const std::string& word)
{
    constexpr std::int32_t most = std::numeric_limits<std::int32_t>::max();
    if (word.find_first_not_of("0123456789") == std::string::npos) {
        const std::int32_t id = stringToLong(word);
        if (id > 0 && id != most)
            return id;
    }
    throw error::EParseError("'" + shownLine(word) + "' is not the number of a child");
}

}  // namespace

Command parseCommand(const std::string& line)
{
    const std::list<std::string> pieces = split(line, " \t\r", false);
    const std::vector<std::string> words(pieces.begin(), pieces.end());
    if (words.empty())
        return {};
    const struct {
        const char* verb;
        Command::Kind kind;
        std::size_t words;
    } all[] = {
        {"kill", Command::kill, 2},
        {"stop", Command::stop, 2},
        {"start", Command::start, 1},
        {"quit", Command::quit, 1},
    };
    for (const auto& one : all) {
        if (words[0] == one.verb && words.size() == one.words)
            return {.kind = one.kind, .id = one.words == 2 ? idOf(words[1]) : 0};
    }
    throw error::EParseError("'" + shownLine(line) + "' is no command; there are " + commandForms);
}

std::vector<std::string> CommandInput::read()
{
    std::vector<std::string> lines;
    try {
        char* data = nullptr;
        const std::uint64_t count = input.readBegin(&data);
        typed.append(data, count);
        input.readCommit(count);
    } catch (const error::Exception&) {
        // Who can't be read has no more to say, and that is no reason to end.
        ended = true;
        lines.push_back(std::exchange(typed, {}));
        return lines;
    }
    std::list<std::string> pieces = split(typed, '\n', true);
    typed = std::move(pieces.back()).substr(0, longestLine);
    pieces.pop_back();
    lines.assign(pieces.begin(), pieces.end());
    return lines;
}

}  // namespace siblings
