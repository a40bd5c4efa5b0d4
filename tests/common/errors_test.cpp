// Failures and their texts.

#include "common/BigNum.h"
#include "common/Time.h"
#include "common/assertion.h"
#include "common/errors.h"
#include "common/log.h"
#include "common/systemError.h"
#include "platform/ErrorCode.h"

#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <vector>

namespace {

TEST(AssertionDeathTest, LastWordsOfAnAbort)
{
    std::size_t size = 3;
    struct Case {
        std::function<void()> action;
        std::string text;
    };
    const Case cases[] = {
        {[] { assertion("Unknown selector 7"); }, "Assertion failed: Unknown selector 7\n"},
        {[] { time2str(-1, TimeZone(0)); },
         "Assertion failed: time2str(): Parameter less than 0\n"},
        {[&] { BigNum(7).bn_get_data(nullptr, &size); },
         "Assertion failed: Buffer given to bn_get_data is too small (wanted 4)\n"},
        {[] { std::vector<BigNum>(1001, BigNum(7)); }, ""},  // one copy too many
    };
    for (const Case& c : cases)
        EXPECT_EXIT(c.action(), testing::KilledBySignal(SIGABRT), testing::Eq(c.text));
}

TEST(Log, WithoutQueueIsALineOnStandardError)
{
    testing::internal::CaptureStderr();
    log("two words", logTrace);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Log: two words\n");
}

TEST(Errors, TqlTextIsTheMessageOrElseThatOfTheStatus)
{
    // From -1 on.
    const char* const texts[] = {"Unknown error",
                                 "No error",
                                 "Specified ID not found in database",
                                 "Pattern matched nothing",
                                 "Someone else has updated the object",
                                 "Attempted insertion of duplicate value in unique property",
                                 "Specified class not allowed as child of given object",
                                 "Some required properties is missing",
                                 "Requested update of noexistant property",
                                 "Requested update of const property",
                                 "Property updated with illegal type",
                                 "Property updated with illegal value",
                                 "Incomparable property",
                                 "The pattern is not implemented",
                                 "Unknown error",
                                 "Backend error",
                                 "Access denied",
                                 "Unknown error"};
    for (std::int32_t status = -1; status <= 16; ++status)
        EXPECT_EQ(errors::tql("", status).text(), texts[status + 1]) << status;
    EXPECT_EQ(errors::tql("x", 1).text(), "x");
}

TEST(Errors, SystemErrorsPickTheirClassByTheCode)
{
    for (const std::uint32_t code : {1U, 2U, 3U, 4U, 183U, 4000000000U}) {
        try {
            throwSystemError(code, "opening x");
        } catch (const error::ESystemError& e) {
            const bool notFound = dynamic_cast<const error::EFileNotFoundError*>(&e) != nullptr;
            const bool exists = dynamic_cast<const error::EFileExistsError*>(&e) != nullptr;
            EXPECT_EQ(notFound, code == 2 || code == 3) << code;
            EXPECT_EQ(exists, code == 183) << code;
            EXPECT_EQ(e.text(), "opening x: " + systemErrorText(code));
        }
    }
}

TEST(SystemError, AnUnknownCodeTellsTheNewLastError)
{
    platform::setLastError(54321);
    EXPECT_EQ(lastSystemErrorText(), "54321 (FormatMessage: 317)");
    EXPECT_EQ(platform::getLastError(), 317U);
}

}  // namespace
