// Host IBinder and BBinder: the local object's default transaction handling
// (see binder/Binder.h). No state of its own; transact() runs on the serving thread.
#include <binder/Binder.h>
#include <binder/IBinder.h>
#include <binder/Parcel.h>

#include "platform/host/binder_wire.h"

namespace android {

IBinder::IBinder() = default;

IBinder::~IBinder() = default;

status_t IBinder::dump(int /*fd*/, const Vector<String16>& /*args*/) {
    return OK;
}

BBinder::BBinder() = default;

BBinder::~BBinder() = default;

const String16& BBinder::getInterfaceDescriptor() const {
    static const String16 sEmptyDescriptor;
    return sEmptyDescriptor;
}

status_t BBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    data.setDataPosition(0);
    status_t err = code == PING_TRANSACTION ? OK : onTransact(code, data, reply, flags);
    if (reply != nullptr) {
        reply->setDataPosition(0);
    }
    return err;
}

status_t BBinder::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t /*flags*/) {
    switch (code) {
        case INTERFACE_TRANSACTION:
            if (reply == nullptr) {
                return BAD_VALUE;
            }
            return reply->writeString16(getInterfaceDescriptor());
        case PING_TRANSACTION:
            return OK;
        case DUMP_TRANSACTION: {
            int fd = ParcelFdAccess::Get(data);
            if (fd < 0) {
                return BAD_VALUE;
            }
            int32_t argc = data.readInt32();
            Vector<String16> args;
            for (int32_t i = 0; i < argc && data.dataAvail() > 0; ++i) {
                String16 arg;
                if (data.readString16(&arg) != OK) {
                    return BAD_VALUE;
                }
                args.add(arg);
            }
            return dump(fd, args);
        }
        default:
            return UNKNOWN_TRANSACTION;
    }
}

}  // namespace android
