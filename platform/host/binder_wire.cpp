// Socket helpers of the host binder transport (see binder_wire.h). No state; any thread.
#include "platform/host/binder_wire.h"

#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include "platform/soh_root.h"

namespace BinderWire {

namespace {

constexpr size_t kMaxFdsPerMessage = 4;

// Waits until `sock` is ready for `events` or the deadline passes. False on time-out/error.
bool WaitFor(int sock, short events, int64_t deadlineMs) {
    for (;;) {
        int timeout = -1;
        if (deadlineMs >= 0) {
            int64_t left = deadlineMs - NowMs();
            if (left <= 0) {
                return false;
            }
            timeout = left > 60000 ? 60000 : static_cast<int>(left);
        }
        struct pollfd pfd = {sock, events, 0};
        int n = poll(&pfd, 1, timeout);
        if (n > 0) {
            return true;  // ready, or an error/hang-up that the next call reports
        }
        if (n < 0 && errno != EINTR) {
            return false;
        }
    }
}

// Takes the descriptors out of a received message: the first goes to *keep when it is
// wanted, the others are closed.
void TakeFds(struct msghdr* msg, int* keep) {
    for (struct cmsghdr* c = CMSG_FIRSTHDR(msg); c != nullptr; c = CMSG_NXTHDR(msg, c)) {
        if (c->cmsg_level != SOL_SOCKET || c->cmsg_type != SCM_RIGHTS) {
            continue;
        }
        size_t count = (c->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (size_t i = 0; i < count; ++i) {
            int fd;
            memcpy(&fd, CMSG_DATA(c) + i * sizeof(int), sizeof(int));
            if (keep != nullptr && *keep < 0) {
                *keep = fd;
            } else {
                close(fd);
            }
        }
    }
}

}  // namespace

std::string SocketPath(const std::string& name) {
    return SohRoot::RootPath("/dev/socket/" + name);
}

int64_t NowMs() {
    struct timespec ts {};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

bool SendAll(int sock, const void* buf, size_t len, int fd, int64_t deadlineMs) {
    const char* p = static_cast<const char*>(buf);
    alignas(struct cmsghdr) char control[CMSG_SPACE(sizeof(int))];
    while (len > 0) {
        if (!WaitFor(sock, POLLOUT, deadlineMs)) {
            return false;
        }
        struct iovec iov = {const_cast<char*>(p), len};
        struct msghdr msg {};
        msg.msg_iov = &iov;
        msg.msg_iovlen = 1;
        if (fd >= 0) {
            memset(control, 0, sizeof(control));
            msg.msg_control = control;
            msg.msg_controllen = sizeof(control);
            struct cmsghdr* c = CMSG_FIRSTHDR(&msg);
            c->cmsg_level = SOL_SOCKET;
            c->cmsg_type = SCM_RIGHTS;
            c->cmsg_len = CMSG_LEN(sizeof(int));
            memcpy(CMSG_DATA(c), &fd, sizeof(int));
        }
        ssize_t n = sendmsg(sock, &msg, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n < 0) {
            if (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK) {
                continue;
            }
            return false;
        }
        fd = -1;  // delivered with the first bytes
        p += n;
        len -= static_cast<size_t>(n);
    }
    return true;
}

RecvResult RecvAll(int sock, void* buf, size_t len, int64_t deadlineMs, int* fd) {
    char* p = static_cast<char*>(buf);
    alignas(struct cmsghdr) char control[CMSG_SPACE(kMaxFdsPerMessage * sizeof(int))];
    while (len > 0) {
        if (!WaitFor(sock, POLLIN, deadlineMs)) {
            return deadlineMs >= 0 && NowMs() >= deadlineMs ? RecvResult::kTimedOut
                                                            : RecvResult::kError;
        }
        struct iovec iov = {p, len};
        struct msghdr msg {};
        msg.msg_iov = &iov;
        msg.msg_iovlen = 1;
        msg.msg_control = control;
        msg.msg_controllen = sizeof(control);
        ssize_t n = recvmsg(sock, &msg, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
        if (n < 0) {
            if (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK) {
                continue;
            }
            return errno == ECONNRESET ? RecvResult::kClosed : RecvResult::kError;
        }
        TakeFds(&msg, fd);
        if (n == 0) {
            return RecvResult::kClosed;
        }
        p += n;
        len -= static_cast<size_t>(n);
    }
    return RecvResult::kOk;
}

}  // namespace BinderWire
