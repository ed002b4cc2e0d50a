// String8: the platform's 8-bit (UTF-8) string.
//
// Host build: owns a copy of its bytes, which may include zero bytes; c_str() is always
// NUL-terminated (and stops at the first zero byte for C string users). A value type with
// no shared state: distinct objects may be used from distinct threads.
#pragma once

#include <stddef.h>

#include <string>

namespace android {

class String16;

class String8 {
public:
    String8();
    // A null pointer gives the empty string.
    String8(const char* o);  // NOLINT: implicit as on the platform
    // Copies `len` bytes from `o`, zero bytes included.
    String8(const char* o, size_t len);
    // UTF-16 to UTF-8; unpaired surrogates become U+FFFD.
    explicit String8(const String16& o);

    const char* c_str() const { return mBytes.c_str(); }
    const char* string() const { return mBytes.c_str(); }
    // Length in bytes, without the terminating NUL.
    size_t size() const { return mBytes.size(); }
    size_t length() const { return mBytes.size(); }
    bool isEmpty() const { return mBytes.empty(); }

    // Compares all bytes, zero bytes included.
    bool operator==(const String8& other) const { return mBytes == other.mBytes; }
    bool operator!=(const String8& other) const { return mBytes != other.mBytes; }
    // Compares as C strings (up to the first zero byte).
    bool operator==(const char* other) const;
    bool operator!=(const char* other) const { return !(*this == other); }

private:
    std::string mBytes;
};

}  // namespace android
