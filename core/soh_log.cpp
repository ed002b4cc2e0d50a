#include "core/soh_log.h"

#include <android/log.h>
#include <securec.h>
#include <stdarg.h>

namespace {

constexpr const char* kTag = "quen";
constexpr size_t kLogBufSize = 1024;

void Write(int prio, const char* fmt, va_list ap) {
    char buf[kLogBufSize];
    int n = vsnprintf_s(buf, sizeof(buf), sizeof(buf) - 1, fmt, ap);
    if (n >= 1) {
        __android_log_write(prio, kTag, buf);
    }
}

}  // namespace

SOHLog& SOHLog::Instance() {
    static SOHLog log;
    return log;
}

void SOHLog::I(const char* fmt, ...) const {
    if (level_.load(std::memory_order_relaxed) != LOG_LEVEL_INFO) {
        return;
    }
    va_list ap;
    va_start(ap, fmt);
    Write(ANDROID_LOG_INFO, fmt, ap);
    va_end(ap);
}

void SOHLog::E(const char* fmt, ...) const {
    va_list ap;
    va_start(ap, fmt);
    Write(ANDROID_LOG_ERROR, fmt, ap);
    va_end(ap);
}
