// Messages between two processes: over the sibling messenger, a pipe, and a UNIX socket pair.
//
// One process writes, the other reads. Each message is filled by its writer (copied from
// elsewhere), and a word of each cache line of it is read by its reader; "untouched" leaves both
// out, and so measures the transport alone. "at once" puts so many messages into one write, or one
// block. Throughput counts until the reader has said that it has all. The latency is the time of a
// message there and one of the same size back, one at a time. The pipe and the socket pair are
// used by bare blocking calls, without a selector.
//
//     bench_sibling [SCALE]    how often each count of the table is done; 1 is the default

#include "failure.h"

#include "io/Selector.h"
#include "io/sibling/Child.h"
#include "io/sibling/Parent.h"

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

struct Shape {
    const char* name;
    std::uint64_t size;    // of a write, in bytes
    std::uint64_t batch;   // how many messages it is
    std::uint64_t writes;  // for the throughput
    std::uint64_t trips;   // for the latency
    bool touched;
};

constexpr Shape shapes[] = {
    {"64 B", 64, 1, 400'000, 50'000, true},
    {"64 B, 64 at once", 4096, 64, 200'000, 0, true},
    {"64 B, 1024 at once", 65536, 1024, 20'000, 0, true},
    {"4 KiB", 4096, 1, 200'000, 50'000, true},
    {"1 MiB", 1 << 20, 1, 4'000, 2'000, true},
    {"1 MiB, untouched", 1 << 20, 1, 4'000, 2'000, false},
};
constexpr Shape mark{"", 1, 1, 0, 0, false};  // the reader's word that it has all

constexpr std::uint64_t largest = 1 << 20;
constexpr std::uint64_t cacheLine = 64;

const std::vector<char> content(largest, 'x');
volatile std::uint64_t sink = 0;

void fill(const Shape& shape, char* space, std::uint64_t count)
{
    if (shape.touched)
        std::memcpy(space, content.data(), count);
}

void use(const Shape& shape, const char* data, std::uint64_t count)
{
    if (!shape.touched)
        return;
    std::uint64_t sum = 0;
    for (std::uint64_t at = 0; at < count; at += cacheLine)
        sum += static_cast<unsigned char>(data[at]);
    sink = sum;
}

// One end of a transport.
class End {
public:
    virtual ~End() = default;
    virtual void write(const Shape& shape) = 0;
    virtual void read(const Shape& shape) = 0;
};

// Over a pipe in each direction, or a socket.
class DescriptorEnd : public End {
public:
    DescriptorEnd(int in, int out) : input(in), output(out), buffer(largest) {}

    void write(const Shape& shape) override
    {
        fill(shape, buffer.data(), shape.size);
        for (std::uint64_t done = 0; done != shape.size;)
            done += moved(::write(output, buffer.data() + done, shape.size - done));
    }
    void read(const Shape& shape) override
    {
        for (std::uint64_t done = 0; done != shape.size;)
            done += moved(::read(input, buffer.data() + done, shape.size - done));
        use(shape, buffer.data(), shape.size);
    }

private:
    static std::uint64_t moved(ssize_t count)
    {
        if (count <= 0)
            throw std::runtime_error("The other process has ended");
        return static_cast<std::uint64_t>(count);
    }

    int input;
    int output;
    std::vector<char> buffer;
};

class SiblingEnd : public End {
public:
    SiblingEnd(io::SiblingMessenger* messenger, std::int32_t id) : peer(messenger->sibling(id))
    {
        messages.add(&peer.istream(), 0);
        room.add(&peer.ostream(), 0);
    }

    void write(const Shape& shape) override
    {
        io::SiblingOStream& out = peer.ostream();
        for (std::uint64_t left = shape.size; left != 0;) {
            if (!out.isReady())
                room.poll();
            char* space = nullptr;
            const std::uint64_t count = std::min(out.writeBegin(&space), left);
            fill(shape, space, count);
            out.writeCommit(count);
            left -= count;
        }
    }
    void read(const Shape& shape) override
    {
        io::SiblingIStream& in = peer.istream();
        for (std::uint64_t left = shape.size; left != 0;) {
            if (!in.isReady())
                messages.poll();
            char* data = nullptr;
            const std::uint64_t count = std::min(in.readBegin(&data), left);
            use(shape, data, count);
            in.readCommit(count);
            left -= count;
        }
    }

private:
    io::Sibling peer;
    io::Selector<int> messages;  // one stream each: a ready one would keep the other from its wait
    io::Selector<int> room;
};

struct Figures {
    double messagesPerSecond;
    double bytesPerSecond;
    double halfway;  // microseconds of a round trip, at 50 percent
    double nearly;   // at 99 percent
};

double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void serve(End& end, std::uint64_t scale)
{
    for (const Shape& shape : shapes) {
        for (std::uint64_t i = 0; i != shape.writes * scale; ++i)
            end.read(shape);
        end.write(mark);
        for (std::uint64_t i = 0; i != shape.trips * scale; ++i) {
            end.read(shape);
            end.write(shape);
        }
    }
}

Figures measure(End& end, const Shape& shape, std::uint64_t scale)
{
    const std::uint64_t writes = shape.writes * scale;
    const auto start = std::chrono::steady_clock::now();
    for (std::uint64_t i = 0; i != writes; ++i)
        end.write(shape);
    end.read(mark);
    const double seconds = secondsSince(start);

    std::vector<double> trips(shape.trips * scale);
    for (double& trip : trips) {
        const auto begin = std::chrono::steady_clock::now();
        end.write(shape);
        end.read(shape);
        trip = secondsSince(begin) * 1e6;
    }
    std::sort(trips.begin(), trips.end());
    const auto count = static_cast<double>(writes);
    return {count * static_cast<double>(shape.batch) / seconds,
            count * static_cast<double>(shape.size) / seconds,
            trips.empty() ? 0 : trips[trips.size() / 2],
            trips.empty() ? 0 : trips[trips.size() * 99 / 100]};
}

void report(const char* transport, End& end, std::uint64_t scale)
{
    for (const Shape& shape : shapes) {
        const Figures figures = measure(end, shape, scale);
        std::printf("| %-18s | %-11s | %11.0f | %7.0f |", shape.name, transport,
                    figures.messagesPerSecond, figures.bytesPerSecond / 1e6);
        if (shape.trips != 0)
            std::printf(" %8.1f | %8.1f |\n", figures.halfway, figures.nearly);
        else
            std::printf(" %8s | %8s |\n", "-", "-");
        std::fflush(stdout);
    }
}

// Before the first use of streams: the other process is a copy of this one.
void reportDescriptors(const char* transport, bool isSocket, std::uint64_t scale)
{
    int there[2];
    int back[2];
    if (isSocket ? socketpair(AF_UNIX, SOCK_STREAM, 0, there) != 0
                 : pipe(there) != 0 || pipe(back) != 0)
        bench::failCall("pipe");
    if (isSocket) {
        back[0] = there[1];
        back[1] = there[0];
    }
    const pid_t child = fork();
    if (child == 0)
        bench::runAndExit(transport, [&] {
            DescriptorEnd end(there[0], back[1]);
            serve(end, scale);
        });
    DescriptorEnd end(back[0], there[1]);
    report(transport, end, scale);
    waitpid(child, nullptr, 0);
    for (const int fd : {there[0], there[1]})
        close(fd);
    if (!isSocket) {
        close(back[0]);
        close(back[1]);
    }
}

void reportSiblings(const char* self, std::uint64_t scale)
{
    io::SiblingParent parent({.children = 1, .parentArea = 4 << 20, .childArea = 4 << 20});
    SiblingEnd end(&parent, parent.start(self, {"sibling", std::to_string(scale)}));
    report("messenger", end, scale);
}

}  // namespace

int main(int argc, char** argv)
{
    const std::span arguments(argv, static_cast<std::size_t>(argc));
    try {
        const std::uint64_t scale =
            argc > 1 ? std::strtoull(arguments.back(), nullptr, 10) : std::uint64_t{1};
        if (argc == 3) {
            io::SiblingChild child;
            SiblingEnd end(&child, 0);
            serve(end, scale);
            return 0;
        }
        std::puts(
            "| message            | transport   |  messages/s |    MB/s | trip 50% |      99% |");
        std::puts(
            "|--------------------|-------------|-------------|---------|----------|----------|");
        reportDescriptors("pipe", false, scale);
        reportDescriptors("socket pair", true, scale);
        reportSiblings(arguments[0], scale);
        return 0;
    } catch (const std::exception& e) {
        std::cerr << e.what() << '\n';
    } catch (const error::Exception& e) {
        std::cerr << e.text() << '\n';
    }
    return 1;
}
