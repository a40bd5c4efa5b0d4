// UDP servers for tests: they answer by a function, on a thread of their own, or when told to.
//
//   UdpServer server([](const std::string& query) {
//       return std::vector<std::string>{stray, answerTo(query)};  // in this order
//   });
//
//   UdpServer silent;                                // answers nothing by itself
//   silent.reply(silent.waitForQuery(0), answer);
#pragma once

#include <netinet/in.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace support {

class UdpServer {
public:
    // Gives the datagrams to send back. Runs on the thread of the server.
    using Answer = std::function<std::vector<std::string>(const std::string& query)>;
    struct Query {
        std::string bytes;
        sockaddr_in from = {};
    };

    explicit UdpServer(Answer itsAnswer = {});
    ~UdpServer();

    std::uint16_t port() const { return ntohs(own.sin_port); }  // on 127.0.0.1
    // The query of this number, from 0, as soon as it has come. Throws LimitPassed.
    Query waitForQuery(std::size_t index);
    // Sends a datagram to whoever asked, be it another server.
    void reply(const Query& query, const std::string& datagram) const;

private:
    void run();

    Answer answer;
    int descriptor;
    sockaddr_in own = {};
    std::atomic<bool> stopping = false;
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Query> queries;  // guarded by the mutex
    std::thread thread;
};

}  // namespace support
