#include "parent/DemoDialogue.h"

#include "common/errors.h"
#include "io/Tcp.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace parent {

namespace {

// Late enough that the connection has long been made by then.
constexpr std::int32_t resetAfterMs = 500;

// No request is that long.
constexpr std::size_t maximumUnread = 65536;

Time inMilliseconds(std::int32_t span)
{
    return Time::now() + Time(span / 1000.0);
}

}  // namespace

// The streams and the timer leave the selector when they end, so a connection can be given up
// between any two events.
class DemoDialogue::Connection {
public:
    Connection(DemoDialogue& service, platform::SocketHandle socket)
        : attendant(service),
          selector(service.selector),
          script(service.script),
          identity(service.identity),
          in(&base),
          out(&base)
    {
        base.socket = socket;
    }

    ~Connection()
    {
        // Ends what is under way, for which the streams wait.
        platform::closeSocket(base.socket);
        base.socket = platform::SocketHandle::invalid;
    }

    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    bool owns(const io::Selectable* s) const { return s == &in || s == &out || s == &pause; }

    // Acts on what is ready; null: begins. False when the connection is over, and to be destroyed.
    bool go(const io::Selectable* s)
    {
        try {
            if (s == nullptr) {
                if (script.tls)
                    tls.emplace(identity);
                selector.add(&in, &attendant);
            } else if (s == &in) {
                if (!receive())
                    return false;
            } else if (s == &out) {
                selector.remove(&out);
                sending = false;
            } else if (s == &pause) {
                selector.remove(&pause);
                pausing = false;
                say(answer);
            }
            play();
            send();
            return sending || !over;
        } catch (const error::Exception&) {
            return false;  // The peer has broken the connection, as peers do.
        }
    }

private:
    bool receive()
    {
        try {
            char* data = nullptr;
            const std::uint64_t count = in.readBegin(&data);
            const std::string_view bytes(data, static_cast<std::size_t>(count));
            const bool whole = !tls || tls->take(bytes, &received);
            if (!tls)
                received += bytes;
            in.readCommit(count);
            return whole && received.size() <= maximumUnread;
        } catch (const io::EEndOfStream&) {
            selector.remove(&in);
            peerEnded = true;
            return true;
        }
    }

    // Goes on until the script waits for the peer or for a time, or is over.
    void play()
    {
        const bool canSpeak = !tls || tls->established();
        while (canSpeak && !pausing && next != script.steps.size()) {
            const DemoStep& step = script.steps[next];
            std::string request;
            if (step.expect != nullptr && !takeRequest(&request))
                break;
            ++next;
            answer = step.answer;
            if (step.expect != nullptr && !request.starts_with(step.expect)) {
                answer = step.otherwise;
                next = script.steps.size();
            }
            if (step.afterMs == 0) {
                say(answer);
                continue;
            }
            pause.when = inMilliseconds(step.afterMs);
            selector.add(&pause, &attendant);
            pausing = true;
        }

        const bool done = next == script.steps.size() && script.play == DemoScript::Play::closes;
        const bool inVain = peerEnded && (!canSpeak || next != script.steps.size());
        if (over || pausing || !(done || inVain))
            return;
        over = true;
        if (tls && canSpeak)
            tls->end();
    }

    bool takeRequest(std::string* request)
    {
        const std::size_t end = received.find(script.requestEnd);
        if (end == std::string::npos)
            return false;
        *request = received.substr(0, end);
        received.erase(0, end + std::strlen(script.requestEnd));
        return true;
    }

    void say(std::string_view text)
    {
        if (tls)
            tls->say(text);
        else
            unsent += text;
    }

    // A stream takes what is unsent piece by piece.
    void send()
    {
        if (tls)
            tls->takeOutput(&unsent);
        if (sending || unsent.empty())
            return;
        char* space = nullptr;
        const std::size_t count =
            std::min(static_cast<std::size_t>(out.writeBegin(&space)), unsent.size());
        std::copy_n(unsent.data(), count, space);
        out.writeCommit(count);
        unsent.erase(0, count);
        selector.add(&out, &attendant);
        sending = true;
    }

    Attendant& attendant;
    MainSelector& selector;
    const DemoScript& script;
    const DemoTlsIdentity& identity;
    io::Socket_Stream_Base base;
    io::Socket_IStream in;
    io::Socket_OStream out;
    std::optional<DemoTls> tls;
    std::string received;  // plain text that no step has taken
    std::string unsent;    // what `out` has not taken
    bool peerEnded = false;
    bool sending = false;  // `out` is in the selector
    std::size_t next = 0;  // step
    io::Timer pause;
    bool pausing = false;  // `pause` is in the selector, and `answer` waits for it
    const char* answer = "";
    bool over = false;  // closes when all has been sent
};

void DemoDialogue::Listener::close()
{
    if (handle != platform::SocketHandle::invalid)
        platform::closeSocket(handle);
    handle = platform::SocketHandle::invalid;
}

DemoDialogue::DemoDialogue(MainSelector& mainSelector, const DemoScript& whatToPlay,
                           const DemoTlsIdentity& whoSpeaks)
    : selector(mainSelector),
      script(whatToPlay),
      identity(whoSpeaks),
      listener(open()),
      newConnections("connections to the demo", platform::acceptReady(listener.handle))
{
    if (script.play != DemoScript::Play::refuses)
        selector.add(&newConnections, this);
}

DemoDialogue::~DemoDialogue() = default;

platform::SocketHandle DemoDialogue::open() const
{
    if (script.play != DemoScript::Play::refuses) {
        const platform::SocketHandle socket = platform::listen(loopback(), 64);
        if (socket == platform::SocketHandle::invalid)
            fail("listen");
        return socket;
    }
    // A socket that is bound keeps others from the port, and one that doesn't listen refuses.
    Listener bound(platform::tcpSocket());
    if (bound.handle == platform::SocketHandle::invalid ||
        platform::bind(bound.handle, loopback()) != 0)
        fail("take a port");
    return std::exchange(bound.handle, platform::SocketHandle::invalid);
}

void DemoDialogue::ready(io::Selectable* s)
{
    if (s == &newConnections && script.play == DemoScript::Play::resets) {
        selector.remove(&newConnections);
        resetTimer.when = inMilliseconds(resetAfterMs);
        selector.add(&resetTimer, this);
    } else if (s == &newConnections) {
        acceptAll();
    } else if (s == &resetTimer) {
        // Connections that wait to be accepted are broken when their listener closes.
        selector.remove(&resetTimer);
        listener.close();
    } else {
        connections.remove_if(
            [s](Connection& connection) { return connection.owns(s) && !connection.go(s); });
    }
}

void DemoDialogue::acceptAll()
{
    for (;;) {
        const platform::SocketHandle socket = platform::accept(listener.handle, nullptr);
        if (socket == platform::SocketHandle::invalid) {
            // Left alone, the listener would be ready for good.
            if (platform::wsaGetLastError() != static_cast<int>(platform::ERROR_IO_PENDING))
                fail("take a connection");
            return;
        }
        if (!connections.emplace_back(*this, socket).go(nullptr))
            connections.pop_back();
    }
}

}  // namespace parent
