// The kinds of checks that the end-to-end benchmark runs: for each, what the request to the worker
// asks for, and the dialogue that the probed service holds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace bench {

enum class Transport { tcp, tls, udp };

// The client sends a text that begins with `request` and ends with CheckKind::requestEnd; the
// service answers with `reply`.
struct Turn {
    std::string request;
    std::string reply;
};

struct CheckKind {
    const char* name = "";
    std::int32_t service = 0;  // of CHECK_REQUEST
    Transport transport = Transport::tcp;

    // Of a default run: how many with one at once, at least how many with more, and at least how
    // many times those at once.
    std::size_t checksAlone = 1500;
    std::size_t checks = 5000;
    std::size_t rounds = 2;
    bool tenThousand = false;  // it has a row with 10,000 at once

    std::size_t resultStrings = 0;  // of a right result
    std::string settings = {};      // property map of the request, encoded
    std::string greeting = {};      // what the service says by itself
    bool waitsForGreeting = true;
    std::string requestEnd = "\r\n";
    std::vector<Turn> turns = {};
    bool waitsForEnd = false;  // the client reads until the service closes
};

// In the order of the table. A kind without turns is a connection whose two ends close.
const std::vector<CheckKind>& checkKinds();

}  // namespace bench
