// Codes for errno values, and their texts; the clocks; dynamic libraries.

#include "platform/ErrorCode.h"
#include "platform/Clock.h"
#include "platform/Crash.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <ctime>

namespace platform {
namespace {

TEST(ErrorCodes, DependOnWhereTheErrnoComesFrom)
{
    struct Case {
        int errnoValue;
        std::uint32_t file;
        std::uint32_t pipe;
        std::uint32_t socket;
        std::uint32_t completion;
    };
    const Case cases[] = {
        {0, 0, 0, 0, 0},
        {EAGAIN, 997, 997, 997, 997},
        {EINPROGRESS, 997, 997, 997, 997},
        {EPIPE, 109, 109, 10054, 10054},
        {ENOENT, 2, 2, 2, 2},
        {ENOTDIR, 3, 3, 3, 3},
        {EEXIST, 183, 183, 183, 183},
        {EACCES, 5, 5, 10013, 10013},
        {EPERM, 5, 5, 10013, 10013},
        {EBADF, 6, 6, 10038, 10038},
        {EMFILE, 4, 4, 10024, 10024},
        {ENOMEM, 8, 8, 8, 8},
        {ENOBUFS, 10055, 10055, 10055, 10055},
        {ENOSPC, 112, 112, 112, 112},
        {EIO, 1117, 1117, 1117, 1117},
        {ENAMETOOLONG, 206, 206, 206, 206},
        {EINVAL, 87, 87, 10022, 10014},  // never 10022 in a completion
        {ECONNRESET, 10054, 109, 10054, 10054},
        {ECONNREFUSED, 10061, 10061, 10061, 10061},
        {ETIMEDOUT, 10060, 10060, 10060, 10060},
        {ENETUNREACH, 10051, 10051, 10051, 10051},
        {EHOSTUNREACH, 10065, 10065, 10065, 10065},
        {EADDRNOTAVAIL, 10049, 10049, 10049, 10049},
        {EADDRINUSE, 10048, 10048, 10048, 10048},
        {ENOTCONN, 10057, 10057, 10057, 10057},
        {ECONNABORTED, 10053, 10053, 10053, 10053},
        {EMSGSIZE, 10040, 10040, 10040, 10040},
        // Nothing is lost, and nothing is taken for a code of another meaning.
        {ESRCH, 0x20000003, 0x20000003, 0x20000003, 0x20000003},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.errnoValue);
        EXPECT_EQ(errorCode(row.errnoValue, ErrorSource::file), row.file);
        EXPECT_EQ(errorCode(row.errnoValue, ErrorSource::pipe), row.pipe);
        EXPECT_EQ(errorCode(row.errnoValue, ErrorSource::socket), row.socket);
        EXPECT_EQ(errorCode(row.errnoValue, ErrorSource::socketCompletion), row.completion);
    }
}

TEST(ErrorCodes, EveryErrnoHasATextWhateverItsCode)
{
    for (int value = 1; value < 134; ++value) {
        if (!strerrordesc_np(value))
            continue;
        for (const ErrorSource source : {ErrorSource::file, ErrorSource::pipe, ErrorSource::socket,
                                         ErrorSource::socketCompletion}) {
            const std::uint32_t code = errorCode(value, source);
            const std::optional<std::string> text = errorText(code);
            ASSERT_TRUE(text) << value;
            EXPECT_NE(*text, "") << value;
            if (code > UNMAPPED_ERRNO) {
                EXPECT_EQ(*text, std::strerror(value));
            }
        }
    }
}

TEST(ErrorCodes, Texts)
{
    struct Case {
        std::uint32_t code;
        const char* text;  // null: none
    };
    const Case cases[] = {
        {2, "No such file or directory"},
        {6, "Bad file descriptor"},
        {109, "Broken pipe"},
        {995, "Operation canceled"},
        {10036, "Operation now in progress"},
        {10040, "Message too long"},
        {10054, "Connection reset by peer"},
        {10061, "Connection refused"},
        {UNMAPPED_ERRNO + ESRCH, "No such process"},
        {13, nullptr},  // an errno, but no code
        {317, nullptr},
        {UNMAPPED_ERRNO, nullptr},
        {UNMAPPED_ERRNO + 4000, nullptr},
        {0xFFFFFFFF, nullptr},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.code);
        EXPECT_EQ(errorText(row.code),
                  row.text ? std::optional<std::string>(row.text) : std::nullopt);
    }
}

TEST(Clocks, AgreeWithOneAnother)
{
    std::uint64_t ticks = 0;
    const std::time_t before = std::time(nullptr);
    ASSERT_TRUE(systemTimeAsFileTime(&ticks));
    const std::time_t after = std::time(nullptr);
    const auto seconds = static_cast<std::time_t>((ticks - 116'444'736'000'000'000) / 10'000'000);
    EXPECT_GE(seconds, before - 1);  // std::time may lag by a timer tick
    EXPECT_LE(seconds, after + 1);
    EXPECT_LE(std::abs(static_cast<double>(time64() - after)), 1.0);

    std::int64_t first = 0;
    std::int64_t second = 0;
    std::int64_t frequency = 0;
    ASSERT_TRUE(queryPerformanceFrequency(&frequency));
    ASSERT_TRUE(queryPerformanceCounter(&first));
    ASSERT_TRUE(queryPerformanceCounter(&second));
    EXPECT_GE(second, first);
    EXPECT_GE(frequency, 1'000'000);
}

TEST(Libraries, LoadOrSayWhyNot)
{
    void* const module = loadLibrary("libm.so.6");
    ASSERT_NE(module, nullptr);
    using Cosine = double (*)(double);
    const auto cosine = reinterpret_cast<Cosine>(getProcAddress(module, "cos"));
    ASSERT_NE(cosine, nullptr);
    EXPECT_EQ(cosine(0), 1.0);

    EXPECT_EQ(getProcAddress(module, "no_such_function"), nullptr);
    EXPECT_EQ(getLastError(), ERROR_PROC_NOT_FOUND);
    EXPECT_EQ(loadLibrary("libno_such_library.so"), nullptr);
    EXPECT_EQ(getLastError(), ERROR_MOD_NOT_FOUND);
    EXPECT_EQ(getProcAddress(nullptr, "cos"), nullptr);
}

}  // namespace
}  // namespace platform
