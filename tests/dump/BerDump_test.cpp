// The forms in which ber-dump shows messages, and what it says of bytes that are none.
#include "dump/BerDump.h"

#include "common/shown.h"
#include "tests/queues/frames.h"
#include "tests/support/Process.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <sstream>

namespace {

using frames::unhex;
using testing::HasSubstr;

// All output, and behind it all errors, with "|" for line ends.
std::string shownOf(std::string_view bytes, bool json, bool legacy = false, std::size_t piece = 999)
{
    std::ostringstream out;
    std::ostringstream errors;
    const auto view = dump::makeBerView(json, out, errors, legacy);
    dump::BerDump dump(*view, legacy);
    for (; !bytes.empty(); bytes.remove_prefix(std::min(piece, bytes.size())))
        dump.append(bytes.substr(0, piece));
    dump.finish();
    EXPECT_EQ(dump.isUnderstood(), errors.str().empty());
    std::string shown = out.str() + errors.str();
    std::replace(shown.begin(), shown.end(), '\n', '|');
    return shown;
}

const std::string hello = unhex("7F20 80 0000");
const std::string oldWants = unhex("6080 020109 6080 0000 0000");
const std::string bad = unhex("7480 020107 A080 3180 0401220000 3080 0400 020101 0500 0101FF");
// Definite lengths; unknown fields of the first element, an absent one of the second.
const std::string checkin = unhex(
    "6A80 3080 301E0201010402 5C410A010130050403E280AE05000401C30401FF3103020102 3080 02010504"
    "000A003000090400302E350000 0000 0000");
const std::string properties =
    unhex("7680 3080 3080 0400 020100 A480 090160 0000 0000 3080 0400 020100 AA80 020900FFFFFFFFFF"
          "FFFFFF 0000 0000 3080 0400 020100 AB80 02820410" +
          std::string(2080, 'F') + "0000 0000 0000 0000");

TEST(BerDump, ShowsMessagesAndWhatIsBad)
{
    const std::tuple<std::string, bool, std::string, std::string> cases[] = {
        {hello + checkin, false,
         R"(offset 0 (0x0), 5 bytes, HWScanReq||offset 5 (0x5), 59 bytes, CheckinReq|  0: ListOfCh)"
         R"(eckResult|    [0]: CheckResult|      0: int32 1|      1: text "\\A"|      2: CheckStat)"
         R"(us 1|      3: ListOfString128|        [0]: text "\xe2\x80\xae"|      value: variant nu)"
         R"(ll|      5: text "\xc3"|      6: unknown, tag 32 (universal 4), 1 byte: ff|      7: un)"
         R"(known, tag 137 (universal 17)|        0: unknown, tag 16 (universal 2), 1 byte: 02|   )"
         R"( [1]: CheckResult|      0: int32 5|      1: text ""|      2: CheckStatus 0|      3: Li)"
         R"(stOfString128 (empty)|      value: variant real 0.5|      5: text, absent||)",
         R"("size":59,"class":"CheckinReq","tag":83,"fields":{"0":[{"class":"CheckResult","fields")"
         R"(:{"0":1,"1":"\\A","2":1,"3":["\u202e"],"value":{"type":"null","value":null},"5":{"hex")"
         R"(:"c3"},"6":{"unknownTag":32,"hex":"ff"},"7":{"unknownTag":137,"children":[{"unknownTag)"
         R"(":16,"hex":"02"}]}}},{"class":"CheckResult","fields":{"0":5,"1":"","2":0,"3":[],"value)"
         R"(":{"type":"real","value":0.5}}}]}}|)"},
        {oldWants, true, "authentication: union ClientNoAuth (empty)||", R"(Auth","fields":{}}}})"},
        {properties, false, "union RealProp|        0: real nan|", R"({"0":"nan"})"},
        {properties, false, "uint64 18446744073709551615|", R"({"0":18446744073709551615})"},
        {properties, false, "bignum 3711623573", R"(8830616575"}}}}]}}|)"},
        {hello + bad, false,
         "Req||ber-dump: the message at offset 5 (0x5) can't be understood: Request, field req.patt"
         "ern.3, of PathPattern, at offset 28 (0x1c): Tag mismatch, got 8 expected BE_SEQ_CURRENT|"
         "read of it:|  ...|      0: SetOfString32|        [0]: text \"\\\"\"|      pattern: Pa"
         "thPattern|        0: text \"\"|        1: uint32 1|        2: nullable uint32 null|bytes",
         R"(8,"class":"Request","field":"req.pattern.3","fieldOf":"PathPattern"}|)"},
        {hello + bad, false, "|                                                ^^|Messages don't",
         R"({"error":"Tag mismatch, got 8 expected BE_SEQ_CURRENT","offset":5,"fieldOffset":28,)"},
        {oldWants, false, "|In the old numbering these bytes are good: try with --legacy.|", ""},
        {unhex("6E80"), false, "d: at offset 0 (0x0): Unkno", R"(,"class":null,"field":null,)"},
        {unhex("6A803080300302"), false, ": CheckinReq, field 0[0].0, of CheckRes", R"("0[0].0")"},
        {unhex("7F21800000"), false, "Resp, at offset 3 (0x3): Too few", R"(:null,"fieldOf":)"},
        {oldWants.substr(0, 5), true, " cut off: Cl", R"({"error":"only 5 bytes of it hav)"},
    };
    for (const auto& [bytes, legacy, text, json] : cases) {
        EXPECT_THAT(shownOf(bytes, false, legacy), HasSubstr(text));
        EXPECT_THAT(shownOf(bytes, true, legacy), HasSubstr(json));
    }
}

TEST(BerDump, IsFitForTerminalsHoweverTheBytesCome)
{
    const std::string all = hello + checkin + bad;
    for (std::size_t at = 0; at < 2 * all.size(); ++at) {
        std::string bytes = at < all.size() ? all.substr(0, at) : all;
        if (at >= all.size())
            bytes[at - all.size()] += static_cast<char>(1 + at * 89 % 255);
        for (const bool json : {false, true}) {
            const std::string whole = shownOf(bytes, json);
            EXPECT_EQ(whole, printable(whole));
            EXPECT_EQ(shownOf(bytes, json, false, 1 + at % 4), whole) << at;
            std::istringstream lines(json ? whole.substr(0, whole.find("ber-dump: ")) : "");
            for (std::string line; std::getline(lines, line, '|');)
                EXPECT_TRUE(nlohmann::json::accept(line)) << line;
        }
    }
}

TEST(BerDumpProgram, EndsWithACode)
{
    const std::tuple<std::vector<std::string>, std::string, int, const char*> cases[] = {
        {{"--legacy", "--json", "-"}, oldWants, 0, R"({"offset":0,"size":11,)"},
        {{}, oldWants, 1, "ber-dump: the message at offset 0 (0x0) can't be understood: Client"},
        {{"--classes"}, "", 0, "\nRelOperator  tag 80 (universal 10), a number\n"},
        {{"--classes", "SetOfString32"}, "", 0, "7), old tag 9 (universal 1), any number of text"},
        {{"--classes", "CheckConf"}, "", 0, "3 of 4 fields required\n    0     int32 -1 to 86400"},
        {{"--classes", "CheckConf"}, "", 0, "\n    conf  union of 0 ContinuousConf, 1 EnumConf,"},
        {{"/nowhere/file"}, "", 2, "ber-dump: /nowhere/file: No such file or directory\n"},
        {{"--classes", "\x1b"}, "", 3, R"(ber-dump: there is no class '\x1b'; see --classes for)"},
    };
    for (const auto& [arguments, input, code, part] : cases) {
        support::Process program({.program = BER_DUMP, .arguments = arguments});
        program.sendBytes(input);
        program.closeInput();
        const support::ProcessEnd end = program.waitForEnd();
        EXPECT_EQ(end.code, code) << part;
        EXPECT_THAT(end.output + end.errors, HasSubstr(part));
    }
    support::Process live({.program = BER_DUMP});
    live.sendBytes(hello + bad.substr(0, 7));
    live.waitForOutput("HWScanReq\n");
}

}  // namespace
