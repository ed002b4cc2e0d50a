// Host substitutes of the platform's utility classes: RefBase, String8 and String16.
// RefBase's count is atomic; the strings are plain values. No shared state, no locks.
#include <string.h>
#include <utils/RefBase.h>
#include <utils/String16.h>
#include <utils/String8.h>

namespace android {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

void AppendUtf8(std::string& out, char32_t cp) {
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

std::string Utf16ToUtf8(const std::u16string& in) {
    std::string out;
    out.reserve(in.size());
    for (size_t i = 0; i < in.size(); ++i) {
        char32_t u = in[i];
        if (u >= 0xD800 && u <= 0xDBFF && i + 1 < in.size() && in[i + 1] >= 0xDC00 &&
            in[i + 1] <= 0xDFFF) {
            u = 0x10000 + ((u - 0xD800) << 10) + (in[i + 1] - 0xDC00);
            ++i;
        } else if (u >= 0xD800 && u <= 0xDFFF) {
            u = kReplacement;
        }
        AppendUtf8(out, u);
    }
    return out;
}

// Decodes one well-formed UTF-8 sequence at s[i]; returns its length, or 0 when malformed.
size_t DecodeUtf8(const unsigned char* s, size_t len, size_t i, char32_t* cp) {
    unsigned char c = s[i];
    size_t more;
    char32_t value;
    char32_t min;
    if ((c & 0xE0) == 0xC0) {
        more = 1, value = c & 0x1F, min = 0x80;
    } else if ((c & 0xF0) == 0xE0) {
        more = 2, value = c & 0x0F, min = 0x800;
    } else if ((c & 0xF8) == 0xF0) {
        more = 3, value = c & 0x07, min = 0x10000;
    } else {
        return 0;
    }
    if (len - i <= more) {
        return 0;
    }
    for (size_t k = 1; k <= more; ++k) {
        if ((s[i + k] & 0xC0) != 0x80) {
            return 0;
        }
        value = (value << 6) | (s[i + k] & 0x3F);
    }
    if (value < min || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) {
        return 0;
    }
    *cp = value;
    return more + 1;
}

std::u16string Utf8ToUtf16(const char* in, size_t len) {
    const unsigned char* s = reinterpret_cast<const unsigned char*>(in);
    std::u16string out;
    out.reserve(len);
    for (size_t i = 0; i < len;) {
        if (s[i] < 0x80) {
            out += static_cast<char16_t>(s[i++]);
            continue;
        }
        char32_t cp = 0;
        size_t n = DecodeUtf8(s, len, i, &cp);
        if (n == 0) {
            out += static_cast<char16_t>(kReplacement);
            ++i;
            continue;
        }
        i += n;
        if (cp >= 0x10000) {
            cp -= 0x10000;
            out += static_cast<char16_t>(0xD800 + (cp >> 10));
            out += static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
        } else {
            out += static_cast<char16_t>(cp);
        }
    }
    return out;
}

}  // namespace

// RefBase

RefBase::RefBase() : mStrong(0) {}

RefBase::~RefBase() = default;

void RefBase::onFirstRef() {}

void RefBase::incStrong(const void* /*id*/) const {
    if (mStrong.fetch_add(1, std::memory_order_relaxed) == 0) {
        const_cast<RefBase*>(this)->onFirstRef();
    }
}

void RefBase::decStrong(const void* /*id*/) const {
    if (mStrong.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete this;
    }
}

int32_t RefBase::getStrongCount() const {
    return mStrong.load(std::memory_order_relaxed);
}

// String8

String8::String8() = default;

String8::String8(const char* o) : mBytes(o != nullptr ? o : "") {}

String8::String8(const char* o, size_t len) {
    if (o != nullptr) {
        mBytes.assign(o, len);
    }
}

String8::String8(const String16& o) : mBytes(Utf16ToUtf8(std::u16string(o.c_str(), o.size()))) {}

bool String8::operator==(const char* other) const {
    return strcmp(c_str(), other != nullptr ? other : "") == 0;
}

// String16

String16::String16() = default;

String16::String16(const char* o) {
    if (o != nullptr) {
        mChars = Utf8ToUtf16(o, strlen(o));
    }
}

String16::String16(const char16_t* o, size_t len) {
    if (o != nullptr) {
        mChars.assign(o, len);
    }
}

String16::String16(const String8& o) : mChars(Utf8ToUtf16(o.c_str(), o.size())) {}

}  // namespace android
