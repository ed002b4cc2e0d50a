// IServiceManager: the platform's registry of named binder services.
//
// Host build: addService serves the binder on the Unix stream socket
// $QUEN_ROOT/dev/socket/<name> (mode 0660); serving starts with
// ProcessState::self()->startThreadPool() (see ProcessState.h and
// platform/host/binder_wire.h). The registry and its services live until the process exits.
// Thread-safe.
#pragma once

#include <binder/IBinder.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/String16.h>

namespace android {

class IServiceManager : public virtual RefBase {
public:
    enum {
        DUMP_FLAG_PRIORITY_CRITICAL = 1 << 0,
        DUMP_FLAG_PRIORITY_HIGH = 1 << 1,
        DUMP_FLAG_PRIORITY_NORMAL = 1 << 2,
        DUMP_FLAG_PRIORITY_DEFAULT = 1 << 3,
    };

    // Registers `service` under `name`. Host build: OK once the socket listens; BAD_VALUE
    // for an empty name, one containing '/' or a NUL, "." or "..", or a null service;
    // ALREADY_EXISTS when a live server (in this or another process) holds the socket, or
    // something other than a socket is in its place; otherwise -errno of the failing call.
    // A socket file left by a process that is gone is replaced.
    virtual status_t addService(const String16& name, const sp<IBinder>& service,
                                bool allowIsolated = false,
                                int dumpsysFlags = DUMP_FLAG_PRIORITY_DEFAULT) = 0;

protected:
    IServiceManager();
    ~IServiceManager() override;
};

// The process's service manager (created on first use, never destroyed).
sp<IServiceManager> defaultServiceManager();

}  // namespace android
