// Files that a program writes for its user.
#pragma once

#include <string>
#include <string_view>

namespace platform {

// A file that is written from front to back, without a buffer of its own: what is written is with
// the system when the call returns. Both operations may block.
class OutputFile {
public:
    OutputFile() = default;
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Once: makes a file that its owner alone can read and write. One that is there is emptied,
    // and keeps its rights. A device or pipe will do, too. False with getLastError() set.
    bool create(const std::string& path);
    // Writes all of it. False with getLastError() set; a part can have been written then.
    bool write(std::string_view bytes);

private:
    int descriptor = -1;
};

}  // namespace platform
