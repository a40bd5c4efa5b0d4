// The exceptions of the system, thrown by value and caught by reference.
//
// An exception is a failure that a caller may handle. What nobody handles reaches the entry of
// the process, which prints "Caught: " and the text. A broken rule of our own is no exception but
// an assertion (see assertion.h).
#pragma once

#include <cstdint>
#include <string>
#include <utility>

namespace error {

class Exception {
public:
    Exception() = default;
    Exception(const Exception&) = default;
    Exception& operator=(const Exception&) = default;
    virtual ~Exception() = default;
    virtual std::string text() const = 0;
};

// The common form: an exception that holds its text.
class TextException : public Exception {
public:
    explicit TextException(std::string words) : message(std::move(words)) {}
    std::string text() const override { return message; }

private:
    std::string message;
};

// A failed system call; the text ends with lastSystemErrorText().
class syserror : public TextException {
    using TextException::TextException;
};

// A failed system call, by throwSystemError or with a ready text.
class ESystemError : public TextException {
    using TextException::TextException;
};

class EFileNotFoundError : public ESystemError {  // codes 2 and 3
    using ESystemError::ESystemError;
};

class EFileExistsError : public ESystemError {  // code 183
    using ESystemError::ESystemError;
};

// A feature that this build lacks.
class EFatal : public TextException {
    using TextException::TextException;
};

// Malformed text.
class EParseError : public TextException {
    using TextException::TextException;
};

// An index or a size out of its bounds.
class ERange : public TextException {
    using TextException::TextException;
};

}  // namespace error

namespace errors {

// A failed dynamic load.
class dlerror : public error::TextException {
    using TextException::TextException;
};

// A failure of the property layer. text() is the message, or the text of the status if the
// message is empty.
class tql : public error::Exception {
public:
    tql(std::string words, std::int32_t status_code) : message(std::move(words)), code(status_code)
    {}
    std::string text() const override;
    std::int32_t status() const { return code; }

private:
    std::string message;
    std::int32_t code;
};

inline constexpr std::int32_t tqlIllegalType = 9;
inline constexpr std::int32_t tqlIncomparable = 11;

// A comparison of values of different types.
class tql_incomparable : public tql {
public:
    explicit tql_incomparable(std::string words) : tql(std::move(words), tqlIncomparable) {}
};

}  // namespace errors

// Throws EFileNotFoundError for the codes 2 and 3, EFileExistsError for 183, ESystemError for any
// other, with `text`, ": " and the system's text of the code.
[[noreturn]] void throwSystemError(std::uint32_t code, const std::string& text);
