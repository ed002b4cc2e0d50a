// String16: the platform's UTF-16 string.
//
// Host build: owns a char16_t buffer. Conversion from UTF-8 decodes well-formed sequences
// (surrogate pairs for code points above U+FFFF) and maps each malformed byte to U+FFFD;
// ASCII converts one to one. A value type with no shared state.
#pragma once

#include <stddef.h>

#include <string>

namespace android {

class String8;

class String16 {
public:
    String16();
    // UTF-8 to UTF-16; a null pointer gives the empty string.
    String16(const char* o);  // NOLINT: implicit as on the platform
    // Copies `len` UTF-16 units, zero units included.
    String16(const char16_t* o, size_t len);
    explicit String16(const String8& o);

    // Length in UTF-16 units, without the terminating zero.
    size_t size() const { return mChars.size(); }
    const char16_t* c_str() const { return mChars.c_str(); }

    bool operator==(const String16& other) const { return mChars == other.mChars; }
    bool operator!=(const String16& other) const { return mChars != other.mChars; }

private:
    std::u16string mChars;
};

}  // namespace android
