// BBinder: the platform's base of a local binder object; services derive from it and
// override onTransact (and usually getInterfaceDescriptor and dump).
//
// transact() rewinds the request, serves the ping itself, hands every other code to
// onTransact and rewinds the reply. It runs on the thread that delivers the transaction
// (on the host, one thread per client connection), possibly on several at once.
#pragma once

#include <binder/IBinder.h>
#include <binder/Parcel.h>

namespace android {

class BBinder : public IBinder {
public:
    BBinder();

    // The empty string unless overridden.
    const String16& getInterfaceDescriptor() const override;
    status_t transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags = 0) final;

protected:
    ~BBinder() override;

    // Default handling: INTERFACE_TRANSACTION writes the descriptor (String16) to the reply;
    // PING_TRANSACTION returns OK; DUMP_TRANSACTION reads an int32 argument count and that
    // many String16 arguments and calls dump() with the file descriptor that came with the
    // request (BAD_VALUE when none came); any other code returns UNKNOWN_TRANSACTION.
    virtual status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                uint32_t flags = 0);
};

}  // namespace android
