// Host log: one line per message on standard error and, when $QUEN_LOG_FILE is set, in that
// file; optionally handed to an in-process sink for tests.
#include <android/log.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <string>

#include "platform/host/soh_log_sink.h"
#include "platform/soh_clock.h"

namespace {

std::mutex gSinkLock;  // guards gSink
// Never destroyed: threads may still log while the process exits.
SohLogSink::Sink& gSink = *new SohLogSink::Sink;
bool gQuiet = false;  // written before threads start (tests)

// The process and thread ids of every line, asked of the kernel once per process and once per
// thread rather than twice per line; a child made by fork() asks again.
std::atomic<int> gPid{0};
thread_local long tTid = 0;

void ForgetIds() {
    gPid.store(0, std::memory_order_relaxed);
    tTid = 0;
}

int Pid() {
    static const bool registered = pthread_atfork(nullptr, nullptr, ForgetIds) == 0;
    (void)registered;
    int pid = gPid.load(std::memory_order_relaxed);
    if (pid == 0) {
        pid = static_cast<int>(getpid());
        gPid.store(pid, std::memory_order_relaxed);
    }
    return pid;
}

long Tid() {
    if (tTid == 0) {
        tTid = static_cast<long>(syscall(SYS_gettid));
    }
    return tTid;
}

// Writes all of `data` to fd; a line is one write(2) unless the kernel splits it.
void WriteAll(int fd, const char* data, size_t len) {
    while (len > 0) {
        ssize_t n = write(fd, data, len);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return;
        }
        data += n;
        len -= static_cast<size_t>(n);
    }
}

std::string FormatLine(int prio, const char* tag, const char* text) {
    int64_t ns = SohClock::WallNs();
    time_t secs = static_cast<time_t>(ns / 1000000000LL);
    struct tm tmv {};
    localtime_r(&secs, &tmv);
    char stamp[64];
    size_t n = strftime(stamp, sizeof(stamp), "%Y-%m-%d %H:%M:%S", &tmv);
    stamp[n] = '\0';
    char head[160];
    snprintf(head, sizeof(head), "%s.%03d %d %ld %c %s: ", stamp,
             static_cast<int>((ns / 1000000LL) % 1000), Pid(), Tid(),
             prio >= ANDROID_LOG_ERROR ? 'E' : 'I', tag != nullptr ? tag : "");
    std::string line(head);
    // One message is one line: line ends and other control characters inside the text
    // (which may carry a client's value) are escaped, so that no text can forge a line.
    size_t len = strlen(text);
    if (len > 0 && text[len - 1] == '\n') {
        --len;
    }
    for (size_t i = 0; i < len; ++i) {
        unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == '\n') {
            line += "\\n";
        } else if ((c < 0x20 && c != '\t') || c == 0x7f) {
            char esc[8];
            snprintf(esc, sizeof(esc), "\\x%02x", c);
            line += esc;
        } else {
            line += static_cast<char>(c);
        }
    }
    line += '\n';
    return line;
}

}  // namespace

extern "C" int __android_log_write(int prio, const char* tag, const char* text) {
    if (text == nullptr) {
        return -1;
    }
    std::string line = FormatLine(prio, tag, text);
    if (!gQuiet) {
        WriteAll(STDERR_FILENO, line.data(), line.size());
    }
    const char* file = getenv("QUEN_LOG_FILE");
    if (file != nullptr && file[0] != '\0') {
        int fd = open(file, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        if (fd >= 0) {
            WriteAll(fd, line.data(), line.size());
            close(fd);
        }
    }
    {
        std::lock_guard<std::mutex> lock(gSinkLock);
        if (gSink) {
            gSink(prio, tag, text);
        }
    }
    return static_cast<int>(strlen(text));
}

namespace SohLogSink {

void Set(Sink sink) {
    std::lock_guard<std::mutex> lock(gSinkLock);
    gSink = std::move(sink);
}

void SetQuiet(bool quiet) {
    gQuiet = quiet;
}

}  // namespace SohLogSink
