#include "parent/FrameReader.h"

#include "queues/records/control.h"
#include "queues/records/services.h"
#include "tests/support/Case.h"
#include "tests/support/Wire.h"

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

namespace {

using parent::FrameReader;
using queues::EBadFrame;
using support::Encoder;
using support::frameHeader;

using LogLine = queues::devent<queues::SYSTEM_LOG_REQUEST, control::Log_Request_Data>;
using Result = queues::devent<queues::CHECK_RESULT, services::remcheck_stat>;

std::string logFrame(const std::string& text, std::int32_t type)
{
    return frameHeader(4, 0, 2, 0) + Encoder().text(text).int32(type).bytes();
}

std::string resultFrame()
{
    const support::CheckResult result = {1'000'000'000, {1, 2, 3}, 6, 25, 0, {"ok", "", "more"}};
    return result.encode();
}

std::string exceptionFrame()
{
    return frameHeader(195, 0, 9, 1) + Encoder().text("why").bytes();
}

// What the event holds, as one line.
std::string told(const queues::event& event)
{
    std::ostringstream text;
    if (const auto* line = dynamic_cast<const LogLine*>(&event)) {
        text << line->data.log_type << ' ' << line->data.msg;
    } else if (const auto* result = dynamic_cast<const Result*>(&event)) {
        const services::remcheck_stat& data = result->data;
        text << data.ctime << ' ' << (data.check_id == tql::id_t{1, 2, 3}) << ' ' << data.result
             << ' ' << data.replytime;
        for (const std::string& string : data.result_strings)
            text << " '" << string << "'";
    } else {
        text << dynamic_cast<const queues::exevent&>(event).text;
    }
    return text.str();
}

TEST(FrameReader, GivesTheSameEventsHoweverTheBytesCome)
{
    const std::string bytes = logFrame("alive", 1024) + resultFrame() + exceptionFrame();
    const std::vector<std::string> expected = {"1024 alive", "1000000000 1 6 25 'ok' '' 'more'",
                                               "why"};
    for (std::size_t piece = 1; piece <= bytes.size(); ++piece) {
        FrameReader reader;
        std::vector<std::string> events;
        for (std::size_t at = 0; at < bytes.size(); at += piece) {
            reader.append(std::string_view(bytes).substr(at, piece));
            while (const std::unique_ptr<queues::event> event = reader.next())
                events.push_back(told(*event));
        }
        EXPECT_EQ(events, expected) << "pieces of " << piece;
        EXPECT_FALSE(reader.inFrame());
    }
}

const std::string logStart = frameHeader(4, 0, 0, 0);
const std::string exceptionStart = frameHeader(195, 0, 0, 1);
const std::string resultStart = frameHeader(135, 0, 0, 0) + Encoder().int64(0).bytes();

const struct {
    std::string bytes;
    const char* message;
} badCases[] = {
    {frameHeader(0, 0, 0, 0), "event number 0"},
    {frameHeader(196, 0, 0, 0), "event number 196"},
    {frameHeader(69, 0, 0, 0), "event number 69"},
    {"sh: 1: syntax error", "event number 540698739"},
    {frameHeader(134, 0, 0, 0), "event number 134"},
    {frameHeader(195, 0, 0, 0), "an exception without its flag"},
    {logStart + Encoder().int64((64 << 20) + 1).bytes(), "a text of 67108865 bytes"},
    {exceptionStart + Encoder().int64(64 << 20).bytes(), "a frame of more than 67108864 bytes"},
    {resultStart + Encoder().identifier({1, 2, 3, 4}).bytes(), "an identifier of 4 numbers"},
};

TEST(FrameReader, RefusesWhatNoWorkerSends)
{
    for (const auto& bad : badCases) {
        support::runCase(bad.message, [&] {
            FrameReader reader;
            reader.append(logFrame("first", 0) + bad.bytes);
            EXPECT_NE(reader.next(), nullptr) << "the good frame before it";
            try {
                reader.next();
                ADD_FAILURE() << "was accepted";
            } catch (const EBadFrame& e) {
                EXPECT_EQ(e.text(), bad.message);
            }
        });
    }
}

}  // namespace
