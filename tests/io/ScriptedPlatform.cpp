#include "tests/io/ScriptedPlatform.h"

#include "platform/Clock.h"

#include <gtest/gtest.h>

#include <cstring>

namespace scripted {

State state;

void reset()
{
    state = State();
}

void complete(std::uint32_t error, std::uint32_t bytes)
{
    const Operation operation = state.operations.front();
    state.operations.pop_front();
    operation.routine(error, bytes, operation.overlapped);
}

void complete(const std::string& bytes)
{
    std::memcpy(state.operations.front().buffer, bytes.data(), bytes.size());
    complete(0, static_cast<std::uint32_t>(bytes.size()));
}

Wait abortingWait()
{
    return [](const auto&, std::uint32_t) {
        state.calls.push_back("wait");
        complete(platform::ERROR_OPERATION_ABORTED, 0);
        return platform::WAIT_IO_COMPLETION;
    };
}

namespace {

bool start(const char* kind, std::uint64_t target, const void* buffer, std::uint32_t count,
           platform::Overlapped* overlapped, platform::CompletionRoutine routine)
{
    ++state.started;
    state.calls.push_back(std::string(kind) + " " +
                          std::to_string(static_cast<std::int64_t>(target)) + " " +
                          std::to_string(count));
    Start answer;
    if (!state.starts.empty()) {
        answer = state.starts.front();
        state.starts.pop_front();
    }
    platform::setLastError(answer.code);
    if (answer.succeeds || answer.code == platform::ERROR_IO_PENDING)
        state.operations.push_back({kind, target, static_cast<char*>(const_cast<void*>(buffer)),
                                    count, overlapped, routine});
    return answer.succeeds;
}

std::uint32_t wait(const std::vector<platform::Handle>& handles, std::uint32_t timeoutMs)
{
    ++state.waits;
    if (state.wait)
        return state.wait(handles, timeoutMs);
    ADD_FAILURE() << "a wait that the test does not expect";
    std::abort();
}

void note(const std::string& call, std::uint64_t target)
{
    state.calls.push_back(call + " " + std::to_string(static_cast<std::int64_t>(target)));
}

}  // namespace
}  // namespace scripted

namespace platform {

using scripted::state;

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
Handle WaitList::operator[](std::size_t index) const
{
    return impl->handles.at(index);
}
bool WaitList::isSignalled(std::size_t index) const
{
    return state.signalled.contains(static_cast<std::uint64_t>(impl->handles.at(index)));
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
    return state.started;
}

Handle getStdHandle(int which)
{
    return which == STD_INPUT_HANDLE ? Handle{1} : Handle{2};
}
bool readFileEx(Handle handle, void* buffer, std::uint32_t count, Overlapped* overlapped,
                CompletionRoutine routine)
{
    return scripted::start("read", static_cast<std::uint64_t>(handle), buffer, count, overlapped,
                           routine);
}
bool writeFileEx(Handle handle, const void* buffer, std::uint32_t count, Overlapped* overlapped,
                 CompletionRoutine routine)
{
    return scripted::start("write", static_cast<std::uint64_t>(handle), buffer, count, overlapped,
                           routine);
}
bool closeHandle(Handle handle)
{
    scripted::note("close", static_cast<std::uint64_t>(handle));
    return true;
}

int wsaStartup()
{
    state.calls.push_back("startup");
    setLastError(static_cast<std::uint32_t>(state.startupResult));
    return state.startupResult;
}
int wsaGetLastError()
{
    return static_cast<int>(getLastError());
}
SocketHandle tcpSocket()
{
    setLastError(state.socketError);
    return state.socketError != 0 ? SocketHandle::invalid : SocketHandle{7};
}
int wsaRecv(SocketHandle socket, void* buffer, std::uint32_t count, Overlapped* overlapped,
            CompletionRoutine routine)
{
    return scripted::start("recv", static_cast<std::uint64_t>(socket), buffer, count, overlapped,
                           routine)
               ? 0
               : SOCKET_ERROR;
}
int wsaSend(SocketHandle socket, const void* buffer, std::uint32_t count, Overlapped* overlapped,
            CompletionRoutine routine)
{
    return scripted::start("send", static_cast<std::uint64_t>(socket), buffer, count, overlapped,
                           routine)
               ? 0
               : SOCKET_ERROR;
}
int shutdown(SocketHandle socket, int how)
{
    scripted::note("shutdown " + std::to_string(how), static_cast<std::uint64_t>(socket));
    setLastError(state.shutdownError);
    return state.shutdownError != 0 ? SOCKET_ERROR : 0;
}
int closeSocket(SocketHandle socket)
{
    scripted::note("closesocket", static_cast<std::uint64_t>(socket));
    return 0;
}
Handle createConnect(SocketHandle, const Endpoint&, void (*ended)(void*, std::uint32_t),
                     void* context)
{
    state.connects.push_back({ended, context});
    return Handle{100 + state.connects.size()};
}

bool systemTimeAsFileTime(std::uint64_t* ticks)
{
    const auto& now = state.now;
    *ticks = 116444736000000000u + static_cast<std::uint64_t>(now.sec) * 10000000u +
             static_cast<std::uint64_t>(now.usec) * 10u;
    return true;
}
std::int64_t time64()
{
    return state.now.sec;
}
bool queryPerformanceCounter(std::int64_t* count)
{
    *count = state.now.sec;
    return true;
}
bool queryPerformanceFrequency(std::int64_t* ticksPerSecond)
{
    *ticksPerSecond = 1;
    return true;
}

}  // namespace platform
