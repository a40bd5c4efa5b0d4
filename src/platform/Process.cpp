#include "platform/Process.h"

#include "platform/Proactor.h"

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <initializer_list>

namespace platform {

namespace {

// The C library's own declaration of this call can't be used from C++ with glibc 2.36.
int openProcess(pid_t pid)
{
    return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
}

// What the child is told before it becomes the program.
class SpawnPlan {
public:
    SpawnPlan()
    {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
    }
    SpawnPlan(const SpawnPlan&) = delete;
    SpawnPlan& operator=(const SpawnPlan&) = delete;
    ~SpawnPlan()
    {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }

    // `descriptors`: what becomes 0, 1 and so on; all others are closed, also those that this
    // process has inherited itself, and doesn't know of.
    int prepare(std::initializer_list<int> descriptors)
    {
        sigset_t none;
        sigemptyset(&none);
        sigset_t toDefault;
        sigemptyset(&toDefault);
        sigaddset(&toDefault, SIGPIPE);
        int count = 0;
        for (const int descriptor : descriptors) {
            const int result = posix_spawn_file_actions_adddup2(&actions, descriptor, count);
            if (result != 0)
                return result;
            ++count;
        }
        const int results[] = {
            posix_spawn_file_actions_addclosefrom_np(&actions, count),
            posix_spawnattr_setsigmask(&attributes, &none),
            posix_spawnattr_setsigdefault(&attributes, &toDefault),
            // A group of its own: an interrupt at the terminal is for the parent, which then
            // ends its children in order.
            posix_spawnattr_setpgroup(&attributes, 0),
            posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF |
                                                      POSIX_SPAWN_SETPGROUP),
        };
        for (const int result : results) {
            if (result != 0)
                return result;
        }
        return 0;
    }

    int run(const std::string& path, const std::vector<std::string>& arguments, pid_t* pid)
    {
        std::vector<std::string> words{path};
        words.insert(words.end(), arguments.begin(), arguments.end());
        std::vector<char*> pointers;
        pointers.reserve(words.size() + 1);
        for (std::string& word : words)
            pointers.push_back(word.data());
        pointers.push_back(nullptr);
        // Gives the child's failure to execute the program, too.
        return posix_spawn(pid, path.c_str(), &actions, &attributes, pointers.data(), environ);
    }

private:
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
};

}  // namespace

bool startProcess(const std::string& path, const std::vector<std::string>& arguments,
                  ChildProcess* child)
{
    Proactor::instance();       // looks after the standard descriptors
    std::array<Pipe, 3> pipes;  // input, output, error
    for (Pipe& pipe : pipes) {
        if (!pipe.open())
            return false;
    }

    SpawnPlan plan;
    pid_t pid = -1;
    int failure =
        plan.prepare({pipes[0].reading.get(), pipes[1].writing.get(), pipes[2].writing.get()});
    if (failure == 0)
        failure = plan.run(path, arguments, &pid);
    if (failure != 0)
        return failWith(failure);

    // The number stays the child's until its status is collected.
    child->exited = processEnd(pid);
    if (child->exited == Handle::none) {
        const std::uint32_t code = getLastError();
        killProcess(pid);
        collectExit(pid);
        setLastError(code);
        return false;
    }
    child->pid = pid;
    child->standardInput = pipes[0].writing.toHandle();
    child->standardOutput = pipes[1].reading.toHandle();
    child->standardError = pipes[2].reading.toHandle();
    return true;
}

bool startSibling(const std::string& path, const std::vector<std::string>& arguments,
                  const OwnedDescriptor& inherited, int* pid)
{
    Proactor::instance();  // looks after the standard descriptors
    SpawnPlan plan;
    int failure = plan.prepare({STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO, inherited.get()});
    if (failure == 0)
        failure = plan.run(path, arguments, pid);
    return failure == 0 || failWith(failure);
}

Handle processEnd(int pid)
{
    const int process = openProcess(pid);
    std::uint32_t code = 0;
    Token ended = 0;
    if (process < 0)
        failWith(errno == ESRCH ? EINVAL : errno);
    else if ((ended = Proactor::instance().insertNotifier(process, &code)) == 0)
        setLastError(code);
    return static_cast<Handle>(ended);
}

ExitStatus collectExit(int pid)
{
    const ExitStatus unknown{.signalled = false, .code = -1};
    // 0 and below would mean any child.
    if (pid <= 0)
        return unknown;
    int status = 0;
    pid_t collected = 0;
    do
        collected = waitpid(pid, &status, 0);
    while (collected < 0 && errno == EINTR);
    if (collected != pid)
        return unknown;
    if (WIFSIGNALED(status))
        return {.signalled = true, .code = WTERMSIG(status)};
    return {.signalled = false, .code = WEXITSTATUS(status)};
}

void killProcess(int pid)
{
    // 0 and below would mean whole groups of processes.
    if (pid > 0)
        kill(pid, SIGKILL);
}

}  // namespace platform
