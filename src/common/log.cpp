#include "common/log.h"

#include "platform/Crash.h"

#include <iostream>

std::uint32_t log_mask = 0xffffffff;

namespace {

LogQueue* logQueue = nullptr;

}  // namespace

void log(const std::string& text, std::int32_t log_type)
{
    if (logQueue == nullptr) {
        std::cerr << "Log: " + text + "\n" << std::flush;
        return;
    }
    logQueue->sendLogLine(text, log_type);
}

void setLogQueue(LogQueue* queue)
{
    logQueue = queue;
}

void reportToEventLog(const char* text)
{
    platform::reportEvent("Tolvan", text);
}
