#include "tests/io/ScriptedPlatform.h"

#include "platform/Clock.h"

#include <stdexcept>

namespace scripted {

State state;

namespace {

// A wait without limit that nothing may end is that of a stream which dies: it ends the oldest
// operation as a close does.
std::uint32_t wait(const std::vector<platform::Handle>& handles, std::uint32_t timeoutMs)
{
    state.timeouts.push_back(timeoutMs);
    if (state.timeouts.size() > 10000)
        throw std::logic_error("waits without end");
    for (std::size_t i = 0; i < handles.size(); ++i)
        if (state.signalled.contains(handles[i]))
            return static_cast<std::uint32_t>(i);
    if (!state.operations.empty() && (state.arrivals > 0 || timeoutMs == platform::INFINITE)) {
        const Operation ended = state.operations.front();
        state.operations.pop_front();
        const bool arrives = state.arrivals-- > 0;
        ended.routine(arrives ? platform::ERROR_SUCCESS : platform::ERROR_OPERATION_ABORTED,
                      arrives, ended.overlapped);
        return platform::WAIT_IO_COMPLETION;
    }
    state.now = state.now + Time(timeoutMs / 1000, timeoutMs % 1000 * 1000);
    return platform::WAIT_TIMEOUT;
}

}  // namespace
}  // namespace scripted

namespace platform {

struct WaitList::Impl {
    std::vector<Handle> handles;
};
WaitList::WaitList() : impl(std::make_unique<Impl>())
{}
WaitList::~WaitList() = default;
std::size_t WaitList::size() const
{
    return impl->handles.size();
}
bool WaitList::isSignalled(std::size_t index) const
{
    return scripted::state.signalled.contains(impl->handles.at(index));
}
void WaitList::append(Handle handle)
{
    impl->handles.push_back(handle);
}
void WaitList::removeSwapLast(std::size_t index)
{
    impl->handles.at(index) = impl->handles.back();
    impl->handles.pop_back();
}
std::uint32_t waitForMultipleObjectsEx(const WaitList& list, std::uint32_t timeoutMs)
{
    return scripted::wait(list.impl->handles, timeoutMs);
}
std::uint32_t sleepEx(std::uint32_t timeoutMs)
{
    const std::uint32_t result = scripted::wait({}, timeoutMs);
    return result == WAIT_TIMEOUT ? 0 : result;
}
std::uint64_t operationsStarted()
{
    return scripted::state.operations.size();
}

Handle getStdHandle(int)
{
    return Handle::invalid;
}
bool readFileEx(Handle, void* buffer, std::uint32_t count, Overlapped* overlapped,
                CompletionRoutine routine)
{
    scripted::state.operations.push_back({static_cast<char*>(buffer), count, overlapped, routine});
    return true;
}
bool writeFileEx(Handle, const void* buffer, std::uint32_t count, Overlapped* overlapped,
                 CompletionRoutine routine)
{
    scripted::state.operations.push_back(
        {static_cast<const char*>(buffer), count, overlapped, routine});
    return true;
}
void retryFile(Handle)
{}
bool closeHandle(Handle)
{
    return true;
}

bool systemTimeAsFileTime(std::uint64_t* ticks)
{
    const auto& now = scripted::state.now;
    *ticks = 116444736000000000u + static_cast<std::uint64_t>(now.sec) * 10000000u +
             static_cast<std::uint64_t>(now.usec) * 10u;
    return true;
}

}  // namespace platform
