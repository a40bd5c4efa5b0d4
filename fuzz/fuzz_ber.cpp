// A stream of messages from a hostile peer.
//
// The input chooses how it is read, and is read:
//     0      bit 0: the old numbering; bit 1: within narrow limits; bits 2 - 5: a count
//     1      so many bytes: sizes of the pieces in which the stream arrives, less 1, in turn
//     1 + n  the stream
// It is read at once, a byte at a time, and in those pieces, through values that note all that
// the reader does with them: the notes must be the same. No value may be left by its parent.
//
// A message that is all there is written and read again, in both numberings, and must stay the
// same.

#include "protocol/BerReader.h"
#include "protocol/Messages.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using namespace protocol;

void require(bool holds, const char* what)
{
    if (!holds) {
        std::cerr << what << '\n';
        std::abort();
    }
}

// About a message.
struct Notes {
    std::string calls;
    // False if something is absent that writing insists on: the owned members of an older peer.
    bool isWritable = true;
    // False if a value may go out in other bytes than it came in, and differs by that: a real
    // number goes out rounded, and a variant compares by its bytes.
    bool isExact = true;
};

// Passes everything on to a value, and notes it.
template <class Base>
class Watched : public Base {
public:
    Watched(BerChild watched, Notes* into, int* siblings)
        : value(std::move(watched)), notes(into), living(siblings)
    {
        ++*living;
    }
    ~Watched() override { --*living; }
    std::unique_ptr<BerValue> clone() const override { return value->clone(); }
    BerTag tag(bool legacy) const override { return value->tag(legacy); }
    bool operator==(const BerValue& other) const override { return *value == other; }
    bool operator<(const BerValue& other) const override { return *value < other; }
    bool operator>(const BerValue& other) const override { return *value > other; }
    void write(BerOutput& output, bool legacy) const override { value->write(output, legacy); }
    void readDone() override
    {
        value->readDone();
        notes->calls += ". ";
    }

protected:
    BerChild value;
    Notes* notes;

private:
    int* living;  // of the children of the parent
};

class WatchedPrimitive final : public Watched<BerPrimitive> {
public:
    using Watched::Watched;
    void prepare(std::size_t length) override
    {
        notes->calls += std::to_string(length) + ": ";
        dynamic_cast<BerPrimitive&>(*value).prepare(length);
    }
    void append(const char* bytes, std::size_t count) override
    {
        require(count > 0, "a piece of nothing");
        notes->calls.append(bytes, count);
        dynamic_cast<BerPrimitive&>(*value).append(bytes, count);
    }
};

class WatchedConstructed final : public Watched<BerConstructed> {
public:
    using Watched::Watched;
    ~WatchedConstructed() override { require(living == 0, "a child outlives its parent"); }
    BerChild child(std::size_t index, BerTag tag, bool legacy) override;
    std::size_t requiredChildren() const override { return watched().requiredChildren(); }
    bool isRepeated() const override { return watched().isRepeated(); }
    void readDone() override
    {
        Watched::readDone();
        if (const auto* message = dynamic_cast<const Message*>(value.get())) {
            const Schema& schema = message->schema();
            for (std::size_t i = children; i < schema.fieldCount; ++i)
                notes->isWritable &= schema.fields[i].name == nullptr;  // owned ones have names
        }
    }

private:
    BerConstructed& watched() const { return dynamic_cast<BerConstructed&>(*value); }

    std::size_t children = 0;
    int living = 0;
};

std::unique_ptr<BerValue> watch(BerChild value, Notes* notes, int* siblings)
{
    if (dynamic_cast<BerConstructed*>(value.get()) != nullptr)
        return std::make_unique<WatchedConstructed>(std::move(value), notes, siblings);
    return std::make_unique<WatchedPrimitive>(std::move(value), notes, siblings);
}

BerChild WatchedConstructed::child(std::size_t index, BerTag tag, bool legacy)
{
    require(index == children, "children are counted wrong");
    ++children;
    notes->calls += std::to_string(tag) + " ";
    const auto* message = dynamic_cast<const Message*>(value.get());
    if (message != nullptr && index < message->schema().fieldCount) {
        const Field& field = message->schema().fields[index];
        notes->isExact &= field.kind != &fieldKind<VariantKind>;
    }
    notes->isExact &= tag != BE_REAL;
    return watch(watched().child(index, tag, legacy), notes, &living);
}

class WatchedProtocol final : public BerProtocol {
public:
    WatchedProtocol() = default;
    WatchedProtocol(const WatchedProtocol&) = delete;
    WatchedProtocol& operator=(const WatchedProtocol&) = delete;
    ~WatchedProtocol() override { require(living == 0, "the reader keeps a message"); }
    std::unique_ptr<BerValue> create(BerTag tag, bool legacy) const override
    {
        notes.calls += std::to_string(tag) + " ";
        message = guiProtocol().create(tag, legacy);
        return watch(lend(*message), &notes, &living);
    }

    mutable Notes notes;
    mutable std::unique_ptr<BerValue> message;

private:
    mutable int living = 0;
};

std::string written(const BerValue& message, bool legacy)
{
    struct Bytes final : BerOutput {
        void write(const char* more, std::size_t count) override { bytes.append(more, count); }
        std::string bytes;
    } output;
    message.write(output, legacy);
    return output.bytes;
}

// A message of which all is there is not refused, and ends where its bytes end.
std::unique_ptr<BerValue> readBack(std::string_view bytes, bool legacy)
{
    // What was absent is there now, and may be deeper than the rest.
    BerReader reader(guiProtocol(), legacy, {.depth = 100});
    std::unique_ptr<BerValue> message;
    try {
        message = reader.read(&bytes);
    } catch (const EBer& e) {
        std::cerr << e.text() << '\n';
    }
    require(message != nullptr && bytes.empty(), "what was written can't be read");
    return message;
}

void requireLasting(const BerValue& message, bool legacy, bool isExact)
{
    std::string bytes;
    try {
        bytes = written(message, legacy);
    } catch (const EBer&) {
        return;  // a number that was absent, and whose bounds exclude 0
    }
    const auto again = readBack(bytes, legacy);
    require(!isExact || *again == message, "writing and reading change a message");
    require(*again->clone() == *again, "a clone differs");
    if (!isExact && bytes.find("\x09\x01\x60") != std::string::npos)
        return;  // a NaN, it seems, which is read as 0
    require(written(*again, legacy) == bytes, "a message is written in two ways");
    require(*readBack(bytes, legacy) == *again, "the same bytes give two messages");
    require(*readBack(written(*again, !legacy), !legacy) == *again, "the numbering shows");
}

// Reads the stream in pieces of these sizes, in turn. Tells all that happened.
std::string readIn(const std::vector<std::size_t>& pieces, std::string_view bytes, bool legacy,
                   BerReader::Limits limits, bool isLasting)
{
    std::string told;
    const WatchedProtocol messages;
    BerReader reader(messages, legacy, limits);
    std::uint64_t taken = 0;
    try {
        for (std::size_t i = 0; !bytes.empty(); ++i) {
            const std::size_t size = std::min(bytes.size(), pieces[i % pieces.size()]);
            // A copy that ends with the piece, so that to read beyond it is a fault.
            const std::vector<char> piece(bytes.begin(), bytes.begin() + size);
            std::string_view rest(piece.data(), piece.size());
            while (reader.read(&rest)) {
                require(!reader.inMessage(), "in a message behind its end");
                told += messages.notes.calls + std::to_string(reader.offset()) + "\n";
                if (isLasting && messages.notes.isWritable)
                    requireLasting(*messages.message, legacy, messages.notes.isExact);
                messages.notes = Notes();
            }
            require(rest.empty(), "bytes are left");
            taken += size;
            require(reader.offset() == taken, "bytes are counted wrong");
            bytes.remove_prefix(size);
        }
        told += reader.inMessage() ? "..." : "";
    } catch (const EBer& e) {
        require(reader.inMessage() && reader.offset() <= taken + bytes.size(), "a wrong place");
        told += e.text() + std::to_string(reader.offset());
        try {
            reader.read(&bytes);
            require(false, "reading goes on behind an error");
        } catch (const EBer& same) {
            require(same.text() == e.text(), "the error changes");
        }
    }
    return told + messages.notes.calls;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    if (rest.empty())
        return 0;
    const unsigned choice = data[0];
    rest.remove_prefix(1);
    const bool legacy = (choice & 1U) != 0;
    BerReader::Limits limits;
    if ((choice & 2U) != 0)
        limits = {.depth = 5, .messageSize = 40};
    std::vector<std::size_t> pieces;
    for (const char less : rest.substr(0, choice >> 2U & 15U))
        pieces.push_back(static_cast<unsigned char>(less) + std::size_t{1});
    rest.remove_prefix(pieces.size());
    if (pieces.empty())
        pieces.push_back(2);

    const std::string whole = readIn({rest.size() + 1}, rest, legacy, limits, true);
    require(readIn({1}, rest, legacy, limits, false) == whole, "single bytes show");
    require(readIn(pieces, rest, legacy, limits, false) == whole, "the pieces show");
    return 0;
}
