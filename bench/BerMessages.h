// A large and a small message of the client protocol, filled as in a server with some hundred
// hosts. Each is the same at every call.
#pragma once

#include "protocol/Messages.h"

namespace bench {

// The answer to a search: 1,000 objects of 10 properties each, whose data goes through all kinds.
protocol::Response selectResponse();

// What an agent reports: 10 results, whose values go through the kinds of a variant.
protocol::CheckinReq checkinRequest();

}  // namespace bench
