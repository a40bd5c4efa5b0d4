// Messages off a stream: what values are told of, and where a stream is refused.
#include "protocol/BerReader.h"

#include "protocol/Messages.h"
#include "tests/common/outcome.h"

#include <gmock/gmock.h>

namespace {

using namespace protocol;

std::string trace;  // of what values are told

template <class Base>
struct Traced : Base {
    Traced(BerTag tag, int* siblings) : ownTag(tag), living(siblings)
    {
        trace += " " + std::to_string(tag);
        ++*living;
    }
    ~Traced() override { --*living; }
    std::unique_ptr<BerValue> clone() const override { return nullptr; }
    BerTag tag(bool /*legacy*/) const override { return ownTag; }
    bool operator==(const BerValue& /*other*/) const override { return false; }
    bool operator<(const BerValue& /*other*/) const override { return false; }
    bool operator>(const BerValue& /*other*/) const override { return false; }
    void write(BerOutput& /*output*/, bool /*legacy*/) const override {}

    BerTag ownTag;
    int* living;  // children of the parent, which must outlive them
};

struct Leaf final : Traced<BerPrimitive> {
    using Traced::Traced;
    void prepare(std::size_t /*length*/) override { trace += ":"; }
    void append(const char* bytes, std::size_t count) override { trace.append(bytes, count); }
    void readDone() override { trace += "."; }
};

// Knows three children. Application 2 and 3 require two, and 3 is repeated.
struct Node final : Traced<BerConstructed> {
    using Traced::Traced;
    ~Node() override { EXPECT_EQ(children, 0) << "a child is left behind"; }
    BerChild child(std::size_t index, BerTag tag, bool /*legacy*/) override
    {
        trace += index == 0 ? "(" : "";
        if (tag == BE_INTEGER)
            return std::make_unique<BerIntegerTemplate<int>>(0, 0, 5);
        if (tag == BE_REAL)
            throw error::ERange("no EBer");
        if (index > 2)
            return makeSkipper(tag);
        if (isConstructed(tag) ? tag == BE_SET_CURRENT : tag != BE_BOOLEAN)  // the wrong way round
            return std::make_unique<Leaf>(tag, &children);
        return std::make_unique<Node>(tag, &children);
    }
    std::size_t requiredChildren() const override { return ownTag == 19 || ownTag == 27 ? 2 : 0; }
    bool isRepeated() const override { return ownTag == 27; }
    void readDone() override { trace += ")"; }
    int children = 0;
};

struct Traces final : BerProtocol {
    std::unique_ptr<BerValue> create(BerTag tag, bool legacy) const override
    {
        EXPECT_TRUE(legacy);
        static int messages = 0;
        if (isConstructed(tag))
            return std::make_unique<Node>(tag, &messages);
        return std::make_unique<Leaf>(tag, &messages);
    }
};

// The trace, with a "|" behind each message, and how it ended where.
std::string readBy(std::size_t piece, std::string_view bytes, BerReader::Limits limits)
{
    trace.clear();
    const Traces traces;
    BerReader reader(traces, true, limits);
    const auto readAll = [&] {
        for (; !bytes.empty(); bytes.remove_prefix(std::min(piece, bytes.size()))) {
            std::string_view rest = bytes.substr(0, piece);
            while (reader.read(&rest))
                trace += "|";
        }
        return reader.inMessage() ? "..." : "whole";
    };
    const std::string end = outcome<error::Exception>(readAll);
    EXPECT_EQ(reader.inMessage(), end != "whole");
    EXPECT_TRUE(bytes.empty() || outcome<error::Exception>(readAll) == end) << "told only once";
    return trace + " " + end + " @" + std::to_string(reader.offset());
}

std::string read(const std::string& bytes, BerReader::Limits limits = {})
{
    std::string whole = readBy(bytes.size() + 1, bytes, limits);
    for (const std::size_t piece : {1, 3})
        EXPECT_EQ(readBy(piece, bytes, limits), whole);
    return whole;
}

std::string unhex(const std::string& hex, int times = 1)
{
    std::string bytes;
    for (; times > 0; --times) {
        for (std::size_t at = 0; at < hex.size(); at += 3)
            bytes += static_cast<char>(std::stoi(hex.substr(at, 2), nullptr, 16));
    }
    return bytes;
}

TEST(BerReader, TellsValuesWhatComes)
{
    const std::pair<const char*, const char*> cases[] = {
        {"61 80 00 00 61 00", " 11)| 11)| whole @6"},
        {"44 03 61 62 63 44 01 64", " 34:abc.| 34:d.| whole @8"},
        {"61 80 04 01 61 30 04 04 00 30 00 30 80 04 00 00 00 00 00",
         " 11( 32:a. 129( 32:. 129)) 129( 32:.))| whole @19"},
        {"61 06 30 04 30 02 30 00 61 04 30 80 00 00",
         " 11( 129( 129( 129))))| 11( 129))| whole @14"},
        {"61 00 61 80 30 80 30 80 04 05 61", " 11)| 11( 129( 129( 32:a ... @11"},
        {"61 84 00 00 00 03 04 81 00", " 11( 32:.)| whole @9"},
        {"7F 1F 80 1F 1F 00 DF 81 FF FF FF 7F 00 00 00", " 251( 248:. 4294967294:.)| whole @15"},
        {"62 80 04 00 04 00 00 00 63 80 04 00 00 00", " 19( 32:. 32:.)| 27( 32:.)| whole @14"},
        {"61 80 04 00 04 00 04 00 04 01 61 30 80 05 01 63 A0 03 80 01 64 00 00 31 00 00 00",
         " 11( 32:. 32:. 32:.)| whole @27"},
    };
    for (const auto& [hex, result] : cases)
        EXPECT_EQ(read(unhex(hex)), result) << hex;
}

TEST(BerReader, RefusesAStreamAtTheByteThatBreaksIt)
{
    const std::pair<const char*, const char*> cases[] = {
        {"00", " End of contents outside of a message @0"},
        {"61 02 00", " 11 End of contents in a value of definite length @2"},
        {"61 80 00 81", " 11 End of contents with length 129 expected 0 @2"},
        {"61 00 7F 80", " 11)| Tag number with a leading zero digit @2"},
        {"7F 1E", " Tag number in the form of greater ones 30 < 31 @0"},
        {"61 80 1F 82 80 80 80 00", " 11 Tag number of more than 29 bits @2"},
        {"61 80 09", " 11( no EBer @2"},
        {"61 80 01", " 11( 8 Tag 8 is primitive, the value that it stands for isn't @2"},
        {"61 80 31", " 11( 137 Tag 137 is constructed, the value that it stands for isn't @2"},
        {"61 80 04 80", " 11( 32 Indefinite length of a primitive value with tag 32 @3"},
        {"61 85", " 11 Length exceeds allowed size 5 > 4 @1"},
        {"61 80 02 05", " 11( Data value exceeds maximum allowed length 5 > 4 @3"},
        {"61 80 02 01 FF",
         " 11( data out of range in BerIntegerTemplate<int>::readDone 0 <= -1 <= 5 @4"},
        {"61 05 30 03 04 02", " 11( 129( 32: Value exceeds the rest of the one around it 2 > 1 @5"},
        {"61 02 30 80", " 11( 129 Value exceeds the rest of the one around it 1 > 0 @4"},
        {"61 02 1F 81", " 11 Value exceeds the rest of the one around it 1 > 0 @2"},
        {"62 80 04 00 00 00", " 19( 32:. Too few children, got 1 expected 2 @4"},
        {"62 02 04 00", " 19( 32:. Too few children, got 1 expected 2 @4"},
        {"62 00", " 19 Too few children, got 0 expected 2 @2"},
    };
    for (const auto& [hex, result] : cases) {
        std::string bytes = unhex(hex);
        EXPECT_EQ(read(bytes), result) << hex;
        EXPECT_EQ(read(bytes + "abc"), result) << hex;
        bytes.pop_back();
        EXPECT_TRUE(read(bytes).ends_with(" @" + std::to_string(bytes.size()))) << hex;
    }
}

TEST(BerReader, BoundsDepthAndSize)
{
    const std::string known = unhex("61 80"), skipped = known + unhex("04 00", 3);
    const std::tuple<std::string, std::uint64_t, std::string> cases[] = {
        {"a" + unhex("00") + known + unhex("30 80", 63) + unhex("00 00", 64), ~0ULL, "whole @258"},
        {known + unhex("30 80", 63) + "\4", 256, "Nesting exceeds allowed depth 65 > 64 @128"},
        {skipped + unhex("30 80", 63) + "0", 256, "Nesting exceeds allowed depth 65 > 64 @134"},
        {skipped + unhex("30 00 80 01 FF", 20000) + unhex("00 00"), 100010, "whole @100010"},
        {unhex("61 80 04 02 61 62 00 00 61 06 04 04 61 61 61 61"), 8, "whole @16"},
        {unhex("61 80 04 02 61 62 00"), 7, "Message exceeds allowed size 8 > 7 @6"},
        {unhex("61 80 00 00 61 06"), 7, "Message exceeds allowed size 8 > 7 @5"},
        {skipped + unhex("04 84 FF FF FF FF"), 99, "size 4294967309 > 99 @9"},
        {unhex("61"), 0, "Message exceeds allowed size 2 > 0 @1"},
        {unhex("61 84 00 FF FF FB"), BerReader::Limits().messageSize,
         "size 16777217 > 16777216 @1"},
    };
    for (const auto& [bytes, size, end] : cases)
        EXPECT_THAT(read(bytes, {.messageSize = size}), testing::EndsWith(end));
}

TEST(BerReader, ReadsMessagesInBothNumberings)
{
    const std::string current = unhex("74 80 02 01 07 A1 80 04 01 61 04 01 62 00 00 00 00");
    const std::string legacy = unhex("74 80 02 01 07 61 80 16 01 61 16 01 62 00 00 00 00");
    const auto read = [](std::string_view bytes, bool isLegacy) {
        return outcome<EBer>([&] {
            const auto message = BerReader(guiProtocol(), isLegacy).read(&bytes);
            const BerValue& request = *dynamic_cast<const Request&>(*message).req;
            return dynamic_cast<const EraseReq&>(request).text1;
        });
    };
    EXPECT_EQ(read(current, false) + read(legacy, true), "bb");
    EXPECT_EQ(read(current, true), "Unexpected tag 13 received in Union Request.this->req");
    EXPECT_EQ(read(legacy, false), "Unexpected tag 11 received in Union Request.this->req");
}

}  // namespace
