// Streams over a pipe, file or device, and the standard streams of the process.
#pragma once

#include "io/Stream.h"
#include "platform/Overlapped.h"

#include <cstdint>
#include <string>

namespace io {

// Owns its handle.
class PipeIStream : public IStream {
public:
    PipeIStream(std::string name, platform::Handle newHandle);
    ~PipeIStream() override;  // returns when the read under way has ended

    std::string name() const override;
    bool isReady() override;
    void issueOverlapped() override;

    std::uint64_t readBegin(char** data) override;
    void readCommit(std::uint64_t count) override;
    void close() override;

    // Reads at once what lies in the pipe, without waiting for the word that it is there. Routines
    // of other streams can run meanwhile.
    void pull();

    // Replaces the handle and closes the old one. The end and the error are cleared, the buffer
    // is not touched.
    void setHandle(platform::Handle newHandle);

private:
    static void readCompleted(std::uint32_t e, std::uint32_t n, platform::Overlapped* overlapped);
    void check();
    void closeAndWait();

    bool at_end = false;  // the other end has gone
    platform::Handle handle = platform::Handle::invalid;
    std::uint32_t error = 0;  // last result; 0 and 192 mean success
    bool read_pending = false;
    platform::Overlapped overlapped;
    char buffer[4096];
    char* read_pos = buffer;
    char* end_pos = buffer;
    std::string stream_name;
};

// Owns its handle.
class PipeOStream : public OStream {
public:
    PipeOStream(std::string name, platform::Handle newHandle);
    ~PipeOStream() override;  // returns when the write under way has ended

    std::string name() const override;
    bool isReady() override;
    void issueOverlapped() override;

    std::uint64_t writeBegin(char** space) override;
    void writeCommit(std::uint64_t count) override;
    bool flush() override;
    void close() override;
    // Whether committed bytes have not left yet, after an error, too.
    bool hasUnsent() const { return send_pos != fill_pos; }

    void setHandle(platform::Handle newHandle);

private:
    static void writeCompleted(std::uint32_t e, std::uint32_t n, platform::Overlapped* overlapped);
    void check();
    void closeAndWait();

    char buffer[4096];
    char* send_pos = buffer;
    char* fill_pos = buffer;
    std::string stream_name;
    platform::Handle handle = platform::Handle::invalid;
    std::uint32_t error = 0;
    bool write_pending = false;
    platform::Overlapped overlapped;
};

class StdInStream : public PipeIStream {
public:
    StdInStream();
};

class StdOutStream : public PipeOStream {
public:
    StdOutStream();
};

}  // namespace io
