// Frames: the exact bytes, every event there and back, and what a reader makes of bad ones.

#include "queues/event.h"

#include "common/errors.h"
#include "queues/records/control.h"
#include "queues/records/remcheck.h"
#include "queues/records/services.h"
#include "queues/typeForms.h"
#include "tests/queues/MemoryStreams.h"
#include "tests/queues/RandomFiller.h"
#include "tests/queues/frames.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using frames::decode;
using frames::encode;
using frames::unhex;
using queues::devent;
using queues::event;
using queues::exevent;
using queues::queue_t;

using CheckRequest = devent<queues::CHECK_REQUEST, remcheck::remcheck_conf>;
using CheckResult = devent<queues::CHECK_RESULT, services::remcheck_stat>;
using LogLine = devent<queues::SYSTEM_LOG_REQUEST, control::Log_Request_Data>;
using ListMetrics = devent<queues::RETURN_LIST_METRICS, control::Metric_Group>;

constexpr std::uint32_t tenZeroZeroOne = 0x0100000A;  // 10.0.0.1 in network byte order

CheckRequest plainRequest()
{
    return {queue_t::rmch,
            7,
            {.host = "a",
             .addr = tenZeroZeroOne,
             .id = {1, 2},
             .service = 6,
             .port = 80,
             .frequency = 60,
             .warnIfAbove = 1000,
             .alertIfAbove = 2000,
             .libssl = "",
             .properties = {}}};
}

CheckRequest requestWithProperty()
{
    CheckRequest request = plainRequest();
    request.data.properties[542] = Held<tql::property_t>(tql::property_string_t(542, "^2.."));
    return request;
}

constexpr const char* requestFields =
    "86 00 00 00  03 00 00 00  07 00 00 00  00 00 00 00"
    "01 00 00 00 00 00 00 00  61  0A 00 00 01"
    "02 00 00 00  01 00 00 00  02 00 00 00"
    "06 00 00 00  50 00 00 00  3C 00 00 00  E8 03 00 00  D0 07 00 00"
    "00 00 00 00 00 00 00 00";

struct Example {
    const char* name;
    std::shared_ptr<event> e;
    std::string bytes;
};

std::vector<Example> examples()
{
    return {
        {"request", std::make_shared<CheckRequest>(plainRequest()),
         unhex(std::string(requestFields) + "00 00 00 00")},
        {"request with a property", std::make_shared<CheckRequest>(requestWithProperty()),
         unhex(std::string(requestFields) + "01 00 00 00  1E 02 00 00"
                                            "07 00 00 00  1E 02 00 00  00 00 00 00  00 00 00 00"
                                            "04 00 00 00 00 00 00 00  5E 32 2E 2E")},
        {"result",
         std::make_shared<CheckResult>(queue_t::none, 0,
                                       services::remcheck_stat{.ctime = 1000000000,
                                                               .check_id = {1, 2},
                                                               .result = services::RESULT_OK,
                                                               .replytime = 25,
                                                               .attempts = 0,
                                                               .result_strings = {"ok"}}),
         unhex("87 00 00 00  FF FF FF FF  00 00 00 00  00 00 00 00"
               "00 CA 9A 3B 00 00 00 00  02 00 00 00  01 00 00 00  02 00 00 00"
               "00 00 00 00  19 00 00 00  00 00 00 00"
               "01 00 00 00  02 00 00 00 00 00 00 00  6F 6B")},
        {"exception", std::make_shared<exevent>(queue_t::main, 9, "x"),
         unhex("C3 00 00 00  00 00 00 00  09 00 00 00  01 00 00 00"
               "01 00 00 00 00 00 00 00  78")},
        {"the first line of the log",
         std::make_shared<LogLine>(queue_t::main, 2,
                                   control::Log_Request_Data{.msg = "netcheck is alive"}),
         unhex("04 00 00 00  00 00 00 00  02 00 00 00  00 00 00 00"
               "11 00 00 00 00 00 00 00"
               "6E 65 74 63 68 65 63 6B 20 69 73 20 61 6C 69 76 65  00 00 00 00")},
        {"an int", std::make_shared<devent<1, std::int32_t>>(queue_t::schd, 5, -1),
         unhex("01 00 00 00  01 00 00 00  05 00 00 00  00 00 00 00  FF FF FF FF")},
        {"metrics of an empty group",
         std::make_shared<ListMetrics>(
             queue_t::main, 0,
             control::Metric_Group{.name = "m", .groups = {}, .tables = {}, .metrics = {}}),
         unhex("15 00 00 00  00 00 00 00  00 00 00 00  00 00 00 00"
               "01 00 00 00 00 00 00 00  6D  00 00 00 00  00 00 00 00  00 00 00 00")},
    };
}

void expectSame(const event& read, const event& original, const std::string& bytes)
{
    EXPECT_EQ(read.type, original.type);
    EXPECT_EQ(read.dest, original.dest);
    EXPECT_EQ(read.inresponse, original.inresponse);
    EXPECT_EQ(read.exception, original.exception);
    EXPECT_EQ(typeid(read), typeid(original));
    EXPECT_EQ(encode(read), bytes);
}

TEST(event, framesAreExact)
{
    for (const Example& example : examples()) {
        SCOPED_TRACE(example.name);
        EXPECT_EQ(encode(*example.e), example.bytes);
        expectSame(*decode(example.bytes), *example.e, example.bytes);
    }
    const auto request = decode(examples()[1].bytes);
    EXPECT_EQ(frames::payload<CheckRequest>(request), requestWithProperty().data);
}

TEST(event, framesMayArriveInAnyPieces)
{
    for (const Example& example : examples()) {
        SCOPED_TRACE(example.name);
        const std::string& bytes = example.bytes;
        const auto expectRead = [&](memory::Input& input) {
            protocol::ioprim link(&input, nullptr);
            std::unique_ptr<event> e;
            link >> e;
            expectSame(*e, *example.e, bytes);
            EXPECT_EQ(input.committed, bytes.size());
        };
        memory::Input single(bytes, 1);
        expectRead(single);
        for (std::size_t cut = 1; cut < bytes.size(); ++cut) {
            memory::Input pieces;
            pieces.append(std::string_view(bytes).substr(0, cut));
            pieces.append(std::string_view(bytes).substr(cut));
            expectRead(pieces);
        }
    }
}

// Leaves nothing behind either: the leak checker looks on.
TEST(event, aCutFrameIsTheEndOfTheStream)
{
    for (const Example& example : examples())
        for (std::size_t length = 0; length < example.bytes.size(); ++length) {
            memory::Input input(std::string_view(example.bytes).substr(0, length));
            protocol::ioprim link(&input, nullptr);
            std::unique_ptr<event> e;
            EXPECT_THROW(link >> e, io::EEndOfStream) << example.name << " cut at " << length;
            EXPECT_EQ(e, nullptr);
        }
}

TEST(event, framesFollowEachOtherInOneArea)
{
    std::string all;
    for (const Example& example : examples())
        all += example.bytes;
    memory::Input input(all);
    protocol::ioprim link(&input, nullptr);
    for (const Example& example : examples()) {
        EXPECT_EQ(input.committed, 0U) << "the stream must stay ready while frames are left";
        std::unique_ptr<event> e;
        link >> e;
        expectSame(*e, *example.e, example.bytes);
    }
    EXPECT_EQ(input.committed, all.size());
}

// Payloads drawn at random, written, cloned and read.
template <std::int32_t N, class T>
void roundTrip()
{
    SCOPED_TRACE(eventName(static_cast<event_t>(N)));
    RandomFiller filler(N);
    for (int turn = 0; turn < 20; ++turn) {
        T payload{};
        filler.fill(payload);
        queue_t dest{};
        std::int32_t serial = 0;
        filler.fill(dest);
        filler.fill(serial);

        auto original = std::make_unique<devent<N, T>>(dest, serial, payload);
        const std::unique_ptr<event> copy = original->clone();
        const std::string bytes = encode(*original);
        original.reset();
        EXPECT_EQ(encode(*copy), bytes);

        const std::unique_ptr<event> read = decode(bytes);
        expectSame(*read, *copy, bytes);
        EXPECT_TRUE((frames::payload<devent<N, T>>(read) == payload));
        EXPECT_EQ(frames::print(*read), frames::print(*copy));
    }
}

TEST(event, everyEventSurvivesTheWire)
{
    using namespace queues;
#define EVENT(number, name, ...) roundTrip<number, __VA_ARGS__>();
#define EVENT_LATER(number, name) EXPECT_FALSE(isKnownEvent(number));
#define EVENT_EXCEPTION(number, name) EXPECT_TRUE(isKnownEvent(number));
#include "queues/EventTable.inc"
#undef EVENT
#undef EVENT_LATER
#undef EVENT_EXCEPTION
}

TEST(event, knowsItsNumbers)
{
    for (const std::int32_t number : {-1, 0, 69, 70, 71, 196, 197, 1 << 30})
        EXPECT_FALSE(queues::isKnownEvent(number)) << number;
    for (const std::int32_t number : {1, 4, 68, 78, 134, 135, 195})
        EXPECT_TRUE(queues::isKnownEvent(number)) << number;
}

TEST(event, anExceptionHidesTheNumberOfTheFrame)
{
    std::string bytes = examples()[3].bytes;
    for (const char number : {'\x86', '\x01', '\xC3'})
        for (const char flag : {'\x01', '\x02', '\x80'}) {
            bytes[0] = number;
            bytes[12] = flag;
            const auto e = decode(bytes);
            EXPECT_EQ(e->type, queues::MESSAGE_EXCEPTION);
            EXPECT_EQ(dynamic_cast<const exevent&>(*e).text, "x");
            expectSame(*e->clone(), exevent(queue_t::main, 9, "x"), examples()[3].bytes);
        }
}

TEST(event, refusesIdentifiersThatAreTooLong)
{
    struct Case {
        const char* count;
        const char* error;
    };
    const Case cases[] = {
        {"04 00 00 00", "small vector resize overflow 4 > 3"},
        {"FF FF FF FF", "small vector resize overflow 18446744073709551615 > 3"},
        {"00 00 00 80", "small vector resize overflow 18446744071562067968 > 3"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.error);
        std::string bytes = examples()[0].bytes;
        bytes.replace(29, 4, unhex(c.count));
        try {
            decode(bytes);
            ADD_FAILURE() << "was accepted";
        } catch (const error::ERange& e) {
            EXPECT_EQ(e.text(), c.error);
        }
    }
}

std::string nestedGroups(unsigned levels)
{
    std::string bytes = unhex("15 00 00 00  00 00 00 00  00 00 00 00  00 00 00 00");
    for (unsigned level = 1; level < levels; ++level)
        bytes += unhex("00 00 00 00 00 00 00 00  01 00 00 00");
    bytes += unhex("00 00 00 00 00 00 00 00  00 00 00 00");
    for (unsigned level = 0; level < levels; ++level)
        bytes += unhex("00 00 00 00  00 00 00 00");
    return bytes;
}

TEST(event, boundsTheNestingOfRecords)
{
    EXPECT_EQ(encode(*decode(nestedGroups(200))), nestedGroups(200));

    // The 201st record is refused before a byte of it is read, and the levels count again from
    // the start.
    memory::Input input(nestedGroups(201).substr(0, 16 + 200 * 12));
    input.append(nestedGroups(200));
    protocol::ioprim link(&input, nullptr);
    std::unique_ptr<event> e;
    try {
        link >> e;
        ADD_FAILURE() << "was accepted";
    } catch (const error::ERange& refused) {
        EXPECT_EQ(refused.text(), "nesting too deep: more than 200 records within each other");
    }
    link >> e;
    EXPECT_EQ(encode(*e), nestedGroups(200));
    EXPECT_THROW(decode(nestedGroups(20000)), error::ERange);
}

// Every message about a number, with the last good event of the same link.
TEST(eventDeathTest, unknownNumbersEndTheProcess)
{
    const auto readAfter = [](const std::string& first, std::int32_t number) {
        memory::Input input(first);
        input.append(std::string(reinterpret_cast<const char*>(&number), 4));
        protocol::ioprim link(&input, nullptr);
        std::unique_ptr<event> e;
        if (!first.empty())
            link >> e;
        link >> e;
    };
    const std::string request = examples()[0].bytes;
    std::string exceptionOf134 = examples()[3].bytes;
    exceptionOf134[0] = '\x86';
    struct Case {
        std::string first;
        std::int32_t number;
        const char* message;
    };
    const Case cases[] = {
        {"", 0, "unknown type index: 0 old was 0 dest 0\n"},
        {"", -1, "unknown type index: -1 old was 0 dest 0\n"},
        {"", 196, "unknown type index: 196 old was 0 dest 0\n"},
        {"", 69, "unknown type index: 69 old was 0 dest 0\n"},
        {request, 25, "unknown type index: 25 old was 134 dest 3\n"},
        {examples()[2].bytes, 71, "unknown type index: 71 old was 135 dest -1\n"},
        {exceptionOf134, 0, "unknown type index: 0 old was 134 dest 0\n"},
    };
    for (const Case& c : cases)
        EXPECT_DEATH(readAfter(c.first, c.number),
                     std::string("^Assertion failed: fdio >> event: ") + c.message);

    // A new link at the same address starts afresh.
    EXPECT_DEATH(
        {
            memory::Input input(request + unhex("00 00 00 00"));
            std::optional<protocol::ioprim> link;
            std::unique_ptr<event> e;
            link.emplace(&input, nullptr);
            *link >> e;
            link.emplace(&input, nullptr);
            memory::Input zero(unhex("00 00 00 00"));
            link.emplace(&zero, nullptr);
            *link >> e;
        },
        "unknown type index: 0 old was 0 dest 0\n");

    std::string withoutException = examples()[3].bytes;
    withoutException[12] = '\0';
    EXPECT_DEATH(decode(withoutException),
                 "^Assertion failed: Found exevent with .exception == 0\n");
}

TEST(eventDeathTest, eventsWithoutANumberAreNotWritten)
{
    EXPECT_DEATH(encode(devent<0, std::int32_t>(queue_t::main, 0)),
                 "^Assertion failed: fdio << event: unknown type index: 0\n");
    EXPECT_DEATH(encode(devent<196, std::int32_t>(queue_t::main, 0)),
                 "fdio << event: unknown type index: 196\n");
    EXPECT_DEATH(encode(devent<-5, std::int32_t>(queue_t::main, 0)),
                 "fdio << event: unknown type index: -5\n");
}

}  // namespace
