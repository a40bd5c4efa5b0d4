#include "parent/FrameReader.h"

#include "queues/records/control.h"
#include "queues/records/services.h"
#include "tests/support/Case.h"
#include "tests/support/Wire.h"

#include <gtest/gtest.h>

#include <list>

namespace {

using parent::EBadFrame;
using parent::FrameReader;
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
    return frameHeader(135, -1, 0, 0) + Encoder()
                                            .int64(1'000'000'000)
                                            .identifier({1, 2, 3})
                                            .int32(6)
                                            .int32(25)
                                            .int32(0)
                                            .int32(3)
                                            .text("ok")
                                            .text("")
                                            .text("more")
                                            .bytes();
}

std::string exceptionFrame()
{
    return frameHeader(195, 0, 9, 1) + Encoder().text("why").bytes();
}

void expectAll(FrameReader& reader, int* seen)
{
    while (const std::unique_ptr<queues::event> event = reader.next()) {
        switch ((*seen)++) {
        case 0: {
            const auto& line = dynamic_cast<const LogLine&>(*event).data;
            EXPECT_EQ(line.msg, "netcheck is alive");
            EXPECT_EQ(line.log_type, 1024);
            break;
        }
        case 1: {
            const auto& result = dynamic_cast<const Result&>(*event).data;
            EXPECT_EQ(result.ctime, 1'000'000'000);
            EXPECT_EQ(result.check_id, (tql::id_t{1, 2, 3}));
            EXPECT_EQ(result.result, 6);
            EXPECT_EQ(result.replytime, 25);
            EXPECT_EQ(result.result_strings, (std::list<std::string>{"ok", "", "more"}));
            break;
        }
        case 2:
            EXPECT_EQ(dynamic_cast<const queues::exevent&>(*event).text, "why");
            break;
        default:
            ADD_FAILURE() << "an event too many";
        }
    }
}

TEST(FrameReader, GivesTheSameEventsHoweverTheBytesCome)
{
    const std::string bytes =
        logFrame("netcheck is alive", 1024) + resultFrame() + exceptionFrame();
    for (std::size_t piece = 1; piece <= bytes.size(); ++piece) {
        SCOPED_TRACE(piece);
        FrameReader reader;
        int seen = 0;
        for (std::size_t at = 0; at < bytes.size(); at += piece) {
            reader.append(std::string_view(bytes).substr(at, piece));
            expectAll(reader, &seen);
        }
        EXPECT_EQ(seen, 3);
        EXPECT_FALSE(reader.inFrame());
    }
}

TEST(FrameReader, GivesNothingForAPartOfAFrame)
{
    for (const std::string& frame : {logFrame("text", 0), resultFrame(), exceptionFrame()}) {
        for (std::size_t length = 0; length < frame.size(); ++length) {
            FrameReader reader;
            reader.append(std::string_view(frame).substr(0, length));
            EXPECT_EQ(reader.next(), nullptr);
            EXPECT_EQ(reader.inFrame(), length != 0);
        }
    }
}

// Decoding what has come anew at each piece would take hours.
TEST(FrameReader, ReadsAHugeLineInSmallPieces)
{
    const std::string frame = logFrame(std::string(std::size_t{48} << 20U, 'x'), 0);
    FrameReader reader;
    std::unique_ptr<queues::event> event;
    for (std::size_t at = 0; at < frame.size(); at += 512) {
        ASSERT_EQ(event, nullptr);
        reader.append(std::string_view(frame).substr(at, 512));
        event = reader.next();
    }
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(dynamic_cast<const LogLine&>(*event).data.msg.size(), std::size_t{48} << 20U);
}

struct BadCase {
    const char* name;
    std::string bytes;
    const char* message;
};

const BadCase badCases[] = {
    {"no event", frameHeader(0, 0, 0, 0), "event number 0"},
    {"beyond all events", frameHeader(196, 0, 0, 0), "event number 196"},
    {"negative", frameHeader(-1, 0, 0, 0), "event number -1"},
    {"a number without an event", frameHeader(69, 0, 0, 0), "event number 69"},
    {"text in place of frames", "sh: 1: syntax error", "event number 540698739"},
    {"an event that a worker never sends", frameHeader(134, 0, 0, 0), "event number 134"},
    {"the same as an exception", frameHeader(134, 0, 0, 1), "event number 134"},
    {"an exception event without an exception", frameHeader(195, 0, 0, 0),
     "an exception event that is none"},
    {"a log line of an absurd length", frameHeader(4, 0, 0, 0) + Encoder().int64(-1).bytes(),
     "a text of 18446744073709551615 bytes"},
    {"one byte too long", frameHeader(4, 0, 0, 0) + Encoder().int64((64 << 20) + 1).bytes(),
     "a text of 67108865 bytes"},
    {"a text that fits, but not its frame",
     frameHeader(195, 0, 0, 1) + Encoder().int64(64 << 20).bytes(),
     "a frame of more than 67108864 bytes"},
    {"an identifier of four numbers",
     frameHeader(135, 0, 0, 0) + Encoder().int64(0).identifier({1, 2, 3, 4}).bytes(),
     "an identifier of 4 numbers"},
};

TEST(FrameReader, RefusesWhatNoWorkerSends)
{
    for (const BadCase& bad : badCases) {
        support::runCase(bad.name, [&] {
            FrameReader reader;
            const std::string good = logFrame("first", 0);
            reader.append(good + bad.bytes);
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

TEST(FrameReader, TakesANegativeCountForNone)
{
    FrameReader reader;
    reader.append(frameHeader(135, 0, 0, 0) +
                  Encoder().int64(0).identifier({1}).int32(0).int32(1).int32(0).int32(-5).bytes());
    const std::unique_ptr<queues::event> event = reader.next();
    ASSERT_NE(event, nullptr);
    EXPECT_TRUE(dynamic_cast<const Result&>(*event).data.result_strings.empty());
}

}  // namespace
