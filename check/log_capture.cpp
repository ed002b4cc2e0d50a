#include "check/log_capture.h"

#include <android/log.h>

#include "core/soh_log.h"
#include "platform/host/soh_log_sink.h"

LogCapture::LogCapture(bool withInfo) : savedLevel_(SOHLog::Instance().GetLogLevel()) {
    if (withInfo) {
        SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
    }
    SohLogSink::SetQuiet(true);
    SohLogSink::Set([this, withInfo](int prio, const char*, const char* text) {
        if ((prio < ANDROID_LOG_ERROR && !withInfo) || text == nullptr) {
            return;
        }
        std::string line(text);
        while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) {
            line.pop_back();
        }
        std::lock_guard<std::mutex> lock(lock_);
        lines_.push_back(std::move(line));
    });
}

LogCapture::~LogCapture() {
    SohLogSink::Set(nullptr);
    SohLogSink::SetQuiet(false);
    SOHLog::Instance().SetLogLevel(static_cast<LogLevel>(savedLevel_));
}

std::vector<std::string> LogCapture::Take() {
    std::lock_guard<std::mutex> lock(lock_);
    std::vector<std::string> out;
    out.swap(lines_);
    return out;
}
