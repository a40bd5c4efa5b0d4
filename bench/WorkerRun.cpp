#include "WorkerRun.h"

#include "failure.h"

#include <chrono>
#include <fstream>
#include <sstream>
#include <string_view>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int silenceMs = 60000;

template <class T>
void put(std::string* bytes, T value)
{
    bytes->append(reinterpret_cast<const char*>(&value), sizeof value);
}

// A CHECK_REQUEST frame. The time limit is far away.
std::string requestFrame(std::uint32_t id, const CheckKind& kind, std::uint16_t port)
{
    std::string frame;
    put<std::int32_t>(&frame, 134);  // CHECK_REQUEST
    put<std::int32_t>(&frame, -1);
    put<std::int32_t>(&frame, 0);
    put<std::int32_t>(&frame, 0);
    put<std::uint64_t>(&frame, 9);
    frame += "localhost";
    put<std::uint32_t>(&frame, htonl(INADDR_LOOPBACK));
    put<std::int32_t>(&frame, 1);  // one number in the identifier
    put<std::uint32_t>(&frame, id);
    put<std::int32_t>(&frame, kind.service);
    put<std::uint32_t>(&frame, port);
    put<std::uint32_t>(&frame, 60);
    put<std::int32_t>(&frame, 0);      // no warning threshold
    put<std::int32_t>(&frame, 60000);  // milliseconds
    put<std::uint64_t>(&frame, 0);
    return frame + kind.settings;
}

// Cuts the worker's output into frames, and checks the results.
class ResultReader {
public:
    ResultReader(const CheckKind& itsKind, std::size_t total) : kind(itsKind), seen(total) {}

    std::size_t results = 0;

    void take(const char* data, std::size_t count)
    {
        bytes.append(data, count);
        std::size_t at = 0;
        while (const std::size_t length = frameLength(at))
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
        const std::size_t available = bytes.size() - at;
        if (available < 28)
            return 0;
        const auto type = get<std::int32_t>(at);
        if (type == 4) {  // SYSTEM_LOG_REQUEST
            const std::size_t length = 16 + 8 + get<std::uint64_t>(at + 16) + 4;
            if (available < length)
                return 0;
            if (get<std::int32_t>(at + length - 4) == 0)
                lastLine.assign(bytes, at + 24, length - 28);
            return length;
        }
        if (type != 135)  // CHECK_RESULT
            throw std::runtime_error("unexpected event " + std::to_string(type));
        return resultLength(at, available);
    }

    std::size_t resultLength(std::size_t at, std::size_t available)
    {
        constexpr std::size_t beforeStrings = 44;  // with one number in the identifier
        if (available < beforeStrings + 4)
            return 0;
        const auto strings = get<std::uint32_t>(at + beforeStrings);
        std::size_t length = beforeStrings + 4;
        for (std::uint32_t i = 0; i < strings; ++i) {
            if (available < length + 8)
                return 0;
            length += 8 + get<std::uint64_t>(at + length);
        }
        if (available < length)
            return 0;

        const auto result = get<std::int32_t>(at + 32);
        if (result != 0)
            throw std::runtime_error("a result " + std::to_string(result) +
                                     " instead of 0; the last log line is \"" + lastLine + "\"");
        if (strings != kind.resultStrings)
            throw std::runtime_error("a result with " + std::to_string(strings) + " strings");
        const auto id = get<std::uint32_t>(at + 28);
        if (get<std::int32_t>(at + 24) != 1 || id >= seen.size() || seen[id])
            throw std::runtime_error("a result that nobody has asked for");
        seen[id] = true;
        ++results;
        return length;
    }

    const CheckKind& kind;
    std::vector<bool> seen;  // by identifier
    std::string bytes;
    std::string lastLine;  // of the ordinary ones
};

class Worker {
public:
    Worker(const CheckKind& itsKind, std::size_t total, const std::string& program)
        : kind(itsKind), reader(itsKind, total), input(1 << 16)
    {
        int toWorker[2];
        int fromWorker[2];
        if (pipe2(toWorker, O_CLOEXEC) != 0 || pipe2(fromWorker, O_CLOEXEC) != 0)
            failCall("pipe");
        pid = fork();
        if (pid == 0) {
            dup2(toWorker[0], 0);
            dup2(fromWorker[1], 1);
            execl(program.c_str(), program.c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        close(toWorker[0]);
        close(fromWorker[1]);
        to = toWorker[1];
        from = fromWorker[0];
        fcntl(to, F_SETFL, O_NONBLOCK);
        fcntl(from, F_SETFL, O_NONBLOCK);
    }
    // Not the end of a measurement: it ends with the process as a whole.
    ~Worker()
    {
        close(to);
        close(from);
    }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    pid_t process() const { return pid; }
    std::size_t sent() const { return requests; }
    std::size_t results() const { return reader.results; }

    void request(const Service& service)
    {
        const auto id = static_cast<std::uint32_t>(requests++);
        const auto& ports = service.ports();
        outgoing += requestFrame(id, kind, ports[id % ports.size()]);
    }

    // Writes and reads what can be written and read, once something can be. False: nothing could
    // in this time.
    bool exchange(int timeoutMs)
    {
        pollfd waits[2] = {{from, POLLIN, 0},
                           {to, static_cast<short>(outgoing.empty() ? 0 : POLLOUT), 0}};
        if (poll(waits, 2, timeoutMs) == 0)
            return false;
        if (waits[0].revents != 0) {
            const ssize_t count = read(from, input.data(), input.size());
            if (count == 0)
                throw std::runtime_error("the worker died");
            if (count > 0)
                reader.take(input.data(), static_cast<std::size_t>(count));
        }
        if (!outgoing.empty()) {
            const ssize_t count = write(to, outgoing.data(), outgoing.size());
            if (count > 0)
                outgoing.erase(0, static_cast<std::size_t>(count));
        }
        return true;
    }

    void exchangeOrFail()
    {
        if (!exchange(silenceMs))
            throw std::runtime_error("the worker says nothing more");
    }

    // Ends the worker's input, and takes what it still has to say: the last log line must not find
    // a closed pipe.
    void endInput()
    {
        close(to);
        to = -1;
        pollfd rest{from, POLLIN, 0};
        while (poll(&rest, 1, silenceMs) > 0 && read(from, input.data(), input.size()) > 0) {
        }
    }

private:
    const CheckKind& kind;
    ResultReader reader;
    std::vector<char> input;
    std::string outgoing;
    std::size_t requests = 0;
    pid_t pid = -1;
    int to = -1;
    int from = -1;
};

// A value in KiB out of a file of a process in /proc.
double kibibytesOf(pid_t process, const char* file, std::string_view label)
{
    std::ifstream lines("/proc/" + std::to_string(process) + "/" + file);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.starts_with(label))
            return std::stod(line.substr(label.size()));
    }
    throw std::runtime_error("there is no figure for " + std::string(label));
}

bool sleeps(pid_t process)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string number;
    std::string name;
    char state = 0;
    file >> number >> name >> state;
    return state == 'S';
}

// Resident memory once the worker has nothing more to do: it is asleep, has said nothing, and that
// several times in a row. The sum over the mappings is exact; other counters are not.
double memoryAtRest(Worker* worker)
{
    for (int quiet = 0; quiet < 5;)
        quiet = !worker->exchange(2) && sleeps(worker->process()) ? quiet + 1 : 0;
    return kibibytesOf(worker->process(), "smaps_rollup", "Rss:");
}

}  // namespace

Measurement collect(pid_t process, double seconds, std::size_t checks)
{
    int status = 0;
    rusage usage{};
    if (wait4(process, &status, 0, &usage) != process)
        failCall("wait4");
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        throw std::runtime_error("a measured process did not end with exit code 0");
    const auto microseconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
    };
    Measurement result;
    result.seconds = seconds;
    result.processorMicroseconds =
        (microseconds(usage.ru_utime) + microseconds(usage.ru_stime)) / static_cast<double>(checks);
    return result;
}

Measurement measureWorker(const Load& load, Service* service, const std::string& program)
{
    service->hold(load.toHold());
    Worker worker(load.kind, load.total, program);
    const auto start = Clock::now();
    while (worker.results() < load.total) {
        while (worker.sent() < load.total && worker.sent() - worker.results() < load.atOnce) {
            worker.request(*service);
            if (worker.sent() == load.total)
                service->hold(0);
        }
        worker.exchangeOrFail();
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    // Its resource usage would count what it inherited before exec.
    const double peak = kibibytesOf(worker.process(), "status", "VmHWM:") / 1024;
    worker.endInput();
    Measurement result = collect(worker.process(), seconds, load.total);
    result.peakMiB = peak;
    return result;
}

std::optional<double> measureMemory(const Load& load, Service* service, const std::string& program)
{
    if (load.atOnce == 1)
        return std::nullopt;
    Worker worker(load.kind, load.atOnce + 1, program);
    const auto finish = [&] {
        service->hold(0);
        while (worker.results() < worker.sent())
            worker.exchangeOrFail();
    };
    // One check first: what the first one of a process loads or makes once isn't counted.
    worker.request(*service);
    finish();
    const double idle = memoryAtRest(&worker);

    service->hold(load.atOnce);
    for (std::size_t i = 0; i < load.atOnce; ++i)
        worker.request(*service);
    for (int quietMs = 0; service->held() < load.atOnce;) {
        quietMs = worker.exchange(1) ? 0 : quietMs + 1;
        if (quietMs > silenceMs)
            throw std::runtime_error("the checks don't come to the last step");
    }
    const double running = memoryAtRest(&worker);
    finish();
    worker.endInput();
    collect(worker.process(), 0, 1);
    return (running - idle) / static_cast<double>(load.atOnce);
}

}  // namespace bench
