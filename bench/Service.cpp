#include "Service.h"

#include "failure.h"

#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <array>
#include <csignal>
#include <deque>
#include <memory>
#include <new>
#include <string_view>

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>

namespace bench {

namespace {

constexpr int portCount = 32;
constexpr int backlog = 4096;              // for each port
constexpr int socketBufferSize = 1 << 18;  // takes the longest reply at once, and many datagrams

SSL_CTX* serverContext()
{
    static SSL_CTX* const context = [] {
        OPENSSL_init_ssl(OPENSSL_INIT_NO_LOAD_CONFIG, nullptr);
        EVP_PKEY* const key = EVP_EC_gen("P-256");
        X509* const certificate = X509_new();
        SSL_CTX* const made = SSL_CTX_new(TLS_server_method());
        X509_gmtime_adj(X509_getm_notBefore(certificate), 0);
        X509_gmtime_adj(X509_getm_notAfter(certificate), 24L * 3600);
        X509_set_pubkey(certificate, key);
        if (X509_sign(certificate, key, EVP_sha256()) == 0 ||
            SSL_CTX_use_certificate(made, certificate) != 1 ||
            SSL_CTX_use_PrivateKey(made, key) != 1)
            throw std::runtime_error("the service has no certificate");
        X509_free(certificate);
        EVP_PKEY_free(key);
        return made;
    }();
    return context;
}

}  // namespace

// What runs in the process.
class Service::Loop {
public:
    Loop(const CheckKind& itsKind, Service* itsService) : kind(itsKind), service(itsService) {}

    void run()
    {
        poller = epoll_create1(EPOLL_CLOEXEC);
        watch(service->wake, EPOLLIN);
        for (int socket : service->sockets) {
            watch(socket, EPOLLIN);
            isListener.resize(static_cast<std::size_t>(socket) + 1);
            isListener[static_cast<std::size_t>(socket)] = true;
        }
        std::array<epoll_event, 512> events;
        for (;;) {
            const int count = epoll_wait(poller, events.data(), events.size(), -1);
            for (int i = 0; i < count; ++i)
                handle(events[static_cast<std::size_t>(i)].data.fd);
            while (held.size() > service->shared->toHold) {
                serve(held.front());
                held.pop_front();
            }
            service->shared->held = held.size();
        }
    }

private:
    struct Dialogue {
        SSL* tls = nullptr;
        std::size_t turn = 0;
        std::string request;  // as far as it has come
    };

    // A dialogue whose last step is withheld.
    struct Held {
        int descriptor;
        sockaddr_in peer;  // of a datagram
    };

    void watch(int descriptor, std::uint32_t events) const
    {
        epoll_event event{};
        event.events = events;
        event.data.fd = descriptor;
        if (epoll_ctl(poller, EPOLL_CTL_ADD, descriptor, &event) != 0)
            failCall("epoll_ctl");
    }

    Dialogue& dialogueOf(int connection)
    {
        const auto index = static_cast<std::size_t>(connection);
        if (index >= dialogues.size())
            dialogues.resize(index + 1);
        return dialogues[index];
    }

    void handle(int ready)
    {
        const auto index = static_cast<std::size_t>(ready);
        if (ready == service->wake) {
            std::uint64_t ignored = 0;
            while (read(ready, &ignored, sizeof ignored) > 0) {
            }
        } else if (index >= isListener.size() || !isListener[index]) {
            proceed(ready, dialogueOf(ready));
        } else if (kind.transport == Transport::udp) {
            receiveDatagrams(ready);
        } else {
            acceptAll(ready);
        }
    }

    void receiveDatagrams(int socket)
    {
        std::array<char, 1536> bytes;
        Held next{socket, {}};
        for (;;) {
            socklen_t length = sizeof next.peer;
            const ssize_t count = recvfrom(socket, bytes.data(), bytes.size(), 0,
                                           reinterpret_cast<sockaddr*>(&next.peer), &length);
            if (count < 0)
                return;
            checkRequest({bytes.data(), static_cast<std::size_t>(count)}, kind.turns[0]);
            held.push_back(next);
        }
    }

    void acceptAll(int listener)
    {
        for (;;) {
            const int connection =
                accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
            if (connection < 0)
                return;
            begin(connection);
        }
    }

    void begin(int connection)
    {
        if (kind.turns.empty()) {
            held.push_back({connection, {}});
            return;
        }
        Dialogue& dialogue = dialogueOf(connection);
        dialogue.turn = 0;
        dialogue.request.clear();
        watch(connection, EPOLLIN | EPOLLET);
        if (kind.transport == Transport::tls) {
            dialogue.tls = SSL_new(serverContext());
            SSL_set_fd(dialogue.tls, connection);
            SSL_set_accept_state(dialogue.tls);
        } else if (!kind.greeting.empty()) {
            send(connection, dialogue, kind.greeting);
        }
    }

    // There is something to receive, or was until a moment ago.
    void proceed(int connection, Dialogue& dialogue)
    {
        if (dialogue.turn == kind.turns.size())
            return;
        if (dialogue.tls != nullptr && SSL_is_init_finished(dialogue.tls) == 0) {
            // Not now, or never: a client that fails shows in its own result.
            if (SSL_do_handshake(dialogue.tls) != 1)
                return;
            if (!kind.greeting.empty())
                send(connection, dialogue, kind.greeting);
        }
        std::array<char, 4096> bytes;
        for (;;) {
            const ssize_t count =
                dialogue.tls != nullptr
                    ? SSL_read(dialogue.tls, bytes.data(), static_cast<int>(bytes.size()))
                    : recv(connection, bytes.data(), bytes.size(), 0);
            if (count <= 0)
                return;
            dialogue.request.append(bytes.data(), static_cast<std::size_t>(count));
            if (dialogue.request.ends_with(kind.requestEnd))
                answer(connection, dialogue);
            // What comes after a short receive makes a new edge.
            const bool dry =
                dialogue.tls == nullptr && static_cast<std::size_t>(count) < bytes.size();
            if (dry || dialogue.turn == kind.turns.size())
                return;
        }
    }

    void answer(int connection, Dialogue& dialogue)
    {
        const Turn& turn = kind.turns[dialogue.turn];
        checkRequest(dialogue.request, turn);
        dialogue.request.clear();
        const bool last = ++dialogue.turn == kind.turns.size();
        if (last)
            held.push_back({connection, {}});
        if (!last || kind.waitsForEnd)
            send(connection, dialogue, turn.reply);
    }

    void checkRequest(std::string_view request, const Turn& turn) const
    {
        if (!request.starts_with(turn.request))
            throw std::runtime_error("not the request that was expected: " + std::string(request));
    }

    static void send(int connection, const Dialogue& dialogue, const std::string& text)
    {
        const ssize_t count =
            dialogue.tls != nullptr
                ? SSL_write(dialogue.tls, text.data(), static_cast<int>(text.size()))
                : ::send(connection, text.data(), text.size(), MSG_NOSIGNAL);
        if (count > 0 && static_cast<std::size_t>(count) != text.size())
            throw std::runtime_error("a reply doesn't fit into the socket");
    }

    // The last step, and the end of the dialogue.
    void serve(const Held& last)
    {
        if (kind.transport == Transport::udp) {
            const std::string& reply = kind.turns[0].reply;
            sendto(last.descriptor, reply.data(), reply.size(), 0,
                   reinterpret_cast<const sockaddr*>(&last.peer), sizeof last.peer);
            return;
        }
        if (!kind.turns.empty()) {
            Dialogue& dialogue = dialogueOf(last.descriptor);
            if (!kind.waitsForEnd)
                send(last.descriptor, dialogue, kind.turns.back().reply);
            if (dialogue.tls != nullptr) {
                SSL_shutdown(dialogue.tls);
                SSL_free(dialogue.tls);
                dialogue.tls = nullptr;
            }
        }
        ::close(last.descriptor);
    }

    const CheckKind& kind;
    Service* service;
    int poller = -1;
    std::vector<bool> isListener;  // by descriptor
    std::vector<Dialogue> dialogues;
    std::deque<Held> held;
};

Service::Service(const CheckKind& kind) : wake(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
{
    void* const memory =
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        failCall("mmap");
    shared = new (memory) Shared;
    if (kind.transport == Transport::tls)
        serverContext();
    for (int i = 0; i < portCount; ++i)
        openPort(kind.transport);

    process = fork();
    if (process < 0)
        failCall("fork");
    if (process == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        runAndExit("service", [&] { Loop(kind, this).run(); });
    }
    // The process alone holds them, so that a client notices its end.
    for (int socket : sockets)
        close(socket);
}

Service::~Service()
{
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
    munmap(shared, sizeof(Shared));
    close(wake);
}

void Service::hold(std::size_t dialogues)
{
    shared->toHold = dialogues;
    const std::uint64_t one = 1;
    if (write(wake, &one, sizeof one) < 0 && errno != EAGAIN)
        failCall("eventfd");
}

void Service::openPort(Transport transport)
{
    const bool datagrams = transport == Transport::udp;
    const int opened =
        socket(AF_INET, (datagrams ? SOCK_DGRAM : SOCK_STREAM) | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(opened, reinterpret_cast<sockaddr*>(&name), sizeof name) != 0)
        failCall("bind");
    if (datagrams) {
        setsockopt(opened, SOL_SOCKET, SO_RCVBUF, &socketBufferSize, sizeof socketBufferSize);
    } else {
        // Accepted connections inherit both.
        const int yes = 1;
        setsockopt(opened, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        setsockopt(opened, SOL_SOCKET, SO_SNDBUF, &socketBufferSize, sizeof socketBufferSize);
        if (listen(opened, backlog) != 0)
            failCall("listen");
    }
    socklen_t length = sizeof name;
    getsockname(opened, reinterpret_cast<sockaddr*>(&name), &length);
    portNumbers.push_back(ntohs(name.sin_port));
    sockets.push_back(opened);
}

}  // namespace bench
