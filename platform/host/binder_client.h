// Host client of a binder service served on a Unix stream socket (framing in
// binder_wire.h): what the host control tool and the tests use to talk to the daemon.
//
// A BinderClient owns one connection. Transact() may be called from several threads; a
// mutex (lock_) serialises the transactions on the connection, so each caller gets its own
// reply. Never raises SIGPIPE.
#pragma once

#include <binder/Parcel.h>
#include <stdint.h>
#include <utils/Errors.h>

#include <mutex>
#include <string>

class BinderClient {
public:
    // `socketPath` is the host path of the service's socket (BinderWire::SocketPath(name)).
    explicit BinderClient(const std::string& socketPath);
    ~BinderClient();
    BinderClient(const BinderClient&) = delete;
    BinderClient& operator=(const BinderClient&) = delete;

    // Connects (again, after a failure). False with the reason (e.g. the strerror text) in
    // *error when `error` is not null; the caller names the socket.
    bool Connect(std::string* error);

    // Sends transaction `code` with `data`; with FLAG_ONEWAY returns OK once it is sent.
    // Otherwise waits for the reply: its data goes to `reply` (when not null, position 0)
    // and the server's status is returned. `fd` >= 0 is passed along (still owned by the
    // caller). DEAD_OBJECT when not connected, when the connection fails or the server
    // closed it (the connection is then dropped); FAILED_TRANSACTION, without sending,
    // when `data` is larger than the transport carries.
    android::status_t Transact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                               uint32_t flags = 0, int fd = -1);

private:
    void CloseLocked();

    const std::string path_;
    std::mutex lock_;
    int sock_;  // guarded by lock_; -1 when not connected
};

// The platform name of a status ("OK", "BAD_TYPE", ...), or "UNKNOWN" for other values.
const char* StatusName(android::status_t status);
