#include "core/soh_big_data.h"

#include <bms_interface.h>

namespace {

// Every reporter call takes a selector first: the field and lifecycle calls use 0, Send 1.
constexpr int kSelector = 0;
constexpr int kSendSelector = 1;

}  // namespace

SOHBigData::SOHBigData(uint32_t eventId) : handle_(BmsBigDataCreate(kSelector, eventId)) {}

SOHBigData::~SOHBigData() {
    if (handle_ != nullptr) {
        BmsBigDataDestroy(kSelector, handle_);
        handle_ = nullptr;
    }
}

int SOHBigData::Set(const char* key, const char* value) {
    return BmsBigDataWriteString(kSelector, handle_, key, value);
}

int SOHBigData::Set(const char* key, int value) {
    return BmsBigDataWriteInt(kSelector, handle_, key, value);
}

int SOHBigData::Set(const char* key, long value) {
    return BmsBigDataWriteLong(kSelector, handle_, key, value);
}

int SOHBigData::Set(const char* key, float value) {
    return BmsBigDataWriteFloat(kSelector, handle_, key, value);
}

int SOHBigData::Set(const char* key, const int* values, unsigned count) {
    return BmsBigDataWriteArrayInt(kSelector, handle_, key, values, count);
}

int SOHBigData::Send() {
    return BmsBigDataSend(kSendSelector, handle_);
}
