#include "BareClient.h"

#include "failure.h"

#include <openssl/ssl.h>

#include <array>
#include <chrono>

#include <arpa/inet.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/wait.h>

namespace bench {

namespace {

class Client {
public:
    Client(const Load& itsLoad, Service* itsService) : load(itsLoad), service(itsService)
    {
        const CheckKind& kind = load.kind;
        if (!kind.greeting.empty())
            exchanges.push_back({"", kind.greeting.size()});
        for (const Turn& turn : kind.turns)
            exchanges.push_back({turn.request + kind.requestEnd, turn.reply.size()});
        if (!kind.waitsForGreeting) {
            exchanges[1].awaited += exchanges[0].awaited;
            exchanges.erase(exchanges.begin());
        }
        if (kind.transport == Transport::tls)
            context = SSL_CTX_new(TLS_client_method());
    }

    void run()
    {
        std::array<epoll_event, 512> events;
        while (ended < load.total) {
            while (started < load.total && started - ended < load.atOnce)
                start();
            const int count = epoll_wait(poller, events.data(), events.size(), -1);
            for (int i = 0; i < count; ++i) {
                const epoll_event& event = events[static_cast<std::size_t>(i)];
                proceed(event.data.fd, event.events);
            }
        }
    }

private:
    struct Exchange {
        std::string request;
        std::size_t awaited;  // bytes
    };
    struct Dialogue {
        bool connected = false;
        SSL* tls = nullptr;
        std::size_t turn = 0;
        std::size_t awaited = 0;
    };

    void start()
    {
        const bool datagrams = load.kind.transport == Transport::udp;
        const int connection = socket(
            AF_INET, (datagrams ? SOCK_DGRAM : SOCK_STREAM) | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        sockaddr_in name{};
        name.sin_family = AF_INET;
        name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        name.sin_port = htons(service->ports()[started % service->ports().size()]);
        if (connection < 0 ||
            (connect(connection, reinterpret_cast<sockaddr*>(&name), sizeof name) != 0 &&
             errno != EINPROGRESS))
            failCall("connect");
        const auto index = static_cast<std::size_t>(connection);
        if (index >= dialogues.size())
            dialogues.resize(index + 1);
        dialogues[index] = {};
        if (load.kind.transport == Transport::tls) {
            dialogues[index].tls = SSL_new(context);
            SSL_set_fd(dialogues[index].tls, connection);
            SSL_set_connect_state(dialogues[index].tls);
        }
        epoll_event event{};
        event.events = EPOLLIN | EPOLLOUT | EPOLLRDHUP | EPOLLET;
        event.data.fd = connection;
        if (epoll_ctl(poller, EPOLL_CTL_ADD, connection, &event) != 0)
            failCall("epoll_ctl");
        if (++started == load.total)
            service->hold(0);
    }

    void proceed(int connection, std::uint32_t events)
    {
        Dialogue& dialogue = dialogues[static_cast<std::size_t>(connection)];
        if (!dialogue.connected) {
            if ((events & EPOLLOUT) == 0)
                return;
            if (dialogue.tls != nullptr && SSL_do_handshake(dialogue.tls) != 1)
                return;
            dialogue.connected = true;
            if (exchanges.empty())
                shutdown(connection, SHUT_WR);
            else
                beginTurn(connection, dialogue);
        }
        if ((events & EPOLLIN) != 0 && !receive(connection, dialogue, events)) {
            SSL_free(dialogue.tls);
            close(connection);
            ++ended;
        }
    }

    void beginTurn(int connection, Dialogue& dialogue)
    {
        const auto& [request, awaited] = exchanges[dialogue.turn];
        dialogue.awaited = awaited;
        if (request.empty())
            return;
        const ssize_t count =
            dialogue.tls != nullptr
                ? SSL_write(dialogue.tls, request.data(), static_cast<int>(request.size()))
                : send(connection, request.data(), request.size(), MSG_NOSIGNAL);
        if (count != static_cast<ssize_t>(request.size()))
            failCall("send");
    }

    // False: the dialogue is over.
    bool receive(int connection, Dialogue& dialogue, std::uint32_t events)
    {
        for (;;) {
            const ssize_t count =
                dialogue.tls != nullptr
                    ? SSL_read(dialogue.tls, buffer.data(), static_cast<int>(buffer.size()))
                    : recv(connection, buffer.data(), buffer.size(), 0);
            const bool pastLast = dialogue.turn == exchanges.size();
            if (count == 0 && pastLast)
                return false;
            if (count <= 0) {
                if (count < 0 && (dialogue.tls != nullptr || errno == EAGAIN))
                    return true;
                throw std::runtime_error("a dialogue broke off");
            }
            if (pastLast || static_cast<std::size_t>(count) > dialogue.awaited)
                throw std::runtime_error("more came than was to come");
            dialogue.awaited -= static_cast<std::size_t>(count);
            if (dialogue.awaited == 0 && ++dialogue.turn < exchanges.size())
                beginTurn(connection, dialogue);
            if (dialogue.turn == exchanges.size() && !load.kind.waitsForEnd)
                return false;
            // What comes after a short receive makes a new edge; an end has made its own.
            const bool isShort = static_cast<std::size_t>(count) < buffer.size();
            if (dialogue.tls == nullptr && isShort && (events & EPOLLRDHUP) == 0)
                return true;
        }
    }

    const Load& load;
    Service* service;
    std::vector<Exchange> exchanges;
    SSL_CTX* context = nullptr;
    int poller = epoll_create1(EPOLL_CLOEXEC);
    std::vector<Dialogue> dialogues;  // by descriptor
    std::array<char, 65536> buffer;
    std::size_t started = 0;
    std::size_t ended = 0;
};

}  // namespace

Measurement measureBareClient(const Load& load, Service* service)
{
    service->hold(load.toHold());
    const auto begin = std::chrono::steady_clock::now();
    const pid_t process = fork();
    if (process == 0)
        runAndExit("bare client", [&] { Client(load, service).run(); });
    siginfo_t end{};
    waitid(P_PID, static_cast<id_t>(process), &end, WEXITED | WNOWAIT);
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - begin;
    return collect(process, passed.count(), load.total);
}

}  // namespace bench
