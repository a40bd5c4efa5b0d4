// The engine beneath Overlapped.h: one epoll instance, the descriptors, the waitable objects, and
// the queue of finished operations.
//
// How an operation runs: start() tries the transfer. What can't be done yet is armed: it stays in
// its descriptor until an epoll event says that the transfer is worth another try. What is done
// goes to the queue, and its routine runs from there, inside a wait.
//
// Descriptors come in two kinds:
//   sockets made here   registered once, edge-triggered, both directions. What the events said is
//                       kept in `readable` and `writable`, so a descriptor known to be dry is not
//                       tried, and an idle one costs nothing.
//   all others          may share their open file with other processes, so they keep blocking
//                       mode and are asked not to block call by call. They are registered one-shot
//                       and armed only while an operation waits: a pipe that hung up would
//                       otherwise end every wait.
//
// Everything is known by tokens, also to epoll, because a batch of events can hold one for a
// descriptor that was closed, and whose number is in use again.
#pragma once

#include "platform/CompletionQueue.h"
#include "platform/Overlapped.h"
#include "platform/SlotTable.h"

#include <sys/epoll.h>

#include <array>
#include <cstdint>
#include <deque>
#include <set>
#include <vector>

struct sockaddr_in;

namespace platform {

enum class Medium : std::uint8_t {
    file,        // never blocks: regular files, and whatever epoll refuses
    pipe,        // pipes and terminals
    pipeSocket,  // a socket that stands in for a pipe
    stream,      // a TCP socket made here
    datagram,    // a UDP socket made here
    listener,    // a listening socket: has a waitable object
    notifier,    // becomes readable once, and then signals a waitable object
    channel,     // see Channel.h: signals a waitable object whenever there may be something to do
};

struct Operation {
    enum class State : std::uint8_t { idle, armed, finished };

    State state = State::idle;
    void* target = nullptr;        // where a read puts its bytes
    const void* source = nullptr;  // where a write takes them from
    std::uint32_t count = 0;
    Endpoint* from = nullptr;  // filled by a datagram read
    Endpoint to;               // of a datagram write
    Overlapped* overlapped = nullptr;
    CompletionRoutine routine = nullptr;
};

struct Descriptor {
    int fd = -1;
    Medium medium = Medium::file;
    bool registered = false;     // epoll knows it
    bool refusesNowait = false;  // RWF_NOWAIT doesn't work on it

    // Sockets made here. True: worth a try.
    bool readable = true;
    bool writable = true;
    bool hungUp = false;  // an end or an error was reported, and won't be reported again
    bool connected = false;
    bool receiveShut = false;  // shut down by ourselves
    bool sendShut = false;
    bool drained = false;  // nothing is left to receive before the sticky error
    std::uint32_t stickyError = 0;

    Operation read;
    Operation write;

    // The object of a connect under way, of a listener, a notifier or a channel; 0: none.
    Token waitable = 0;

    Operation& operation(Direction direction)
    {
        return direction == Direction::read ? read : write;
    }
};

// An object to wait for.
struct Waitable {
    // Where it stands: a wait list and the index there.
    struct Place {
        WaitList::Impl* list;
        std::size_t index;
    };

    bool signalled = false;
    std::vector<Place> places;

    // A connect whose end has not been told yet.
    void (*ended)(void* context, std::uint32_t code) = nullptr;
    void* context = nullptr;

    Token descriptor = 0;         // whose object it is; 0: nobody's any more
    bool ownsDescriptor = false;  // closes it when it is closed itself
};

struct WaitList::Impl {
    struct Entry {
        Handle handle;
        bool dead;  // its object was closed, or never was one
    };

    std::vector<Entry> entries;
    std::set<std::size_t> signalled;  // indexes
    std::size_t deadEntries = 0;
};

// What one try of a transfer gave.
struct Outcome {
    enum class Kind : std::uint8_t { moved, blocked, failed };

    Kind kind = Kind::blocked;
    std::uint32_t error = 0;  // `moved` can have one, too: a datagram that was cut
    std::uint32_t bytes = 0;

    static Outcome moved(std::uint32_t bytes, std::uint32_t error = 0)
    {
        return {Kind::moved, error, bytes};
    }
    static Outcome blocked() { return {}; }
    static Outcome failed(std::uint32_t error) { return {Kind::failed, error, 0}; }
};

class Proactor {
public:
    // Made at the first use, and never destroyed: streams may still close at the end of main.
    static Proactor& instance();

    // ---- Operations

    enum class Start : std::uint8_t { failed, finished, pending };

    // A failed start sets the last error.
    Start start(Token token, Direction direction, const Operation& request);
    // Tries an armed operation again.
    void retry(Token token, Descriptor& descriptor, Direction direction);
    // Queues the end of an operation.
    void finish(Token token, Descriptor& descriptor, Direction direction, std::uint32_t error,
                std::uint32_t bytes);

    // ---- Descriptors

    Token insert(int fd, Medium medium);
    Descriptor* find(Token token) { return descriptors.find(token); }
    // Makes epoll report the edges of all but pipes and files. Gives 0 or a code.
    std::uint32_t registerEdges(Token token, Descriptor& descriptor);
    bool close(Token token);
    // Takes over a notifier or channel, and gives the waitable object that it signals; closing the
    // object closes it. 0 with *code set if that fails.
    Token insertNotifier(int fd, std::uint32_t* code, Medium medium = Medium::notifier);

    // ---- Waitable objects

    Token insertWaitable() { return waitables.insert(); }
    Waitable* findWaitable(Token token) { return waitables.find(token); }
    void setSignalled(Waitable& waitable, bool signalled);
    // Takes the object out of its lists and frees it. Nothing else.
    void eraseWaitable(Token token);
    // The connect of this object is over: the next wait tells so.
    void connectEnded(Token waitable, std::uint32_t code);

    // ---- Waits

    // `list` may be null. The result is that of waitForMultipleObjectsEx.
    std::uint32_t wait(WaitList::Impl* list, std::uint32_t timeoutMs);

    std::uint64_t operationsStarted = 0;
    SystemCallCounts calls;

private:
    struct ConnectEnd {
        Token waitable;
        std::uint32_t code;
    };

    Proactor();

    // These three give 0 or an errno.
    int openEpoll();
    int control(int command, Token token, const Descriptor& descriptor, std::uint32_t wanted);
    // Sees to it that an event comes for the armed operations of a descriptor.
    int arm(Token token, Descriptor& descriptor);

    bool takeEvents(std::uint32_t timeoutMs);
    void handleEvent(Token token, std::uint32_t reported);
    void handleSharedEvent(Token token, Descriptor& descriptor);
    void handleSocketEvent(Token token, Descriptor& descriptor, std::uint32_t reported);
    void tellConnectEnds();
    void runQueue();

    int epoll = -1;
    SlotTable<Descriptor, 0> descriptors;
    SlotTable<Waitable, 0x80000000> waitables;
    CompletionQueue queue;
    std::deque<ConnectEnd> connectEnds;
    unsigned waitsWithoutEvents = 0;  // in a row
    std::array<epoll_event, 256> batch;
};

// One try of the operation in the given direction. `source` says whose codes errors get:
// ErrorSource::socket at a start, socketCompletion later.
Outcome transferPipe(Descriptor& descriptor, Direction direction);
Outcome transferSocket(Descriptor& descriptor, Direction direction, ErrorSource source);

// An event came for a socket whose connect is under way.
void finishConnect(Descriptor& descriptor, std::uint32_t events);

// Notes which standard descriptors are missing and fills their places with /dev/null, once.
void prepareStandardDescriptors();
// Closes a descriptor. The places of the standard ones are filled again, so that nothing else
// ever gets their numbers.
void closeDescriptor(int fd);

sockaddr_in toSockaddr(const Endpoint& endpoint);
Endpoint fromSockaddr(const sockaddr_in& address);

// Sets the last error to the code for the errno of a call on a file. False, for the caller to give.
inline bool failWith(int errnoValue)
{
    setLastError(errorCode(errnoValue, ErrorSource::file));
    return false;
}

// Handles are tokens.
inline Token tokenOf(Handle handle)
{
    return static_cast<Token>(handle);
}
inline Token tokenOf(SocketHandle socket)
{
    return static_cast<Token>(socket);
}

}  // namespace platform
