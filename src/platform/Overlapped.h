// Overlapped operations over epoll: start one, go on, and learn its end in an alertable wait.
//
// An operation is started by readFileEx, writeFileEx, wsaRecv, wsaSend, wsaRecvFrom, wsaSendTo or
// createConnect. It is tried at once without blocking; what can't be done yet is armed and done
// when the descriptor becomes ready. Its completion routine runs later, inside
// waitForMultipleObjectsEx or sleepEx on the same thread, never inside the call that started it,
// in the order in which operations finish. A hard error that shows at the start fails the start:
// nothing is queued then and the routine never runs.
//
// Rules that hold throughout:
//   - One thread, the main one, makes all calls of this header.
//   - One read and one write may be under way on a handle at a time. The buffer and the
//     Overlapped belong to the caller and stay where they are until the routine has run.
//   - Closing a handle completes what is under way on it with ERROR_OPERATION_ABORTED (995), and
//     so ends what has finished but whose routine has not run: no byte arrives after a close.
//   - The first hard error of a connected stream socket is sticky: once the received bytes are
//     used up, every later operation on the socket, in both directions, gives it again. A
//     datagram's error is its own, and nothing is kept.
//   - A wait costs no more with ten thousand idle handles than with one.
//   - Inherited descriptors (the standard ones) keep their flags: they may be shared with the
//     parent, so O_NONBLOCK is never set on them. Sockets made here are non-blocking,
//     close-on-exec, and never raise SIGPIPE.
//   - A routine may start operations, and may close handles. It must not wait and must not throw.
#pragma once

#include "platform/ErrorCode.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace platform {

// A pipe end, file, device, or waitable object. `none` is no handle at all; `invalid`
// (all bits set) marks a stream that has none.
enum class Handle : std::uint64_t { none = 0, invalid = ~std::uint64_t{0} };

// A socket. `invalid` has all bits set.
enum class SocketHandle : std::uint64_t { invalid = ~std::uint64_t{0} };

// What an operation is known by until its routine has run.
struct Overlapped {
    void* event = nullptr;  // the caller's; commonly the stream that the routine serves
};

// error: 0 or a code of ErrorCode.h; bytes: how many were moved.
// A read of 0 bytes is the end of the stream on a socket; on a pipe, file or device the end is
// ERROR_BROKEN_PIPE (109).
using CompletionRoutine = void (*)(std::uint32_t error, std::uint32_t bytes,
                                   Overlapped* overlapped);

inline constexpr std::uint32_t INFINITE = 0xFFFFFFFF;
inline constexpr int SOCKET_ERROR = -1;

// An IPv4 address and port. `address` is in network byte order, as it lies on the wire;
// `port` is in host byte order.
struct Endpoint {
    std::uint32_t address = 0;
    std::uint16_t port = 0;
    bool operator==(const Endpoint&) const = default;
};

// ---- Handles -------------------------------------------------------------------------------

inline constexpr int STD_INPUT_HANDLE = -10;
inline constexpr int STD_OUTPUT_HANDLE = -11;

// The standard input or output of the process as a handle; Handle::none if the process was
// started without it, or has closed it. Asking twice gives the same handle while it is open.
// Nothing else ever gets the descriptor numbers 0, 1 and 2, closed or not.
Handle getStdHandle(int which);

// Takes over an open descriptor. With `inherited`, its flags are left alone for good; otherwise
// it becomes close-on-exec. closeHandle closes it. Handle::none for one that is not open.
Handle adoptDescriptor(int descriptor, bool inherited = false);

// Start a read or write. True: under way, or done with its routine still to run; the last error
// stays as it was. False: failed, see getLastError(); no routine will run. A second operation in
// the same direction fails with ERROR_INVALID_PARAMETER.
bool readFileEx(Handle handle, void* buffer, std::uint32_t count, Overlapped* overlapped,
                CompletionRoutine routine);
bool writeFileEx(Handle handle, const void* buffer, std::uint32_t count, Overlapped* overlapped,
                 CompletionRoutine routine);

// Tries what is under way on the handle once more, whether or not the system has told that it is
// worth it. What is over then has its routine run in the next wait.
void retryFile(Handle handle);

// Closes the handle; false for one that is not open. A waitable object is freed; one whose
// connect is under way is abandoned first (see createConnect).
bool closeHandle(Handle handle);

// ---- Sockets -------------------------------------------------------------------------------

// Makes the socket calls available. 0 on success, else a code.
int wsaStartup();
int wsaGetLastError();

SocketHandle tcpSocket();  // invalid on failure, see wsaGetLastError()
SocketHandle udpSocket();

// These return 0, or SOCKET_ERROR with the code in wsaGetLastError(). For the four overlapped
// ones the code ERROR_IO_PENDING (997) says that the operation is under way.
int bind(SocketHandle socket, const Endpoint& local);
int getSockName(SocketHandle socket, Endpoint* local);
int wsaRecv(SocketHandle socket, void* buffer, std::uint32_t count, Overlapped* overlapped,
            CompletionRoutine routine);
int wsaSend(SocketHandle socket, const void* buffer, std::uint32_t count, Overlapped* overlapped,
            CompletionRoutine routine);
// A datagram that is larger than the buffer completes with WSAEMSGSIZE (10040). `from` is
// filled before the routine runs and must live as long as the operation. A datagram to address
// 0.0.0.0 fails at the start with WSAEADDRNOTAVAIL.
int wsaRecvFrom(SocketHandle socket, void* buffer, std::uint32_t count, Endpoint* from,
                Overlapped* overlapped, CompletionRoutine routine);
int wsaSendTo(SocketHandle socket, const void* buffer, std::uint32_t count, const Endpoint& to,
              Overlapped* overlapped, CompletionRoutine routine);

inline constexpr int SD_RECEIVE = 0;
inline constexpr int SD_SEND = 1;
inline constexpr int SD_BOTH = 2;
// An operation under way in a direction that was shut down ends at the next wait.
int shutdown(SocketHandle socket, int how);
int closeSocket(SocketHandle socket);

// Starts to connect, and gives a waitable object that is signalled when the attempt is over.
// Never fails at the call: whatever goes wrong is reported through `ended`, which runs inside a
// wait, once, with 0 or the code, right before the object is signalled. The socket stays the
// caller's. Address 0.0.0.0 is refused with WSAEADDRNOTAVAIL, a connection that found itself
// with WSAECONNREFUSED. closeHandle on the object while the attempt runs abandons it: `ended`
// runs at once, inside closeHandle, with ERROR_OPERATION_ABORTED. Closing the socket abandons it,
// too; `ended` then runs in the next wait.
Handle createConnect(SocketHandle socket, const Endpoint& peer,
                     void (*ended)(void* context, std::uint32_t code), void* context);

// A listening socket. `listen` binds to `local` (port 0: any free one; see getSockName) and
// gives the socket, or invalid. `acceptReady` is its waitable object, the same at each call,
// signalled from the time a connection waits until accept finds none; it goes with the socket.
// accept takes a connection, or gives invalid with ERROR_IO_PENDING if there is none.
SocketHandle listen(const Endpoint& local, int backlog);
Handle acceptReady(SocketHandle listener);
SocketHandle accept(SocketHandle listener, Endpoint* peer);

// ---- Waits ---------------------------------------------------------------------------------

// The handles that a wait looks at, in order. Knows which of them are signalled, so that a wait
// costs no walk over them. A handle may stand in several lists. Lists and objects may end in any
// order, but a wait on a list that holds a closed handle fails with ERROR_INVALID_HANDLE.
class WaitList {
public:
    WaitList();
    ~WaitList();
    WaitList(const WaitList&) = delete;
    WaitList& operator=(const WaitList&) = delete;

    std::size_t size() const;
    bool empty() const { return size() == 0; }
    Handle operator[](std::size_t index) const;
    // Whether the handle at `index` is signalled. After a wait whose result could be the number of
    // a place as well as WAIT_IO_COMPLETION or WAIT_TIMEOUT: true if it was the place.
    bool isSignalled(std::size_t index) const;
    void append(Handle handle);
    // Moves the last entry to `index` and drops the last place.
    void removeSwapLast(std::size_t index);

    struct Impl;

private:
    friend std::uint32_t waitForMultipleObjectsEx(const WaitList&, std::uint32_t);
    std::unique_ptr<Impl> impl;
};

// Waits for any handle of the list, for completion routines to run, or for the time-out in
// milliseconds (INFINITE: no limit). Gives the lowest index of a signalled handle, or
// WAIT_IO_COMPLETION after routines ran (those queued when the wait began or that finished in
// it; not those that they start themselves), or WAIT_TIMEOUT, or WAIT_FAILED with the code in
// getLastError().
std::uint32_t waitForMultipleObjectsEx(const WaitList& handles, std::uint32_t timeoutMs);

// The same without handles: 0 at the end of the time-out, or WAIT_IO_COMPLETION.
std::uint32_t sleepEx(std::uint32_t timeoutMs);

// How many overlapped operations were started so far in this process, failed starts included.
// Serves checks of whoever claims that there was nothing to start.
std::uint64_t operationsStarted();

// How many times the process has asked the kernel for events, and for reads and writes: the cost
// that benchmarks and tests of the waits count.
struct SystemCallCounts {
    std::uint64_t waits = 0;
    std::uint64_t transfers = 0;
};
SystemCallCounts systemCallCounts();

// Raises the soft limit of open descriptors to the hard one. Gives the limit that holds then.
std::uint64_t raiseDescriptorLimit();

}  // namespace platform
