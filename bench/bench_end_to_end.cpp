// Drives the real worker with many checks at once against a listener on loopback, and beside it a
// bare epoll loop that does the same on the network: connect, end the sending side, wait for the
// peer's end, close. The bare loop is the floor: what it costs, no checker can save.
//
//   driver (this process)  writes requests to the worker, reads its results and log lines
//   listener (a thread)    accepts; holds nearly `at once` connections before it closes the
//                          oldest, so that as many checks are really under way together
//   worker, bare loop      a process each; their processor time and peak memory are measured
//
// The driver speaks the frame format by itself, with no code of the worker.

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void fail(const std::string& what)
{
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

// Many ports, so that connections in TIME_WAIT never use up the local ports of one target.
constexpr int portCount = 32;

struct Target {
    std::uint32_t address = htonl(INADDR_LOOPBACK);
    std::uint16_t port = 0;
};

// Accepts on all ports, and closes the oldest connection once more than `hold` are open and the
// peer has ended its side.
class Listener {
public:
    Listener()
    {
        poller = epoll_create1(EPOLL_CLOEXEC);
        wake = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
        watch(wake, EPOLLIN);
        for (int i = 0; i < portCount; ++i)
            openPort();
        thread = std::thread([this] { run(); });
    }

    ~Listener()
    {
        stopping = true;
        nudge();
        thread.join();
        for (int listener : listeners)
            ::close(listener);
        ::close(wake);
        ::close(poller);
    }

    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    const std::vector<Target>& targets() const { return addresses; }

    void hold(std::size_t connections)
    {
        held = connections;
        nudge();
    }

private:
    void openPort()
    {
        int listener = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        sockaddr_in name{};
        name.sin_family = AF_INET;
        name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (bind(listener, reinterpret_cast<sockaddr*>(&name), sizeof name) != 0 ||
            listen(listener, 4096) != 0)
            fail("listen");
        socklen_t length = sizeof name;
        getsockname(listener, reinterpret_cast<sockaddr*>(&name), &length);
        addresses.push_back({name.sin_addr.s_addr, ntohs(name.sin_port)});
        listeners.push_back(listener);
        watch(listener, EPOLLIN);
    }

    void watch(int descriptor, std::uint32_t events) const
    {
        epoll_event event{};
        event.events = events;
        event.data.fd = descriptor;
        if (epoll_ctl(poller, EPOLL_CTL_ADD, descriptor, &event) != 0)
            fail("epoll_ctl");
    }

    void nudge() const
    {
        std::uint64_t one = 1;
        if (write(wake, &one, sizeof one) < 0 && errno != EAGAIN)
            fail("eventfd");
    }

    void run()
    {
        std::vector<epoll_event> events(512);
        while (!stopping) {
            int count = epoll_wait(poller, events.data(), static_cast<int>(events.size()), -1);
            for (int i = 0; i < count; ++i) {
                int ready = events[static_cast<std::size_t>(i)].data.fd;
                if (ready == wake) {
                    std::uint64_t ignored = 0;
                    while (read(wake, &ignored, sizeof ignored) > 0) {
                    }
                } else {
                    acceptAll(ready);
                }
            }
            while (open.size() > held) {
                ::close(open.front());
                open.pop_front();
            }
        }
        for (int connection : open)
            ::close(connection);
    }

    void acceptAll(int listener)
    {
        for (;;) {
            int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (connection < 0)
                return;
            open.push_back(connection);
        }
    }

    int poller = -1;
    int wake = -1;
    std::vector<int> listeners;
    std::vector<Target> addresses;
    std::deque<int> open;
    std::atomic<std::size_t> held{0};
    std::atomic<bool> stopping{false};
    std::thread thread;
};

struct Load {
    std::size_t atOnce;
    std::size_t total;
};

struct Measurement {
    double seconds = 0;
    double processorMicroseconds = 0;  // user and system, per check
    double peakMiB = 0;
    std::size_t notOk = 0;
};

double toMicroseconds(const timeval& time)
{
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
}

Measurement collect(int pid, double seconds, std::size_t checks)
{
    int status = 0;
    rusage usage{};
    if (wait4(pid, &status, 0, &usage) != pid)
        fail("wait4");
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        throw std::runtime_error("the measured process did not end with exit code 0");
    Measurement result;
    result.seconds = seconds;
    result.processorMicroseconds =
        (toMicroseconds(usage.ru_utime) + toMicroseconds(usage.ru_stime)) /
        static_cast<double>(checks);
    return result;
}

// The peak of a running process. Its resource usage would count what it inherited before exec.
double peakMiB(int pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line))
        if (line.starts_with("VmHWM:"))
            return std::stod(line.substr(6)) / 1024;
    return 0;
}

template <class T>
void put(std::string& bytes, T value)
{
    bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

// A CHECK_REQUEST frame for a generic TCP check.
std::string request(std::uint32_t id, const Target& target)
{
    std::string frame;
    put<std::int32_t>(frame, 134);  // CHECK_REQUEST
    put<std::int32_t>(frame, -1);
    put<std::int32_t>(frame, 0);
    put<std::int32_t>(frame, 0);
    put<std::uint64_t>(frame, 9);
    frame += "localhost";
    put<std::uint32_t>(frame, target.address);
    put<std::int32_t>(frame, 1);  // one number in the identifier
    put<std::uint32_t>(frame, id);
    put<std::int32_t>(frame, 6);  // generic TCP
    put<std::uint32_t>(frame, target.port);
    put<std::uint32_t>(frame, 60);
    put<std::int32_t>(frame, 0);      // no warning threshold
    put<std::int32_t>(frame, 60000);  // milliseconds
    put<std::uint64_t>(frame, 0);
    put<std::int32_t>(frame, 0);  // no properties
    return frame;
}

// Cuts the worker's output into frames and counts the results.
class ResultCounter {
public:
    std::size_t results = 0;
    std::size_t notOk = 0;

    void take(const char* data, std::size_t count)
    {
        bytes.append(data, count);
        std::size_t at = 0;
        while (std::size_t length = frameLength(at))
            at += length;
        bytes.erase(0, at);
    }

private:
    template <class T>
    T get(std::size_t at) const
    {
        T value;
        std::memcpy(&value, bytes.data() + at, sizeof value);
        return value;
    }

    // The length of the frame that begins at `at`, 0 if it is not whole yet.
    std::size_t frameLength(std::size_t at)
    {
        std::size_t available = bytes.size() - at;
        if (available < 28)
            return 0;
        auto type = get<std::int32_t>(at);
        if (type == 4) {  // SYSTEM_LOG_REQUEST
            std::size_t length = 16 + 8 + get<std::uint64_t>(at + 16) + 4;
            return available < length ? 0 : length;
        }
        if (type != 135)  // CHECK_RESULT
            throw std::runtime_error("unexpected event " + std::to_string(type));
        std::size_t result = 28 + 4 * get<std::uint32_t>(at + 24);
        if (available < result + 16)
            return 0;
        if (get<std::uint32_t>(at + result + 12) != 0)
            throw std::runtime_error("unexpected result strings");
        ++results;
        if (get<std::int32_t>(at + result) != 0)
            ++notOk;
        return result + 16;
    }

    std::string bytes;
};

Measurement measureWorker(const Load& load, Listener& listener, const char* worker)
{
    int toWorker[2];
    int fromWorker[2];
    if (pipe2(toWorker, O_CLOEXEC) != 0 || pipe2(fromWorker, O_CLOEXEC) != 0)
        fail("pipe");
    int pid = fork();
    if (pid == 0) {
        dup2(toWorker[0], 0);
        dup2(fromWorker[1], 1);
        execl(worker, worker, static_cast<char*>(nullptr));
        _exit(127);
    }
    close(toWorker[0]);
    close(fromWorker[1]);
    fcntl(toWorker[1], F_SETFL, O_NONBLOCK);
    fcntl(fromWorker[0], F_SETFL, O_NONBLOCK);

    ResultCounter counter;
    std::string outgoing;
    std::size_t sent = 0;
    std::vector<char> buffer(1 << 16);
    auto start = Clock::now();
    while (counter.results < load.total) {
        while (sent < load.total && sent - counter.results < load.atOnce) {
            outgoing +=
                request(static_cast<std::uint32_t>(sent), listener.targets()[sent % portCount]);
            if (++sent == load.total)
                listener.hold(0);
        }
        pollfd waits[2] = {{fromWorker[0], POLLIN, 0},
                           {toWorker[1], static_cast<short>(outgoing.empty() ? 0 : POLLOUT), 0}};
        if (poll(waits, 2, 60000) == 0)
            throw std::runtime_error("the worker says nothing more");
        if (waits[0].revents != 0) {
            ssize_t count = read(fromWorker[0], buffer.data(), buffer.size());
            if (count == 0)
                throw std::runtime_error("the worker died");
            if (count > 0)
                counter.take(buffer.data(), static_cast<std::size_t>(count));
        }
        if (!outgoing.empty()) {
            ssize_t count = write(toWorker[1], outgoing.data(), outgoing.size());
            if (count > 0)
                outgoing.erase(0, static_cast<std::size_t>(count));
        }
    }
    double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    double peak = peakMiB(pid);
    close(toWorker[1]);
    // The last log line must not find a closed pipe.
    pollfd rest{fromWorker[0], POLLIN, 0};
    while (poll(&rest, 1, 10000) > 0 && read(fromWorker[0], buffer.data(), buffer.size()) > 0) {
    }
    close(fromWorker[0]);
    Measurement result = collect(pid, seconds, load.total);
    result.peakMiB = peak;
    result.notOk = counter.notOk;
    return result;
}

// The same connections without a checker, in a process of its own.
void bareLoop(const Load& load, const std::vector<Target>& targets, int allStarted)
{
    int poller = epoll_create1(EPOLL_CLOEXEC);
    std::size_t started = 0;
    std::size_t ended = 0;
    std::vector<epoll_event> events(512);
    std::vector<bool> connected(65536);
    while (ended < load.total) {
        while (started < load.total && started - ended < load.atOnce) {
            const Target& target = targets[started % targets.size()];
            int connection = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
            sockaddr_in name{};
            name.sin_family = AF_INET;
            name.sin_addr.s_addr = target.address;
            name.sin_port = htons(target.port);
            if (connection < 0 ||
                (connect(connection, reinterpret_cast<sockaddr*>(&name), sizeof name) != 0 &&
                 errno != EINPROGRESS))
                fail("connect");
            epoll_event event{};
            event.events = EPOLLIN | EPOLLOUT | EPOLLRDHUP | EPOLLET;
            event.data.fd = connection;
            epoll_ctl(poller, EPOLL_CTL_ADD, connection, &event);
            if (++started == load.total && write(allStarted, "x", 1) != 1)
                fail("write");
        }
        int count = epoll_wait(poller, events.data(), static_cast<int>(events.size()), -1);
        for (int i = 0; i < count; ++i) {
            const epoll_event& event = events[static_cast<std::size_t>(i)];
            auto index = static_cast<std::size_t>(event.data.fd);
            if (!connected[index] && (event.events & EPOLLOUT) != 0) {
                connected[index] = true;
                shutdown(event.data.fd, SHUT_WR);
            }
            char byte;
            if ((event.events & EPOLLIN) != 0 && recv(event.data.fd, &byte, 1, 0) == 0) {
                close(event.data.fd);
                connected[index] = false;
                ++ended;
            }
        }
    }
}

Measurement measureBareLoop(const Load& load, Listener& listener)
{
    int started[2];
    if (pipe2(started, O_CLOEXEC) != 0)
        fail("pipe");
    auto start = Clock::now();
    int pid = fork();
    if (pid == 0) {
        bareLoop(load, listener.targets(), started[1]);
        _exit(0);
    }
    close(started[1]);
    char byte;
    if (read(started[0], &byte, 1) == 1)
        listener.hold(0);
    close(started[0]);
    siginfo_t ended{};
    waitid(P_PID, static_cast<id_t>(pid), &ended, WEXITED | WNOWAIT);
    double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    return collect(pid, seconds, load.total);
}

void run(const char* worker)
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);

    std::printf("%-8s %7s | %10s %10s %9s %6s | %10s %10s | %s\n", "kind", "at once", "checks/s",
                "us CPU", "peak MiB", "not ok", "bare/s", "us CPU", "CPU ratio");
    for (std::size_t atOnce : {1, 100, 1000, 10000}) {
        Load load{atOnce, std::max<std::size_t>(4 * atOnce, atOnce == 1 ? 5000 : 20000)};
        std::size_t hold = atOnce - atOnce / 10 - 1;

        Listener listener;
        listener.hold(hold);
        Measurement bare = measureBareLoop(load, listener);
        listener.hold(hold);
        Measurement ours = measureWorker(load, listener, worker);

        auto checks = static_cast<double>(load.total);
        std::printf("%-8s %7zu | %10.0f %10.1f %9.1f %6zu | %10.0f %10.1f | %9.2f\n", "tcp", atOnce,
                    checks / ours.seconds, ours.processorMicroseconds, ours.peakMiB, ours.notOk,
                    checks / bare.seconds, bare.processorMicroseconds,
                    ours.processorMicroseconds / bare.processorMicroseconds);
        std::fflush(stdout);
    }
}

}  // namespace

int main(int argc, char** argv)
{
    signal(SIGPIPE, SIG_IGN);
    try {
        run(argc > 1 ? argv[1] : NETCHECK_WORKER);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench_end_to_end: %s\n", e.what());
        return 1;
    }
    return 0;
}
