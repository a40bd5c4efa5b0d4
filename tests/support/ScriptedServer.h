// TCP servers for tests: they speak from a table of steps, each on a thread of its own.
//
//   ScriptedServer server({
//       step::send("220 hello\r\n", 3),          // three bytes at a time
//       step::expect("QUIT\r\n"),
//       step::waitForRelease(),                  // until the test calls release()
//       step::reset(),
//   });
//
// A server accepts any number of connections and holds the same conversation on each, all at
// once; or the n-th connection follows the n-th script, and all later ones the last. What the
// peer sends is read at any time and kept. At the end of its script a connection is closed.
#pragma once

#include "tests/support/Limit.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace support {

struct Step {
    enum class Kind {
        expect,
        expectThrough,
        expectEnd,
        send,
        pause,
        waitForRelease,
        halfClose,
        close,
        reset,
        silence,
        drip,
        flood,
    };
    Kind kind;
    std::string text = {};
    std::size_t piece = 0;               // bytes at a time; 0: all at once
    std::chrono::milliseconds delay{0};  // between pieces, or the length of a pause
};

using Script = std::vector<Step>;

namespace step {

// Waits for exactly this text; anything else is a failure of the conversation, and resets it.
Step expect(std::string text);
// Waits for whatever ends in this text.
Step expectThrough(std::string terminator);
// Waits for the end of the peer's stream.
Step expectEnd();
Step send(std::string text, std::size_t piece = 0,
          std::chrono::milliseconds delay = std::chrono::milliseconds(0));
// The least time that passes before the next step.
Step pause(std::chrono::milliseconds length);
// The n-th of these steps of a connection waits for the n-th call of release().
Step waitForRelease();
Step halfClose();  // ends the stream to the peer
Step close();
Step reset();
Step silence();  // says nothing for good
// Sends the text again and again, with a delay between.
Step drip(std::string text, std::chrono::milliseconds delay);
// Sends as much as the connection takes, for good.
Step flood();

}  // namespace step

// How a conversation went, so far.
struct Conversation {
    std::string received;    // all that the peer sent
    std::uint64_t sent = 0;  // bytes
    bool peerEnded = false;  // the peer ended its stream
    bool peerReset = false;  // the peer broke the connection off
    bool closed = false;     // this side has closed: the script is over, or the peer is gone
    std::string failure;     // what the peer did against the script
};

class ScriptedServer {
public:
    explicit ScriptedServer(Script script) : ScriptedServer(std::vector<Script>{std::move(script)})
    {}
    explicit ScriptedServer(std::vector<Script> scripts);
    // Stops the thread; breaks off what is still open.
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    std::uint16_t port() const { return listeningPort; }

    // Lets all connections pass one more step::waitForRelease().
    void release();

    void waitForConnections(std::size_t count);
    // Waits until the condition holds of the conversation, the first one being 0.
    Conversation waitFor(std::size_t number, const std::string& what,
                         const std::function<bool(const Conversation&)>& condition);
    Conversation waitForPeerEnd(std::size_t number = 0);
    Conversation waitForClosed(std::size_t number = 0);
    std::size_t connections() const;

private:
    struct Connection;

    void run();
    void acceptAll();
    void serve(Connection& connection, short events);
    void readInput(Connection& connection);
    // Works on the current step. True when it is done and the next one can begin.
    bool advance(Connection& connection);
    bool sendText(Connection& connection, const Step& step, bool again);
    static void closeConnection(Connection& connection, bool reset);

    std::vector<Script> scripts;
    int listener = -1;
    int wake = -1;
    std::uint16_t listeningPort = 0;

    mutable std::mutex mutex;  // guards what follows
    std::condition_variable changed;
    std::vector<std::unique_ptr<Connection>> all;
    std::size_t releases = 0;
    bool stopping = false;

    std::thread thread;
};

// A port of loopback that nobody listens on, and that nobody else gets meanwhile.
class RefusingPort {
public:
    RefusingPort();
    ~RefusingPort();
    RefusingPort(const RefusingPort&) = delete;
    RefusingPort& operator=(const RefusingPort&) = delete;
    std::uint16_t port() const { return number; }

private:
    std::uint16_t number = 0;  // before the descriptor, whose making fills it
    int descriptor = -1;
};

// A port of loopback that never answers an attempt to connect: the queue of its listener is full.
class SilentPort {
public:
    SilentPort();
    ~SilentPort();
    SilentPort(const SilentPort&) = delete;
    SilentPort& operator=(const SilentPort&) = delete;
    std::uint16_t port() const { return number; }

private:
    int listener = -1;
    std::vector<int> fillers;
    std::uint16_t number = 0;
};

}  // namespace support
