#include "queues/records/services.h"

namespace services {

constexpr std::array<std::pair<const char*, std::int32_t>, 16> serviceNames = {{
    {"(Uninitialized)", SERVICE_UNINITIALIZED},
    {"HTTP", SERVICE_HTTP},
    {"ICMP", SERVICE_ICMP},
    {"DNS", SERVICE_DNS},
    {"SMTP", SERVICE_SMTP},
    {"POP3", SERVICE_POP3},
    {"TCP", SERVICE_TCP},
    {"FTP", SERVICE_FTP},
    {"IMAP", SERVICE_IMAP},
    {"NTP", SERVICE_NTP},
    {"NNTP", SERVICE_NNTP},
    {"NFS", SERVICE_NFS},
    {"NIS", SERVICE_NIS},
    {"PORTMAP", SERVICE_PORTMAP},
    {"GENRPC", SERVICE_GENRPC},
    {"Custom", SERVICE_CUSTOM},
}};

const std::map<std::string, std::int32_t> serviceNumbers(serviceNames.begin(), serviceNames.end());

}  // namespace services
