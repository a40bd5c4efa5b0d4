// Child processes, interrupts, names and the terminal: what programs ask of their surroundings.
#pragma once

#include "platform/Overlapped.h"
#include "platform/OwnedDescriptor.h"

#include <cstdint>
#include <string>
#include <vector>

namespace platform {

// A started child. The handles belong to the caller, who closes them.
struct ChildProcess {
    int pid = -1;
    Handle exited = Handle::none;          // see processEnd
    Handle standardInput = Handle::none;   // the end to write to
    Handle standardOutput = Handle::none;  // the end to read from
    Handle standardError = Handle::none;   // the end to read from
};

// How a child ended.
struct ExitStatus {
    bool signalled = false;
    int code = 0;  // exit code, or the number of the signal
};

// Starts a program with pipes on its three standard descriptors, and no other descriptor open.
// `path` is not searched for; `arguments` are those behind the name of the program. The child
// stands in a process group of its own, so an interrupt at the terminal reaches the parent alone.
// False with getLastError() set, also if the program can't be executed.
bool startProcess(const std::string& path, const std::vector<std::string>& arguments,
                  ChildProcess* child);
// The number of the descriptor that startSibling gives a program.
inline constexpr int siblingDescriptor = 3;
// Starts a program that shares the three standard descriptors of this process, has `inherited` as
// descriptor 3, and no other one open. Otherwise like startProcess.
bool startSibling(const std::string& path, const std::vector<std::string>& arguments,
                  const OwnedDescriptor& inherited, int* pid);
// A new waitable object that is signalled once a process, not only a child, has ended; the caller
// closes it. Handle::none with getLastError() set: ERROR_INVALID_PARAMETER if there is none.
Handle processEnd(int pid);
// Collects the status of a child that has ended (waits for it if it has not). Once: after that,
// or for a process that is no child, the code is -1.
ExitStatus collectExit(int pid);
void killProcess(int pid);  // at once, without a chance to clean up

// A waitable object that is signalled when the user interrupts the program (SIGINT or SIGTERM).
// The first call takes the signals over, but for one that is ignored; later calls give the same
// object. After the first interrupt the default action is back, so that a second one ends the
// process. Handle::none with getLastError() set if there can be no such object.
Handle interruptRequested();
const char* signalName(int signal);  // "SIGSEGV" and so on; "signal" for an unknown one

// All IPv4 addresses of a host name or dotted address, in the resolver's order, network byte
// order. Empty with `*why` filled if there are none.
std::vector<std::uint32_t> resolveIpv4(const std::string& host, std::string* why);

// The name of this computer; false if it can't be told.
bool hostName(std::string* name);

bool standardOutputIsTerminal();
bool standardErrorIsTerminal();
int terminalColumns();  // of standard error; 80 if unknown

}  // namespace platform
