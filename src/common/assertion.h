// A broken rule of our own: a text on standard error, then abort.
#pragma once

#include <string>

// Writes "Assertion failed: ", the text and an end of line to standard error, and aborts. Nothing
// is sent to the parent, no destructor runs, no dump is written. Never judges input from outside.
[[noreturn]] void assertion(const std::string& text);
