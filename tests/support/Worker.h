// Drives the real worker process over its standard streams, as a parent does.
//
// The worker is started with a channel for each standard stream, is sent requests or raw bytes,
// and is read frame by frame. Everything waits under a limit, and throws LimitPassed, with the
// transcript so far, when that passes. A worker that still runs is killed by the destructor.
#pragma once

#include "tests/support/Limit.h"
#include "tests/support/Wire.h"

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace support {

// What a standard stream of the worker is.
enum class Channel {
    pipe,
    socketPair,
    terminal,    // a pseudo-terminal in raw mode
    nullDevice,  // /dev/null
    file,        // a regular file
    closed,      // no descriptor at all
};

struct WorkerOptions {
    Channel input = Channel::pipe;
    Channel output = Channel::pipe;
    Channel error = Channel::pipe;  // only pipe and closed
    // Keeps the worker's own ends open in this process, so that a test can look at their flags or
    // fill the output up. The end of the output is then seen by waitForEnd() only.
    bool keepWorkerEnds = false;
    // Every attempt to make an IPv4 socket fails as it does without a free descriptor. (To use the
    // descriptors up in earnest is no way in a sanitized build: the sanitizer's check of dynamic
    // types takes it amiss when it can't open a pipe.)
    bool denySockets = false;
    std::string inputFile = {};  // what stands in the file of Channel::file
    std::string program = {};    // empty: the worker of this build
    std::vector<std::string> arguments = {};
    std::vector<std::string> environment = {};  // "NAME=value", beside the inherited ones
    // The limit of open descriptors, if not the inherited one: {soft, hard}.
    std::optional<std::pair<std::uint64_t, std::uint64_t>> descriptors = {};
};

// How a worker ended.
struct WorkerEnd {
    bool signalled = false;
    int code = 0;             // exit code, or the number of the signal
    std::string errorText;    // all of its standard error
    long peakMemory = 0;      // kilobytes; counts the test process before the start, too
    std::string partOfFrame;  // bytes behind the last whole frame
};

class Worker {
public:
    explicit Worker(const WorkerOptions& options = {});
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // Returns when the channel has taken all bytes. A worker that has gone takes none: its end
    // shows in waitForEnd.
    void send(const Request& request) { sendBytes(request.encode()); }
    void sendBytes(std::string_view bytes);
    void closeInput();   // the parent's end of the standard input
    void closeOutput();  // the parent's end of the standard output

    // The next frame that hasn't been read. Throws if the output ends first.
    const Frame& readFrame();
    // Reads frames up to the next result, and gives it.
    CheckResult readResult();
    // Reads frames up to the first log line with this text.
    void readLogLine(std::string_view text);
    // The next `count` bytes of the output are no frames, but what the test itself has put there.
    void skipBytes(std::size_t count) { skipped += count; }
    // Reads standard output and standard error to their ends and collects the process.
    WorkerEnd waitForEnd();
    // closeInput() and waitForEnd().
    WorkerEnd stop();

    // All frames so far, whether they were read or not.
    const std::vector<Frame>& frames() const { return received; }
    std::vector<std::string> transcript() const { return support::transcript(received); }
    std::vector<std::string> logTexts() const;  // the log lines alone, without their types

    // The worker's own ends, if they were kept.
    int inputOfWorker() const { return workerInput; }
    int outputOfWorker() const { return workerOutput; }

private:
    void start(const WorkerOptions& options);
    void dropWorkerEnds();
    // Moves bytes in all directions once. False if nothing is open any more.
    bool pump(const Deadline& deadline, const std::string& whatFor);
    void takeFrames();
    void collect(const Deadline& deadline);
    [[noreturn]] void explain(const std::string& trouble) const;

    pid_t pid = -1;
    int pidDescriptor = -1;
    int input = -1;  // our ends
    int output = -1;
    int error = -1;
    int workerInput = -1;  // its ends
    int workerOutput = -1;
    std::string outputFile;
    std::string outgoing;
    std::string incoming;
    std::size_t skipped = 0;  // bytes still to be dropped
    std::vector<Frame> received;
    std::size_t readCount = 0;  // frames that were handed out
    WorkerEnd end;
    bool collected = false;
};

// A directory of its own under the system's temporary one, removed with all that is in it.
class TemporaryDirectory {
public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    std::string path(const std::string& name) const { return directory + "/" + name; }

private:
    std::string directory;
};

// The path of the worker of this build.
std::string workerProgram();

}  // namespace support
