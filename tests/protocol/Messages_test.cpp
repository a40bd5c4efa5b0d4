// All messages of the client protocol: against messages.txt, on the wire, and where they refuse.
#include "protocol/Messages.h"

#include "protocol/BerReader.h"
#include "tests/common/outcome.h"
#include "tests/protocol/RandomMessage.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

namespace {

using namespace protocol;
using namespace std::string_literals;
using Owned = std::unique_ptr<BerValue>;

std::string written(const BerValue& value, bool legacy)
{
    struct Sink final : BerOutput {
        void write(const char* more, std::size_t count) override { bytes.append(more, count); }
        std::string bytes;
    } sink;
    value.write(sink, legacy);
    return sink.bytes;
}

std::string unhex(const std::string& text)
{
    std::istringstream words(text);
    std::string bytes;
    for (std::string word; words >> word;)
        bytes += static_cast<char>(std::stoi(word, nullptr, 16));
    return bytes;
}

// Everything that the top-level messages can hold, found by asking for children.
struct Catalogue {
    std::set<std::string> lines;
    std::map<std::string, Owned> examples;  // new objects of the classes of messages

    Catalogue()
    {
        for (BerTag tag = 0; tag < 1000; ++tag) {
            const std::string error = outcome<EBer>([&] {
                const Owned message = guiProtocol().create(tag, false);
                EXPECT_EQ(message->tag(false), tag);
                EXPECT_TRUE(*guiProtocol().create(tag, true) == *message);
                return add(*message), "";
            });
            EXPECT_TRUE(error.empty() || error == "Unknown tag " + std::to_string(tag)) << error;
        }
    }

    std::string add(BerValue& value)
    {
        auto& message = dynamic_cast<Message&>(value);
        const Schema& schema = message.schema();
        if (!examples.emplace(schema.name, message.clone()).second)
            return schema.name;
        std::string line = schema.name + ": "s;
        line += (schema.tagName ? schema.tagName + " "s : "") + tags(message);
        line += ", required " + std::to_string(message.requiredChildren());
        for (std::size_t i = 0; i < schema.fieldCount; ++i) {
            const Field& field = schema.fields[i];
            line += "; " + (field.name ? field.name + ": "s : "") + typeOf(field, message, i);
        }
        lines.insert(line);
        return schema.name;
    }

    // Adds what the type is made of, too.
    std::string typeOf(const Field& field, BerConstructed& parent, std::size_t index)
    {
        const std::string name = field.kind->description();
        std::string text = name;
        if (field.maxLength != 0)
            text += ' ' + std::to_string(field.maxLength);
        if (field.minimum != INT32_MIN || field.maximum != INT32_MAX)
            text += ' ' + std::to_string(field.minimum) + " to " + std::to_string(field.maximum);
        for (std::size_t i = 0; i < field.alternativeCount; ++i) {
            const auto& [number, make] = field.alternatives[i];
            text += (i == 0 ? " of " : ", ") + std::to_string(number) + ' ' + add(*make());
        }
        for (const BerTag tag : {BE_ENUMERATED, BE_SEQ_CURRENT, BE_SET_CURRENT}) {
            BerChild child;
            if (!outcome<EBer>([&] { return child = parent.child(index, tag, false), ""; }).empty())
                continue;  // a field of another kind
            if (tag == BE_ENUMERATED)
                return "enumerated " + text;
            auto& list = dynamic_cast<BerConstructed&>(*child);
            if (!list.isRepeated()) {
                add(list);
                continue;
            }
            EXPECT_EQ(list.requiredChildren(), 0U) << name;
            EXPECT_EQ(outcome<EBer>([&] { return list.clone(), ""; }),
                      "Copy constructor of " + name + " invoked");
            lines.insert(name + ": " + tags(list) + ", any number of " +
                         typeOf(*field.kind->element(), list, 0));
        }
        return text;
    }

    static std::string tags(const BerValue& value)
    {
        return std::to_string(value.tag(false)) + '/' + std::to_string(value.tag(true));
    }
};

const Catalogue& catalogue()
{
    static const Catalogue all;
    return all;
}

// Knows one class, top-level or not.
struct OneClass final : BerProtocol {
    explicit OneClass(const std::string& name) : example(*catalogue().examples.at(name)) {}
    Owned create(BerTag /*tag*/, bool /*legacy*/) const override { return example.clone(); }
    const BerValue& example;
};

Owned read(const std::string& name, bool legacy, std::string_view bytes, std::size_t piece = 4096)
{
    const OneClass protocol(name);
    BerReader reader(protocol, legacy);
    Owned message;
    for (; !message && !bytes.empty(); bytes.remove_prefix(std::min(piece, bytes.size()))) {
        std::string_view part = bytes.substr(0, piece);
        message = reader.read(&part);
    }
    if (!message || !bytes.empty())
        throw EBer("not one whole message");
    return message;
}

TEST(Messages, AreThoseOfTheList)
{
    std::set<std::string> lines = catalogue().lines;
    std::ifstream list(std::filesystem::path(__FILE__).replace_filename("messages.txt"));
    std::string line;
    std::getline(list, line);  // what the list says of itself
    while (std::getline(list, line))
        EXPECT_TRUE(line.empty() || lines.erase(line) == 1) << "only in the list: " << line;
    for (const std::string& left : lines)
        ADD_FAILURE() << "not in the list: " << left;
}

TEST(Messages, AllComeBackFromTheirBytes)
{
    for (const auto& [name, example] : catalogue().examples) {
        for (std::uint32_t seed = 1; seed <= 10; ++seed) {
            SCOPED_TRACE(name + ", seed " + std::to_string(seed));
            Owned value = example->clone();
            auto& message = dynamic_cast<Message&>(*value);
            RandomMessage random(seed);
            random.fill(message);
            const std::string both[] = {written(message, false), written(message, true)};
            for (const bool legacy : {false, true})
                for (const std::size_t piece : {both[legacy].size(), std::size_t{1}}) {
                    const Owned back = read(name, legacy, both[legacy], piece);
                    EXPECT_TRUE(*back == *value && *value == *back);
                    EXPECT_TRUE(written(*back, !legacy) == both[!legacy]);
                }
            // Another value of one field makes another message, unless it is the same value.
            for (std::size_t i = 0; i < message.schema().fieldCount; ++i) {
                const Owned other = message.clone();
                EXPECT_TRUE(*other == *value);
                random.fill(message.schema().fields[i], dynamic_cast<Message&>(*other));
                EXPECT_EQ(*other == *value, written(*other, false) == both[false]) << i;
            }
            const Owned copy = message.clone();
            value.reset();
            EXPECT_TRUE(written(*copy, false) == both[false]);
        }
    }
}

// Lends memory piece by piece, each of this size and with an end that a fault shows at.
struct Pieces final : BerOutput {
    explicit Pieces(std::size_t each) : size(each) { lend(); }
    void write(const char* more, std::size_t count) override
    {
        collect();
        bytes.append(more, count);
        lend();
    }
    void lend()
    {
        area = std::make_unique<char[]>(size);
        next = area.get();
        limit = next + size;
    }
    const std::string& collect()
    {
        return bytes.append(area.get(), std::exchange(next, area.get()));
    }
    std::size_t size;
    std::unique_ptr<char[]> area;
    std::string bytes;
};

TEST(Messages, AreWrittenIntoMemoryOfAnySize)
{
    constexpr std::size_t sizes[] = {1, 2, 3, 143, 144, 145, 287, 288, 289, 1000, 100'000};
    for (const auto& [name, example] : catalogue().examples) {
        const Owned value = example->clone();
        RandomMessage(7).fill(dynamic_cast<Message&>(*value));
        for (const std::size_t size : sizes) {
            Pieces pieces(size);
            value->write(pieces, false);
            EXPECT_TRUE(pieces.collect() == written(*value, false)) << name << size;
        }
    }
    ServerNamePort unset;  // the port is out of its bounds, the name in front of it goes out
    unset.text0 = "ab";
    for (const std::size_t size : sizes) {
        Pieces pieces(size);
        EXPECT_THROW(unset.write(pieces, false), EBer);
        EXPECT_EQ(pieces.collect(), unhex("30 80 04 02 61 62")) << size;
    }
}

TEST(Messages, BreakAlikeWholeAndInBytes)
{
    std::mt19937 source(1);
    for (const auto& [name, example] : catalogue().examples) {
        for (std::uint32_t seed = 1; seed <= 60; ++seed) {
            const bool legacy = seed % 2 == 0;
            const Owned value = example->clone();
            RandomMessage(seed).fill(dynamic_cast<Message&>(*value));
            std::string bytes = written(*value, legacy);
            for (unsigned changes = seed % 3; changes > 0; --changes)
                bytes[2 + source() % std::min<std::size_t>(bytes.size() - 2, 60)] =
                    static_cast<char>(source() % 256);
            const OneClass protocol(name);
            Owned messages[2];
            const auto readBy = [&](std::size_t piece, Owned& message) {
                BerReader reader(protocol, legacy);
                std::string end = outcome<EBer>([&] {
                    for (std::size_t at = 0; !message && at < bytes.size(); at += piece) {
                        std::string_view part = std::string_view(bytes).substr(at, piece);
                        message = reader.read(&part);
                    }
                    return "";
                });
                return end + " @" + std::to_string(reader.offset());
            };
            const std::string whole = readBy(bytes.size(), messages[0]);
            EXPECT_EQ(readBy(1, messages[1]), whole) << name << ", seed " << seed;
            EXPECT_TRUE(equalOwned(messages[0].get(), messages[1].get())) << name << whole;
        }
    }
}

TEST(Messages, AreReadAsFarAsTheyAreKnown)
{
    const struct {
        const char* name;
        const char* hex;
        const char* ends = hex;  // what is written when it was read, or why it can't be read
        bool legacy = false;
    } cases[] = {
        {"HWScanReq", "7F 20 80 00 00"},
        {"Check",
         "30 80 04 01 61 04 00 04 01 62 0A 00 04 01 63 02 01 FF 04 01 64 05 00 02 02 00 80 00 00"},
        {"CheckResult", "20 80 02 01 05 16 00 0A 01 07 20 80 16 01 61 00 00 16 01 62 16 00 00 00",
         "20 80 02 01 05 16 00 0A 01 07 20 80 16 01 61 00 00 16 01 62 16 00 00 00", true},
        {"Request",
         "74 80 02 01 07 A0 80 31 80 04 01 61 04 01 61 00 00 30 80 04 01 70 02 02 00 C8 05 00 30 "
         "80 00 00 30 80 00 00 30 80 00 00 31 80 00 00 00 00 02 01 09 00 00 00 00"},
        // Behind the known children come a primitive, constructed ones of both ends, a high tag.
        {"NullProp",
         "A6 80 04 01 61 30 80 04 01 62 30 80 00 00 00 00 31 03 02 01 07 9F 20 01 63 00 00",
         "A6 80 00 00"},
        // What may be missing keeps its default.
        {"GetDataReq", "A6 80 04 00 04 00 01 01 FF 02 01 01 02 01 02 02 02 07 D0 00 00",
         "A6 80 04 00 04 00 01 01 01 02 01 01 02 01 02 02 02 07 D0 02 01 00 00 00"},
        {"DiffieHellmannParameters", "64 80 02 01 05 00 00", "64 80 02 01 05 02 00 00 00"},
        {"GetDataReq", "A6 80 04 00 04 00 01 01 FF 02 01 01 02 01 02 02 02 07 D1 00 00",
         "data out of range in BerIntegerTemplate<int>::readDone 0 <= 2001 <= 2000"},
        {"ServerNamePort", "30 80 04 00 02 01 00 00 00",
         "data out of range in BerIntegerTemplate<int>::readDone 1 <= 0 <= 65535"},
        {"StringProp", "A0 80 16", "Tag mismatch, got 176 expected BE_STRING_CURRENT"},
        {"StringProp", "60 80 04", "Tag mismatch, got 32 expected BE_STRING_LEGACY", true},
        {"RealProp", "A4 80 02", "Tag mismatch, got 16 expected BE_REAL"},
        {"BooleanProp", "A5 80 02", "Tag mismatch, got 16 expected BE_BOOLEAN"},
        {"BigNumProp", "AB 80 04", "Tag mismatch, got 32 expected BE_INTEGER"},
        {"EnumConf", "A1 80 30 80 02", "Tag mismatch, got 16 expected BE_ENUMERATED"},
        {"AdvLogConf", "A4 80 04 00 0A 00 30 80 00 00 04",
         "Tag mismatch, got 32 expected BE_INTEGER"},
        {"StringListProp", "A1 80 31", "Tag mismatch, got 137 expected BE_SEQ_CURRENT"},
        {"SelectReq", "60 80 20", "Tag mismatch, got 1 expected BE_SET_LEGACY", true},
        {"RelativeExpr", "30 80 04", "Tag mismatch, got 32 expected BE_PROPERTY_CURRENT"},
        {"Request", "74 80 02 01 00 A4", "Unexpected tag 37 received in Union Request.this->req"},
        {"Request", "74 80 02 01 00 60", "Unexpected tag 3 received in Union Request.this->req"},
        {"Check", "30 80 04 00 04 00 04 00 0A 00 04 00 16",
         "Unexpected tag 176 received in Union Check.this->value"},
        {"Check", "20 80 16 00 16 00 16 00 0A 00 16 00 05 00 04",
         "Unexpected tag 32 received in Union Check.this->min", true},
    };
    for (const auto& c : cases) {
        const std::string again =
            outcome<EBer>([&] { return written(*read(c.name, c.legacy, unhex(c.hex)), c.legacy); });
        EXPECT_EQ(again, std::islower(c.ends[1]) ? c.ends : unhex(c.ends)) << c.name << c.hex;
    }
}

TEST(Messages, AreLessIfAllFieldsAre)
{
    const struct {
        std::string order;  // all of "<", "=" and ">" that hold
        const char* name;
        const char* a;  // without tag and end
        const char* b;
    } cases[] = {
        {"<", "EraseReq", "04 01 61 04 01 62", "04 01 62 04 01 63"},
        {"", "EraseReq", "04 01 61 04 01 62", "04 01 62 04 01 62"},
        {"", "EraseReq", "04 01 61 04 01 62", "04 01 62 04 01 61"},
        {"<=>", "NegotiateAck", "", ""},
        {"<", "StringListProp", "30 80 00 00", "30 80 04 00 00 00"},
        {">", "StringListProp", "30 80 04 01 62 00 00", "30 80 04 01 61 04 01 63 00 00"},
        {"<", "ContinuousConf", "04 00 04 00 04 00 04 00", "04 01 61 04 01 61 04 01 61 04 01 61"},
        // Two that are null are equal, but none is less; nor is a value of another class.
        {"=", "ContinuousConf", "05 00 05 00", "05 00 05 00"},
        {"", "ContinuousConf", "04 00 04 00", "04 01 61 04 01 61"},
        {"", "ContinuousConf", "04 00 04 00 04 00", "04 00 04 00"},
        {"", "DataInterval", "A0 80 30 80 00 00 00 00", "A1 80 02 01 01 0A 00 04 00 00 00"},
        {"<", "AdvLogConf", "04 00 0A 00 30 80 00 00 02 01 01 02 01 01",
         "04 01 61 0A 01 01 30 80 30 80 04 00 0A 00 0A 00 00 00 00 00 02 01 02 02 01 02"},
        {"", "AdvLogConf", "04 00 0A 00 30 80 00 00 02 01 01 05 00",
         "04 01 61 0A 01 01 30 80 30 80 04 00 0A 00 0A 00 00 00 00 00 02 01 02 02 01 02"},
    };
    for (const auto& c : cases) {
        const auto value = [&](const char* contents) {
            const BerTag tag = catalogue().examples.at(c.name)->tag(false);
            const std::string identifier(1, static_cast<char>(tag << 5U | tag >> 3U));
            return read(c.name, false, identifier + unhex("80 "s + contents + " 00 00"));
        };
        const Owned a = value(c.a), b = value(c.b);
        EXPECT_EQ((*a < *b ? "<"s : "") + (*a == *b ? "=" : "") + (*a > *b ? ">" : ""), c.order)
            << c.name << ": " << c.a << " and " << c.b;
    }
}

TEST(Messages, AWrongElementLeavesANewOne)
{
    ListOfCheck::list_t checks;
    ListOfCheck list(&checks);
    EXPECT_EQ(outcome<EBer>([&] { return list.child(9, BE_NULL, false), ""; }),
              "Tag mismatch, got 40 expected BE_CHECK_CURRENT");
    ASSERT_EQ(checks.size(), 1U);
    EXPECT_TRUE(equalOwned(checks.begin()->get(), catalogue().examples.at("Check").get()));
    EXPECT_THROW(std::make_unique<ListOfCheck>(list), EBer);
}

TEST(Messages, OfWhichAPartIsMissingAreNeitherWrittenNorCopied)
{
    const std::map<std::string, const char*> parts = {{"prop", "RelativeExpr"},
                                                      {"pattern", "SelectReq"},
                                                      {"data", "GetLastDataResp"},
                                                      {"value", "CheckResult"}};
    for (const auto& [part, name] : parts)
        EXPECT_DEATH(written(*catalogue().examples.at(name), false),
                     "Assertion failed: this->" + part + " is NULL during BER write\n");
    EXPECT_EQ(outcome<EBer>([] { return written(ServerNamePort(), false); }),
              "data out of range in BerIntegerTemplate<int>::write 1 <= 0 <= 65535");
    CheckGroup group;
    group.list2.emplace_back();
    EXPECT_DEATH(written(group, false), "Assertion failed: \\(\\*it\\) is NULL during BER write\n");
    EXPECT_DEATH(group.clone(),
                 ": checked_cast failed, \\(null\\) should have been protocol::Check\n");
    EXPECT_DEATH(Nullable<std::int32_t>().value(), "Assertion failed: Value of null taken\n");
}

}  // namespace
