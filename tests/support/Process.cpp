#include "tests/support/Process.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
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

// The two ends of a channel, this side's first; -1 where there is none.
std::array<int, 2> openChannel(Channel channel, bool forInput, const std::string& content)
{
    std::array<int, 2> ends = {-1, -1};
    if (channel == Channel::pipe) {
        checked(pipe(ends.data()), "pipe");
        if (forInput)
            std::swap(ends[0], ends[1]);
    } else if (channel == Channel::socketPair) {
        checked(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), "socketpair");
    } else if (channel == Channel::terminal) {
        termios raw{};
        cfmakeraw(&raw);
        raw.c_cflag |= CREAD;
        const winsize size = {25, 100, 0, 0};
        checked(openpty(&ends[0], &ends[1], nullptr, &raw, &size), "openpty");
    } else if (channel == Channel::nullDevice) {
        ends[1] = checked(open("/dev/null", O_RDWR), "/dev/null");
    } else if (channel == Channel::file) {
        ends[1] = checked(memfd_create("file", 0), "memfd_create");
        checked(static_cast<int>(pwrite(ends[1], content.data(), content.size(), 0)), "pwrite");
    }
    for (const int descriptor : ends)
        fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    fcntl(ends[0], F_SETFL, fcntl(ends[0], F_GETFL) | O_NONBLOCK);
    return ends;
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

}  // namespace

Process::Process(const ProcessOptions& options)
{
    ::signal(SIGPIPE, SIG_IGN);
    auto in = openChannel(options.input, true, options.inputFile);
    auto out = openChannel(options.output, false, {});
    auto err = openChannel(options.error, false, {});
    std::vector<std::string> arguments = options.arguments;
    arguments.insert(arguments.begin(), options.program);
    // The first entry of a name is the one that counts.
    std::vector<std::string> environment = options.environment;
    for (char** entry = environ; *entry != nullptr; ++entry)
        environment.emplace_back(*entry);
    const std::vector<char*> argv = pointers(arguments);
    const std::vector<char*> envp = pointers(environment);

    pid = checked(fork(), "fork");
    if (pid == 0) {
        // Calls only what a signal handler may call. The descriptors are above 2, since a test
        // has its own standard streams open.
        const int streams[] = {in[1], out[1], options.error == Channel::asOutput ? out[1] : err[1]};
        for (int number = 0; number < 3; ++number)
            streams[number] < 0 ? ::close(number) : dup2(streams[number], number);
        for (const int number : {SIGPIPE, SIGINT, SIGTERM})
            ::signal(number, SIG_DFL);
        if (options.descriptors)
            setrlimit(RLIMIT_NOFILE, &*options.descriptors);
        execve(argv[0], argv.data(), envp.data());
        _exit(127);
    }

    input = in[0];
    output = out[0];
    errors = err[0];
    if (options.output == Channel::file)
        std::swap(outputFile, out[1]);
    for (int* itsEnd : {&in[1], &out[1], &err[1]})
        closeDescriptor(itsEnd);
}

Process::~Process()
{
    if (pid > 0) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    for (int* descriptor : {&input, &output, &errors, &outputFile})
        closeDescriptor(descriptor);
}

void Process::pump(const Deadline& deadline, const std::string& whatFor)
{
    std::array<pollfd, 3> descriptors = {{
        {outgoing.empty() ? -1 : input, POLLOUT, 0},
        {output, POLLIN, 0},
        {errors, POLLIN, 0},
    }};
    const auto left = deadline - std::chrono::steady_clock::now();
    if ((descriptors[0].fd < 0 && output < 0 && errors < 0) || left.count() <= 0)
        throw LimitPassed("there came no " + whatFor + "\noutput:\n" + shownOutput() +
                          "\nerrors:\n" + end.errors);
    const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(left).count();
    poll(descriptors.data(), descriptors.size(), static_cast<int>(milliseconds));

    if (descriptors[0].revents != 0) {
        const ssize_t count = ::write(input, outgoing.data(), outgoing.size());
        if (count > 0)
            outgoing.erase(0, static_cast<std::size_t>(count));
        else if (errno != EAGAIN)
            outgoing.clear();
    }
    if (descriptors[1].revents != 0) {
        readSome(&output, &end.output);
        take(&end.output);
    }
    if (descriptors[2].revents != 0)
        readSome(&errors, &end.errors);
}

void Process::readSome(int* descriptor, std::string* into)
{
    std::array<char, 65536> buffer;
    const ssize_t count = ::read(*descriptor, buffer.data(), buffer.size());
    // A terminal whose other side is gone answers with EIO.
    if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR))
        closeDescriptor(descriptor);
    if (count > 0)
        into->append(buffer.data(), static_cast<std::size_t>(count));
}

void Process::sendBytes(std::string_view bytes)
{
    const Deadline deadline = usualLimit();
    outgoing.append(bytes);
    while (!outgoing.empty())
        pump(deadline, "taking of the input");
}

void Process::closeInput()
{
    closeDescriptor(&input);
}

void Process::closeOutput()
{
    closeDescriptor(&output);
}

void Process::waitFor(const std::string* stream, const std::string& text)
{
    const Deadline deadline = usualLimit();
    while (stream->find(text) == std::string::npos)
        pump(deadline, "text '" + text + "'");
}

ProcessEnd Process::waitForEnd()
{
    const Deadline deadline = usualLimit();
    while (output >= 0 || errors >= 0)
        pump(deadline, "end of the outputs");
    // Its streams have ended, so it is about to end itself, if it does at all: the limit of the
    // test program watches over this wait.
    int status = 0;
    rusage usage{};
    checked(wait4(pid, &status, 0, &usage), "wait4");
    pid = -1;
    end.code = WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
    end.peakMemory = usage.ru_maxrss;
    if (outputFile >= 0)
        lseek(outputFile, 0, SEEK_SET);
    while (outputFile >= 0)
        readSome(&outputFile, &end.output);
    take(&end.output);
    return end;
}

TemporaryDirectory::TemporaryDirectory()
{
    if (mkdtemp(directory.data()) == nullptr)
        throw std::system_error(errno, std::generic_category(), "mkdtemp");
}

}  // namespace support
