// Runs netcheckctl as its users do, and sees what it writes.
#pragma once

#include "tests/support/Limit.h"

#include <sys/types.h>

#include <string>
#include <vector>

namespace support {

struct ProgramOptions {
    bool terminal = false;  // standard output and error are one terminal; all shows as output
    std::vector<std::string> environment = {};  // "NAME=value", beside the inherited ones
};

struct ProgramEnd {
    int exitCode = -1;  // -1: it was killed by a signal
    std::string output;
    std::string errors;
};

// A program that runs. Every wait is under a limit and throws LimitPassed, with what the program
// has written so far. One that still runs is killed by the destructor.
class Program {
public:
    explicit Program(const std::vector<std::string>& arguments, const ProgramOptions& options = {});
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    void waitForOutput(const std::string& text);
    void waitForErrors(const std::string& text);
    void signal(int number) const;
    void closeOutput();  // the reader goes
    ProgramEnd waitForEnd();

private:
    void pump(const Deadline& deadline, const std::string& whatFor);

    pid_t pid = -1;
    int output = -1;
    int errors = -1;
    ProgramEnd end;
};

// Runs it to its end.
ProgramEnd netcheckctl(const std::vector<std::string>& arguments,
                       const ProgramOptions& options = {});

}  // namespace support
