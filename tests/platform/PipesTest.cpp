// Operations on pipes, files, terminals and other devices.

#include "Support.h"

#include <csignal>
#include <fcntl.h>
#include <pty.h>
#include <sys/stat.h>
#include <termios.h>

#include <memory>
#include <numeric>

namespace platform {
namespace {

// A descriptor whose whole life is inside one test.
class Adopted {
public:
    explicit Adopted(int fd, bool inherited = false) : handle(adoptDescriptor(fd, inherited)) {}
    ~Adopted() { closeHandle(handle); }
    Adopted(const Adopted&) = delete;
    Adopted& operator=(const Adopted&) = delete;
    operator Handle() const { return handle; }

private:
    Handle handle;
};

void put(int fd, const std::string& text)
{
    ASSERT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

// Fills a pipe to the brim and gives the number of bytes.
std::size_t fill(int fd)
{
    const int flags = fcntl(fd, F_GETFL);
    fcntl(fd, F_SETFL, flags | O_NONBLOCK);
    std::size_t count = 0;
    const std::string piece(4096, 'f');
    for (ssize_t n = 0; (n = write(fd, piece.data(), piece.size())) > 0;)
        count += static_cast<std::size_t>(n);
    fcntl(fd, F_SETFL, flags);
    return count;
}

TEST(Pipes, RoutineRunsInsideAWaitOnly)
{
    RawPipe pipe;
    Adopted in(pipe.reading);
    Adopted out(pipe.writing);

    Write write(out, "abc");
    ASSERT_TRUE(write.started);
    Read read(in);
    ASSERT_TRUE(read.started);
    // Plain calls of the platform run nothing.
    operationsStarted();
    getStdHandle(STD_INPUT_HANDLE);
    WaitList list;
    EXPECT_FALSE(write.ended());
    EXPECT_FALSE(read.ended());

    EXPECT_EQ(sleepEx(INFINITE), WAIT_IO_COMPLETION);
    EXPECT_TRUE(write.endedWith(0, 3));
    EXPECT_TRUE(read.endedWith(0, 3));
    EXPECT_EQ(read.text(), "abc");
}

TEST(Pipes, RoutinesRunInTheOrderInWhichOperationsFinish)
{
    RawPipe late;
    RawPipe early;
    Adopted lateIn(late.reading);
    Adopted earlyIn(early.reading);
    std::vector<const Op*> order;

    Read armed(lateIn);
    put(early.writing, "e");
    Read done(earlyIn);
    put(late.writing, "l");
    Adopted earlyOut(early.writing);
    Write last(earlyOut, "w");
    for (Op* op : std::initializer_list<Op*>{&armed, &done, &last})
        op->order = &order;

    // The armed read finishes in the wait, behind what had finished before it.
    EXPECT_EQ(sleepEx(INFINITE), WAIT_IO_COMPLETION);
    EXPECT_EQ(order, (std::vector<const Op*>{&done, &last, &armed}));
    close(late.writing);
}

TEST(Pipes, OrderHoldsForMany)
{
    std::vector<const Op*> order;
    std::vector<const Op*> expected;
    std::vector<std::unique_ptr<Adopted>> devices;
    std::vector<std::unique_ptr<Read>> reads;
    for (const std::size_t count : {10, 500}) {
        order.clear();
        expected.clear();
        for (std::size_t i = 0; i < count; ++i) {
            devices.push_back(std::make_unique<Adopted>(open("/dev/zero", O_RDONLY)));
            reads.push_back(std::make_unique<Read>(*devices.back(), 1));
            reads.back()->order = &order;
            expected.push_back(reads.back().get());
        }
        EXPECT_EQ(sleepEx(INFINITE), WAIT_IO_COMPLETION);
        EXPECT_TRUE(order == expected);
    }
}

TEST(Pipes, WriteOnAFullPipeIsPartialThenWaits)
{
    RawPipe pipe;
    Adopted out(pipe.writing);
    std::string data(300'000, '\0');
    std::iota(data.begin(), data.end(), '\0');

    Write first(out, data);
    ASSERT_TRUE(first.started);
    ASSERT_EQ(sleepEx(INFINITE), WAIT_IO_COMPLETION);
    ASSERT_TRUE(first.ended());
    const std::uint32_t taken = first.ends[0].bytes;
    EXPECT_EQ(first.ends[0].error, 0u);
    EXPECT_GT(taken, 0u);
    EXPECT_LT(taken, data.size());

    Write second(out, data.substr(taken, 1000));
    ASSERT_TRUE(second.started);
    EXPECT_EQ(sleepEx(0), 0u);
    std::string received(taken, '\0');
    ASSERT_EQ(read(pipe.reading, received.data(), taken), static_cast<ssize_t>(taken));
    EXPECT_EQ(sleepEx(INFINITE), WAIT_IO_COMPLETION);
    EXPECT_TRUE(second.endedWith(0, 1000));
    EXPECT_TRUE(received == data.substr(0, taken));
    close(pipe.reading);
}

TEST(Pipes, OneOperationADirectionAtATime)
{
    RawPipe pipe;
    Adopted in(pipe.reading);
    Read first(in);
    Read second(in);
    EXPECT_FALSE(second.started);
    EXPECT_EQ(second.code, ERROR_INVALID_PARAMETER);
    put(pipe.writing, "x");
    EXPECT_EQ(sleepEx(INFINITE), WAIT_IO_COMPLETION);
    EXPECT_TRUE(first.endedWith(0, 1));
    EXPECT_FALSE(second.ended());
    close(pipe.writing);
}

TEST(Pipes, ClosingEndsWhatIsUnderWayAndWhatIsUndelivered)
{
    RawPipe dry;
    RawPipe filled;
    RawPipe full;
    put(filled.writing, "data");
    fill(full.writing);
    const Handle dryIn = adoptDescriptor(dry.reading);
    const Handle filledIn = adoptDescriptor(filled.reading);
    const Handle fullOut = adoptDescriptor(full.writing);

    Read pending(dryIn);
    Read finished(filledIn);
    Write blocked(fullOut, "more");
    EXPECT_TRUE(pending.started && finished.started && blocked.started);
    for (const Handle handle : {dryIn, filledIn, fullOut})
        EXPECT_TRUE(closeHandle(handle));
    EXPECT_FALSE(pending.ended() || finished.ended() || blocked.ended());

    EXPECT_EQ(sleepEx(INFINITE), WAIT_IO_COMPLETION);
    EXPECT_TRUE(pending.endedWith(ERROR_OPERATION_ABORTED, 0));
    EXPECT_TRUE(finished.endedWith(ERROR_OPERATION_ABORTED, 0));
    EXPECT_TRUE(blocked.endedWith(ERROR_OPERATION_ABORTED, 0));
    close(dry.writing);
    close(filled.writing);
    close(full.reading);
}

TEST(Pipes, StaleHandlesMeetNobodyElse)
{
    RawPipe pipe;
    const Handle old = adoptDescriptor(pipe.reading);
    ASSERT_TRUE(closeHandle(old));
    RawPipe next;
    Adopted in(next.reading);  // takes the place of the old one
    put(next.writing, "for the new one");

    Read read(old);
    EXPECT_FALSE(read.started);
    EXPECT_EQ(read.code, ERROR_INVALID_HANDLE);
    EXPECT_FALSE(closeHandle(old));
    for (const Handle handle : {Handle::none, Handle::invalid})
        EXPECT_FALSE(closeHandle(handle));

    Read good(in);
    EXPECT_EQ(sleepEx(INFINITE), WAIT_IO_COMPLETION);
    EXPECT_EQ(good.text(), "for the new one");
    close(pipe.writing);
    close(next.writing);
}

TEST(Pipes, RoutineThatStartsAnotherOneDoesNotHoldTheWait)
{
    Adopted zero(open("/dev/zero", O_RDONLY));
    Op op;
    char byte = 0;
    const auto start = [&] {
        ASSERT_TRUE(readFileEx(zero, &byte, 1, &op.overlapped, &Op::routine));
    };
    op.then = start;
    start();
    for (std::size_t runs = 1; runs <= 3; ++runs) {
        EXPECT_EQ(sleepEx(INFINITE), WAIT_IO_COMPLETION);
        EXPECT_EQ(op.ends.size(), runs);
    }
    op.then = nullptr;
    EXPECT_EQ(sleepEx(INFINITE), WAIT_IO_COMPLETION);
}

TEST(Pipes, RoutineMayCloseTheHandleOfAnotherFinishedOperation)
{
    RawPipe one;
    RawPipe two;
    Adopted oneIn(one.reading);
    const Handle twoIn = adoptDescriptor(two.reading);
    put(one.writing, "1");
    put(two.writing, "2");
    Read first(oneIn);
    Read second(twoIn);
    first.then = [&] {
        closeHandle(twoIn);
    };
    EXPECT_EQ(sleepEx(INFINITE), WAIT_IO_COMPLETION);
    EXPECT_TRUE(first.endedWith(0, 1));
    EXPECT_TRUE(second.endedWith(ERROR_OPERATION_ABORTED, 0));
    close(one.writing);
    close(two.writing);
}

// ---- The end of what is read

struct Source {
    int fd;
    std::string before;  // what comes before the end
    std::function<void()> end = [] {
    };  // makes the end come
};

Source pipeSource()
{
    RawPipe pipe;
    put(pipe.writing, "tail");
    return {pipe.reading, "tail", [=] {
                close(pipe.writing);
            }};
}

Source socketSource()
{
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    put(ends[1], "tail");
    return {ends[0], "tail", [fd = ends[1]] {
                close(fd);
            }};
}

Source abandonedSocketSource()
{
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    put(ends[0], "never read by the peer, so its close is a reset");
    return {ends[0], "", [fd = ends[1]] {
                close(fd);
            }};
}

Source fileSource()
{
    char name[] = "/tmp/netcheck_platform_XXXXXX";
    const int fd = mkstemp(name);
    unlink(name);
    put(fd, "tail");
    lseek(fd, 0, SEEK_SET);
    return {fd, "tail"};
}

Source nullSource()
{
    return {open("/dev/null", O_RDONLY), ""};
}

Source terminalSource()
{
    int master = -1;
    int slave = -1;
    EXPECT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
    put(master, "line\n");
    return {slave, "line\n", [=] {
                put(master, "\x04");
            }};  // end of file typed
}

Source hungUpTerminalSource()
{
    int master = -1;
    int slave = -1;
    EXPECT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
    return {slave, "", [=] {
                close(master);
            }};
}

Source terminalMasterSource()
{
    int master = -1;
    int slave = -1;
    EXPECT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
    return {master, "", [=] {
                close(slave);
            }};
}

TEST(Pipes, TheEndIsABrokenPipeOnAllKindsOfDescriptors)
{
    struct Case {
        const char* name;
        Source (*make)();
    };
    const Case cases[] = {
        {"pipe", pipeSource},
        {"socket", socketSource},
        {"socket abandoned by its peer", abandonedSocketSource},
        {"regular file", fileSource},
        {"character device", nullSource},
        {"terminal", terminalSource},
        {"terminal that hung up", hungUpTerminalSource},
        {"other side of a terminal", terminalMasterSource},
    };
    for (const bool armed : {false, true}) {
        for (const Case& row : cases) {
            SCOPED_TRACE(std::string(row.name) + (armed ? ", waited for" : ", there already"));
            const Source source = row.make();
            Adopted in(source.fd, true);
            if (!source.before.empty()) {
                Read data(in);
                ASSERT_TRUE(data.started);
                ASSERT_TRUE(waitUntil([&] { return data.ended(); }));
                EXPECT_EQ(data.text(), source.before);
            }
            if (!armed)
                source.end();
            Read last(in);
            if (armed)
                source.end();
            if (last.started) {
                ASSERT_TRUE(waitUntil([&] { return last.ended(); }));
                EXPECT_TRUE(last.endedWith(ERROR_BROKEN_PIPE, 0)) << last.ends[0];
            } else {
                EXPECT_EQ(last.code, ERROR_BROKEN_PIPE);
            }
        }
    }
}

// ---- Writing to what is gone

TEST(Pipes, WriteToADeadPipeFailsAtTheCall)
{
    RawPipe pipe;
    close(pipe.reading);
    int sockets[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sockets), 0);
    close(sockets[1]);
    // SIGPIPE would end the test.
    for (const int fd : {pipe.writing, sockets[0]}) {
        Adopted out(fd, true);
        Write write(out, "nobody reads this");
        EXPECT_FALSE(write.started);
        EXPECT_EQ(write.code, ERROR_BROKEN_PIPE);
        EXPECT_EQ(sleepEx(0), 0u);
        EXPECT_FALSE(write.ended());
    }
}

TEST(Pipes, WaitingWriteLearnsThatTheReaderHasGone)
{
    RawPipe pipe;
    fill(pipe.writing);
    Adopted out(pipe.writing, true);
    Write write(out, "more");
    ASSERT_TRUE(write.started);
    close(pipe.reading);
    ASSERT_EQ(sleepEx(INFINITE), WAIT_IO_COMPLETION);
    EXPECT_TRUE(write.endedWith(ERROR_BROKEN_PIPE, 0)) << write.ends[0];
}

TEST(Pipes, WriteErrorsAreNamed)
{
    struct Case {
        const char* path;
        int flags;
        std::uint32_t code;
    };
    const Case cases[] = {
        {"/dev/full", O_WRONLY, ERROR_DISK_FULL},
        {"/dev/null", O_RDONLY, ERROR_INVALID_HANDLE},  // not open for writing
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.path);
        Adopted out(open(row.path, row.flags));
        Write write(out, "x");
        EXPECT_FALSE(write.started);
        EXPECT_EQ(write.code, row.code);
    }
}

// ---- Inherited descriptors

TEST(Pipes, InheritedDescriptorsKeepTheirFlags)
{
    struct Ends {
        const char* name;
        int reading;
        int writing;
    };
    RawPipe pipe;
    int sockets[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sockets), 0);
    int master = -1;
    int slave = -1;
    ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
    termios raw{};
    tcgetattr(slave, &raw);
    cfmakeraw(&raw);
    tcsetattr(slave, TCSANOW, &raw);
    const Ends all[] = {
        {"pipe", pipe.reading, pipe.writing},
        {"socket", sockets[0], sockets[1]},
        {"terminal", slave, master},
    };
    for (const Ends& ends : all) {
        SCOPED_TRACE(ends.name);
        const int readFlags = fcntl(ends.reading, F_GETFL);
        const int writeFlags = fcntl(ends.writing, F_GETFL);
        Adopted in(ends.reading, true);
        Adopted out(ends.writing, true);

        Read armed(in);
        EXPECT_TRUE(armed.started);
        EXPECT_EQ(sleepEx(0), 0u);
        Write write(out, "through");
        EXPECT_TRUE(write.started);
        ASSERT_TRUE(waitUntil([&] { return armed.ended() && write.ended(); }));
        EXPECT_EQ(armed.text(), "through");

        EXPECT_EQ(fcntl(ends.reading, F_GETFL), readFlags);
        EXPECT_EQ(fcntl(ends.writing, F_GETFL), writeFlags);
        EXPECT_EQ(fcntl(ends.reading, F_GETFD), 0);
    }
}

TEST(Pipes, AdoptedDescriptorsAreNotInheritedByChildren)
{
    RawPipe pipe;
    Adopted in(pipe.reading);
    EXPECT_EQ(fcntl(pipe.reading, F_GETFD), FD_CLOEXEC);
    close(pipe.writing);
    EXPECT_EQ(adoptDescriptor(pipe.writing), Handle::none);
    EXPECT_EQ(getLastError(), ERROR_INVALID_HANDLE);
}

TEST(Pipes, BothDirectionsOfOneDescriptorWaitTogether)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    const std::size_t filled = fill(ends[0]);
    Adopted both(ends[0]);
    Read read(both);
    Write write(both, "w");
    EXPECT_EQ(sleepEx(0), 0u);

    put(ends[1], "r");
    EXPECT_EQ(sleepEx(INFINITE), WAIT_IO_COMPLETION);
    EXPECT_TRUE(read.endedWith(0, 1));
    EXPECT_FALSE(write.ended());
    std::string rest(filled, '\0');
    ASSERT_EQ(recv(ends[1], rest.data(), filled, MSG_WAITALL), static_cast<ssize_t>(filled));
    EXPECT_EQ(sleepEx(INFINITE), WAIT_IO_COMPLETION);
    EXPECT_TRUE(write.endedWith(0, 1));
    close(ends[1]);
}

// A closed descriptor with a duplicate elsewhere keeps its place in epoll unless it is taken out.
TEST(Pipes, ClosedDescriptorWithADuplicateReportsNothing)
{
    RawPipe pipe;
    const int duplicate = dup(pipe.reading);
    const Handle in = adoptDescriptor(pipe.reading);
    Read read(in);
    closeHandle(in);
    EXPECT_EQ(sleepEx(INFINITE), WAIT_IO_COMPLETION);
    put(pipe.writing, "x");
    const std::uint64_t before = systemCallCounts().waits;
    EXPECT_EQ(sleepEx(10), 0u);
    EXPECT_EQ(systemCallCounts().waits, before + 1);
    close(duplicate);
    close(pipe.writing);
}

// A level that stays, such as a hang-up, would make every wait spin.
TEST(Pipes, AnIdlePipeThatHangsUpWakesNobody)
{
    RawPipe input;
    RawPipe output;
    Adopted in(input.reading, true);
    Adopted out(output.writing, true);
    const std::size_t filled = fill(output.writing);
    Read read(in);
    Write write(out, "w");
    put(input.writing, "r");
    std::string drained(filled, '\0');
    ASSERT_EQ(::read(output.reading, drained.data(), filled), static_cast<ssize_t>(filled));
    ASSERT_TRUE(waitUntil([&] { return read.ended() && write.ended(); }));

    close(input.writing);
    close(output.reading);
    const std::uint64_t before = systemCallCounts().waits;
    EXPECT_EQ(sleepEx(5), 0u);
    EXPECT_EQ(systemCallCounts().waits, before + 1);
}

TEST(Pipes, ASmallWriteCostsOneTransferAndOnePoll)
{
    RawPipe pipe;
    Adopted out(pipe.writing, true);
    const SystemCallCounts before = systemCallCounts();
    Write write(out, "line");
    EXPECT_EQ(sleepEx(0), WAIT_IO_COMPLETION);
    EXPECT_EQ(systemCallCounts().transfers, before.transfers + 1);
    EXPECT_EQ(systemCallCounts().waits, before.waits + 1);
    close(pipe.reading);
}

}  // namespace
}  // namespace platform
