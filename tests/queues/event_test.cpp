// Events: the exact bytes, all of them there and back, what a reader makes of bad ones, the print
// form and the names.
#include "queues/event.h"

#include "queues/FrameWalk.h"
#include "tests/queues/RandomFiller.h"
#include "tests/queues/frames.h"

#include <sstream>

namespace {

using namespace frames;
using namespace queues;

std::string print(const event& e)
{
    std::ostringstream text;
    printEvent(text, e);
    return text.str();
}

const std::string request =
    "86 00 00 00 03 00 00 00 07 00 00 00 00 00 00 00 01 00 00 00 00 00 00 00 61 0A 00 00 01"
    "02 00 00 00 01 00 00 00 02 00 00 00 06 00 00 00 50 00 00 00 3C 00 00 00 E8 03 00 00"
    "D0 07 00 00 00 00 00 00 00 00 00 00 ";
const std::string requestPrint =
    "CHECK_REQUEST {\n  dest: rmch\n  inresponse: 7\n  host: \"a\"\n  addr: 10.0.0.1\n"
    "  id:     val: small_vector<3> {\n        1\n        2\n      }\n  service: 6\n  port: 80\n"
    "  frequency: 60\n  warnIfAbove: 1000\n  alertIfAbove: 2000\n  libssl: \"\"\n"
    "  properties: map {\n";
const std::string header = " 00 00 00 00 00 00 00 09 00 00 00 00 00 00 00 ";
const std::string exceptionX = " 00 00 00 00 09 00 00 00 01 00 00 00 01 00 00 00 00 00 00 00 78";

// A frame with a plain header, and how it prints.
std::pair<std::string, std::string> plain(event_t number, const std::string& payload,
                                          const std::string& printed)
{
    const std::string opening = " {\n  dest: main\n  inresponse: 9\n";
    return {hexToString(number, 2) + header + payload,
            eventName(number) + opening + printed + "}\n"};
}

// The prints show that each value has reached its field.
TEST(event, framesAreExact)
{
    const std::pair<std::string, std::string> cases[] = {
        {request + "00 00 00 00", requestPrint + "  }\n}\n"},
        {request + "01 00 00 00 1E 02 00 00 07 00 00 00 1E 02 00 00 00 00 00 00 00 00 00 00"
                   "04 00 00 00 00 00 00 00 5E 32 2E 2E",
         requestPrint + "    key: 542\n    value:       name: 542\n"
                        "      is_null: false\n      modifiers: 0\n  }\n}\n"},
        {"87 00 00 00 FF FF FF FF 00 00 00 00 00 00 00 00 00 CA 9A 3B 00 00 00 00"
         "02 00 00 00 01 00 00 00 02 00 00 00 00 00 00 00 19 00 00 00 00 00 00 00"
         "01 00 00 00 02 00 00 00 00 00 00 00 6F 6B",
         "CHECK_RESULT {\n  dest: none\n  inresponse: 0\n  ctime: 1000000000\n"
         "  check_id:     val: small_vector<3> {\n        1\n        2\n      }\n  result: 0\n"
         "  replytime: 25\n  attempts: 0\n  result_strings: list {\n    \"ok\"\n  }\n}\n"},
        {"C3 00 00 00" + exceptionX,
         "MESSAGE_EXCEPTION {\n  dest: main\n  inresponse: 9\nException: \"x\"\n}\n"},
        {"04 00 00 00 00 00 00 00 02 00 00 00 00 00 00 00 11 00 00 00 00 00 00 00"
         "6E 65 74 63 68 65 63 6B 20 69 73 20 61 6C 69 76 65 00 00 00 00",
         "SYSTEM_LOG_REQUEST {\n  dest: main\n  inresponse: 2\n"
         "  msg: \"netcheck is alive\"\n  log_type: 0\n}\n"},
        plain(GET_FIRST_ID, "", ""),
        plain(RPC_HANDLERREGISTER, "34 F2 00 00", "  function: 62004\n"),
        plain(CREATE_TIMESERIES,
              "FF FF FF FF 02 00 00 00 02 00 00 00 01 00 00 00 00 00 00 00 05 00 00 00",
              "  first: 4294967295\n  second: list {\n    first: 2\n    second: 1\n    first: 0\n"
              "    second: 5\n  }\n"),
        plain(RETURN_GET_DATA,
              "02 00 00 00 02 00 00 00 00 00 00 00 01 00 00 00 07 00 00 00"
              "02 00 00 00 00 00 00 00 22 0A FF FF FF FF FF FF FF FF",
              "  data_type: 2\n  data: list {\n    (null)\n"
              "    (t: incident)(sev: 7)(msg: \"\"\\n\")(itime: -1)\n  }\n"),
        plain(DATA_AGENTCHECK,
              "01 00 00 00 01 00 00 00 01 00 00 00 FE FF FF FF FF FF FF FF FF FF FF FF"
              "02 00 00 00 00 00 00 00 6F 6B 01 00 00 00 00 00 20 C0",
              "  data: map {\n    key:       val: small_vector<3> {\n          1\n        }\n"
              "    value:       ctime: -2\n      status: -1\n      comment: \"ok\"\n"
              "      has_valid_value: true\n      value: -2.500000\n  }\n"),
        plain(RETURN_NODECLASS_TRANSLATE,
              "02 00 00 00 00 00 00 00 01 00 00 00 01 00 00 00 05 00 00 00",
              "  ids: list {\n    list {\n    }\n    list {\n      val: small_vector<3> {\n"
              "          5\n        }\n    }\n  }\n"),
        plain(GRIDSETENDPOINTSECRET,
              "FF FF FF FF 05 00 00 00 00 00 00 00 00 00 00 00 01 04 03 02 01",
              "  shared_secret:     first: -1\n    second: 4294967296\n  peer_gid: 16909060\n"),
        plain(SCHEDULE_EVENT_ABSOLUTE, "00 CA 9A 3B 90 D0 03 00 01" + header + "05 00 00 00",
              "  time: Sun Sep 09 01:46:40 2001\n  ev: DAEMONIZE_SYSTEM {\n    dest: main\n"
              "    inresponse: 9\n    5\n  }\n"),
        plain(SCHEDULE_EVENT_RELATIVE, "FE FF FF FF 90 D0 03 00 C3 00 00 00" + exceptionX,
              "  time: -1.750000\n  ev: MESSAGE_EXCEPTION {\n    dest: main\n"
              "    inresponse: 9\nException: \"x\"\n  }\n"),
    };
    for (const auto& [hex, printed] : cases)
        EXPECT_EQ(print(*expectRead<std::unique_ptr<event>>(hex)), printed);

    // Any flag makes an exception, whatever the number says.
    expectTaken<std::unique_ptr<event>>(
        nullptr, "86 00 00 00 00 00 00 00 09 00 00 00 00 02 00 00 01 00 00 00 00 00 00 00 78",
        "C3 00 00 00" + exceptionX);
}

// An event as bytes and in print.
std::pair<std::string, std::string> formsOf(const event& e)
{
    return {written<event>(e), print(e)};
}

// Each event with values drawn at random: read in part and whole, written, printed, copied.
TEST(event, everyOneSurvivesTheWire)
{
    for (std::int32_t number = -1; number <= 197; ++number) {
        EXPECT_EQ(isKnownEvent(number), !RandomFiller(0).frame(number).empty()) << number;
        std::unique_ptr<event> previous = std::make_unique<exevent>(queue_t::none, 0, "text");
        for (std::int32_t seed = 20 * number; isKnownEvent(number) && seed % 20 < 19; ++seed) {
            SCOPED_TRACE(eventName(event_t{number}) + ", seed " + std::to_string(seed));
            const std::string bytes = RandomFiller(seed).frame(number);
            std::unique_ptr<event> read;
            EXPECT_EQ(readInto(read, bytes.substr(0, seed % bytes.size())), "EOS from memory");
            ASSERT_EQ(readInto(read, bytes), "left 0");
            const WalkedFrame walked = walkFrame(bytes + "more");
            EXPECT_TRUE(walked.whole && walked.size == bytes.size());
            const WalkedFrame part = walkFrame(bytes.substr(0, seed % bytes.size()));
            EXPECT_TRUE(!part.whole && part.size > seed % bytes.size() &&
                        part.size <= bytes.size());
            const auto forms = formsOf(*read);
            EXPECT_EQ(forms.first, bytes);
            const std::unique_ptr<event> copy = read->clone();
            EXPECT_TRUE(*copy == *read);
            read.reset();
            EXPECT_EQ(formsOf(*copy), forms) << "the copy, alone";
            ASSERT_EQ(readInto(read, bytes), "left 0");
            EXPECT_TRUE(*read == *copy);
            EXPECT_EQ(formsOf(*read), forms);

            previous->dest = read->dest;
            previous->inresponse = read->inresponse;
            EXPECT_EQ(*previous == *read, written(previous) == bytes);
            previous = std::move(read);
        }
    }
}

TEST(event, boundsTheNestingOfRecords)
{
    const std::string zeros(8, '\0');
    const std::string scheduled = unhex("81" + header) + zeros;
    const std::string group = zeros + unhex("01 00 00 00");
    std::string groups = unhex("15" + header + "00 00 00 00") + zeros + zeros;
    std::string events = scheduled + unhex("01" + header + "00 00 00 00");
    for (int depth = 1; depth <= 201; ++depth) {
        for (const std::string* bytes : {&groups, &events}) {
            std::unique_ptr<event> e;
            EXPECT_EQ(readInto(e, *bytes),
                      depth <= 200 ? "left 0"
                                   : "nesting too deep: more than 200 records within each other");
        }
        groups.insert(16, group).append(zeros);
        events.insert(0, scheduled);
    }
    // Records beside each other don't count.
    std::list<tql::id_t> ids(201);
    EXPECT_EQ(readInto(ids, written(ids)), "left 0");
}

// Each message about a number names the last good event of the link.
TEST(eventDeathTest, badNumbersEndTheProcess)
{
    const std::pair<std::string, const char*> cases[] = {
        {"00 00 00 00", "fdio >> event: unknown type index: 0 old was 0 dest 0\n"},
        {"C4 00 00 00", "fdio >> event: unknown type index: 196 old was 0 dest 0\n"},
        {request + "00 00 00 00 45 00 00 00",
         "fdio >> event: unknown type index: 69 old was 134 dest 3\n"},
        {"86 00 00 00" + exceptionX + "46 00 00 00",
         "fdio >> event: unknown type index: 70 old was 134 dest 0\n"},
        // Within an event.
        {"80" + header + "00 00 00 00 00 00 00 00 47 00 00 00",
         "fdio >> event: unknown type index: 71 old was 0 dest 0\n"},
        {"C3 00 00 00 00 00 00 00 09 00 00 00 00 00 00 00", "Found exevent with .exception == 0\n"},
    };
    for (const auto& [hex, message] : cases) {
        memory::Input input(unhex(hex));
        protocol::ioprim link(&input, nullptr);
        std::unique_ptr<event> e;
        EXPECT_DEATH(link >> e >> e, std::string("^Assertion failed: ") + message);
    }
}

TEST(eventDeathTest, scheduledEventsMustBeThere)
{
    using Payload = scheduler::Schedule_Event_Relative_Data;
    const devent<SCHEDULE_EVENT_RELATIVE, Payload> e(queue_t::none, 0);
    EXPECT_TRUE(*e.clone() == e);
    EXPECT_DEATH(written<event>(e),
                 "^Assertion failed: fdio << event: a record without its event\n");
    EXPECT_DEATH(print(e), "^Assertion failed: Trying to print a record without its event\n");
}

TEST(names, ofEventsAndQueues)
{
    std::string names;
    for (const int number : {-1, 0, 195, 69, 71, 196, 197})
        names += eventName(static_cast<event_t>(number)) + ' ';
    for (std::int32_t number = -2; number <= 23; ++number)
        names += queueName(static_cast<queue_t>(number)) + ' ';
    EXPECT_EQ(names + queueName(static_cast<queue_t>(1000)),
              "(event_t)-1 INVALID_HEAD MESSAGE_EXCEPTION (event_t)69 (event_t)71 INVALID_TAIL "
              "(event_t)197 4294967294 none main schd dbms rmch skio alrm alrt snmp brdc bnch port "
              "keyg rept forc kngt nets grid ncup gmas gsat tsdb upln extra xx23 1000");
}

}  // namespace
