// Numbers to text and back, quoting, splitting.
//
// Every number that the system prints and every text that it parses goes through here, in the
// forms of the C locale.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <string_view>
#include <vector>

std::string uintToString(std::uint32_t value, bool pad = false);  // pad: two digits at least
std::string intToString(std::int32_t value, bool pad = false);
std::string uint64ToString(std::uint64_t value);
std::string int64ToString(std::int64_t value);
std::string sizeToString(std::size_t value);
std::string hexToString(std::uint32_t value, std::size_t width);  // "0" on the left up to width
std::string hex64ToString(std::uint64_t value, std::size_t width = 0);
// "nan", "inf", "-inf", or fixed notation; a negative width or precision is left out of the
// pattern. Cut at 127 characters.
std::string doubleToString(double value, int width, int precision);

// The whole text must be a number, blanks and a sign in front allowed, else error::EParseError
// with "Error parsing: " and the text quoted. An empty text gives 0. Values beyond 32 bits
// saturate; a minus sign in front of an unsigned number negates it modulo 2^32, so "-1" is
// 4294967295.
std::int32_t stringToLong(const std::string& text);
std::uint32_t stringToULong(const std::string& text);
// The whole text must be a number as strtod reads it, "nan", "inf" and "-inf" among them, else
// error::EParseError with "Error parsing: " and the text in double quotes, as it is. An empty text
// gives 0.
double stringToDouble(const std::string& text);

std::string toLower(std::string_view text);
// In double quotes, with escapes for control characters, quotes and backslashes. Bytes above 127
// stay as they are.
std::string quoteString(std::string_view text);

// Pieces at one separator, or at any character of a set. Without keepEmpty, empty pieces are
// dropped; with it, n separators give n + 1 pieces.
std::list<std::string> split(std::string_view text, char separator, bool keepEmpty);
std::list<std::string> split(std::string_view text, std::string_view separators, bool keepEmpty);
std::vector<std::string> splitToVector(std::string_view text, char separator, bool keepEmpty);

// An IPv4 address in network byte order as "10.0.0.1".
std::string dottedAddress(std::uint32_t address);
