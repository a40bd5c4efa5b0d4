// The last resort of a dying process: fatal signals and uncaught exceptions reach one filter.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace platform {

// What is known of the fault that ends the process. Opaque to the filter; the post-mortem writer
// reads it.
struct ExceptionPointers;

// Runs in a signal handler on a stack of its own: it may use only what is safe there.
// The result is not looked at: the process ends either way, with the signal of the fault.
using ExceptionFilter = int (*)(ExceptionPointers*);

// Installs the filter for SIGSEGV, SIGBUS, SIGFPE and SIGILL, and for exceptions that nobody
// catches. An abort() doesn't reach it. Calls of pure virtual functions end in the filter, too.
void setUnhandledExceptionFilter(ExceptionFilter filter);

// The path of the running executable, into `path` of `size` bytes, ended by a zero byte; also after
// an upgrade has put another file there. False if it can't be had. Safe in a signal handler.
bool moduleFileName(char* path, std::size_t size);

// Writes a text post-mortem (signal, address, exception, registers, memory map, call stack) to a
// new file, replacing one that is there, readable by its owner only. False with getLastError()
// set. `created` says whether the file could be created. Safe in a signal handler.
bool writePostMortem(const char* path, ExceptionPointers* pointers, bool* created);

// Writes the text as an error to the system's event log under the source name; a failure is
// accepted silently. Safe in a signal handler.
void reportEvent(const char* source, const char* text);

// Loads a dynamic library, finds a function in it. Null with getLastError() set (126, 127).
void* loadLibrary(const char* name);
void* getProcAddress(void* module, const char* name);

}  // namespace platform
