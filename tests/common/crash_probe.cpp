// Ends in the way that its argument names: "fault", "silent fault" (without a reporter),
// "assertion", or orderly.

#include "common/assertion.h"
#include "common/crashReporting.h"

#include <csignal>
#include <cstring>
#include <string>
#include <unistd.h>

namespace {

void reportToStandardError(const char* text)
{
    for (const char* part : {"reported: ", text, "\n"}) {
        if (write(2, part, std::strlen(part)) < 0)
            _exit(99);
    }
}

const CrashReporting crashReporting(reportToStandardError);

}  // namespace

int main(int argc, char** argv)
{
    const std::string how = argc > 1 ? argv[1] : "";
    if (how == "silent fault")
        installCrashHandler(nullptr);
    if (how.ends_with("fault"))
        std::raise(SIGSEGV);
    if (how == "assertion")
        assertion("on purpose");
    return 0;
}
