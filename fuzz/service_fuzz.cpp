// Control-service parcels into SohService's transaction handler, as a binder thread delivers
// them. The first byte picks the transaction: its low three bits the code (get, set, dump,
// interface, ping, an unused code, or a code taken from the next four bytes), bit 5 no reply
// parcel, bit 6 a descriptor of /dev/null riding along (for the dump), bit 7 a one-way call.
// The rest is the request parcel's data.
#include <binder/Parcel.h>
#include <fcntl.h>

#include "core/soh_estimator.h"
#include "fuzz/fuzz_device.h"
#include "platform/host/binder_wire.h"
#include "service/soh_service.h"

using android::IBinder;
using android::Parcel;

namespace {

android::sp<SohService> Make() {
    FuzzDevice::Setup();
    FuzzDevice::DeclareAll();
    EstimatorPool().GetObjectByName("APP");
    EstimatorPool().GetObjectByName("ASW");
    return android::sp<SohService>::make();
}

uint32_t Code(uint8_t which, FuzzInput& in) {
    switch (which & 7) {
        case 0:
            return SohService::kCodeGetPara;
        case 1:
            return SohService::kCodeSetPara;
        case 2:
            return IBinder::DUMP_TRANSACTION;
        case 3:
            return IBinder::INTERFACE_TRANSACTION;
        case 4:
            return IBinder::PING_TRANSACTION;
        case 5:
            return 3;
        default:
            return in.Word();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const android::sp<SohService> service = Make();
    static const int devNull = open("/dev/null", O_WRONLY | O_CLOEXEC);
    FuzzInput in(data, size);
    const uint8_t which = in.Byte();
    const uint32_t code = Code(which, in);
    const std::string payload = in.Rest();

    Parcel request;
    request.setData(reinterpret_cast<const uint8_t*>(payload.data()), payload.size());
    if ((which & 0x40) != 0) {
        android::ParcelFdAccess::Set(request, devNull);
    }
    Parcel reply;
    const uint32_t flags = (which & 0x80) != 0 ? IBinder::FLAG_ONEWAY : 0;
    service->transact(code, request, (which & 0x20) != 0 ? nullptr : &reply, flags);
    reply.readString8();
    reply.setDataPosition(0);
    reply.readString16();
    return 0;
}
