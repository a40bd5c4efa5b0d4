// Texts of system error codes, and dynamic loading.
#pragma once

#include <cstdint>
#include <string>

// The text of a code of platform/ErrorCode.h, at most 255 characters and without an end of line.
// A code whose text is empty gives the code in decimal. A code that has none gives
// "<code> (FormatMessage: 317)" and leaves 317 as the last error.
std::string systemErrorText(std::uint32_t code);
// The same for the last error of the calling thread.
std::string lastSystemErrorText();

// Gives a library's handle, which lasts as long as the process.
// Throws errors::dlerror.
void* loadLibrary(const std::string& name);
// Gives the address of a function of the library. Throws errors::dlerror.
void* loadFunction(void* module, const std::string& name);
