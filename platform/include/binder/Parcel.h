// Parcel: the platform's transaction buffer.
//
// Layout as on the platform: every item starts at a multiple of 4 bytes; integers are 4
// bytes in native byte order; a String8 is an int32 byte count, the bytes, a NUL and zero
// padding to a multiple of 4; a String16 is an int32 count of UTF-16 units, the units, a zero
// unit and zero padding to a multiple of 4.
//
// One position serves reads and writes, as on the platform: writes store at dataPosition()
// (growing the data as needed) and reads take from it; both advance it. Reads are const
// (the position is mutable). A read that fails returns an error status (or an empty / zero
// value), never looks beyond dataSize() and leaves the position where it was.
//
// Host build: a file descriptor received with a transaction travels beside the data, not in
// it (see platform/host/binder_wire.h); the Parcel does not own it.
//
// Not synchronised: one thread uses a Parcel at a time (the binder thread that serves the
// transaction, or the caller that built it).
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <vector>

#include <utils/Errors.h>
#include <utils/String16.h>
#include <utils/String8.h>

namespace android {

class Parcel {
public:
    Parcel();
    ~Parcel();
    Parcel(const Parcel&) = delete;
    Parcel& operator=(const Parcel&) = delete;

    const uint8_t* data() const;
    size_t dataSize() const;
    size_t dataPosition() const;
    // Moves the position; a position beyond dataSize() leaves nothing to read.
    void setDataPosition(size_t pos) const;
    // Bytes between the position and the end of the data.
    size_t dataAvail() const;
    // Replaces the contents with a copy of `len` bytes at `buffer`; the position goes to 0.
    status_t setData(const uint8_t* buffer, size_t len);
    // Empties the parcel; the position goes to 0.
    void freeData();

    status_t writeInt32(int32_t val);
    status_t writeUint32(uint32_t val);
    status_t writeString8(const String8& str);
    status_t writeString16(const String16& str);

    // NOT_ENOUGH_DATA when fewer than 4 bytes remain.
    status_t readInt32(int32_t* pArg) const;
    // 0 when the read fails.
    int32_t readInt32() const;
    status_t readUint32(uint32_t* pArg) const;
    uint32_t readUint32() const;
    // BAD_VALUE for a negative length or a missing terminator, NOT_ENOUGH_DATA when the
    // string (with its terminator and padding) runs past the data. *pArg is empty on error.
    status_t readString8(String8* pArg) const;
    // The empty string on error.
    String8 readString8() const;
    // As readString8, in UTF-16 units.
    status_t readString16(String16* pArg) const;
    String16 readString16() const;

private:
    friend struct ParcelFdAccess;  // the host transport (platform/host/binder_wire.h)

    // Writes `len` bytes at the position, then zero padding up to a multiple of 4.
    status_t writePadded(const void* bytes, size_t len);
    // Reads 4 bytes at the position.
    status_t readWord(uint32_t* out) const;
    // Checks a length-prefixed string of `count` units of `unit` bytes at the position;
    // on success *start is where its units begin and *next the position after its padding.
    status_t checkString(size_t unit, size_t* start, size_t* count, size_t* next) const;

    std::vector<uint8_t> mData;
    mutable size_t mPos;
    int mFd;  // received with the transaction, or -1; not owned
};

}  // namespace android
