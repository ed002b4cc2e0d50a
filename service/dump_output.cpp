// Dump output: chunked writes with SIGPIPE held off and a per-chunk time limit.
#include "service/dump_output.h"

#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

namespace DumpOutput {

namespace {

// Small enough that a pipe reported writable takes a chunk without blocking.
constexpr size_t kChunk = 4096;

// Blocks SIGPIPE on this thread for the object's life; a SIGPIPE that our writes raised is
// taken out of the pending set before the old mask comes back.
class SigpipeGuard {
public:
    SigpipeGuard() {
        sigemptyset(&pipe_);
        sigaddset(&pipe_, SIGPIPE);
        sigset_t pending;
        sigemptyset(&pending);
        wasPending_ = sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &pipe_, &old_);
    }
    ~SigpipeGuard() {
        if (raised_ && !wasPending_) {
            struct timespec none {};
            while (sigtimedwait(&pipe_, nullptr, &none) < 0 && errno == EINTR) {
            }
        }
        pthread_sigmask(SIG_SETMASK, &old_, nullptr);
    }
    SigpipeGuard(const SigpipeGuard&) = delete;
    SigpipeGuard& operator=(const SigpipeGuard&) = delete;
    void Raised() { raised_ = true; }

private:
    sigset_t pipe_;
    sigset_t old_;
    bool wasPending_ = false;
    bool raised_ = false;
};

}  // namespace

android::status_t Write(int fd, const std::string& text) {
    if (fd < 0) {
        return android::BAD_VALUE;
    }
    SigpipeGuard guard;
    size_t done = 0;
    while (done < text.size()) {
        struct pollfd p {};
        p.fd = fd;
        p.events = POLLOUT;
        int ready = poll(&p, 1, kWriteTimeoutMs);
        if (ready < 0) {
            if (errno == EINTR) {
                continue;
            }
            return -errno;
        }
        if (ready == 0) {
            return -ETIMEDOUT;
        }
        ssize_t n = write(fd, text.data() + done, std::min(kChunk, text.size() - done));
        if (n < 0) {
            if (errno == EINTR || errno == EAGAIN) {
                continue;
            }
            if (errno == EPIPE) {
                guard.Raised();
            }
            return -errno;
        }
        done += static_cast<size_t>(n);
    }
    return android::OK;
}

}  // namespace DumpOutput
