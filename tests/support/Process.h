// Runs a program with a channel for each standard stream, and sees what it writes.
//
// Everything waits under a limit, and throws LimitPassed, with what the program has written so
// far, when that passes. A program that still runs is killed by the destructor.
#pragma once

#include "tests/support/Limit.h"

#include <sys/resource.h>
#include <sys/types.h>

#include <csignal>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace support {

// What a standard stream of the program is.
enum class Channel {
    pipe,
    socketPair,
    terminal,    // a pseudo-terminal in raw mode, 100 columns wide
    nullDevice,  // /dev/null
    file,        // a regular file
    closed,      // no descriptor at all
    asOutput,    // for the standard error: the same as the standard output
};

struct ProcessOptions {
    std::string program = NETCHECK_WORKER;  // the worker of this build
    std::vector<std::string> arguments = {};
    std::vector<std::string> environment = {};  // "NAME=value", beside the inherited ones
    Channel input = Channel::pipe;
    Channel output = Channel::pipe;
    Channel error = Channel::pipe;
    std::string inputFile = {};              // what stands in the file of Channel::file
    std::optional<rlimit> descriptors = {};  // the limit of open ones, if not the inherited one
};

struct ProcessEnd {
    int code = 0;         // exit code; or the number of the signal that killed it, negated
    std::string output;   // all of its standard output that was not taken by a derived class
    std::string errors;   // all of its standard error
    long peakMemory = 0;  // kilobytes; counts the test process before the start, too
};

class Process {
public:
    explicit Process(const ProcessOptions& options);
    virtual ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    // Returns when the channel has taken all bytes. A program that has gone takes none: its end
    // shows in waitForEnd.
    void sendBytes(std::string_view bytes);
    void closeInput();
    void closeOutput();
    void signal(int number) const { kill(pid, number); }
    void waitForOutput(const std::string& text) { waitFor(&end.output, text); }
    void waitForErrors(const std::string& text) { waitFor(&end.errors, text); }
    // Reads standard output and standard error to their ends and collects the process.
    ProcessEnd waitForEnd();

    pid_t id() const { return pid; }
    int outputEnd() const { return output; }  // this side's

protected:
    // Moves bytes in all directions once.
    void pump(const Deadline& deadline, const std::string& whatFor);
    // Takes what it can of the standard output, whenever there is more of it.
    virtual void take(std::string*) {}
    virtual std::string shownOutput() const { return end.output; }

private:
    void waitFor(const std::string* stream, const std::string& text);
    // Reads what is there; closes the descriptor at the end of the stream.
    static void readSome(int* descriptor, std::string* into);

    pid_t pid = -1;  // -1 once it is collected
    int input = -1;  // this side's ends
    int output = -1;
    int errors = -1;
    int outputFile = -1;
    std::string outgoing;
    ProcessEnd end;
};

// A directory of its own under the system's temporary one, removed with all that is in it.
class TemporaryDirectory {
public:
    TemporaryDirectory();
    ~TemporaryDirectory() { std::filesystem::remove_all(directory); }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    std::string path(const std::string& name) const { return directory + "/" + name; }

private:
    std::string directory = std::filesystem::temp_directory_path() / "netcheck-test-XXXXXX";
};

}  // namespace support
