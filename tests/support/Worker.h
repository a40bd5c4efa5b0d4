// Drives the real worker process over its standard streams, as a parent does: sends it requests
// or raw bytes, and reads it frame by frame.
#pragma once

#include "tests/support/Process.h"
#include "tests/support/Wire.h"

#include <string>
#include <string_view>
#include <vector>

namespace support {

class Worker : public Process {
public:
    explicit Worker(const ProcessOptions& options = {}) : Process(options) {}

    void send(const Request& request) { sendBytes(request.encode()); }
    // The next frame that hasn't been read. Throws if the output ends first.
    const Frame& readFrame();
    // Reads frames up to the next result, and gives it.
    CheckResult readResult();
    // Reads frames up to the first with this line in the transcript.
    void readLine(std::string_view line);
    // closeInput() and waitForEnd().
    ProcessEnd stop();

    // All frames so far, whether they were read or not.
    const std::vector<Frame>& frames() const { return received; }
    std::vector<std::string> transcript() const;

private:
    void take(std::string* bytes) override;
    std::string shownOutput() const override;

    std::vector<Frame> received;
    std::size_t readCount = 0;  // frames that were handed out
};

}  // namespace support
