// IBinder: the platform's interface of a binder object, with its transaction codes.
//
// Host build: only local objects exist (see Binder.h); remote calls go through the host
// client (platform/host/binder_client.h). transact() may be called on several threads at
// once; implementations guard their own state.
#pragma once

#include <stdint.h>

#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/String16.h>
#include <utils/Vector.h>

#define B_PACK_CHARS(c1, c2, c3, c4) ((((c1) << 24)) | (((c2) << 16)) | (((c3) << 8)) | (c4))

namespace android {

class Parcel;

class IBinder : public virtual RefBase {
public:
    enum {
        FIRST_CALL_TRANSACTION = 0x00000001,
        LAST_CALL_TRANSACTION = 0x00ffffff,

        PING_TRANSACTION = B_PACK_CHARS('_', 'P', 'N', 'G'),
        DUMP_TRANSACTION = B_PACK_CHARS('_', 'D', 'M', 'P'),
        SHELL_COMMAND_TRANSACTION = B_PACK_CHARS('_', 'C', 'M', 'D'),
        INTERFACE_TRANSACTION = B_PACK_CHARS('_', 'N', 'T', 'F'),

        FLAG_ONEWAY = 0x00000001,
    };

    virtual const String16& getInterfaceDescriptor() const = 0;
    // Runs transaction `code` with the request `data`; a reply, if any, goes to `reply`.
    virtual status_t transact(uint32_t code, const Parcel& data, Parcel* reply,
                              uint32_t flags = 0) = 0;
    // Writes a description of the object to `fd` (not owned). The default writes nothing.
    virtual status_t dump(int fd, const Vector<String16>& args);

protected:
    IBinder();
    ~IBinder() override;
};

}  // namespace android
