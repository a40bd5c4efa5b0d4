// Records per second through the wire encoding, for the ten most complex payloads, beside a copy
// of the same bytes and, where the build has found it, Protocol Buffers.
//
//   encode/RECORD/ours             the event into areas of 4096 bytes, and the flush
//   encode/RECORD/protobuf         the message into one buffer that is used again
//   decode/RECORD/ours             the event made and freed
//   decode/RECORD/protobuf         the message made and freed
//   decode/RECORD/protobuf_reused  a message that keeps its memory from time to time
//   copy/RECORD/memcpy             the bytes of our frame
//
// `size` is the bytes of a record: of our frame, or of the peer's message. The rates in bytes are
// of these, so between the two only the records per second compare.

#include "EventsRecords.h"
#include "MemoryStreams.h"
#include "queues/event.h"
#ifdef NETCHECK_BENCH_PROTOBUF
#include "EventsPeer.h"
#endif

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

template <class Work>
void add(const std::string& name, std::size_t size, Work work)
{
    benchmark::RegisterBenchmark(name.c_str(), [size, work](benchmark::State& state) {
        work(state);
        const auto records = static_cast<std::int64_t>(state.iterations());
        state.SetItemsProcessed(records);
        state.SetBytesProcessed(records * static_cast<std::int64_t>(size));
        state.counters["size"] = static_cast<double>(size);
    });
}

std::unique_ptr<queues::event> decode(protocol::ioprim& link)
{
    std::unique_ptr<queues::event> result;
    link >> result;
    return result;
}

void requireSame(const std::string& frame, const queues::event& e)
{
    bench::Source source(frame);
    protocol::ioprim link(&source, nullptr);
    if (!(*decode(link) == e))
        throw std::runtime_error("ours: " + eventName(e.type) + " decodes to something else");
}

void addOurs(const std::string& record, const queues::event& e)
{
    const std::string frame = bench::framesOf(e);
    requireSame(frame, e);

    add("encode/" + record + "/ours", frame.size(), [&e](benchmark::State& state) {
        bench::Sink sink;
        protocol::ioprim link(nullptr, &sink);
        for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores)
            link << e;
            link.flush();
        }
    });
    add("decode/" + record + "/ours", frame.size(), [frame](benchmark::State& state) {
        bench::Source source(frame);
        protocol::ioprim link(&source, nullptr);
        for (auto _ : state)  // NOLINT(clang-analyzer-deadcode.DeadStores)
            benchmark::DoNotOptimize(decode(link));
    });
    add("copy/" + record + "/memcpy", frame.size(), [frame](benchmark::State& state) {
        std::string copy(frame.size(), '\0');
        for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores)
            std::memcpy(copy.data(), frame.data(), frame.size());
            benchmark::ClobberMemory();
        }
    });
}

void addPeer([[maybe_unused]] const std::string& record, [[maybe_unused]] const queues::event& e)
{
#ifdef NETCHECK_BENCH_PROTOBUF
    const auto peer = std::make_shared<bench::EventsPeer>(e);
    const std::size_t size = peer->encodedSize();
    add("encode/" + record + "/protobuf", size, [peer](benchmark::State& state) {
        for (auto _ : state)  // NOLINT(clang-analyzer-deadcode.DeadStores)
            peer->encode();
    });
    add("decode/" + record + "/protobuf", size, [peer](benchmark::State& state) {
        for (auto _ : state)  // NOLINT(clang-analyzer-deadcode.DeadStores)
            peer->decodeFresh();
    });
    add("decode/" + record + "/protobuf_reused", size, [peer](benchmark::State& state) {
        for (auto _ : state)  // NOLINT(clang-analyzer-deadcode.DeadStores)
            peer->decodeReused();
    });
#endif
}

}  // namespace

int main(int argc, char** argv)
{
#ifndef NETCHECK_BENCH_PROTOBUF
    std::cerr << "Built without Protocol Buffers (libprotobuf-dev, protobuf-compiler): no peer.\n";
#endif
    const std::vector<bench::NamedEvent> events = bench::complexEvents();
    try {
        for (const bench::NamedEvent& each : events) {
            addOurs(each.record, *each.event);
            addPeer(each.record, *each.event);
        }
    } catch (const std::exception& e) {
        std::cerr << "bench_events: " << e.what() << '\n';
        return 1;
    }
    // In front of those of the caller, which win. MinTime() would show in each name.
    std::string secondsEach = "--benchmark_min_time=0.3";
    std::vector<char*> arguments{argv[0], secondsEach.data()};
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    benchmark::RunSpecifiedBenchmarks();
}
