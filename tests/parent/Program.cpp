#include "tests/parent/Program.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace support {

namespace {

[[noreturn]] void fail(const std::string& what)
{
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

std::vector<char*> pointers(std::vector<std::string>& texts)
{
    std::vector<char*> all;
    all.reserve(texts.size() + 1);
    for (std::string& text : texts)
        all.push_back(text.data());
    all.push_back(nullptr);
    return all;
}

// Reads what is there; closes the descriptor at the end of the stream.
void readSome(int* descriptor, std::string* text)
{
    char buffer[65536];
    const ssize_t n = read(*descriptor, buffer, sizeof buffer);
    if (n > 0) {
        text->append(buffer, static_cast<std::size_t>(n));
        return;
    }
    // A terminal whose other side has gone gives EIO.
    if (n == 0 || errno == EIO) {
        close(*descriptor);
        *descriptor = -1;
    } else if (errno != EINTR) {
        fail("read");
    }
}

}  // namespace

Program::Program(const std::vector<std::string>& arguments, const ProgramOptions& options)
{
    int outputEnd = -1;  // the program's ends
    int errorEnd = -1;
    if (options.terminal) {
        output = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (output < 0 || grantpt(output) != 0 || unlockpt(output) != 0)
            fail("posix_openpt");
        outputEnd = open(ptsname(output), O_RDWR | O_NOCTTY | O_CLOEXEC);
        const winsize size = {.ws_row = 25, .ws_col = 100, .ws_xpixel = 0, .ws_ypixel = 0};
        if (outputEnd < 0 || ioctl(outputEnd, TIOCSWINSZ, &size) != 0)
            fail("terminal");
        errorEnd = dup(outputEnd);
    } else {
        int outputPipe[2];
        int errorPipe[2];
        if (pipe2(outputPipe, O_CLOEXEC) != 0 || pipe2(errorPipe, O_CLOEXEC) != 0)
            fail("pipe2");
        output = outputPipe[0];
        outputEnd = outputPipe[1];
        errors = errorPipe[0];
        errorEnd = errorPipe[1];
    }

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, outputEnd, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errorEnd, STDERR_FILENO);
    // The tests may themselves run where these signals are ignored.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t toDefault;
    sigemptyset(&toDefault);
    sigaddset(&toDefault, SIGINT);
    sigaddset(&toDefault, SIGTERM);
    sigaddset(&toDefault, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes, &toDefault);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);

    std::vector<std::string> words = {NETCHECKCTL};
    words.insert(words.end(), arguments.begin(), arguments.end());
    // The first entry of a name is the one that counts.
    std::vector<std::string> environment = options.environment;
    for (char** entry = environ; *entry != nullptr; ++entry)
        environment.emplace_back(*entry);
    const int failure = posix_spawn(&pid, NETCHECKCTL, &actions, &attributes,
                                    pointers(words).data(), pointers(environment).data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    close(outputEnd);
    close(errorEnd);
    if (failure != 0) {
        errno = failure;
        fail("posix_spawn");
    }
}

Program::~Program()
{
    if (pid > 0) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    closeOutput();
    if (errors >= 0)
        close(errors);
}

void Program::waitForOutput(const std::string& text)
{
    const Deadline deadline;
    while (end.output.find(text) == std::string::npos)
        pump(deadline, "the output '" + text + "'");
}

void Program::waitForErrors(const std::string& text)
{
    const Deadline deadline;
    while (end.errors.find(text) == std::string::npos)
        pump(deadline, "the message '" + text + "'");
}

void Program::signal(int number) const
{
    kill(pid, number);
}

void Program::closeOutput()
{
    if (output >= 0)
        close(output);
    output = -1;
}

ProgramEnd Program::waitForEnd()
{
    const Deadline deadline;
    while (output >= 0 || errors >= 0)
        pump(deadline, "the end");
    int status = 0;
    // Its streams have ended, so it is about to end itself, if it does at all: the limit of the
    // test program watches over this wait.
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    pid = -1;
    end.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return end;
}

void Program::pump(const Deadline& deadline, const std::string& whatFor)
{
    if (output < 0 && errors < 0)
        throw std::runtime_error("the program ended before " + whatFor + "; output:\n" +
                                 end.output + "errors:\n" + end.errors);
    pollfd entries[] = {{output, POLLIN, 0}, {errors, POLLIN, 0}};
    const int left =
        deadline.remaining(whatFor + "; output:\n" + end.output + "errors:\n" + end.errors);
    if (poll(entries, 2, left) < 0 && errno != EINTR)
        fail("poll");
    if (output >= 0 && entries[0].revents != 0)
        readSome(&output, &end.output);
    if (errors >= 0 && entries[1].revents != 0)
        readSome(&errors, &end.errors);
}

ProgramEnd netcheckctl(const std::vector<std::string>& arguments, const ProgramOptions& options)
{
    return Program(arguments, options).waitForEnd();
}

}  // namespace support
