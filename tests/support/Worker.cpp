#include "tests/support/Worker.h"

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace support {

namespace {

int checked(int result, const char* what)
{
    if (result < 0)
        throw std::system_error(errno, std::generic_category(), what);
    return result;
}

void closeDescriptor(int* descriptor)
{
    if (*descriptor >= 0)
        ::close(*descriptor);
    *descriptor = -1;
}

// The two ends of a channel; -1 where there is none.
struct Ends {
    int ours = -1;
    int workers = -1;
};

Ends openTerminal()
{
    Ends ends;
    termios settings{};
    cfmakeraw(&settings);
    settings.c_cflag |= CREAD;
    checked(openpty(&ends.ours, &ends.workers, nullptr, &settings, nullptr), "openpty");
    fcntl(ends.ours, F_SETFD, FD_CLOEXEC);
    fcntl(ends.workers, F_SETFD, FD_CLOEXEC);
    return ends;
}

// forInput: the worker reads from it.
Ends openChannel(Channel channel, bool forInput, const std::string& fileName)
{
    std::array<int, 2> pair{};
    switch (channel) {
    case Channel::pipe:
        checked(pipe2(pair.data(), O_CLOEXEC), "pipe2");
        return forInput ? Ends{pair[1], pair[0]} : Ends{pair[0], pair[1]};
    case Channel::socketPair:
        checked(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair.data()), "socketpair");
        return {pair[0], pair[1]};
    case Channel::terminal:
        return openTerminal();
    case Channel::nullDevice:
        return {-1, checked(::open("/dev/null", O_RDWR | O_CLOEXEC), "/dev/null")};
    case Channel::file:
        return {-1, checked(::open(fileName.c_str(), O_RDWR | O_CLOEXEC), fileName.c_str())};
    case Channel::closed:
        break;
    }
    return {};
}

std::string temporaryFile(const std::string& content)
{
    std::string name = std::filesystem::temp_directory_path() / "netcheck-test-XXXXXX";
    ::close(checked(mkstemp(name.data()), "mkstemp"));
    std::ofstream(name, std::ios::binary) << content;
    return name;
}

std::vector<char*> pointers(std::vector<std::string>& texts)
{
    std::vector<char*> result;
    result.reserve(texts.size() + 1);
    for (std::string& text : texts)
        result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

// In the child between fork and exec: calls only what a signal handler may call.
void placeDescriptor(int source, int target)
{
    if (source < 0)
        ::close(target);
    else
        dup2(source, target);
}

// The same. The kernel answers socket(AF_INET, ...) with EMFILE from here on.
bool denyInternetSockets()
{
    std::array<sock_filter, 6> filter = {{
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_socket, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[0])),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AF_INET, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EMFILE),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    }};
    const sock_fprog program = {filter.size(), filter.data()};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

// Reads what is there. False at the end of the stream.
bool readSome(int descriptor, std::string* into)
{
    std::array<char, 65536> buffer;
    const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
    if (count > 0)
        into->append(buffer.data(), static_cast<std::size_t>(count));
    // A terminal whose other side is gone answers with EIO.
    return count > 0 || (count < 0 && (errno == EAGAIN || errno == EINTR));
}

}  // namespace

std::string workerProgram()
{
    return NETCHECK_WORKER;
}

Worker::Worker(const WorkerOptions& options)
{
    signal(SIGPIPE, SIG_IGN);
    start(options);
}

Worker::~Worker()
{
    if (!collected) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    for (int* descriptor : {&pidDescriptor, &input, &output, &error, &workerInput, &workerOutput})
        closeDescriptor(descriptor);
    if (!outputFile.empty())
        std::filesystem::remove(outputFile);
}

void Worker::start(const WorkerOptions& options)
{
    std::string inputName;
    if (options.input == Channel::file)
        inputName = temporaryFile(options.inputFile);
    if (options.output == Channel::file)
        outputFile = temporaryFile("");
    const Ends in = openChannel(options.input, true, inputName);
    const Ends out = openChannel(options.output, false, outputFile);
    Ends err = openChannel(options.error, false, {});
    if (!inputName.empty())
        std::filesystem::remove(inputName);

    std::vector<std::string> arguments = options.arguments;
    arguments.insert(arguments.begin(),
                     options.program.empty() ? workerProgram() : options.program);
    std::vector<std::string> environment = options.environment;
    for (char** entry = environ; *entry != nullptr; ++entry)
        environment.emplace_back(*entry);
    const std::vector<char*> argv = pointers(arguments);
    const std::vector<char*> envp = pointers(environment);

    pid = checked(fork(), "fork");
    if (pid == 0) {
        // The descriptors are above 2, since a test has its own standard streams open.
        placeDescriptor(in.workers, STDIN_FILENO);
        placeDescriptor(out.workers, STDOUT_FILENO);
        placeDescriptor(err.workers, STDERR_FILENO);
        signal(SIGPIPE, SIG_DFL);
        if (options.descriptors) {
            const rlimit limit = {options.descriptors->first, options.descriptors->second};
            setrlimit(RLIMIT_NOFILE, &limit);
        }
        if (options.denySockets && !denyInternetSockets())
            _exit(126);
        execve(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    // By number, since the declaration of pidfd_open lacks its C linkage in glibc 2.36.
    pidDescriptor = checked(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)), "pidfd_open");

    input = in.ours;
    output = out.ours;
    error = err.ours;
    workerInput = in.workers;
    workerOutput = out.workers;
    closeDescriptor(&err.workers);
    if (!options.keepWorkerEnds)
        dropWorkerEnds();
    for (const int descriptor : {input, output, error}) {
        if (descriptor >= 0)
            fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) | O_NONBLOCK);
    }
}

void Worker::dropWorkerEnds()
{
    closeDescriptor(&workerInput);
    closeDescriptor(&workerOutput);
}

void Worker::explain(const std::string& trouble) const
{
    std::ostringstream text;
    text << trouble << "\ntranscript:\n";
    for (const std::string& line : transcript())
        text << "  " << line << '\n';
    text << "standard error: " << end.errorText;
    throw LimitPassed(text.str());
}

bool Worker::pump(const Deadline& deadline, const std::string& whatFor)
{
    std::array<pollfd, 3> descriptors = {{
        {outgoing.empty() ? -1 : input, POLLOUT, 0},
        {output, POLLIN, 0},
        {error, POLLIN, 0},
    }};
    if (descriptors[0].fd < 0 && output < 0 && error < 0)
        return false;
    int left = 0;
    try {
        left = deadline.remaining(whatFor);
    } catch (const LimitPassed& e) {
        explain(e.what());
    }
    poll(descriptors.data(), descriptors.size(), left);

    if (descriptors[0].revents != 0) {
        const ssize_t count = ::write(input, outgoing.data(), outgoing.size());
        if (count > 0)
            outgoing.erase(0, static_cast<std::size_t>(count));
        else if (errno != EAGAIN && errno != EINTR)
            outgoing.clear();
    }
    if (descriptors[1].revents != 0) {
        if (!readSome(output, &incoming))
            closeDescriptor(&output);
        takeFrames();
    }
    if (descriptors[2].revents != 0 && !readSome(error, &end.errorText))
        closeDescriptor(&error);
    return true;
}

void Worker::takeFrames()
{
    const std::size_t dropped = std::min(skipped, incoming.size());
    incoming.erase(0, dropped);
    skipped -= dropped;
    while (std::optional<Frame> frame = takeFrame(&incoming))
        received.push_back(*std::move(frame));
}

void Worker::sendBytes(std::string_view bytes)
{
    const Deadline deadline;
    outgoing.append(bytes);
    while (!outgoing.empty() && pump(deadline, "the worker to take its input")) {
    }
}

void Worker::closeInput()
{
    closeDescriptor(&input);
}

void Worker::closeOutput()
{
    closeDescriptor(&output);
}

const Frame& Worker::readFrame()
{
    const Deadline deadline;
    while (readCount == received.size()) {
        if (output < 0 || !pump(deadline, "a frame"))
            explain("the output ended before a frame came");
    }
    return received[readCount++];
}

CheckResult Worker::readResult()
{
    for (;;) {
        if (const CheckResult* result = readFrame().result())
            return *result;
    }
}

void Worker::readLogLine(std::string_view text)
{
    for (;;) {
        const LogLine* line = readFrame().logLine();
        if (line != nullptr && line->text == text)
            return;
    }
}

WorkerEnd Worker::waitForEnd()
{
    const Deadline deadline;
    dropWorkerEnds();
    while (output >= 0 || error >= 0)
        pump(deadline, "the worker to close its outputs");
    collect(deadline);
    if (!outputFile.empty()) {
        std::ostringstream content;
        content << std::ifstream(outputFile, std::ios::binary).rdbuf();
        incoming += content.str();
        takeFrames();
    }
    end.partOfFrame = incoming;
    return end;
}

void Worker::collect(const Deadline& deadline)
{
    pollfd ended = {pidDescriptor, POLLIN, 0};
    while (poll(&ended, 1, deadline.remaining("the worker to end")) <= 0) {
    }
    int status = 0;
    rusage usage{};
    checked(wait4(pid, &status, 0, &usage), "wait4");
    collected = true;
    end.signalled = WIFSIGNALED(status);
    end.code = end.signalled ? WTERMSIG(status) : WEXITSTATUS(status);
    end.peakMemory = usage.ru_maxrss;
}

WorkerEnd Worker::stop()
{
    closeInput();
    return waitForEnd();
}

std::vector<std::string> Worker::logTexts() const
{
    std::vector<std::string> texts;
    for (const Frame& frame : received) {
        if (const LogLine* line = frame.logLine())
            texts.push_back(line->text);
    }
    return texts;
}

TemporaryDirectory::TemporaryDirectory()
    : directory(std::filesystem::temp_directory_path() / "netcheck-test-XXXXXX")
{
    if (mkdtemp(directory.data()) == nullptr)
        throw std::system_error(errno, std::generic_category(), "mkdtemp");
}

TemporaryDirectory::~TemporaryDirectory()
{
    std::error_code ignored;  // what is left behind in the temporary directory hurts nobody
    std::filesystem::remove_all(directory, ignored);
}

}  // namespace support
