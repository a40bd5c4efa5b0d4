// Text from outside, made fit to be shown.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// The text with everything escaped that could move a cursor, start a terminal's control sequence
// or turn the direction of writing: control characters, bytes that are no UTF-8, and the
// invisible format characters of Unicode. "\n", "\r" and "\t" by name, a backslash doubled, other
// bytes as \xNN. The result holds no line end.
std::string shown(std::string_view text);

// The same, but a backslash stays as it is: for text that has escapes of its own.
std::string printable(std::string_view text);

// shown(), cut to about `columns` characters, at least 4, with "..." for what is left out.
std::string shownShort(std::string_view text, std::size_t columns);

// The same, cut to a length that a person reads, with the number of bytes of what was cut.
std::string shownLine(std::string_view text);

// How many characters a result of shown() has.
std::size_t shownWidth(std::string_view text);
