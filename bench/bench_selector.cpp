// What it costs to hand out one selectable while others are registered and idle.
//
// The argument is the number of idle members: streams with a read under way on an empty pipe, and
// as many timers that are not due. The cost must not grow with it.
#include "io/Pipe.h"
#include "io/Selector.h"
#include "io/Timer.h"

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

namespace {

struct PipeEnds {
    PipeEnds()
    {
        if (pipe(ends.data()) != 0)
            throw std::runtime_error("no pipe");
    }
    std::array<int, 2> ends{};
};

// The selector with its idle members, and a stream that gets bytes.
struct Crowd {
    explicit Crowd(std::int64_t idle) : timers(static_cast<std::size_t>(idle))
    {
        platform::raiseDescriptorLimit();
        const Time later = Time::now() + Time(100000, 0);
        for (std::size_t i = 0; i < timers.size(); ++i) {
            streams.push_back(std::make_unique<io::PipeIStream>(
                "idle", platform::adoptDescriptor(dup(empty.ends[0]))));
            selector.add(streams.back().get(), -1);
            timers[i].when = later + Time(static_cast<std::int32_t>(i), 0);
            selector.add(&timers[i], -1);
        }
        // The first pass starts all the reads.
        io::Timer due;
        due.when = Time::now();
        selector.add(&due, 0);
        selector.poll();
    }
    ~Crowd()
    {
        for (const int fd : {empty.ends[0], empty.ends[1], full.ends[1]})
            close(fd);
    }

    void sendByte() const
    {
        if (write(full.ends[1], "x", 1) != 1)
            throw std::runtime_error("the pipe is full");
    }
    void takeByte()
    {
        char* data = nullptr;
        in.readCommit(in.readBegin(&data));
    }

    PipeEnds empty;
    PipeEnds full;
    std::vector<std::unique_ptr<io::PipeIStream>> streams;
    std::vector<io::Timer> timers;
    io::PipeIStream in{"in", platform::adoptDescriptor(full.ends[0])};
    io::Selector<int> selector;
};

void expect(benchmark::State& state, bool right)
{
    if (!right)
        state.SkipWithError("the wrong selectable was handed out");
}

// A stream whose bytes nobody takes: the selector alone, without the platform.
void readyStream(benchmark::State& state)
{
    Crowd crowd(state.range(0));
    crowd.selector.add(&crowd.in, 1);
    crowd.sendByte();
    for (auto unused : state) {
        (void)unused;
        expect(state, crowd.selector.poll().second == 1);
    }
}

// A byte through a pipe: write, wait, hand out, read.
void readStream(benchmark::State& state)
{
    Crowd crowd(state.range(0));
    crowd.selector.add(&crowd.in, 1);
    for (auto unused : state) {
        (void)unused;
        crowd.sendByte();
        expect(state, crowd.selector.poll().second == 1);
        crowd.takeByte();
    }
}

// A timer that is due, set anew each time.
void dueTimer(benchmark::State& state)
{
    Crowd crowd(state.range(0));
    io::Timer timer;
    crowd.selector.add(&timer, 1);
    for (auto unused : state) {
        (void)unused;
        timer.when = Time::now();
        expect(state, crowd.selector.poll().second == 1);
        timer.when = Time::infinity;
    }
}

// The same byte, handed out through a front as the queue to the parent does.
void front(benchmark::State& state)
{
    class Front : public io::StackedSelectableFront {
    public:
        using StackedSelectableFront::StackedSelectableFront;
        std::string name() const override { return "front"; }
        void set(bool isReady) { ready = isReady; }
    };
    class Back : public io::StackedSelectableBack {
    public:
        explicit Back(io::Selectable* u) : stream(u) { watchUnderlying(u, true); }
        void underlyingIsReady(io::Selectable* u) override
        {
            watchUnderlying(u, false);
            own.set(true);
        }
        void served()
        {
            own.set(false);
            watchUnderlying(stream, true);
        }
        io::Selectable* stream;
        Front own{this};
    };
    Crowd crowd(state.range(0));
    Back back(&crowd.in);
    crowd.selector.add(&back.own, 1);
    for (auto unused : state) {
        (void)unused;
        crowd.sendByte();
        expect(state, crowd.selector.poll().second == 1);
        crowd.takeByte();
        back.served();
    }
}

// What each log line does: a write to a pipe, and a wait for it while the crowd stands by.
void waitForWrite(benchmark::State& state)
{
    Crowd crowd(state.range(0));
    const PipeEnds ends;
    io::PipeOStream out("out", platform::adoptDescriptor(ends.ends[1]));
    std::array<char, 4096> taken;
    crowd.selector.add(&crowd.in, 1);
    for (auto unused : state) {
        (void)unused;
        char* space = nullptr;
        out.writeBegin(&space);
        std::memset(space, 'x', 100);
        out.writeCommit(100);
        out.waitReady();
        benchmark::DoNotOptimize(read(ends.ends[0], taken.data(), taken.size()));
    }
    close(ends.ends[0]);
}

BENCHMARK(readyStream)->RangeMultiplier(10)->Range(10, 10000);
BENCHMARK(readStream)->RangeMultiplier(10)->Range(10, 10000);
BENCHMARK(dueTimer)->RangeMultiplier(10)->Range(10, 10000);
BENCHMARK(front)->RangeMultiplier(10)->Range(10, 10000);
BENCHMARK(waitForWrite)->RangeMultiplier(10)->Range(10, 10000);

}  // namespace
