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
// once. What the peer sends is read at any time and kept. At the end of its script a connection
// is closed.
//
// A server that speaks TLS holds the conversation inside of it, from the end of the handshake on.
// What it has to send between two waits leaves in one piece: a script that begins with
// step::send has its text in the segment of the last bytes of the handshake, and a text sent in
// pieces without a delay makes several records in one segment.
#pragma once

#include "tests/support/Limit.h"
#include "tests/support/TlsEnd.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace support {

struct Step {
    using Delay = std::chrono::milliseconds;
    enum class Kind {
        expect,
        expectThrough,
        expectEnd,
        send,
        sendForGood,
        pause,
        waitForRelease,
        sendBare,
        closeNotify,
        halfClose,
        reset,
        silence,
    };
    Kind kind;
    std::string text = {};
    std::size_t piece = 0;  // bytes at a time; 0: all at once
    Delay delay{0};         // between pieces, or the length of a pause
};

using Script = std::vector<Step>;

// Makes the steps of a script.
struct step {
    using Kind = Step::Kind;
    using Delay = Step::Delay;
    // Waits for exactly this text; anything else is a failure of the conversation, and resets it.
    static Step expect(std::string text) { return {Kind::expect, std::move(text)}; }
    // Waits for whatever ends in this text.
    static Step expectThrough(std::string end) { return {Kind::expectThrough, std::move(end)}; }
    // Waits for the end of the peer's stream.
    static Step expectEnd() { return {Kind::expectEnd}; }
    static Step send(std::string text, std::size_t piece = 0, Delay delay = {})
    {
        return {Kind::send, std::move(text), piece, delay};
    }
    // The least time that passes before the next step.
    static Step pause(Delay length) { return {Kind::pause, {}, 0, length}; }
    // The n-th of these steps of a connection waits for the n-th call of release().
    static Step waitForRelease() { return {Kind::waitForRelease}; }
    // Puts the text on the wire as it is, outside of TLS.
    static Step sendBare(std::string text) { return {Kind::sendBare, std::move(text)}; }
    static Step closeNotify() { return {Kind::closeNotify}; }  // the end within TLS
    static Step halfClose() { return {Kind::halfClose}; }      // ends the stream to the peer
    static Step reset() { return {Kind::reset}; }
    static Step silence() { return {Kind::silence}; }  // says nothing for good
    // Sends the text again and again, with a delay between.
    static Step drip(std::string text, Delay delay)
    {
        return {Kind::sendForGood, std::move(text), 0, delay};
    }
    // Sends as much as the connection takes, for good.
    static Step flood() { return {Kind::sendForGood, std::string(65536, 'f')}; }
};

// How a conversation went, so far.
struct Conversation {
    std::string received;    // all that the peer sent
    std::uint64_t sent = 0;  // bytes
    bool peerEnded = false;  // the peer ended its stream
    bool peerReset = false;  // the peer broke the connection off
    bool closed = false;     // this side has closed: the script is over, or the peer is gone
    std::string failure;     // what the peer did against the script
    std::string version;     // of TLS: "TLSv1.3"
};

class ScriptedServer {
public:
    explicit ScriptedServer(Script itsScript, Tls itsTls = Tls::none);
    // Stops the thread; breaks off what is still open.
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    std::uint16_t port() const { return listeningPort; }

    // Lets all connections pass one more step::waitForRelease().
    void release();

    // Waits until the condition holds of the conversation, the first one being 0.
    Conversation waitFor(std::size_t number, const std::string& what,
                         const std::function<bool(const Conversation&)>& condition);
    Conversation waitForPeerEnd(std::size_t number = 0);
    Conversation waitForClosed(std::size_t number = 0);
    void waitForConnections(std::size_t count);

private:
    struct Connection;

    void run();
    void acceptAll();

    const Script script;
    const Tls tls;
    int listener = -1;
    int wake = -1;
    std::uint16_t listeningPort = 0;

    std::mutex mutex;  // guards what follows
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

protected:
    std::uint16_t number = 0;  // before the descriptor, whose making fills it
    int descriptor = -1;
};

// A port of loopback that never answers an attempt to connect: the queue of its listener is full.
class SilentPort : public RefusingPort {
public:
    SilentPort();
    ~SilentPort();

private:
    int filler = -1;
};

}  // namespace support
