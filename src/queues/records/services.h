// What a check found out, and the kinds of checks by number and name.
#pragma once

#include "types/id.h"

#include <array>
#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <utility>

namespace services {

// Outcomes of a check. 8 is never produced.
enum : std::int32_t {
    RESULT_OK = 0,              // answered correctly, within the thresholds
    RESULT_WARNING = 1,         // answered correctly, later than warnIfAbove
    RESULT_ALERT = 2,           // answered correctly, later than alertIfAbove
    RESULT_CONNECT_FAILED = 3,  // no connection, or no socket for one
    RESULT_WRITE_FAILED = 4,
    RESULT_READ_FAILED = 5,
    RESULT_BAD_REPLY = 6,     // answered, but wrongly
    RESULT_CLOSE_FAILED = 7,  // waiting for the connection to close failed
    RESULT_TIMEOUT = 9,
};

// True for outcomes that come with a measured reply time; all others carry -1 in its place.
constexpr bool hasReplyTime(std::int32_t result)
{
    return result == RESULT_OK || result == RESULT_WARNING || result == RESULT_ALERT ||
           result == RESULT_BAD_REPLY;
}

// Kinds of checks, the values of remcheck_conf::service. This process runs those with a comment.
enum : std::int32_t {
    SERVICE_UNINITIALIZED = 0,
    SERVICE_HTTP = 1,  // also HTTPS
    SERVICE_ICMP = 2,
    SERVICE_DNS = 3,   // A records over UDP
    SERVICE_SMTP = 4,  // greeting to QUIT
    SERVICE_POP3 = 5,  // also POP3S
    SERVICE_TCP = 6,   // connect only
    SERVICE_FTP = 7,   // greeting to QUIT
    SERVICE_IMAP = 8,  // also IMAPS
    SERVICE_NTP = 9,
    SERVICE_NNTP = 10,
    SERVICE_NFS = 11,
    SERVICE_NIS = 12,
    SERVICE_PORTMAP = 13,
    SERVICE_GENRPC = 14,
    SERVICE_CUSTOM = 15,
};

// The names of the kinds, in the order of their numbers.
extern const std::array<std::pair<const char*, std::int32_t>, 16> serviceNames;
// The same from name to number, built before main.
extern const std::map<std::string, std::int32_t> serviceNumbers;

// What a check found out: the payload of CHECK_RESULT.
struct remcheck_stat {
    std::int64_t ctime = 0;                    // start of the check, seconds since 1970 UTC
    tql::id_t check_id;                        // `id` of the request, unchanged
    std::int32_t result = RESULT_READ_FAILED;  // one of the outcomes above
    std::int32_t replytime = 0;                // milliseconds; -1 when `result` has none
    std::uint32_t attempts = 0;                // not counted by this process
    std::list<std::string> result_strings;     // in the order in which they were added

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("ctime", self.ctime);
        visit("check_id", self.check_id);
        visit("result", self.result);
        visit("replytime", self.replytime);
        visit("attempts", self.attempts);
        visit("result_strings", self.result_strings);
    }
    bool operator==(const remcheck_stat&) const = default;
};

}  // namespace services
