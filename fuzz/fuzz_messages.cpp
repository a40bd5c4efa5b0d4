// A stream of messages from a hostile peer, read by the message classes themselves.
//
// fuzz_ber watches every step of the reader, and so keeps the classes from taking whole primitives
// at once. Here nothing stands between. The input is that of fuzz_ber:
//     0      bit 0: the old numbering; bit 1: within narrow limits; bits 2 - 5: a count
//     1      so many bytes: sizes, less 1
//     1 + n  the stream
// It is read at once, a byte at a time and in pieces of those sizes, and once more through values
// that take no primitive at once. All must give the same messages, or fail with the same words at
// the same place.
//
// Messages of which all is there are written in both numberings: byte for byte, into memory that
// holds everything, and into memory lent in pieces of those sizes. All must give the same bytes.

#include "fuzz/Lines.h"
#include "protocol/BerReader.h"
#include "protocol/Messages.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using namespace protocol;
using Sizes = std::vector<std::size_t>;

// Counts the children of a value that can have some, and of all within it. Knows no readChild().
class Counted final : public BerConstructed {
public:
    // `*allThere` becomes false if something is absent that writing insists on: the owned members
    // of an older peer.
    Counted(BerChild counted, bool* allThere) : value(std::move(counted)), isWhole(allThere) {}
    std::unique_ptr<BerValue> clone() const override { return value->clone(); }
    BerTag tag(bool legacy) const override { return value->tag(legacy); }
    bool operator==(const BerValue& other) const override { return *value == other; }
    bool operator<(const BerValue& other) const override { return *value < other; }
    bool operator>(const BerValue& other) const override { return *value > other; }
    void write(BerOutput& output, bool legacy) const override { value->write(output, legacy); }
    std::size_t requiredChildren() const override { return constructed().requiredChildren(); }
    bool isRepeated() const override { return constructed().isRepeated(); }
    BerChild child(std::size_t index, BerTag tag, bool legacy) override
    {
        children = index + 1;
        BerChild read = constructed().child(index, tag, legacy);
        if (!read->hasChildren())
            return read;
        return std::make_unique<Counted>(std::move(read), isWhole);
    }
    void readDone() override
    {
        value->readDone();
        if (const auto* message = dynamic_cast<const Message*>(value.get())) {
            const Schema& schema = message->schema();
            for (std::size_t i = children; i < schema.fieldCount; ++i)
                *isWhole &= schema.fields[i].name == nullptr;  // owned ones have names
        }
    }

private:
    BerConstructed& constructed() const { return static_cast<BerConstructed&>(*value); }

    BerChild value;
    bool* isWhole;
    std::size_t children = 0;
};

class CountedProtocol final : public BerProtocol {
public:
    std::unique_ptr<BerValue> create(BerTag tag, bool legacy) const override
    {
        isWhole = true;
        message = guiProtocol().create(tag, legacy);
        return std::make_unique<Counted>(lend(*message), &isWhole);
    }

    mutable std::unique_ptr<BerValue> message;  // the one behind what was created last
    mutable bool isWhole = true;
};

struct Stream {
    std::string_view bytes;
    bool legacy;
    BerReader::Limits limits;
};

struct Outcome {
    std::vector<std::unique_ptr<BerValue>> messages;
    std::string end;  // how and where
};

// Reads the stream in pieces of these sizes, in turn, and gives each message to `take`.
template <class Take>
std::string readIn(const Sizes& pieces, const Stream& stream, const BerProtocol& protocol,
                   Take take)
{
    std::string end;
    BerReader reader(protocol, stream.legacy, stream.limits);
    try {
        std::string_view bytes = stream.bytes;
        for (std::size_t i = 0; !bytes.empty(); ++i) {
            const std::size_t size = std::min(bytes.size(), pieces[i % pieces.size()]);
            // A copy that ends with the piece, so that to read beyond it is a fault.
            const std::vector<char> piece(bytes.begin(), bytes.begin() + size);
            std::string_view rest(piece.data(), piece.size());
            while (auto message = reader.read(&rest))
                take(std::move(message));
            bytes.remove_prefix(size);
        }
        end = reader.inMessage() ? "..." : "";
    } catch (const EBer& e) {
        end = e.text();
    }
    return end + " @" + std::to_string(reader.offset());
}

Outcome readIn(const Sizes& pieces, const Stream& stream)
{
    Outcome outcome;
    outcome.end = readIn(pieces, stream, guiProtocol(), [&](std::unique_ptr<BerValue> message) {
        outcome.messages.push_back(std::move(message));
    });
    return outcome;
}

// Lends memory in pieces of these sizes, in turn; none if there are no sizes.
class Areas final : public BerOutput {
public:
    explicit Areas(Sizes ofAreas) : sizes(std::move(ofAreas)) { lendNext(); }
    void write(const char* bytes, std::size_t count) override
    {
        collect();
        taken.append(bytes, count);
        lendNext();
    }
    std::string collect()
    {
        if (!area.empty())
            taken.append(area.data(), next);
        next = limit = nullptr;
        area.clear();
        return taken;
    }

private:
    void lendNext()
    {
        if (sizes.empty())
            return;
        // A new one, so that to write beyond it is a fault.
        area = std::vector<char>(sizes[lent++ % sizes.size()]);
        next = area.data();
        limit = next + area.size();
    }

    Sizes sizes;
    std::size_t lent = 0;
    std::vector<char> area;
    std::string taken;
};

// A NaN differs from itself; what is written tells more of it.
bool alike(const BerValue& a, const BerValue& b)
{
    return a == b || !(b == b);
}

std::string written(const BerValue& message, bool legacy, const Sizes& areas)
{
    Areas output(areas);
    std::string error;
    try {
        message.write(output, legacy);
    } catch (const EBer& e) {
        error = e.text();  // a number that was absent, and whose bounds exclude 0
    }
    return output.collect() + error;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    if (rest.empty())
        return 0;
    const unsigned choice = data[0];
    rest.remove_prefix(1);
    Sizes sizes;
    for (const char less : rest.substr(0, choice >> 2U & 15U))
        sizes.push_back(static_cast<unsigned char>(less) + std::size_t{1});
    rest.remove_prefix(sizes.size());
    if (sizes.empty())
        sizes.push_back(2);
    Stream stream{.bytes = rest, .legacy = (choice & 1U) != 0, .limits = {}};
    if ((choice & 2U) != 0)
        stream.limits = {.depth = 5, .messageSize = 40};

    const Outcome whole = readIn({rest.size() + 1}, stream);
    for (const Sizes& pieces : {Sizes{1}, sizes}) {
        const Outcome inPieces = readIn(pieces, stream);
        require(inPieces.end == whole.end, "the pieces show in the end");
        require(inPieces.messages.size() == whole.messages.size(), "the pieces show in the count");
        for (std::size_t i = 0; i < whole.messages.size(); ++i)
            require(alike(*inPieces.messages[i], *whole.messages[i]),
                    "the pieces show in a message");
    }

    std::size_t read = 0;
    const CountedProtocol counted;
    const std::string end =
        readIn({rest.size() + 1}, stream, counted, [&](const std::unique_ptr<BerValue>&) {
            require(read < whole.messages.size(), "a message too many");
            const BerValue& message = *whole.messages[read++];
            require(alike(message, *counted.message), "to take a primitive at once shows");
            for (const bool legacy : {false, true}) {
                if (!counted.isWhole)
                    break;
                const std::string bytes = written(message, legacy, {});
                require(written(*counted.message, legacy, {}) == bytes, "two forms of a message");
                require(written(message, legacy, {bytes.size() + 1000}) == bytes &&
                            written(message, legacy, sizes) == bytes,
                        "the memory that is lent shows");
            }
        });
    require(read == whole.messages.size() && end == whole.end, "to take one at once shows at last");
    return 0;
}
