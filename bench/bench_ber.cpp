// Messages per second through the encoding of the client protocol, for a large and a small message,
// beside a copy of the same bytes and, where the build has found it, Protocol Buffers.
//
//   write/MESSAGE/ours            into a buffer that is used again
//   write/MESSAGE/protobuf        likewise
//   read/MESSAGE/ours             in pieces as from a stream; the message is made and freed
//   read/MESSAGE/protobuf         likewise
//   read/MESSAGE/protobuf_reused  in pieces, into a message that keeps its memory
//   copy/MESSAGE/memcpy           the bytes of our message
//
// `size` is the bytes of a message, ours or the peer's; `allocations` is how often one run takes
// memory from the heap when others have run before. The rates in bytes are of `size`, so between
// the two only the messages per second compare.

#include "BerAllocations.h"
#include "BerMessages.h"
#include "BerPieces.h"
#include "protocol/BerReader.h"
#ifdef NETCHECK_BENCH_PROTOBUF
#include "BerPeer.h"
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
#include <string_view>
#include <utility>
#include <vector>

namespace {

class Buffer final : public protocol::BerOutput {
public:
    explicit Buffer(std::size_t size) : bytes(size, '\0') { clear(); }
    void write(const char* /*added*/, std::size_t /*count*/) override
    {
        throw std::runtime_error("the buffer is full");
    }
    void clear()
    {
        next = bytes.data();
        limit = next + bytes.size();
    }
    std::string_view written() const
    {
        return std::string_view(bytes).substr(0, static_cast<std::size_t>(next - bytes.data()));
    }

private:
    std::string bytes;
};

std::string bytesOf(const protocol::Message& message)
{
    Buffer buffer(std::size_t{4} << 20U);
    message.write(buffer, false);
    return std::string(buffer.written());
}

std::unique_ptr<protocol::BerValue> readMessage(protocol::BerReader& reader, std::string_view bytes)
{
    while (!bytes.empty()) {
        std::string_view piece = bytes.substr(0, bench::pieceSize);
        bytes.remove_prefix(piece.size());
        if (std::unique_ptr<protocol::BerValue> message = reader.read(&piece))
            return message;
    }
    throw std::runtime_error("ours: the message isn't whole");
}

// `work` is for one message of `size` bytes.
template <class Work>
void add(const std::string& name, std::size_t size, Work work)
{
    benchmark::RegisterBenchmark(name.c_str(), [size, work](benchmark::State& state) {
        work();
        const std::size_t before = bench::allocations();
        work();
        const std::size_t taken = bench::allocations() - before;
        for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores)
            work();
            benchmark::ClobberMemory();
        }
        const auto messages = static_cast<std::int64_t>(state.iterations());
        state.SetItemsProcessed(messages);
        state.SetBytesProcessed(messages * static_cast<std::int64_t>(size));
        state.counters["size"] = static_cast<double>(size);
        state.counters["allocations"] = static_cast<double>(taken);
    });
}

void addOurs(const std::string& name, const protocol::Message& message)
{
    const std::string bytes = bytesOf(message);
    const auto reader = std::make_shared<protocol::BerReader>(protocol::guiProtocol(), false);
    if (!(*readMessage(*reader, bytes) == message))
        throw std::runtime_error("ours: " + name + " reads as something else");

    const auto buffer = std::make_shared<Buffer>(bytes.size());
    add("write/" + name + "/ours", bytes.size(), [&message, buffer] {
        buffer->clear();
        message.write(*buffer, false);
    });
    add("read/" + name + "/ours", bytes.size(),
        [bytes, reader] { benchmark::DoNotOptimize(readMessage(*reader, bytes)); });
    const auto copy = std::make_shared<std::string>(bytes);
    add("copy/" + name + "/memcpy", bytes.size(),
        [bytes, copy] { std::memcpy(copy->data(), bytes.data(), bytes.size()); });
}

template <class Message>
void addPeer([[maybe_unused]] const std::string& name, [[maybe_unused]] const Message& message)
{
#ifdef NETCHECK_BENCH_PROTOBUF
    const auto peer = std::make_shared<bench::BerPeer>(message);
    const std::size_t size = peer->writtenSize();
    add("write/" + name + "/protobuf", size, [peer] { peer->write(); });
    add("read/" + name + "/protobuf", size, [peer] { peer->readFresh(); });
    add("read/" + name + "/protobuf_reused", size, [peer] { peer->readReused(); });
#endif
}

template <class Message>
void addBoth(const std::string& name, const Message& message)
{
    addOurs(name, message);
    addPeer(name, message);
}

}  // namespace

int main(int argc, char** argv)
{
#ifndef NETCHECK_BENCH_PROTOBUF
    std::cerr << "Built without Protocol Buffers (libprotobuf-dev, protobuf-compiler): no peer.\n";
#endif
    const protocol::Response response = bench::selectResponse();
    const protocol::CheckinReq request = bench::checkinRequest();
    try {
        addBoth("Response", response);
        addBoth("CheckinReq", request);
    } catch (const std::exception& e) {
        std::cerr << "bench_ber: " << e.what() << '\n';
        return 1;
    }
    // In front of those of the caller, which win. MinTime() would show in each name.
    std::string secondsEach = "--benchmark_min_time=0.5";
    std::vector<char*> arguments{argv[0], secondsEach.data()};
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    benchmark::RunSpecifiedBenchmarks();
}
