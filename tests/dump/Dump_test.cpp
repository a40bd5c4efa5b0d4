// The forms in which netcheck-dump shows events, and what it says of bytes that are none.

#include "dump/Dump.h"

#include "common/shown.h"
#include "dump/Value.h"
#include "tests/queues/frames.h"
#include "tests/support/Process.h"
#include "tests/support/Wire.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <sstream>

namespace {

using enum dump::Form;
using frames::unhex;
using testing::HasSubstr;

struct Shown {
    std::string out;  // with "|" for line ends, as `errors`
    std::string errors;
    bool understood;
    bool operator==(const Shown&) const = default;
};

Shown shownOf(std::string_view bytes, dump::Form form, std::size_t piece = 1 << 20)
{
    std::ostringstream out;
    std::ostringstream errors;
    const auto view = makeView(form, out, errors);
    dump::Dump dump(*view);
    for (; !bytes.empty(); bytes.remove_prefix(std::min(piece, bytes.size())))
        dump.append(bytes.substr(0, piece));
    dump.finish();
    Shown shown = {out.str(), errors.str(), dump.isUnderstood()};
    std::replace(shown.out.begin(), shown.out.end(), '\n', '|');
    std::replace(shown.errors.begin(), shown.errors.end(), '\n', '|');
    return shown;
}

std::string frame(std::int32_t number, const std::string& payload, std::int32_t exception = 0)
{
    return support::frameHeader(number, 0, 0, exception) + unhex(payload);
}

const std::string request = unhex(
    "86000000 03000000 07000000 00000000 0100000000000000 61 0A000001 02000000 01000000 02000000 "
    "06000000 50000000 3C000000 E8030000 D0070000 0000000000000000 01000000 1E020000 07000000 "
    "1E020000 00000000 00000000 0400000000000000 5E322E2E");
const std::string result = unhex(
    "87000000 FFFFFFFF 00000000 00000000 00CA9A3B00000000 02000000 01000000 02000000 00000000 "
    "19000000 00000000 01000000 0200000000000000 6F6B");
const std::string exceptionEvent = unhex("C3000000 00000000 09000000 01000000 0100000000000000 78");
const std::string badFrame = frame(130, "04000000");

std::string entry(std::int64_t time, int kind, int worker, const std::string& bytes)
{
    const auto size = static_cast<std::int64_t>(bytes.size());
    support::Encoder encoder;
    encoder.int32(kind).int32(worker).int64(1'000'000'000'000'000 + time).int32(size).raw(bytes);
    return encoder.bytes();
}

// Two workers, in pieces that begin and end within frames. One sends a bad frame, the other ends
// within a frame.
const std::string recording =
    "NETCHKR1" + entry(0, 2, 1, "") + entry(1, 0, 1, request.substr(0, 50)) +
    entry(2, 1, 1, exceptionEvent.substr(0, 3)) +
    entry(3, 0, 1, request.substr(50) + request.substr(0, 9)) + entry(4, 1, 2, badFrame + result) +
    entry(5, 1, 1, exceptionEvent.substr(3)) + entry(6, 0, 2, exceptionEvent) +
    entry(7, 3, 1, "was killed by \x1b[1m");

TEST(Dump, ShowsTheWorkedExamples)
{
    const std::string all = request + result + exceptionEvent;
    const std::string inText =
        "offset 0 (0x0), 105 bytes|CHECK_REQUEST {|  dest: rmch|  inresponse: 7|  host: \"a\"|  "
        "addr: 10.0.0.1|  id:     val: small_vector<3> {|        1|        2|      }|  service: "
        "6|  port: 80|  frequency: 60|  warnIfAbove: 1000|  alertIfAbove: 2000|  libssl: \"\"|  "
        "properties: map {|    key: 542|    value:       name: 542|      is_null: false|      "
        "modifiers: 0|  }|}||offset 105 (0x69), 62 bytes|CHECK_RESULT {|  dest: none|  inresponse: "
        "0|  ctime: 1000000000|  check_id:     val: small_vector<3> {|        1|        2|      }|"
        "  result: 0|  replytime: 25|  attempts: 0|  result_strings: list {|    \"ok\"|  }|}||"
        "offset 167 (0xa7), 25 bytes|MESSAGE_EXCEPTION {|  dest: main|  inresponse: 9|Exception: "
        "\"x\"|}||";
    const std::string inJson =
        R"({"offset":0,"size":105,"event":"CHECK_REQUEST","type":134,"dest":"rmch","inresponse":7,)"
        R"("exception":false,"payload":{"host":"a","addr":"10.0.0.1","id":"1.2","service":6,)"
        R"("port":80,"frequency":60,"warnIfAbove":1000,"alertIfAbove":2000,"libssl":"",)"
        R"("properties":[{"key":542,"value":{"class":"property_string_t","name":542,)"
        R"("propertyName":"httpStatusRegex","isNull":false,"modifiers":0,"value":"^2.."}}]}}|)"
        R"({"offset":105,"size":62,"event":"CHECK_RESULT","type":135,"dest":"none","inresponse":0,)"
        R"("exception":false,"payload":{"ctime":1000000000,"check_id":"1.2","result":0,)"
        R"("replytime":25,"attempts":0,"result_strings":["ok"]}}|)"
        R"({"offset":167,"size":25,"event":"MESSAGE_EXCEPTION","type":195,"dest":"main",)"
        R"("inresponse":9,"exception":true,"payload":"x"}|)";
    EXPECT_EQ(shownOf(all, text), (Shown{inText, "", true}));
    EXPECT_EQ(shownOf(all, json), (Shown{inJson, "", true}));
}

TEST(Dump, LosesNothingInJson)
{
    const std::string property = "15020000 15000000 15020000 01000000 00000000";
    const std::string large = dump::hexBytes(std::string(4097, '\n'));
    std::string deepest = frame(17, "FFFFFFFFFFFFFFFF");
    for (int depth = 0; depth < 200; ++depth)
        deepest.insert(0, frame(129, "0000000000000000"));
    const std::pair<std::string, std::string> cases[] = {
        {frame(12, "0500000000000000 1B225CC3A4"), R"("\u001b\"\\\u00e4")"},
        {frame(12, "0100000000000000 C3"), R"({"hex":"c3"})"},
        {frame(134, "0100000000000000 78", 2), R"("exception":true,"payload":"x")"},
        {frame(18, "9A9999999999B93F"), ":0.1"},
        {frame(32, "00000000 03000000 01000000 02000000 0000000000000000 FBFFFFFFFFFFFFFF "
                   "00000000 04000000"),
         R"([{"class":"data_interval_incident_t","sev":2,"msg":"","itime":-5},null,{"unknownTag":4}]})"},
        {frame(32, "00000000 01000000 02000000 0100000000000000 0200000000000000 CDCCCC3D "
                   "0000C07F 00000080 03000000 04000000"),
         R"("start":1,"end":2,"min":0.1,"avg":"nan","max":-0,"ngood":3,"nbad":4}]})"},
        {frame(137, "0500000000000000 0000000001 0110000000000000" + large),
         R"({"modulus":"4294967296","generator":{"hex":")" + large + "\"}}"},
        {frame(129, "FFFFFFFF 20A10700") + frame(129, "01000000 FFFFFFFF") + frame(10, "17000000"),
         R"("payload":{"time":-0.500000,"ev":{"event":"SCHEDULE_EVENT_RELATIVE","type":129,)"
         R"("dest":"main","inresponse":0,"exception":false,"payload":{"time":{"sec":1,"usec":-1},)"
         R"("ev":{"event":"REQUEST_SPAWN_PROCESS","type":10,"dest":"main","inresponse":0,)"
         R"("exception":false,"payload":"xx23"}}}})"},
        {frame(134,
               std::string(88, '0') + "02000000" + property + "00000000" + property + "02000000"),
         R"("value":false}},{"key":533,"value":{"class":"property_boolean_t","name":533,)"
         R"("propertyName":"connClose","isNull":true,"modifiers":0,"value":true}}]})"},
        {deepest, ":18446744073709551615" + std::string(400, '}')},
    };
    for (const auto& [bytes, payload] : cases) {
        const Shown shown = shownOf(bytes, json);
        EXPECT_THAT(shown.out, testing::EndsWith(payload + "}|"));
        EXPECT_TRUE(shown.understood && shownOf(bytes, text).understood) << shown.errors;
    }
}

TEST(Dump, TellsWhereAndWhyAFrameIsBad)
{
    const std::string cut = result + result;
    const std::tuple<std::string, dump::Form, const char*> cases[] = {
        {result, fields, "|offset 0 (0x0), 62 bytes|       0    0000  87 00 00 00       "},
        {result, fields, "|      60    003c  6f 6b                      result_strings[0]"},
        {result + frame(500, "") + result, text, "t)500, field type at offset 62 (0x3e): no event"},
        {frame(195, ""), text, "EXCEPTION, field exception at offset 12 (0xc): an exception witho"},
        {badFrame + result, text, "REMOTE_CHECK, field id at offset 16 (0x10): an identifier of 4"},
        {result + frame(12, "0000000000010000"), text, "payload at offset 78 (0x4e): a text of 10"},
        {frame(49, std::string(64, '0')), text, "field stat at offset 20 (0x14): invalid snmpchec"},
        {frame(129, "0000000000000000 46000000"), text, "(event_t)70, field ev.type at offset 24 "},
        {cut.substr(0, 64), text, "cut off: field type at offset 62 (0x3e): only 2 of at least 4"},
        {cut.substr(0, 68), text, "CHECK_RESULT, field dest at offset 66 (0x42): only 6 of at lea"},
        {cut.substr(0, 72), text, "inresponse at offset 70 (0x46): only 10 of at least 12 bytes"},
        {cut.substr(0, 76), text, "exception at offset 74 (0x4a): only 14 of at least 16 bytes"},
        {cut.substr(0, 123), text, "result_strings[0] at offset 114 (0x72): only 61 of at least 6"},
        {cut.substr(0, 123), text, "|offset 0 (0x0), 62 bytes|CHECK_RESULT {|"},
        {badFrame, text, "4 numbers|read of it:|         0    0000  82 00 00 00         "},
        {badFrame, text, "  ....|            ^^|Frames don't tell their length, so nothing"},
        {badFrame, json, R"({"error":"an identifier of 4 numbers","offset":0,"fieldOffs)"},
        {badFrame, json, R"(t":16,"event":"REMOTE_CHECK","type":130,"field":"id"}|)"},
        {recording, text, "2001-09-09T01:46:40.000000Z worker 1 started|"},
        {recording, text, "03Z to worker 1, offset 0 (0x0), 105 bytes|CHECK_REQUEST {|"},
        {recording, text, "05Z from worker 1, offset 0 (0x0), 25 bytes|MESSAGE_EXCEPTI"},
        {recording, text, "06Z to worker 2, offset 0 (0x0), 25 bytes|MESSAGE_EXCEPTION"},
        {recording, text, R"(07Z worker 1 was killed by \x1b[1m|)"},
        {recording, text, ": from worker 2: the frame at offset 0 (0x0) can't be decod"},
        {recording, text, ": to worker 1: the frame at offset 105 (0x69) is cut off: C"},
        {recording, json, R"({"time":1000000000.000000,"worker":1,"state":"started"}|)"},
        {recording, json, R"("time":1000000000.000003,"worker":1,"direction":"to worke)"},
        {"NETCHKR1\4", json, R"(|{"error":"it is cut off within an entry","recordingOf)"},
        {"NETCHKR1\4more than twenty bytes", json, R"("recordingOffset":8}|)"},
    };
    for (const auto& [bytes, form, part] : cases) {
        const Shown shown = shownOf(bytes, form);
        EXPECT_THAT("|" + shown.out + shown.errors, HasSubstr(part));
        EXPECT_EQ(shown.understood, bytes == result);
    }
    const std::string all = shownOf(recording, text).out;
    EXPECT_EQ(std::count(all.begin(), all.end(), 'Z'), 5) << all;
}

TEST(Dump, IsFitForTerminalsHoweverTheBytesCome)
{
    const std::string evil = "1300000000000000 1B5D303B7807 9B33316D C29B E280AE 0D7F5C0A";
    const std::string inputs[] = {"", request + badFrame + result, result + result.substr(0, 30),
                                  frame(12, evil) + frame(195, evil, 1) + frame(4, evil),
                                  recording};
    for (const std::string& bytes : inputs) {
        for (const dump::Form form : {text, fields, json}) {
            const Shown whole = shownOf(bytes, form);
            EXPECT_EQ(whole.understood, bytes.empty());
            EXPECT_EQ(whole.out + whole.errors, printable(whole.out + whole.errors));
            for (std::size_t piece = 1; piece < bytes.size(); piece += piece < 70 ? 1 : 97)
                EXPECT_EQ(shownOf(bytes, form, piece), whole) << piece;
        }
    }
}

TEST(NetcheckDump, EndsWithACode)
{
    using Arguments = std::vector<std::string>;
    const std::tuple<Arguments, std::string, int, const char*> cases[] = {
        {{}, "", 0, ""},
        {{"--json", "-"}, badFrame, 1, "an identifier of 4 numbers"},
        {{"--events", "134"}, "", 0, "\ntql::object_origin_t\n    domain_id  identifier\n"},
        {{"/nowhere/file"}, "", 2, "netcheck-dump: /nowhere/file: No such file or directory\n"},
        {{"--json", "--fields"}, "", 3, "netcheck-dump: only one of "},
        {{"--events", "\x1b"}, "", 3, R"(netcheck-dump: there is no event '\x1b')"},
    };
    for (const auto& [arguments, input, code, part] : cases) {
        support::Process program({.program = NETCHECK_DUMP, .arguments = arguments});
        program.sendBytes(input);
        program.closeInput();
        const support::ProcessEnd end = program.waitForEnd();
        EXPECT_EQ(end.code, code) << part;
        EXPECT_THAT(end.output + end.errors, HasSubstr(part));
    }
    support::Process live({.program = NETCHECK_DUMP});
    live.sendBytes(result + request.substr(0, 70));
    live.waitForOutput("CHECK_RESULT {");
    live.closeOutput();
    live.sendBytes(request.substr(70));
    live.closeInput();
    EXPECT_EQ(live.waitForEnd().errors, "");
}

}  // namespace
