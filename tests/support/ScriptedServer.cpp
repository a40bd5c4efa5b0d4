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
#include <system_error>
#include <utility>

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

bool wouldBlock()
{
    return errno == EAGAIN || errno == EINTR;
}

}  // namespace

namespace step {

Step expect(std::string text)
{
    return {Step::Kind::expect, std::move(text)};
}

Step expectThrough(std::string terminator)
{
    return {Step::Kind::expectThrough, std::move(terminator)};
}

Step expectEnd()
{
    return {Step::Kind::expectEnd};
}

Step send(std::string text, std::size_t piece, std::chrono::milliseconds delay)
{
    return {Step::Kind::send, std::move(text), piece, delay};
}

Step pause(std::chrono::milliseconds length)
{
    return {Step::Kind::pause, {}, 0, length};
}

Step waitForRelease()
{
    return {Step::Kind::waitForRelease};
}

Step halfClose()
{
    return {Step::Kind::halfClose};
}

Step close()
{
    return {Step::Kind::close};
}

Step reset()
{
    return {Step::Kind::reset};
}

Step silence()
{
    return {Step::Kind::silence};
}

Step drip(std::string text, std::chrono::milliseconds delay)
{
    return {Step::Kind::drip, std::move(text), 0, delay};
}

Step flood()
{
    return {Step::Kind::flood, std::string(65536, 'f')};
}

}  // namespace step

struct ScriptedServer::Connection {
    int descriptor = -1;  // -1 once it is closed
    const Script* script = nullptr;
    std::size_t current = 0;   // step
    std::size_t offset = 0;    // bytes of the step's text that are sent
    std::size_t expected = 0;  // bytes of `talk.received` that the script has dealt with
    std::size_t releases = 0;  // that were used up
    bool wantsRoom = false;    // waits for room to send
    std::optional<Clock::time_point> wakeAt;  // waits for a time
    Conversation talk;
};

ScriptedServer::ScriptedServer(std::vector<Script> newScripts) : scripts(std::move(newScripts))
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
        closeConnection(*connection, true);
    ::close(listener);
    ::close(wake);
}

void ScriptedServer::release()
{
    {
        const std::lock_guard lock(mutex);
        ++releases;
    }
    eventfd_write(wake, 1);
}

std::size_t ScriptedServer::connections() const
{
    const std::lock_guard lock(mutex);
    return all.size();
}

void ScriptedServer::waitForConnections(std::size_t count)
{
    const Deadline deadline;
    std::unique_lock lock(mutex);
    if (!changed.wait_until(lock, deadline.at(), [&] { return all.size() >= count; })) {
        throw LimitPassed("the limit passed with " + std::to_string(all.size()) + " of " +
                          std::to_string(count) + " connections");
    }
}

Conversation ScriptedServer::waitFor(std::size_t number, const std::string& what,
                                     const std::function<bool(const Conversation&)>& condition)
{
    const Deadline deadline;
    std::unique_lock lock(mutex);
    const auto holds = [&] {
        return number < all.size() && condition(all[number]->talk);
    };
    if (!changed.wait_until(lock, deadline.at(), holds))
        throw LimitPassed("the limit passed while the server waited for " + what);
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

void ScriptedServer::run()
{
    std::vector<pollfd> descriptors;
    for (;;) {
        descriptors.assign({{wake, POLLIN, 0}, {listener, POLLIN, 0}});
        int timeout = -1;
        for (const auto& connection : all) {
            // A peer that has ended stays readable for good.
            short events = connection->talk.peerEnded ? 0 : POLLIN;
            if (connection->wantsRoom)
                events |= POLLOUT;
            descriptors.push_back({connection->descriptor, events, 0});
            if (connection->descriptor >= 0 && connection->wakeAt) {
                const auto left = std::chrono::ceil<std::chrono::milliseconds>(*connection->wakeAt -
                                                                               Clock::now());
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
            serve(*all[i - 2], descriptors[i].revents);
        acceptAll();
        changed.notify_all();
    }
}

void ScriptedServer::acceptAll()
{
    for (;;) {
        const int descriptor = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (descriptor < 0)
            return;
        auto connection = std::make_unique<Connection>();
        connection->descriptor = descriptor;
        connection->script = &scripts[std::min(all.size(), scripts.size() - 1)];
        all.push_back(std::move(connection));
        serve(*all.back(), 0);
    }
}

void ScriptedServer::serve(Connection& connection, short events)
{
    if (connection.descriptor < 0)
        return;
    if ((events & POLLIN) != 0)
        readInput(connection);
    if ((events & (POLLERR | POLLHUP)) != 0 && connection.talk.peerEnded) {
        // Both directions are over, or the peer answers with resets.
        int error = 0;
        socklen_t length = sizeof error;
        getsockopt(connection.descriptor, SOL_SOCKET, SO_ERROR, &error, &length);
        connection.talk.peerReset = error != 0;
        closeConnection(connection, false);
    }
    while (connection.descriptor >= 0 && advance(connection)) {
        ++connection.current;
        connection.offset = 0;
        connection.wakeAt.reset();
        connection.wantsRoom = false;
    }
}

void ScriptedServer::readInput(Connection& connection)
{
    std::array<char, 16384> buffer;
    for (;;) {
        const ssize_t count = recv(connection.descriptor, buffer.data(), buffer.size(), 0);
        if (count > 0) {
            connection.talk.received.append(buffer.data(), static_cast<std::size_t>(count));
            continue;
        }
        if (count == 0) {
            connection.talk.peerEnded = true;
        } else if (!wouldBlock()) {
            connection.talk.peerReset = true;
            closeConnection(connection, false);
        }
        return;
    }
}

bool ScriptedServer::advance(Connection& connection)
{
    Conversation& talk = connection.talk;
    if (connection.current == connection.script->size()) {
        closeConnection(connection, false);
        return false;
    }
    const Step& step = (*connection.script)[connection.current];
    switch (step.kind) {
    case Step::Kind::expect: {
        const std::string_view come = std::string_view(talk.received).substr(connection.expected);
        const std::size_t common = std::min(come.size(), step.text.size());
        const bool asExpected = come.substr(0, common) == step.text.substr(0, common);
        if (asExpected && common == step.text.size()) {
            connection.expected += common;
            return true;
        }
        if (!asExpected || talk.peerEnded) {
            talk.failure = "expected \"" + step.text + "\" but got \"" + std::string(come) + "\"";
            closeConnection(connection, true);
        }
        return false;
    }
    case Step::Kind::expectThrough: {
        const std::size_t found = talk.received.find(step.text, connection.expected);
        if (found != std::string::npos) {
            connection.expected = found + step.text.size();
            return true;
        }
        if (talk.peerEnded) {
            talk.failure = "the peer ended before \"" + step.text + "\"";
            closeConnection(connection, true);
        }
        return false;
    }
    case Step::Kind::expectEnd:
        return talk.peerEnded;
    case Step::Kind::send:
        return sendText(connection, step, false);
    case Step::Kind::drip:
    case Step::Kind::flood:
        return sendText(connection, step, true);
    case Step::Kind::pause:
        if (!connection.wakeAt)
            connection.wakeAt = Clock::now() + step.delay;
        return Clock::now() >= *connection.wakeAt;
    case Step::Kind::waitForRelease:
        if (releases == connection.releases)
            return false;
        ++connection.releases;
        return true;
    case Step::Kind::halfClose:
        shutdown(connection.descriptor, SHUT_WR);
        return true;
    case Step::Kind::close:
        closeConnection(connection, false);
        return false;
    case Step::Kind::reset:
        closeConnection(connection, true);
        return false;
    case Step::Kind::silence:
        return false;
    }
    return false;
}

bool ScriptedServer::sendText(Connection& connection, const Step& step, bool again)
{
    for (;;) {
        if (connection.wakeAt) {
            if (Clock::now() < *connection.wakeAt)
                return false;
            connection.wakeAt.reset();
        }
        if (connection.offset == step.text.size()) {
            if (!again)
                return true;
            connection.offset = 0;
        }
        const std::size_t left = step.text.size() - connection.offset;
        const std::size_t piece = step.piece == 0 ? left : std::min(left, step.piece);
        const ssize_t count = ::send(connection.descriptor, step.text.data() + connection.offset,
                                     piece, MSG_NOSIGNAL);
        if (count < 0) {
            connection.wantsRoom = wouldBlock();
            if (!connection.wantsRoom) {
                connection.talk.peerReset = true;
                closeConnection(connection, false);
            }
            return false;
        }
        connection.wantsRoom = false;
        connection.offset += static_cast<std::size_t>(count);
        connection.talk.sent += static_cast<std::uint64_t>(count);
        if (step.delay.count() > 0 && (again || connection.offset < step.text.size()))
            connection.wakeAt = Clock::now() + step.delay;
        if (again) {
            // A peer that keeps up must not hold the thread here for good.
            connection.wantsRoom = !connection.wakeAt;
            return false;
        }
    }
}

void ScriptedServer::closeConnection(Connection& connection, bool reset)
{
    if (connection.descriptor < 0)
        return;
    if (reset) {
        const linger atOnce = {1, 0};
        setsockopt(connection.descriptor, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    }
    ::close(connection.descriptor);
    connection.descriptor = -1;
    connection.talk.closed = true;
}

RefusingPort::RefusingPort() : descriptor(boundSocket(&number))
{}

RefusingPort::~RefusingPort()
{
    ::close(descriptor);
}

SilentPort::SilentPort()
{
    listener = boundSocket(&number);
    checked(listen(listener, 0), "listen");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(number);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);

    // A queue of length 0 has room for one connection. Once the first one stands, the kernel
    // drops all further attempts; the second is to make sure of that.
    for (int i = 0; i < 2; ++i) {
        const int filler =
            checked(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0), "socket");
        fillers.push_back(filler);
        const int result = connect(filler, reinterpret_cast<sockaddr*>(&address), sizeof address);
        if (result < 0 && errno != EINPROGRESS)
            checked(result, "connect");
        if (i == 0) {
            const Deadline deadline;
            pollfd established = {filler, POLLOUT, 0};
            while (poll(&established, 1, deadline.remaining("the first connection")) <= 0) {
            }
        }
    }
}

SilentPort::~SilentPort()
{
    for (const int filler : fillers)
        ::close(filler);
    ::close(listener);
}

}  // namespace support
