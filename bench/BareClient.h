// The same dialogues without a checker: an epoll loop that does on the network what the checks do,
// and nothing else. It is the floor: what it costs, no checker can save. TLS is OpenSSL on the
// socket, with one context for all connections; certificates aren't verified.
#pragma once

#include "Measurement.h"
#include "Service.h"

namespace bench {

// In a process of its own. Throws std::runtime_error if a dialogue goes wrong.
Measurement measureBareClient(const Load& load, Service* service);

}  // namespace bench
