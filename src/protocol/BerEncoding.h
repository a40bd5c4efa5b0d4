// What primitives look like on the wire: the bytes of the wrappers of BerPrimitives.h, for those and
// for fields that need none.
//
// The operations that are given an output put tag, length and content from `to` on, in the middle of
// a writer's bytes (see BerOutput), and give the place behind. When one throws EBer, the writer has
// ended.
#pragma once

#include "common/BigNum.h"
#include "protocol/BerValue.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

namespace protocol {

// At most `maxLength` bytes.
char* putText(BerOutput& output, char* to, BerTag tag, const std::string& text,
              std::size_t maxLength);
// Of the types of BerIntegerTemplate. The bounds are included.
template <class T>
char* putInteger(BerOutput& output, char* to, BerTag tag, T value, T minimum, T maximum);
char* putEnumerated(BerOutput& output, char* to, BerTag tag, std::int32_t value);
char* putBoolean(BerOutput& output, char* to, BerTag tag, bool value);
char* putReal(BerOutput& output, char* to, BerTag tag, double value);
char* putBigNum(BerOutput& output, char* to, BerTag tag, const BigNum& value);
char* putNull(BerOutput& output, char* to, BerTag tag);

// Of contents, in bytes. Of a signed number all its bytes, of an unsigned one a byte 0 in front of
// them.
template <class T>
inline constexpr std::size_t longestInteger = sizeof(T) + (std::is_unsigned_v<T> ? 1 : 0);
inline constexpr std::size_t longestEnumerated = sizeof(std::int32_t);
inline constexpr std::size_t longestReal = 60;
inline constexpr std::size_t longestBigNum = 1040;

// The content alone, for values that keep it.
template <class T>
std::string integerContent(T value);
std::string enumeratedContent(std::int32_t value);
std::string booleanContent(bool value);
std::string realContent(double value);
std::string bigNumContent(const BigNum& value);

// What a content stands for. A number that is too long for its type loses its first bytes; a
// content that is no real number is an EBer.
template <class T>
T integerOf(std::string_view content);
double realOf(const std::string& content);
// False if the wrapper of an integer would throw for this content whatever its bounds are.
template <class T>
bool readInteger(std::string_view content, T* value);

// Throw EBer. `operation` is what the number was out of its bounds in.
[[noreturn]] void refuseTextLength(std::size_t length, std::size_t maximum);
template <class T>
[[noreturn]] void refuseNumber(T number, T minimum, T maximum, const char* operation);

}  // namespace protocol
