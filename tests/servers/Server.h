// Runs a server of a Debian package for a test: on free ports of 127.0.0.1, with its files in a
// temporary directory, without privileges.
//
// A root user's server runs as `nobody`. All that a server starts stays in one process group.
// That is killed by the destructor; if the test is killed before, then by a process of the group
// that waits for the end of a pipe from the test.
#pragma once

#include "tests/support/Process.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace servers {

class Server {
public:
    using Texts = std::map<std::string, std::string>;  // by name

    // Starts the command, the path of its configuration added. The files are that one, named
    // "configuration", and others; "cert" and "key" come by themselves. In all these texts, {dir}
    // stands for the directory, {user} and {group} for the names that the server runs under,
    // {0}, {1}, ... for its ports.
    //
    // Returns when the server listens at all ports; throws std::runtime_error if it doesn't.
    Server(const std::string& command, std::size_t portCount, const Texts& files);
    // Shows the server's log if the test has failed.
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    std::uint16_t port(std::size_t index) const { return ports[index]; }

private:
    explicit Server(std::size_t portCount);
    bool becomesReady() const;

    support::TemporaryDirectory directory;
    std::vector<std::uint16_t> ports;
    std::vector<int> holders;  // sockets that keep the ports from other tests
    std::unique_ptr<support::Process> process;
};

}  // namespace servers
