// What became of a check, and what it means: name, severity, words.
#pragma once

#include "parent/Check.h"
#include "queues/records/services.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace parent {

// In the order of badness. What is known to be broken outweighs what could not be found out.
enum class Severity { ok, warning, unknown, critical };

// The exit codes of monitoring plugins: 0 ok, 1 warning, 2 critical, 3 unknown.
int exitCode(Severity severity);

struct Outcome {
    enum class Kind {
        answered,    // the worker sent `result`
        lost,        // no worker gave a result; `reason` tells why
        unresolved,  // never sent: the host has no address; `reason` tells why
    };
    const Check* check = nullptr;  // not owned
    Kind kind = Kind::lost;
    std::uint32_t round = 1;
    std::uint32_t attempt = 1;  // above 1: sent again after a worker had died
    services::remcheck_stat result;
    std::string reason;

    // "OK", "WARNING", "CONNECT FAILED", ...; "RESULT 8" for a number without a name,
    // "NO RESULT", "RESOLVE FAILED".
    std::string name() const;
    Severity severity() const;
    // Milliseconds, if a reply time was measured.
    std::optional<std::int32_t> replyTime() const;
    // In words: the address taken for a name, what the result means, and the first line of what
    // the service said. Empty if there is nothing to tell. Fit to be shown; one line.
    std::string words() const;
};

// How many outcomes of each name there were.
struct Tally {
    void add(const Outcome& outcome);
    std::uint64_t total() const;
    Severity worst() const;    // unknown if there is no outcome at all
    std::string text() const;  // "38 OK, 1 WARNING, 1 CONNECT FAILED", the worst last

    std::map<std::pair<Severity, std::string>, std::uint64_t> counts;
};

// How a whole run ended.
struct Summary {
    Tally tally;
    std::uint64_t planned = 0;  // checks; 0: no end was planned
    std::int64_t elapsedMs = 0;
    bool interrupted = false;
    std::string trouble;  // why the run could not go on; empty if it could

    // "40 checks in 3.2 s: 38 OK, ...".
    std::string text() const;
};

std::string secondsText(std::int64_t milliseconds);         // "3.2 s"
std::string plural(std::uint64_t n, const char* oneThing);  // "1 check", "2 checks"

}  // namespace parent
