// A child of the demonstration.
#pragma once

#include "siblings/Conversation.h"

namespace siblings {

// Exchanges messages until the parent tells it to stop or has ended. Gives the exit code of the
// process: 1 if something was not what it should be. Throws an ESystemError if there is no parent.
int runChild(const Terms& agreed);

}  // namespace siblings
