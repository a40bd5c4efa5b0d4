// One check to be made: a target with its address and thresholds.
#pragma once

#include "parent/HttpOptions.h"
#include "parent/Target.h"
#include "queues/records/remcheck.h"

#include <cstdint>
#include <string>
#include <vector>

namespace parent {

struct Check {
    Target target;
    HttpOptions http;               // for targets with a URL
    std::uint32_t address = 0;      // network byte order
    std::string unresolved;         // why the host has no address; empty if it has one
    std::int32_t warnIfAbove = 0;   // milliseconds; below 1: no threshold
    std::int32_t alertIfAbove = 0;  // milliseconds; below 1: no threshold

    bool hostIsName() const;       // and not an address
    std::string endpoint() const;  // host and port: "mail.example.com:25"
    // After how many milliseconds the worker gives the check up: alertIfAbove and 10 seconds.
    // Can be below 0.
    std::int64_t limitMs() const;
    // What the worker is asked for. `id` is what its answer carries. User and password for IMAP
    // go out in quotes where they need them, for the worker sends both as they are.
    remcheck::remcheck_conf request(std::uint32_t id) const;
};

// Finds the first IPv4 address of each check's host. A host that has none gets the reason in
// `unresolved`. Each host is looked up once; the look-ups block.
void resolve(std::vector<Check>* checks);

}  // namespace parent
