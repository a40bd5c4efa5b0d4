#include "tests/common/FakePlatform.h"

#include "platform/Clock.h"
#include "platform/ErrorCode.h"

#include <cstring>

namespace fake {

Platform now;

void reset()
{
    now = Platform();
}

namespace {

template <class T>
bool answer(const std::optional<T>& value, T* out)
{
    if (value)
        *out = *value;
    return value.has_value();
}

}  // namespace
}  // namespace fake

namespace platform {

bool systemTimeAsFileTime(std::uint64_t* ticks)
{
    return fake::answer(fake::now.wallClock, ticks);
}

std::int64_t time64()
{
    return 0;
}

bool queryPerformanceCounter(std::int64_t* count)
{
    return fake::answer(fake::now.counter, count);
}

bool queryPerformanceFrequency(std::int64_t* ticksPerSecond)
{
    return fake::answer(fake::now.frequency, ticksPerSecond);
}

std::optional<std::string> errorText(std::uint32_t code)
{
    const auto found = fake::now.texts.find(code);
    if (found == fake::now.texts.end())
        return std::nullopt;
    return found->second;
}

std::uint32_t getLastError()
{
    return fake::now.lastError;
}

void setLastError(std::uint32_t code)
{
    fake::now.lastError = code;
}

void setUnhandledExceptionFilter(ExceptionFilter filter)
{
    fake::now.filter = filter;
}

bool moduleFileName(char* path, std::size_t size)
{
    if (!fake::now.executable || fake::now.executable->size() >= size)
        return false;
    std::strcpy(path, fake::now.executable->c_str());
    return true;
}

bool writePostMortem(const char* path, ExceptionPointers* pointers, bool* created)
{
    fake::now.postMortems.emplace_back(path);
    fake::now.postMortemPointers = pointers;
    fake::now.lastError = fake::now.postMortemError;
    *created = fake::now.postMortemCreated;
    return fake::now.postMortemWritten;
}

void reportEvent(const char* source, const char* text)
{
    fake::now.events.push_back(std::string(source) + ": " + text);
}

void* loadLibrary(const char* /*name*/)
{
    return nullptr;
}

void* getProcAddress(void* /*module*/, const char* /*name*/)
{
    return nullptr;
}

}  // namespace platform
