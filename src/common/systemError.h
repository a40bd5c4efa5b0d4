// Texts of system error codes, dynamic loading, and the crash handler.
#pragma once

#include <cstdint>
#include <string>

// The text of a code, or the code with the reason why it has none.
std::string systemErrorText(std::uint32_t code);
std::string lastSystemErrorText();

// Takes the last message of a crash. Runs in a signal handler.
using CrashReporter = void (*)(const char* text);

// Installs the crash filter: it writes a post-mortem file beside the executable and gives the
// message about it to the reporter. Called once, before main. Null: the message goes to standard
// error.
void installCrashHandler(CrashReporter reporter);

// Both throw errors::dlerror.
void* loadLibrary(const std::string& name);
void* loadFunction(void* module, const std::string& name);
