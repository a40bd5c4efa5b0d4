#include "platform/File.h"

#include "platform/Proactor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace platform {

OutputFile::~OutputFile()
{
    if (descriptor >= 0)
        close(descriptor);
}

bool OutputFile::create(const std::string& path)
{
    // From here on a pipe without a reader fails a write, and raises no signal.
    Proactor::instance();
    descriptor =
        open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY, S_IRUSR | S_IWUSR);
    return descriptor >= 0 || failWith(errno);
}

bool OutputFile::write(std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR)
            return failWith(errno);
        if (written > 0)
            bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

}  // namespace platform
