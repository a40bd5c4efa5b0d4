#include "io/Pipe.h"

#include "common/assertion.h"
#include "io/Selector.h"
#include "platform/ErrorCode.h"

#include <typeinfo>
#include <utility>

namespace io {
namespace {

[[maybe_unused]] const bool registered = [] {
    registerManagedClass(typeid(PipeIStream));
    registerManagedClass(typeid(PipeOStream));
    registerManagedClass(typeid(StdInStream));
    registerManagedClass(typeid(StdOutStream));
    return true;
}();

// Both 0 and 192 are marks of success in a completion routine.
bool isSet(std::uint32_t error)
{
    return error != platform::ERROR_SUCCESS && error != platform::WAIT_IO_COMPLETION;
}

}  // namespace

// ---- Input ---------------------------------------------------------------------------------

PipeIStream::PipeIStream(std::string name, platform::Handle newHandle)
    : handle(newHandle), stream_name(std::move(name))
{
    overlapped.event = this;
}

PipeIStream::~PipeIStream()
{
    closeAndWait();
}

std::string PipeIStream::name() const
{
    return "PipeIStream(" + stream_name + ")";
}

bool PipeIStream::isReady()
{
    return isSet(error) || at_end || read_pos != end_pos;
}

void PipeIStream::issueOverlapped()
{
    if (read_pending || read_pos != end_pos)
        return;
    platform::setLastError(platform::ERROR_SUCCESS);
    if (platform::readFileEx(handle, buffer, sizeof buffer, &overlapped, readCompleted))
        read_pending = true;

    // A read that was started can have left a code behind as well.
    const std::uint32_t code = platform::getLastError();
    if (code == platform::ERROR_BROKEN_PIPE)
        at_end = true;
    else if (code != platform::ERROR_SUCCESS && code != platform::ERROR_IO_PENDING &&
             code != platform::ERROR_PIPE_CONNECTED)
        error = code;
    if (!read_pending)
        changed();
}

void PipeIStream::pull()
{
    issueOverlapped();
    if (!read_pending)
        return;
    platform::retryFile(handle);
    platform::sleepEx(0);
}

void PipeIStream::readCompleted(std::uint32_t e, std::uint32_t n, platform::Overlapped* overlapped)
{
    auto* const stream = static_cast<PipeIStream*>(overlapped->event);
    if (!stream->read_pending)
        assertion("PipeIStream unsolicited callback");
    stream->read_pending = false;
    stream->error = e;
    stream->changed();
    if (e == platform::ERROR_BROKEN_PIPE) {
        stream->at_end = true;
        return;
    }
    if (isSet(e))
        return;
    if (n > stream->buffer + sizeof stream->buffer - stream->end_pos)
        assertion("PipeIStream overflow");
    stream->end_pos += n;
}

void PipeIStream::check()
{
    if (read_pos != end_pos)
        return;
    if (at_end)
        throw EEndOfStream(this, "");
    if (isSet(error))
        throwSystemError(error, "Error in PipeIStream(" + name() + ")");
}

std::uint64_t PipeIStream::readBegin(char** data)
{
    check();
    *data = read_pos;
    return static_cast<std::uint64_t>(end_pos - read_pos);
}

void PipeIStream::readCommit(std::uint64_t count)
{
    const auto unread = static_cast<std::uint64_t>(end_pos - read_pos);
    if (count > unread)
        overcommit("PipeIStream", count, count - unread);
    read_pos += count;
    if (read_pos == end_pos)
        read_pos = end_pos = buffer;
    changed();
}

void PipeIStream::close()
{
    if (handle == platform::Handle::invalid)
        assertion("Double close on PipeIStream");
    check();
    platform::closeHandle(handle);
    handle = platform::Handle::invalid;
    changed();
}

void PipeIStream::setHandle(platform::Handle newHandle)
{
    closeAndWait();
    handle = newHandle;
    error = platform::ERROR_SUCCESS;
    at_end = false;
    changed();
}

// The routine of a read under way writes to the buffer and the fields, so nothing of them may go
// before it has run.
void PipeIStream::closeAndWait()
{
    if (handle != platform::Handle::invalid) {
        platform::closeHandle(handle);
        handle = platform::Handle::invalid;
    }
    while (read_pending)
        platform::sleepEx(platform::INFINITE);
}

// ---- Output --------------------------------------------------------------------------------

PipeOStream::PipeOStream(std::string name, platform::Handle newHandle)
    : stream_name(std::move(name)), handle(newHandle)
{
    overlapped.event = this;
}

PipeOStream::~PipeOStream()
{
    closeAndWait();
}

std::string PipeOStream::name() const
{
    return "PipeOStream(" + stream_name + ")";
}

bool PipeOStream::isReady()
{
    return !write_pending && (isSet(error) || send_pos == fill_pos);
}

void PipeOStream::issueOverlapped()
{
    if (write_pending || send_pos == fill_pos)
        return;
    if (platform::writeFileEx(handle, send_pos, static_cast<std::uint32_t>(fill_pos - send_pos),
                              &overlapped, writeCompleted)) {
        write_pending = true;
    } else {
        error = platform::getLastError();
        changed();
    }
}

void PipeOStream::writeCompleted(std::uint32_t e, std::uint32_t n, platform::Overlapped* overlapped)
{
    auto* const stream = static_cast<PipeOStream*>(overlapped->event);
    if (!stream->write_pending)
        assertion("PipeOSTream unsolicited callback");
    stream->write_pending = false;
    stream->error = e;
    stream->changed();
    if (isSet(e))
        return;
    if (n > stream->fill_pos - stream->send_pos)
        assertion("PipeOStream excessive write");
    stream->send_pos += n;
    if (stream->send_pos == stream->fill_pos)
        stream->send_pos = stream->fill_pos = stream->buffer;
}

void PipeOStream::check()
{
    if (isSet(error))
        throwSystemError(error, name() + " write");
}

std::uint64_t PipeOStream::writeBegin(char** space)
{
    check();
    *space = fill_pos;
    return static_cast<std::uint64_t>(buffer + sizeof buffer - fill_pos);
}

void PipeOStream::writeCommit(std::uint64_t count)
{
    const auto room = static_cast<std::uint64_t>(buffer + sizeof buffer - fill_pos);
    if (count > room)
        overcommit("PipeOStream", count, count - room);
    fill_pos += count;
    changed();
}

bool PipeOStream::flush()
{
    check();
    if (!write_pending) {
        issueOverlapped();
        if (!write_pending)
            return isReady();
    }
    platform::sleepEx(0);
    return isReady();
}

void PipeOStream::close()
{
    check();
    if (handle == platform::Handle::invalid)
        return;
    platform::closeHandle(handle);
    handle = platform::Handle::invalid;
    changed();
}

void PipeOStream::setHandle(platform::Handle newHandle)
{
    closeAndWait();
    handle = newHandle;
    error = platform::ERROR_SUCCESS;
    changed();
}

// The bytes under way belong to the routine until it has run.
void PipeOStream::closeAndWait()
{
    if (handle != platform::Handle::invalid) {
        platform::closeHandle(handle);
        handle = platform::Handle::invalid;
    }
    while (write_pending)
        platform::sleepEx(platform::INFINITE);
}

// ---- Standard streams ----------------------------------------------------------------------

StdInStream::StdInStream() : PipeIStream("stdin", platform::Handle::invalid)
{
    setHandle(platform::getStdHandle(platform::STD_INPUT_HANDLE));
}

StdOutStream::StdOutStream() : PipeOStream("stdout", platform::Handle::invalid)
{
    setHandle(platform::getStdHandle(platform::STD_OUTPUT_HANDLE));
}

}  // namespace io
