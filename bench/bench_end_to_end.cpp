// Drives the real worker with many checks at once against a service on loopback, and beside it a
// bare epoll loop that does the same on the network. One row of figures for each kind of check and
// each number at once.
//
//   driver (this process)   writes requests to the worker, reads its results and log lines
//   service                 holds the dialogues of the kind (Service.h)
//   worker, bare client     their processor time and memory are measured
//
// Each is a process of its own, so a row measures the whole machine as much as the worker: with
// fewer than three processors they take turns. A row with many checks leaves connections in
// TIME_WAIT behind. The kernel drops them a minute later, at the cost of whoever runs then, so a
// row that stands out is worth another run.

#include "BareClient.h"
#include "CheckKind.h"
#include "Service.h"
#include "WorkerRun.h"

#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <getopt.h>
#include <sys/resource.h>

namespace {

using bench::CheckKind;

constexpr const char* usage =
    "usage: bench_end_to_end [OPTION]... [WORKER]\n"
    "\n"
    "Runs checks of each kind against services on loopback, with the netcheck of this build or\n"
    "the WORKER named, and again with a bare epoll loop for comparison.\n"
    "\n"
    "  --kinds LIST     only these, separated by commas: %s\n"
    "  --at-once LIST   numbers of checks under way together; default 1,100,1000, and 10000 for\n"
    "                   plain TCP\n"
    "  --total N        checks in each row; default by kind and number at once\n"
    "  --no-bare        no comparison\n"
    "  --no-memory      no memory for each check\n"
    "  --help           this text\n"
    "\n"
    "us CPU     processor time, user and system, of the process for each check\n"
    "peak MiB   most resident memory of the worker\n"
    "KiB each   resident memory for each check, all waiting for the service's last step\n"
    "CPU ratio  processor time of the worker as a multiple of the bare loop's\n";

struct Options {
    std::vector<std::string> kinds = {};
    std::vector<std::size_t> atOnce = {};
    std::size_t total = 0;  // 0: by kind
    bool bare = true;
    bool memory = true;
    std::string worker = NETCHECK_WORKER;
};

std::vector<std::string> splitList(std::string_view list)
{
    std::vector<std::string> items;
    for (;;) {
        const std::size_t end = list.find(',');
        items.emplace_back(list.substr(0, end));
        if (end == list.npos)
            return items;
        list.remove_prefix(end + 1);
    }
}

std::size_t number(std::string_view text)
{
    std::size_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value == 0)
        throw std::invalid_argument("not a number above 0: " + std::string(text));
    return value;
}

std::string kindNames()
{
    std::string names;
    for (const CheckKind& kind : bench::checkKinds())
        names += (names.empty() ? "" : ",") + std::string(kind.name);
    return names;
}

bool isWanted(const CheckKind& kind, const Options& options)
{
    return options.kinds.empty() ||
           std::count(options.kinds.begin(), options.kinds.end(), std::string(kind.name)) != 0;
}

// False: the usage was asked for and given.
bool readOptions(int argc, char** argv, Options* options)
{
    const option known[] = {{"kinds", required_argument, nullptr, 'k'},
                            {"at-once", required_argument, nullptr, 'a'},
                            {"total", required_argument, nullptr, 't'},
                            {"no-bare", no_argument, nullptr, 'b'},
                            {"no-memory", no_argument, nullptr, 'm'},
                            {"help", no_argument, nullptr, 'h'},
                            {}};
    for (int found = 0; (found = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
        switch (found) {
        case 'k':
            options->kinds = splitList(optarg);
            break;
        case 'a':
            for (const std::string& item : splitList(optarg))
                options->atOnce.push_back(number(item));
            break;
        case 't':
            options->total = number(optarg);
            break;
        case 'b':
            options->bare = false;
            break;
        case 'm':
            options->memory = false;
            break;
        case 'h':
            std::printf(usage, kindNames().c_str());
            return false;
        default:
            throw std::invalid_argument("see --help");
        }
    }
    const auto& kinds = bench::checkKinds();
    for (const std::string& name : options->kinds) {
        if (std::none_of(kinds.begin(), kinds.end(), [&](auto& kind) { return name == kind.name; }))
            throw std::invalid_argument("no such kind: " + name);
    }
    if (optind < argc)
        options->worker = argv[optind];
    return true;
}

std::vector<bench::Load> loadsOf(const CheckKind& kind, const Options& options)
{
    std::vector<std::size_t> numbers = options.atOnce;
    if (numbers.empty()) {
        numbers = {1, 100, 1000};
        if (kind.tenThousand)
            numbers.push_back(10000);
    }
    std::vector<bench::Load> loads;
    for (std::size_t atOnce : numbers) {
        std::size_t total = options.total;
        if (total == 0)
            total = atOnce == 1 ? kind.checksAlone : std::max(kind.rounds * atOnce, kind.checks);
        loads.push_back({kind, atOnce, std::max(total, atOnce)});
    }
    return loads;
}

void printRow(const bench::Load& load, const Options& options)
{
    const auto checks = static_cast<double>(load.total);
    bench::Service service(load.kind);
    bench::Measurement bare;
    if (options.bare)
        bare = bench::measureBareClient(load, &service);
    const bench::Measurement ours = bench::measureWorker(load, &service, options.worker);
    std::printf("%-9s %7zu %7zu | %9.0f %9.1f %9.1f", load.kind.name, load.atOnce, load.total,
                checks / ours.seconds, ours.processorMicroseconds, ours.peakMiB);

    std::optional<double> memory;
    if (options.memory)
        memory = bench::measureMemory(load, &service, options.worker);
    if (memory)
        std::printf(" %9.1f |", *memory);
    else
        std::printf(" %9s |", "-");
    if (options.bare)
        std::printf(" %9.0f %9.1f | %9.2f\n", checks / bare.seconds, bare.processorMicroseconds,
                    ours.processorMicroseconds / bare.processorMicroseconds);
    else
        std::printf(" %9s %9s | %9s\n", "-", "-", "-");
    std::fflush(stdout);
}

void run(const Options& options)
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);

    std::printf("%-9s %7s %7s | %9s %9s %9s %9s | %9s %9s | %9s\n", "kind", "at once", "checks",
                "checks/s", "us CPU", "peak MiB", "KiB each", "bare/s", "us CPU", "CPU ratio");
    std::fflush(stdout);
    for (const CheckKind& kind : bench::checkKinds()) {
        if (!isWanted(kind, options))
            continue;
        for (const bench::Load& load : loadsOf(kind, options)) {
            try {
                printRow(load, options);
            } catch (const std::exception& e) {
                throw std::runtime_error(std::string(kind.name) + ", " +
                                         std::to_string(load.atOnce) + " at once: " + e.what());
            }
        }
    }
}

}  // namespace

int main(int argc, char** argv)
{
    signal(SIGPIPE, SIG_IGN);
    try {
        Options options;
        if (readOptions(argc, argv, &options))
            run(options);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench_end_to_end: %s\n", e.what());
        return 1;
    }
    return 0;
}
