// The host binder transport: how one transaction travels over a service's Unix stream
// socket ($QUEN_ROOT/dev/socket/<service name>, mode 0660). Shared by the server
// (binder_server_host.cpp) and the client (binder_client.h).
//
// All integers are in native byte order (the socket never leaves the host).
//
//   request: uint32 magic (kMagic), uint32 code, uint32 flags, uint32 payload size,
//            then the payload: the request Parcel's data.
//            A file descriptor may ride along as SCM_RIGHTS ancillary data on the header
//            (the dump transaction's output); the server closes it after the call.
//   reply:   int32 status, uint32 payload size, then the payload: the reply Parcel's data.
//            A negative status carries no payload, as on the platform.
//
// Payloads are at most kMaxPayload bytes each way. A FLAG_ONEWAY request is run but gets no
// reply. Several requests may follow one another on one connection; each is answered (or
// not, for one-way ones) before the next is read.
//
// The server answers BAD_VALUE, when it can, and closes the connection, without calling
// transact(), for a wrong magic, a payload size above the cap, or a request that is still
// incomplete kRequestTimeoutMs after its first byte arrived. A connection that sends nothing
// for kIdleTimeoutMs between requests is closed silently. At most kMaxConnections
// connections are served at once across the process; one more is accepted and, unless a
// slot frees within a quarter of a second, closed. A reply above the cap is replaced by
// FAILED_TRANSACTION.
//
// Time-outs are real (monotonic) time and deliberately bypass the daemon's clock seam: they
// guard the transport, not the daemon's logic.
//
// The helpers below never raise SIGPIPE (sends use MSG_NOSIGNAL) and retry EINTR. They keep
// no state and may be called from any thread.
#pragma once

#include <binder/Parcel.h>
#include <stddef.h>
#include <stdint.h>

#include <string>

namespace BinderWire {

constexpr uint32_t kMagic = 0x51424e31;
constexpr uint32_t kMaxPayload = 64 * 1024;
constexpr int kRequestTimeoutMs = 5000;
constexpr int kIdleTimeoutMs = 30000;
constexpr int kMaxConnections = 16;

struct RequestHeader {
    uint32_t magic;
    uint32_t code;
    uint32_t flags;
    uint32_t size;
};
static_assert(sizeof(RequestHeader) == 16, "request header is four words");

struct ReplyHeader {
    int32_t status;
    uint32_t size;
};
static_assert(sizeof(ReplyHeader) == 8, "reply header is two words");

// Host path of the socket of service `name`.
std::string SocketPath(const std::string& name);

// Monotonic real time in milliseconds.
int64_t NowMs();

// Sends all `len` bytes of `buf` on `sock`. When `fd` >= 0 it is passed (duplicated by the
// kernel, still owned by the caller) as SCM_RIGHTS with the first bytes. `deadlineMs` is a
// NowMs() instant, or -1 to wait as long as it takes. False on any failure or time-out.
bool SendAll(int sock, const void* buf, size_t len, int fd, int64_t deadlineMs);

enum class RecvResult { kOk, kClosed, kTimedOut, kError };

// Receives exactly `len` bytes into `buf`. Descriptors received with them go to *fd when
// `fd` is not null and *fd is still -1 (the caller then owns it); any other is closed.
// kClosed when the peer closed (or reset) before `len` bytes came.
RecvResult RecvAll(int sock, void* buf, size_t len, int64_t deadlineMs, int* fd);

}  // namespace BinderWire

namespace android {

// The transport's access to the descriptor that came with a request (see Parcel.h).
struct ParcelFdAccess {
    static void Set(Parcel& parcel, int fd) { parcel.mFd = fd; }
    static int Get(const Parcel& parcel) { return parcel.mFd; }
};

}  // namespace android
