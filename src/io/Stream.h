// The contract of all byte streams: nothing blocks, and the caller gets a view of the buffer.
//
// Reading: wait for readiness, readBegin, use up to that many bytes, readCommit of what was used.
// Writing: wait for readiness, writeBegin, place up to that many bytes, writeCommit of what was
// placed. Committed bytes leave at the next wait of a selector that holds the stream, or at
// flush() where a stream overrides it. An output stream is ready again when all has left.
//
// Errors and the end of a stream are shown by readiness, and thrown by the call that follows.
#pragma once

#include "common/errors.h"
#include "io/Selectable.h"

#include <cstdint>
#include <string>

namespace io {

class IStream : public virtual Selectable {
public:
    // Gives the unread bytes in place: *data is good until the next readCommit or wait.
    // Returns their count, 0 if none has come. Throws EEndOfStream or a system error, each only
    // when the buffer is empty, and then at every call.
    virtual std::uint64_t readBegin(char** data) = 0;
    // How many bytes were used; the rest shows again. More than was shown is an assertion.
    virtual void readCommit(std::uint64_t count) = 0;
    // Throws as readBegin would, else ends the reading side.
    virtual void close() = 0;
};

class OStream : public virtual Selectable {
public:
    // Gives the free room in place: *space is good until the next writeCommit or wait.
    // Returns its size, which can be 0. Throws the stored system error, if there is one.
    virtual std::uint64_t writeBegin(char** space) = 0;
    // How many bytes were placed. More than the room is an assertion.
    virtual void writeCommit(std::uint64_t count) = 0;
    // Tries to push out at once what was committed, and says whether all is gone.
    virtual bool flush() { return false; }
    // Throws as writeBegin would, else ends the writing side.
    virtual void close() = 0;
};

// The assertion about a commit of `count` bytes that goes `beyond` bytes past what was shown.
[[noreturn]] void overcommit(const char* stream, std::uint64_t count, std::uint64_t beyond);

// The end of a stream.
class EEndOfStream : public error::Exception {
public:
    EEndOfStream(Selectable* stream, std::string why);
    std::string text() const override;  // "EOS from NAME", and " (DETAIL)" if there is one
    Selectable* stream() const { return source; }

private:
    Selectable* source;
    std::string detail;
    std::string source_name;  // at the time of the throw
};

// A selectable that isn't ready.
class ENotReady : public error::Exception {
public:
    explicit ENotReady(const Selectable* selectable);  // null: "<unknown>"
    std::string text() const override;

private:
    std::string source_name;
};

}  // namespace io
