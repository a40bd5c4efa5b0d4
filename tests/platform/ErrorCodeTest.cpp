// Codes for errno values, and their texts.

#include "platform/ErrorCode.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace platform {
namespace {

TEST(ErrorCodes, DependOnWhereTheErrnoComesFromAndHaveATextWherever)
{
    struct Case {
        int errnoValue;
        std::uint32_t codes[4];  // in the order of ErrorSource
        const char* text;        // of the first
    };
    const Case cases[] = {
        {EAGAIN, {997, 997, 997, 997}, "Operation now in progress"},
        {EPIPE, {109, 109, 10054, 10054}, "Broken pipe"},
        {ENOENT, {2, 2, 2, 2}, "No such file or directory"},
        {EACCES, {5, 5, 10013, 10013}, "Permission denied"},
        {EBADF, {6, 6, 10038, 10038}, "Bad file descriptor"},
        {ENOSPC, {112, 112, 112, 112}, "No space left on device"},
        {EINVAL, {87, 87, 10022, 10014}, "Invalid argument"},  // 10022 is no completion
        {ECONNRESET, {10054, 109, 10054, 10054}, "Connection reset by peer"},
        {ECONNREFUSED, {10061, 10061, 10061, 10061}, "Connection refused"},
        {ETIMEDOUT, {10060, 10060, 10060, 10060}, "Connection timed out"},
        // Nothing is lost, and nothing is taken for a code of another meaning.
        {ESRCH, {0x20000003, 0x20000003, 0x20000003, 0x20000003}, "No such process"},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.text);
        for (int source = 0; source < 4; ++source) {
            const std::uint32_t code = errorCode(row.errnoValue, static_cast<ErrorSource>(source));
            EXPECT_EQ(code, row.codes[source]);
            EXPECT_TRUE(errorText(code));
        }
        EXPECT_EQ(errorText(row.codes[0]), row.text);
    }
    for (const std::uint32_t none : {13u, 317u, 0x20000000u, 0x20000000u + 4000, 0xFFFFFFFFu})
        EXPECT_FALSE(errorText(none)) << none;
}

}  // namespace
}  // namespace platform
