// The small functions that the checks share.
#include "checks/NetCheck.h"
#include "queues/records/services.h"

#include <gtest/gtest.h>

#include <list>
#include <string>

namespace {

TEST(JudgeReplyTime, ComparesWithTheThresholdsThatAreSet)
{
    using namespace services;
    const struct {
        std::int64_t replyTime;
        std::int32_t warnIfAbove;
        std::int32_t alertIfAbove;
        std::int32_t result;
    } cases[] = {
        {100000, 0, 0, RESULT_OK},
        {100, -1, -9000, RESULT_OK},
        {100, 100, 200, RESULT_OK},
        {101, 100, 200, RESULT_WARNING},
        {200, 100, 200, RESULT_WARNING},
        {201, 100, 200, RESULT_ALERT},
        {101, 100, 100, RESULT_ALERT},
        {150, 200, 100, RESULT_ALERT},
        {101, 0, 100, RESULT_ALERT},
        {101, 100, 0, RESULT_WARNING},
        {1LL << 31, 1, 0x7FFFFFFF, RESULT_ALERT},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(judgeReplyTime(c.replyTime, c.warnIfAbove, c.alertIfAbove), c.result)
            << c.replyTime << ' ' << c.warnIfAbove << ' ' << c.alertIfAbove;
    }
}

TEST(TokenizeReply, CutsAtTheWholeDelimiterAndDropsEmptyPieces)
{
    const struct {
        std::string text;
        std::string delimiter;
        std::list<std::string> pieces;
    } cases[] = {
        {"", "\r\n", {}},
        {"220 hello", "\r\n", {"220 hello"}},
        {"a\r\n\r\nb\r\nc", "\r\n", {"a", "b", "c"}},
        {"a\rb\nc\n\rd\r\ne\r", "\r\n", {"a\rb\nc\n\rd", "e\r"}},
        {"a---b----c", "--", {"a", "-b", "c"}},
        {std::string("a\0b\r\n", 5), "\r\n", {std::string("a\0b", 3)}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(tokenize_reply(c.text, c.delimiter), c.pieces) << c.text;
}

}  // namespace
