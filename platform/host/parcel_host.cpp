// Host Parcel: the platform's flat layout in a byte vector (see binder/Parcel.h).
// A Parcel is used by one thread at a time; no locks.
#include <binder/Parcel.h>
#include <stdint.h>
#include <string.h>

namespace android {

namespace {

// Parcels are indexed by int32 on the platform; nothing may grow beyond that.
constexpr size_t kMaxParcelSize = INT32_MAX;

size_t PadTo4(size_t n) {
    return (n + 3) & ~static_cast<size_t>(3);
}

}  // namespace

Parcel::Parcel() : mPos(0), mFd(-1) {}

Parcel::~Parcel() = default;

const uint8_t* Parcel::data() const {
    return mData.data();
}

size_t Parcel::dataSize() const {
    return mData.size();
}

size_t Parcel::dataPosition() const {
    return mPos;
}

void Parcel::setDataPosition(size_t pos) const {
    mPos = pos;
}

size_t Parcel::dataAvail() const {
    return mPos < mData.size() ? mData.size() - mPos : 0;
}

status_t Parcel::setData(const uint8_t* buffer, size_t len) {
    if (len > kMaxParcelSize || (len > 0 && buffer == nullptr)) {
        return BAD_VALUE;
    }
    mData.assign(buffer, buffer + len);
    mPos = 0;
    mFd = -1;
    return OK;
}

void Parcel::freeData() {
    std::vector<uint8_t>().swap(mData);
    mPos = 0;
    mFd = -1;
}

status_t Parcel::writePadded(const void* bytes, size_t len) {
    if (mPos > kMaxParcelSize || len > kMaxParcelSize - mPos ||
        PadTo4(len) > kMaxParcelSize - mPos) {
        return NO_MEMORY;
    }
    size_t padded = PadTo4(len);
    if (mData.size() < mPos + padded) {
        mData.resize(mPos + padded, 0);  // also zero-fills a gap left by setDataPosition
    }
    if (len > 0) {
        memcpy(mData.data() + mPos, bytes, len);
    }
    memset(mData.data() + mPos + len, 0, padded - len);
    mPos += padded;
    return OK;
}

status_t Parcel::writeInt32(int32_t val) {
    return writePadded(&val, sizeof(val));
}

status_t Parcel::writeUint32(uint32_t val) {
    return writePadded(&val, sizeof(val));
}

status_t Parcel::writeString8(const String8& str) {
    if (str.size() >= kMaxParcelSize) {
        return BAD_VALUE;
    }
    status_t err = writeInt32(static_cast<int32_t>(str.size()));
    // c_str() holds size() bytes and the NUL that ends them.
    return err == OK ? writePadded(str.c_str(), str.size() + 1) : err;
}

status_t Parcel::writeString16(const String16& str) {
    if (str.size() >= kMaxParcelSize / sizeof(char16_t)) {
        return BAD_VALUE;
    }
    status_t err = writeInt32(static_cast<int32_t>(str.size()));
    return err == OK ? writePadded(str.c_str(), (str.size() + 1) * sizeof(char16_t)) : err;
}

status_t Parcel::readWord(uint32_t* out) const {
    if (mPos > mData.size() || mData.size() - mPos < sizeof(uint32_t)) {
        return NOT_ENOUGH_DATA;
    }
    memcpy(out, mData.data() + mPos, sizeof(uint32_t));
    mPos += sizeof(uint32_t);
    return OK;
}

status_t Parcel::readInt32(int32_t* pArg) const {
    uint32_t word = 0;
    status_t err = readWord(&word);
    if (err == OK && pArg != nullptr) {
        memcpy(pArg, &word, sizeof(word));
    }
    return err;
}

int32_t Parcel::readInt32() const {
    int32_t val = 0;
    return readInt32(&val) == OK ? val : 0;
}

status_t Parcel::readUint32(uint32_t* pArg) const {
    uint32_t word = 0;
    status_t err = readWord(&word);
    if (err == OK && pArg != nullptr) {
        *pArg = word;
    }
    return err;
}

uint32_t Parcel::readUint32() const {
    uint32_t val = 0;
    return readUint32(&val) == OK ? val : 0;
}

status_t Parcel::checkString(size_t unit, size_t* start, size_t* count, size_t* next) const {
    if (mPos > mData.size() || mData.size() - mPos < sizeof(int32_t)) {
        return NOT_ENOUGH_DATA;
    }
    int32_t len;
    memcpy(&len, mData.data() + mPos, sizeof(len));
    if (len < 0) {
        return BAD_VALUE;
    }
    size_t begin = mPos + sizeof(int32_t);
    // (len + 1) * unit cannot overflow: len < 2^31 and unit <= 2.
    size_t bytes = (static_cast<size_t>(len) + 1) * unit;
    if (PadTo4(bytes) > mData.size() - begin) {
        return NOT_ENOUGH_DATA;
    }
    const uint8_t* terminator = mData.data() + begin + bytes - unit;
    for (size_t i = 0; i < unit; ++i) {
        if (terminator[i] != 0) {
            return BAD_VALUE;
        }
    }
    *start = begin;
    *count = static_cast<size_t>(len);
    *next = begin + PadTo4(bytes);
    return OK;
}

status_t Parcel::readString8(String8* pArg) const {
    size_t start = 0;
    size_t count = 0;
    size_t next = 0;
    status_t err = checkString(1, &start, &count, &next);
    if (pArg != nullptr) {
        *pArg = err == OK ? String8(reinterpret_cast<const char*>(mData.data() + start), count)
                          : String8();
    }
    if (err == OK) {
        mPos = next;
    }
    return err;
}

String8 Parcel::readString8() const {
    String8 out;
    readString8(&out);
    return out;
}

status_t Parcel::readString16(String16* pArg) const {
    size_t start = 0;
    size_t count = 0;
    size_t next = 0;
    status_t err = checkString(sizeof(char16_t), &start, &count, &next);
    if (pArg != nullptr) {
        if (err == OK) {
            // The units need not be aligned for char16_t in the byte vector: copy them.
            std::u16string units(count, u'\0');
            if (count > 0) {
                memcpy(&units[0], mData.data() + start, count * sizeof(char16_t));
            }
            *pArg = String16(units.data(), count);
        } else {
            *pArg = String16();
        }
    }
    if (err == OK) {
        mPos = next;
    }
    return err;
}

String16 Parcel::readString16() const {
    String16 out;
    readString16(&out);
    return out;
}

}  // namespace android
