#include "tests/servers/Server.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <grp.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iostream>
#include <random>
#include <thread>

namespace servers {

namespace {

// Does it with a socket, and gives that; or -1, which can't be closed.
int onLoopback(decltype(connect)* call, int type, std::uint16_t port)
{
    sockaddr_in address{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
    const int descriptor = socket(AF_INET, type | SOCK_CLOEXEC, 0);
    if (call(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0)
        return descriptor;
    close(descriptor);
    return -1;
}

// Starts the process that waits for the end of the test, and becomes the server. The capability
// is for FTP: an anonymous user is locked into a directory.
const char* const script = R"(
exec 3<&0 >>{dir}/log 2>&1
{ read -r _ <&3; rm -rf {dir}; kill -KILL 0; } &
exec 3<&- </dev/null
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj /CN=localhost \
    -keyout {dir}/key -out {dir}/cert || exit
[ $(id -u) -ne 0 ] || {
    chown -R {user}:{group} {dir}
    drop="setpriv --reuid={user} --regid={group} --init-groups
        --inh-caps=+sys_chroot --ambient-caps=+sys_chroot"
}
exec $drop )";

}  // namespace

// The ports are below those that the system gives to sockets by itself, and free for UDP, too.
Server::Server(std::size_t portCount) : ports(portCount), holders(portCount)
{
    std::random_device random;
    for (std::size_t i = 0; i < portCount; ++i) {
        do
            ports[i] = static_cast<std::uint16_t>(10000 + random() % 20000);
        while (close(onLoopback(bind, SOCK_DGRAM, ports[i])) != 0 ||
               (holders[i] = onLoopback(bind, SOCK_STREAM, ports[i])) < 0);
        // From now on, who sets this, too, can listen at the port. Other tests don't.
        const int on = 1;
        setsockopt(holders[i], SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    }
}

Server::Server(const std::string& command, std::size_t portCount, const Texts& files)
    : Server(portCount)
{
    const std::string program = command.substr(0, command.find(' '));
    if (!std::filesystem::exists(program))
        throw std::runtime_error("there is no " + program + ": script/bootstrap installs it");

    const bool root = geteuid() == 0;
    Texts names = {{"{dir}", std::filesystem::path(directory.path("")).parent_path()},
                   {"{user}", root ? "nobody" : getpwuid(geteuid())->pw_name},
                   {"{group}", root ? "nogroup" : getgrgid(getegid())->gr_name}};
    for (std::size_t i = 0; i < portCount; ++i)
        names["{" + std::to_string(i) + "}"] = std::to_string(ports[i]);
    const auto fill = [&](std::string text) {
        for (const auto& [name, value] : names) {
            for (std::size_t at = 0; (at = text.find(name, at)) != std::string::npos;)
                text.replace(at, name.size(), value);
        }
        return text;
    };
    for (const auto& [name, text] : files)
        std::ofstream(directory.path(name)) << fill(text);

    // What loses its parent comes to this process, which can wait for its end then.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const std::string whole = fill(script + command + " {dir}/configuration");
    process = std::make_unique<support::Process>(
        support::ProcessOptions{.program = "/usr/bin/setsid",
                                .arguments = {"sh", "-c", whole},
                                .output = support::Channel::nullDevice,
                                .error = support::Channel::nullDevice});
    if (!becomesReady())
        throw std::runtime_error(program + " doesn't listen");
}

Server::~Server()
{
    if (testing::Test::HasFailure() || std::uncaught_exceptions() > 0)
        std::cerr << "The log of the server:\n" << std::ifstream(directory.path("log")).rdbuf();
    if (process) {
        const pid_t group = process->id();
        kill(-group, SIGKILL);
        process.reset();  // which kills it once more, in case it hadn't made its group yet
        while (waitpid(-group, nullptr, 0) > 0) {
        }
    }
    for (const int holder : holders)
        close(holder);
}

bool Server::becomesReady() const
{
    const support::Deadline deadline = support::usualLimit();
    for (const std::uint16_t port : ports) {
        while (close(onLoopback(connect, SOCK_STREAM, port)) != 0) {
            siginfo_t end{};
            waitid(P_PID, static_cast<id_t>(process->id()), &end, WEXITED | WNOHANG | WNOWAIT);
            if (end.si_pid != 0 || std::chrono::steady_clock::now() > deadline)
                return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    return true;
}

}  // namespace servers
