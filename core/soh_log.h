// SOHLog: the daemon's only way into the system log (tag "quen").
//
// E always writes (priority 6); I writes (priority 4) only after SetLogLevel(LOG_LEVEL_INFO).
// A message is formatted into a 1024-byte stack buffer, at most 1023 characters; a message
// that would not fit, or that formats to nothing, is dropped whole rather than cut. Callers
// put their own "\n" at the end of a message.
//
// Threads: one process-wide instance, callable from every thread; the level is an atomic read.
#pragma once

#include <atomic>
#include <cstdint>

enum LogLevel : int32_t {
    LOG_LEVEL_ERROR = 0,  // only error messages (process start)
    LOG_LEVEL_INFO = 1,   // error and info messages (option -d)
};

class SOHLog {
public:
    static SOHLog& Instance();

    void I(const char* fmt, ...) const __attribute__((format(printf, 2, 3)));
    void E(const char* fmt, ...) const __attribute__((format(printf, 2, 3)));
    void SetLogLevel(LogLevel level) { level_.store(level, std::memory_order_relaxed); }
    LogLevel GetLogLevel() const { return level_.load(std::memory_order_relaxed); }

private:
    constexpr SOHLog() = default;
    std::atomic<LogLevel> level_{LOG_LEVEL_ERROR};
};

#define SOH_LOGI(...) SOHLog::Instance().I(__VA_ARGS__)
#define SOH_LOGE(...) SOHLog::Instance().E(__VA_ARGS__)
