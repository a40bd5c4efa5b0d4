#include "common/errors.h"

#include "common/assertion.h"
#include "common/log.h"
#include "common/systemError.h"
#include "platform/ErrorCode.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <iostream>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

// What a child process writes to its standard streams, a write call a piece, and how it ends.
struct Child {
    std::vector<std::string> standardOutput;
    std::vector<std::string> standardError;
    int status = 0;
};

std::vector<std::string> readPieces(int socket)
{
    std::vector<std::string> pieces;
    char piece[4096];
    for (ssize_t n; (n = recv(socket, piece, sizeof piece, 0)) > 0;)
        pieces.emplace_back(piece, static_cast<std::size_t>(n));
    close(socket);
    return pieces;
}

Child runInChild(const std::function<void()>& action)
{
    int out[2];
    int err[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, out), 0);
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, err), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(out[1], 1);
        dup2(err[1], 2);
        for (const int fd : {out[0], out[1], err[0], err[1]})
            close(fd);
        action();
        _exit(0);
    }
    close(out[1]);
    close(err[1]);
    Child child;
    child.standardOutput = readPieces(out[0]);
    child.standardError = readPieces(err[0]);
    EXPECT_EQ(waitpid(pid, &child.status, 0), pid);
    return child;
}

TEST(Assertion, WritesOneLineToStandardErrorAlone)
{
    const Child child = runInChild([] {
        std::cout << "left in the buffer";
        assertion("Unknown selector 7");
    });
    EXPECT_THAT(child.standardError,
                testing::ElementsAre("Assertion failed: Unknown selector 7\n"));
    EXPECT_THAT(child.standardOutput, testing::IsEmpty());
    EXPECT_TRUE(WIFSIGNALED(child.status));
    EXPECT_EQ(WTERMSIG(child.status), SIGABRT);
}

TEST(Log, WithoutQueueWritesOneLineToStandardError)
{
    const Child child = runInChild([] {
        log("two words", logOrdinary);
        log("", logTrace);
    });
    EXPECT_THAT(child.standardError, testing::ElementsAre("Log: two words\n", "Log: \n"));
    EXPECT_EQ(child.status, 0);
}

struct RecordingQueue final : LogQueue {
    void sendLogLine(const std::string& text, std::int32_t log_type) override
    {
        if (broken)
            throw error::ESystemError("broken pipe");
        lines.emplace_back(text, log_type);
    }
    bool broken = false;
    std::vector<std::pair<std::string, std::int32_t>> lines;
};

TEST(Log, GoesThroughTheQueueWhileThereIsOne)
{
    RecordingQueue queue;
    const Child child = runInChild([&] {
        setLogQueue(&queue);
        log("ordinary", logOrdinary);
        log("trace", logTrace);
        setLogQueue(nullptr);
        log("afterwards", logOrdinary);
        using Line = std::pair<std::string, std::int32_t>;
        _exit(queue.lines == std::vector<Line>{{"ordinary", 0}, {"trace", 1024}} ? 0 : 1);
    });
    EXPECT_EQ(child.status, 0);
    EXPECT_THAT(child.standardError, testing::ElementsAre("Log: afterwards\n"));
}

TEST(Log, PassesOnWhatTheQueueThrows)
{
    RecordingQueue queue;
    queue.broken = true;
    setLogQueue(&queue);
    EXPECT_THROW(log("text", logOrdinary), error::ESystemError);
    setLogQueue(nullptr);
}

TEST(Log, MaskStartsWithAllBitsSet)
{
    EXPECT_EQ(log_mask, 0xffffffffu);
    EXPECT_TRUE(traceWanted());
}

TEST(Errors, TqlTextIsTheMessageOrElseThatOfTheStatus)
{
    struct Case {
        const char* message;
        std::int32_t status;
        const char* text;
    };
    const Case cases[] = {
        {"x", 1, "x"},
        {"", 0, "No error"},
        {"", 1, "Specified ID not found in database"},
        {"", 2, "Pattern matched nothing"},
        {"", 3, "Someone else has updated the object"},
        {"", 4, "Attempted insertion of duplicate value in unique property"},
        {"", 5, "Specified class not allowed as child of given object"},
        {"", 6, "Some required properties is missing"},
        {"", 7, "Requested update of noexistant property"},
        {"", 8, "Requested update of const property"},
        {"", 9, "Property updated with illegal type"},
        {"", 10, "Property updated with illegal value"},
        {"", 11, "Incomparable property"},
        {"", 12, "The pattern is not implemented"},
        {"", 13, "Unknown error"},
        {"", 14, "Backend error"},
        {"", 15, "Access denied"},
        {"", 16, "Unknown error"},
        {"", -1, "Unknown error"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(errors::tql(c.message, c.status).text(), c.text) << c.status;
    EXPECT_EQ(errors::tql_incomparable("").text(), "Incomparable property");
    EXPECT_EQ(errors::tql_incomparable("").status(), 11);
}

// The most derived class that catches it.
std::string classOfSystemError(std::uint32_t code, std::string* text)
{
    try {
        throwSystemError(code, "opening x");
    } catch (const error::EFileNotFoundError& e) {
        *text = static_cast<const error::ESystemError&>(e).text();
        return "EFileNotFoundError";
    } catch (const error::EFileExistsError& e) {
        *text = static_cast<const error::ESystemError&>(e).text();
        return "EFileExistsError";
    } catch (const error::ESystemError& e) {
        *text = e.text();
        return "ESystemError";
    } catch (const error::Exception& e) {
        *text = e.text();
        return "Exception";
    }
}

TEST(Errors, SystemErrorsPickTheirClassByTheCode)
{
    struct Case {
        std::uint32_t code;
        const char* name;
    };
    const Case cases[] = {{1, "ESystemError"},         {2, "EFileNotFoundError"},
                          {3, "EFileNotFoundError"},   {4, "ESystemError"},
                          {183, "EFileExistsError"},   {109, "ESystemError"},
                          {4000000000, "ESystemError"}};
    for (const Case& c : cases) {
        std::string text;
        EXPECT_EQ(classOfSystemError(c.code, &text), c.name) << c.code;
        EXPECT_EQ(text, "opening x: " + systemErrorText(c.code)) << c.code;
    }
}

TEST(SystemError, TextsOfThePlatform)
{
    EXPECT_EQ(systemErrorText(platform::WSAECONNREFUSED), "Connection refused");
    EXPECT_EQ(systemErrorText(54321), "54321 (FormatMessage: 317)");
    platform::setLastError(platform::ERROR_BROKEN_PIPE);
    EXPECT_EQ(lastSystemErrorText(), "Broken pipe");
}

std::string dlerrorText(const std::function<void()>& action)
{
    try {
        action();
    } catch (const errors::dlerror& e) {
        return e.text();
    }
    return "no exception";
}

TEST(SystemError, LoadsLibrariesAndFunctions)
{
    EXPECT_EQ(dlerrorText([] { loadLibrary("no-such-library.so"); }),
              "Error loading library \"no-such-library.so\": " + systemErrorText(126));
    void* library = loadLibrary("libc.so.6");
    ASSERT_NE(library, nullptr);
    EXPECT_NE(loadFunction(library, "strlen"), nullptr);
    EXPECT_EQ(dlerrorText([&] { loadFunction(library, "no_such_function"); }),
              "Error dynamically loading function \"no_such_function\": " + systemErrorText(127));
}

}  // namespace
