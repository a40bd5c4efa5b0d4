#include "tests/support/Worker.h"

namespace support {

void Worker::take(std::string* bytes)
{
    while (std::optional<Frame> frame = takeFrame(bytes))
        received.push_back(*std::move(frame));
}

const Frame& Worker::readFrame()
{
    const Deadline deadline = usualLimit();
    while (readCount == received.size())
        pump(deadline, "frame");
    return received[readCount++];
}

CheckResult Worker::readResult()
{
    for (;;) {
        if (const std::optional<CheckResult>& result = readFrame().result)
            return *result;
    }
}

void Worker::readLine(std::string_view line)
{
    while (readFrame().line != line) {
    }
}

ProcessEnd Worker::stop()
{
    closeInput();
    return waitForEnd();
}

std::vector<std::string> Worker::transcript() const
{
    std::vector<std::string> lines;
    for (const Frame& frame : received)
        lines.push_back(frame.line);
    return lines;
}

std::string Worker::shownOutput() const
{
    std::string shown;
    for (const Frame& frame : received)
        shown.append(frame.line).append("\n");
    return shown;
}

}  // namespace support
