// Events: the exact bytes, all of them there and back, what a reader makes of bad ones, the print
// form and the names.
#include "queues/event.h"

#include "queues/records/control.h"
#include "queues/records/remcheck.h"
#include "queues/records/services.h"
#include "tests/queues/RandomFiller.h"
#include "tests/queues/frames.h"

#include <cstdint>
#include <sstream>
#include <string>

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
const std::string requestPrint = R"(CHECK_REQUEST {
  dest: rmch
  inresponse: 7
  host: "a"
  addr: 10.0.0.1
  id:     val: small_vector<3> {
        1
        2
      }
  service: 6
  port: 80
  frequency: 60
  warnIfAbove: 1000
  alertIfAbove: 2000
  libssl: ""
  properties: map {
)";
const std::string exceptionX = " 00 00 00 00 09 00 00 00 01 00 00 00 01 00 00 00 00 00 00 00 78";

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
    };
    for (const auto& [hex, printed] : cases)
        EXPECT_EQ(print(*expectRead<std::unique_ptr<event>>(hex)), printed);

    // Any flag makes an exception, whatever the number says.
    expectTaken<std::unique_ptr<event>>(
        nullptr, "86 00 00 00 00 00 00 00 09 00 00 00 00 02 00 00 01 00 00 00 00 00 00 00 78",
        "C3 00 00 00" + exceptionX);
}

struct Anything {
    template <class T>
    operator T() const;
};

// How many members an aggregate has.
template <class T, class... Members>
constexpr std::size_t memberCount()
{
    if constexpr (requires { T{Members()..., Anything()}; })
        return memberCount<T, Members..., Anything>();
    else
        return sizeof...(Members);
}

template <class T>
void expectCompleteList()
{
    if constexpr (Record<T> && std::is_aggregate_v<T>) {
        T record{};
        FieldCounter counter;
        T::fields(record, counter);
        EXPECT_EQ(counter.count, memberCount<T>()) << typeid(T).name();
    }
}

// Payloads drawn at random, written, cloned and read.
template <std::int32_t N, class T>
void roundTrip()
{
    SCOPED_TRACE(eventName(static_cast<event_t>(N)));
    expectCompleteList<T>();
    RandomFiller filler(N);
    for (int turn = 0; turn < 20; ++turn) {
        devent<N, T> original(queue_t::rmch, turn);
        filler.fill(original.data);
        const std::unique_ptr<event> copy = original.clone();
        std::unique_ptr<event> read;
        ASSERT_EQ(readInto(read, written<event>(original)), "left 0");
        EXPECT_TRUE((dynamic_cast<const devent<N, T>&>(*read).data == original.data));
        EXPECT_EQ(written(read), written(copy));
        EXPECT_EQ(print(*read), print(*copy));
    }
}

TEST(event, everyOneSurvivesTheWire)
{
#define EVENT(number, name, ...) roundTrip<number, __VA_ARGS__>();
#define EVENT_LATER(number, name) EXPECT_FALSE(isKnownEvent(number));
#define EVENT_EXCEPTION(number, name) EXPECT_TRUE(isKnownEvent(number));
#include "queues/EventTable.inc"
#undef EVENT
#undef EVENT_LATER
#undef EVENT_EXCEPTION
    expectCompleteList<tql::object_t>();
    expectCompleteList<tql::select_t>();
}

TEST(event, boundsTheNestingOfRecords)
{
    const auto nested = [](std::size_t levels) {
        std::string bytes = unhex("15 00 00 00") + std::string(12, '\0');
        for (std::size_t level = 1; level < levels; ++level)
            bytes += unhex("00 00 00 00 00 00 00 00 01 00 00 00");
        return bytes + std::string(12 + 8 * levels, '\0');
    };
    std::unique_ptr<event> e;
    EXPECT_EQ(readInto(e, nested(200)), "left 0");
    EXPECT_EQ(readInto(e, nested(201)),
              "nesting too deep: more than 200 records within each other");
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
        {request + "00 00 00 00 19 00 00 00",
         "fdio >> event: unknown type index: 25 old was 134 dest 3\n"},
        {"86 00 00 00" + exceptionX + "45 00 00 00",
         "fdio >> event: unknown type index: 69 old was 134 dest 0\n"},
        {"C3 00 00 00 00 00 00 00 09 00 00 00 00 00 00 00", "Found exevent with .exception == 0\n"},
    };
    for (const auto& [hex, message] : cases) {
        memory::Input input(unhex(hex));
        protocol::ioprim link(&input, nullptr);
        std::unique_ptr<event> e;
        EXPECT_DEATH(link >> e >> e, std::string("^Assertion failed: ") + message);
    }
}

TEST(names, ofEventsAndQueues)
{
    std::string names;
    for (const int number : {-1, 0, 1, 68, 69, 71, 72, 134, 194, 195, 196, 197})
        names += eventName(static_cast<event_t>(number)) + ' ';
    for (std::int32_t number = -2; number <= 23; ++number)
        names += queueName(static_cast<queue_t>(number)) + ' ';
    EXPECT_EQ(names + queueName(static_cast<queue_t>(1000)),
              "(event_t)-1 INVALID_HEAD DAEMONIZE_SYSTEM CLEAR_FIRE_FLAG (event_t)69 (event_t)71 "
              "AUDIT_EVENT CHECK_REQUEST EPSECCHANGENOTIFICATION MESSAGE_EXCEPTION INVALID_TAIL "
              "(event_t)197 4294967294 none main schd dbms rmch skio alrm alrt snmp brdc bnch port "
              "keyg rept forc kngt nets grid ncup gmas gsat tsdb upln extra xx23 1000");
}

}  // namespace
