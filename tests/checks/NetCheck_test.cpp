// The small functions that the checks share.
#include "checks/NetCheck.h"
#include "queues/records/services.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <list>
#include <string>

namespace {

TEST(JudgeReplyTime, ComparesWithTheThresholdsThatAreSet)
{
    using namespace services;
    constexpr std::int32_t most = std::numeric_limits<std::int32_t>::max();
    const struct {
        const char* name;
        std::int64_t replyTime;
        std::int32_t warnIfAbove;
        std::int32_t alertIfAbove;
        std::int32_t result;
    } cases[] = {
        {"no thresholds", 100000, 0, 0, RESULT_OK},
        {"negative thresholds are none", 100, -1, -9000, RESULT_OK},
        {"below both", 50, 100, 200, RESULT_OK},
        {"equal to the warning threshold", 100, 100, 200, RESULT_OK},
        {"above the warning threshold", 101, 100, 200, RESULT_WARNING},
        {"equal to the alert threshold", 200, 100, 200, RESULT_WARNING},
        {"above the alert threshold", 201, 100, 200, RESULT_ALERT},
        {"the alert goes first", 101, 100, 100, RESULT_ALERT},
        {"an alert below the warning", 150, 200, 100, RESULT_ALERT},
        {"an alert threshold alone", 101, 0, 100, RESULT_ALERT},
        {"a warning threshold alone", 101, 100, 0, RESULT_WARNING},
        {"beyond 32 bits", std::int64_t{most} + 1, 1, most, RESULT_ALERT},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(judgeReplyTime(c.replyTime, c.warnIfAbove, c.alertIfAbove), c.result);
    }
}

TEST(TokenizeReply, CutsAtTheWholeDelimiterAndDropsEmptyPieces)
{
    const struct {
        const char* name;
        std::string text;
        std::string delimiter;
        std::list<std::string> pieces;
    } cases[] = {
        {"empty", "", "\r\n", {}},
        {"delimiters alone", "\r\n\r\n", "\r\n", {}},
        {"no delimiter", "220 hello", "\r\n", {"220 hello"}},
        {"ended line", "220 hello\r\n", "\r\n", {"220 hello"}},
        {"two lines and a tail", "a\r\nb\r\nc", "\r\n", {"a", "b", "c"}},
        {"an empty line between", "a\r\n\r\nb\r\n", "\r\n", {"a", "b"}},
        {"halves of the delimiter stay", "a\rb\nc\n\rd\r\ne\r", "\r\n", {"a\rb\nc\n\rd", "e\r"}},
        {"a delimiter within itself", "a---b----c", "--", {"a", "-b", "c"}},
        {"zero bytes are text", std::string("a\0b\r\n", 5), "\r\n", {std::string("a\0b", 3)}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(tokenize_reply(c.text, c.delimiter), c.pieces);
    }
}

}  // namespace
