#include "tests/support/ScriptedServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <string_view>
#include <system_error>

namespace support {

namespace {

using Clock = std::chrono::steady_clock;

int checked(int result, const char* what)
{
    if (result < 0)
        throw std::system_error(errno, std::generic_category(), what);
    return result;
}

// A socket that is bound to any free port of loopback.
int boundSocket(std::uint16_t* port)
{
    const int descriptor =
        checked(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0), "socket");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    checked(bind(descriptor, reinterpret_cast<sockaddr*>(&address), length), "bind");
    checked(getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length), "getsockname");
    *port = ntohs(address.sin_port);
    return descriptor;
}

// Tests hold thousands of connections at once.
void raiseDescriptorLimit()
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

struct ScriptedServer::Connection {
    Connection(int accepted, const Script& itsScript, Tls version)
        : descriptor(accepted), script(itsScript)
    {
        if (version != Tls::none)
            tls.emplace(version);
    }

    // Deals with the events of poll(), and goes on in the script as far as it can.
    void serve(short events, std::size_t released);
    void readInput();
    // Works on the current step. True when it is done and the next one can begin.
    bool advance(std::size_t released);
    bool hear(const Step& step);
    bool say(const Step& step);
    // Sends what TLS has made ready. False if some of it is left.
    bool flush();
    void close(bool reset);
    void peerIsGone();

    int descriptor;  // -1 once it is closed
    const Script& script;
    std::optional<TlsEnd> tls;
    std::size_t current = 0;                  // step
    std::size_t offset = 0;                   // bytes of the step's text that are sent
    std::size_t heard = 0;                    // bytes of `talk.received` dealt with by the script
    std::size_t releases = 0;                 // that were used up
    bool wantsRoom = false;                   // waits for room to send
    std::optional<Clock::time_point> wakeAt;  // waits for a time
    Conversation talk;
};

ScriptedServer::ScriptedServer(Script itsScript, Tls itsTls)
    : script(std::move(itsScript)), tls(itsTls)
{
    raiseDescriptorLimit();
    listener = boundSocket(&listeningPort);
    checked(listen(listener, 4096), "listen");
    wake = checked(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd");
    thread = std::thread([this] { run(); });
}

ScriptedServer::~ScriptedServer()
{
    {
        const std::lock_guard lock(mutex);
        stopping = true;
    }
    eventfd_write(wake, 1);
    thread.join();
    for (const auto& connection : all)
        connection->close(true);
    close(listener);
    close(wake);
}

void ScriptedServer::release()
{
    {
        const std::lock_guard lock(mutex);
        ++releases;
    }
    eventfd_write(wake, 1);
}

Conversation ScriptedServer::waitFor(std::size_t number, const std::string& what,
                                     const std::function<bool(const Conversation&)>& condition)
{
    std::unique_lock lock(mutex);
    const auto holds = [&] {
        return number < all.size() && condition(all[number]->talk);
    };
    if (!changed.wait_until(lock, usualLimit(), holds))
        throw LimitPassed("the limit passed while a server waited for " + what);
    return all[number]->talk;
}

Conversation ScriptedServer::waitForPeerEnd(std::size_t number)
{
    return waitFor(number, "the end of the peer",
                   [](const Conversation& talk) { return talk.peerEnded || talk.peerReset; });
}

Conversation ScriptedServer::waitForClosed(std::size_t number)
{
    return waitFor(number, "the end of the conversation",
                   [](const Conversation& talk) { return talk.closed; });
}

void ScriptedServer::waitForConnections(std::size_t count)
{
    waitFor(count - 1, "connections", [](const Conversation&) { return true; });
}

void ScriptedServer::run()
{
    std::vector<pollfd> descriptors;
    for (;;) {
        descriptors.assign({{wake, POLLIN, 0}, {listener, POLLIN, 0}});
        int timeout = -1;
        for (const auto& connection : all) {
            // A peer that has ended stays readable for good.
            short events = connection->talk.peerEnded ? 0 : POLLIN;
            if (connection->wantsRoom || (connection->tls && !connection->tls->outgoing.empty()))
                events |= POLLOUT;
            descriptors.push_back({connection->descriptor, events, 0});
            if (connection->descriptor >= 0 && connection->wakeAt) {
                const auto left =
                    std::chrono::ceil<Step::Delay>(*connection->wakeAt - Clock::now());
                const int wait = static_cast<int>(std::max<std::int64_t>(left.count(), 0));
                timeout = timeout < 0 ? wait : std::min(timeout, wait);
            }
        }
        poll(descriptors.data(), descriptors.size(), timeout);

        const std::lock_guard lock(mutex);
        if (stopping)
            return;
        eventfd_t ignored = 0;
        eventfd_read(wake, &ignored);
        for (std::size_t i = 2; i < descriptors.size(); ++i)
            all[i - 2]->serve(descriptors[i].revents, releases);
        acceptAll();
        changed.notify_all();
    }
}

void ScriptedServer::acceptAll()
{
    for (;;) {
        const int accepted = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (accepted < 0)
            return;
        all.push_back(std::make_unique<Connection>(accepted, script, tls));
        all.back()->serve(0, releases);
    }
}

void ScriptedServer::Connection::serve(short events, std::size_t released)
{
    if (descriptor < 0)
        return;
    if ((events & POLLIN) != 0)
        readInput();
    if ((events & (POLLERR | POLLHUP)) != 0 && talk.peerEnded) {
        // Both directions are over, or the peer answers with resets.
        int error = 0;
        socklen_t length = sizeof error;
        getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &length);
        talk.peerReset = error != 0;
        close(false);
    }
    while (descriptor >= 0 && advance(released)) {
        ++current;
        offset = 0;
        wakeAt.reset();
        wantsRoom = false;
    }
    flush();
}

void ScriptedServer::Connection::readInput()
{
    std::array<char, 16384> buffer;
    ssize_t count = 0;
    while ((count = recv(descriptor, buffer.data(), buffer.size(), 0)) > 0) {
        const std::string_view come(buffer.data(), static_cast<std::size_t>(count));
        talk.received += tls ? tls->receive(come) : std::string(come);
    }
    if (count == 0)
        talk.peerEnded = true;
    else if (errno != EAGAIN)
        peerIsGone();
    if (tls)
        talk.version = tls->version();
}

bool ScriptedServer::Connection::advance(std::size_t released)
{
    if (tls && !tls->isReady())
        return false;
    if (current == script.size()) {
        if (flush())
            close(false);
        return false;
    }
    const Step& step = script[current];
    switch (step.kind) {
    case Step::Kind::expect:
    case Step::Kind::expectThrough:
        return hear(step);
    case Step::Kind::expectEnd:
        return talk.peerEnded;
    case Step::Kind::send:
    case Step::Kind::sendForGood:
        return say(step);
    case Step::Kind::pause:
        if (!wakeAt)
            wakeAt = Clock::now() + step.delay;
        return Clock::now() >= *wakeAt;
    case Step::Kind::waitForRelease:
        if (released == releases)
            return false;
        ++releases;
        return true;
    case Step::Kind::sendBare:
        tls->outgoing += step.text;
        return true;
    case Step::Kind::closeNotify:
        tls->closeNotify();
        return true;
    case Step::Kind::halfClose:
        if (!flush())
            return false;
        shutdown(descriptor, SHUT_WR);
        return true;
    case Step::Kind::reset:
        if (flush())
            close(true);
        return false;
    case Step::Kind::silence:
        break;
    }
    return false;
}

bool ScriptedServer::Connection::hear(const Step& step)
{
    const bool exactly = step.kind == Step::Kind::expect;
    const std::string_view come = std::string_view(talk.received).substr(heard);
    const std::size_t found = come.find(step.text);
    if (found == 0 || (found != std::string_view::npos && !exactly)) {
        heard += found + step.text.size();
        return true;
    }
    if (talk.peerEnded || (exactly && !step.text.starts_with(come))) {
        talk.failure = "expected \"" + step.text + "\" but got \"" + std::string(come) + "\"";
        close(true);
    }
    return false;
}

bool ScriptedServer::Connection::say(const Step& step)
{
    const bool forGood = step.kind == Step::Kind::sendForGood;
    for (;;) {
        if (wakeAt && Clock::now() < *wakeAt)
            return false;
        wakeAt.reset();
        if (offset == step.text.size() && !forGood)
            return true;
        offset %= step.text.size();
        const std::size_t left = step.text.size() - offset;
        const std::size_t piece = step.piece == 0 ? left : std::min(left, step.piece);
        const std::string_view bytes = std::string_view(step.text).substr(offset, piece);
        const ssize_t count =
            tls ? tls->send(bytes) : ::send(descriptor, bytes.data(), piece, MSG_NOSIGNAL);
        wantsRoom = count < 0;
        if (count < 0) {
            if (errno != EAGAIN)
                peerIsGone();
            return false;
        }
        offset += static_cast<std::size_t>(count);
        talk.sent += static_cast<std::uint64_t>(count);
        if (step.delay.count() > 0 && (forGood || offset < step.text.size()))
            wakeAt = Clock::now() + step.delay;
        if (forGood) {
            // A peer that keeps up must not hold the thread here for good.
            wantsRoom = !wakeAt;
            return false;
        }
    }
}

bool ScriptedServer::Connection::flush()
{
    if (descriptor < 0 || !tls || tls->outgoing.empty())
        return true;
    const ssize_t count =
        ::send(descriptor, tls->outgoing.data(), tls->outgoing.size(), MSG_NOSIGNAL);
    if (count > 0)
        tls->outgoing.erase(0, static_cast<std::size_t>(count));
    else if (errno != EAGAIN)
        peerIsGone();
    return tls->outgoing.empty();
}

void ScriptedServer::Connection::close(bool reset)
{
    if (descriptor < 0)
        return;
    if (reset) {
        const linger atOnce = {1, 0};
        setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    }
    ::close(descriptor);
    descriptor = -1;
    talk.closed = true;
}

void ScriptedServer::Connection::peerIsGone()
{
    talk.peerReset = true;
    close(false);
}

RefusingPort::RefusingPort() : descriptor(boundSocket(&number))
{}

RefusingPort::~RefusingPort()
{
    close(descriptor);
}

// A queue of length 0 has room for one connection. Once that stands, the kernel drops all further
// attempts.
SilentPort::SilentPort()
{
    checked(listen(descriptor, 0), "listen");
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length);
    filler = checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
    checked(connect(filler, reinterpret_cast<sockaddr*>(&address), length), "connect");
}

SilentPort::~SilentPort()
{
    close(filler);
}

}  // namespace support
