// The platform's log entry point, as the platform log library declares it.
//
// Host build: one line per message on standard error, "YYYY-MM-DD HH:MM:SS.mmm PID TID L TAG:
// message" (L is I or E; the message's own trailing newline is not doubled), appended to
// $QUEN_LOG_FILE too when that is set. Thread-safe: each line is one write(2).
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

typedef enum android_LogPriority {
    ANDROID_LOG_UNKNOWN = 0,
    ANDROID_LOG_DEFAULT,
    ANDROID_LOG_VERBOSE,
    ANDROID_LOG_DEBUG,
    ANDROID_LOG_INFO,
    ANDROID_LOG_WARN,
    ANDROID_LOG_ERROR,
    ANDROID_LOG_FATAL,
    ANDROID_LOG_SILENT,
} android_LogPriority;

// Writes `text` with priority `prio` under `tag`. Returns the number of bytes of the
// message accepted, or a negative value on failure.
int __android_log_write(int prio, const char* tag, const char* text);

#ifdef __cplusplus
}
#endif
