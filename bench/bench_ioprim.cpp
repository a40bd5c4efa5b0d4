// Events per second through the wire encoding, in memory. Writing includes the flush, reading the
// making of the event.

#include "MemoryStreams.h"
#include "common/log.h"
#include "queues/event.h"
#include "queues/records/control.h"
#include "queues/records/remcheck.h"
#include "queues/records/services.h"
#include "queues/typeForms.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include <benchmark/benchmark.h>

namespace {

using queues::devent;
using queues::queue_t;

std::unique_ptr<queues::event> request(std::uint32_t properties)
{
    remcheck::remcheck_conf conf{.host = "www.example.com",
                                 .addr = 0x0100000A,
                                 .id = {1, 20, 300},
                                 .service = services::SERVICE_HTTP,
                                 .port = 80,
                                 .frequency = 60,
                                 .warnIfAbove = 1000,
                                 .alertIfAbove = 2000,
                                 .libssl = "",
                                 .properties = {}};
    for (std::uint32_t number = 0; number < properties; ++number) {
        auto& property = conf.properties[500 + number];
        if (number % 3 == 0)
            property.reset(std::make_unique<tql::property_boolean_t>(500 + number, true));
        else
            property.reset(
                std::make_unique<tql::property_string_t>(500 + number, "^[23][0-9][0-9]$"));
    }
    return std::make_unique<devent<queues::CHECK_REQUEST, remcheck::remcheck_conf>>(
        queue_t::none, 0, std::move(conf));
}

std::unique_ptr<queues::event> result()
{
    return std::make_unique<devent<queues::CHECK_RESULT, services::remcheck_stat>>(
        queue_t::none, 0,
        services::remcheck_stat{.ctime = 1000000000,
                                .check_id = {1, 20, 300},
                                .result = services::RESULT_OK,
                                .replytime = 25,
                                .attempts = 0,
                                .result_strings = {"HTTP/1.1 200 OK"}});
}

std::unique_ptr<queues::event> logLine()
{
    return std::make_unique<devent<queues::SYSTEM_LOG_REQUEST, control::Log_Request_Data>>(
        queue_t::main, 2,
        control::Log_Request_Data{.msg = "HTTP: Request sent, will wait for reply...",
                                  .log_type = logTrace});
}

void count(benchmark::State& state, std::uint64_t bytes)
{
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}

void write(benchmark::State& state, const std::unique_ptr<queues::event>& e)
{
    bench::Sink sink;
    protocol::ioprim link(nullptr, &sink);
    for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores)
        link << *e;
        link.flush();
    }
    count(state, sink.total);
}

void read(benchmark::State& state, const std::unique_ptr<queues::event>& e)
{
    constexpr int framesInSource = 1000;
    std::string frames = bench::framesOf(*e, framesInSource);
    const std::size_t frameSize = frames.size() / framesInSource;
    bench::Source source(std::move(frames));
    protocol::ioprim link(&source, nullptr);
    for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores)
        std::unique_ptr<queues::event> out;
        link >> out;
        benchmark::DoNotOptimize(out);
    }
    count(state, state.iterations() * frameSize);
}

BENCHMARK_CAPTURE(write, request, request(0));
BENCHMARK_CAPTURE(write, request_12_properties, request(12));
BENCHMARK_CAPTURE(write, result, result());
BENCHMARK_CAPTURE(write, log_line, logLine());
BENCHMARK_CAPTURE(read, request, request(0));
BENCHMARK_CAPTURE(read, request_12_properties, request(12));
BENCHMARK_CAPTURE(read, result, result());
BENCHMARK_CAPTURE(read, log_line, logLine());

}  // namespace

BENCHMARK_MAIN();
