// Log lines: to the parent through a queue, or to standard error while there is none.
#pragma once

#include <cstdint>
#include <string>

inline constexpr std::int32_t logOrdinary = 0;
inline constexpr std::int32_t logTrace = 0x400;

// Bit 0x400 guards the trace lines: callers test it before they build the text.
// All bits are set at the start, and nothing in this process changes them.
extern std::uint32_t log_mask;

inline bool traceWanted()
{
    return (log_mask & static_cast<std::uint32_t>(logTrace)) != 0;
}

// Takes log lines to their reader. Implemented by the queue to the parent.
class LogQueue {
public:
    // Sends one line and returns when it has left. Throws what the link throws.
    virtual void sendLogLine(const std::string& text, std::int32_t log_type) = 0;

protected:
    ~LogQueue() = default;
};

// Sends one line through the queue; without one, writes "Log: " and the line to standard error.
// Throws what the queue throws.
void log(const std::string& text, std::int32_t log_type);

// Sets the queue, or clears it with a null pointer. Not owned.
void setLogQueue(LogQueue* queue);

// Reports an error to the event log of the operating system. Accepts every failure silently.
void reportToEventLog(const char* text);
