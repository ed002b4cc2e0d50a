// Bounds-checked memory and string functions (the platform's secure library semantics).
#include <securec.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

namespace {

bool Overlaps(const void* a, size_t alen, const void* b, size_t blen) {
    uintptr_t pa = reinterpret_cast<uintptr_t>(a);
    uintptr_t pb = reinterpret_cast<uintptr_t>(b);
    return (pa < pb + blen) && (pb < pa + alen);
}

// Length of s, looking at no more than max bytes (max when no NUL was found).
size_t BoundedLen(const char* s, size_t max) {
    const void* nul = memchr(s, '\0', max);
    return nul == nullptr ? max : static_cast<size_t>(static_cast<const char*>(nul) - s);
}

}  // namespace

extern "C" {

errno_t memset_s(void* dest, size_t destMax, int c, size_t count) {
    if (destMax == 0 || destMax > SECUREC_MEM_MAX_LEN) {
        return SECUREC_ERANGE;
    }
    if (dest == nullptr) {
        return SECUREC_EINVAL;
    }
    if (count > destMax) {
        memset(dest, c, destMax);
        return SECUREC_ERANGE_AND_RESET;
    }
    memset(dest, c, count);
    return EOK;
}

errno_t memmove_s(void* dest, size_t destMax, const void* src, size_t count) {
    if (destMax == 0 || destMax > SECUREC_MEM_MAX_LEN) {
        return SECUREC_ERANGE;
    }
    if (dest == nullptr) {
        return SECUREC_EINVAL;
    }
    if (src == nullptr) {
        memset(dest, 0, destMax);
        return SECUREC_EINVAL_AND_RESET;
    }
    if (count > destMax) {
        memset(dest, 0, destMax);
        return SECUREC_ERANGE_AND_RESET;
    }
    if (count != 0 && dest != src) {
        memmove(dest, src, count);
    }
    return EOK;
}

errno_t strncpy_s(char* strDest, size_t destMax, const char* strSrc, size_t count) {
    if (destMax == 0 || destMax > SECUREC_STRING_MAX_LEN) {
        return SECUREC_ERANGE;
    }
    if (strDest == nullptr) {
        return SECUREC_EINVAL;
    }
    if (strSrc == nullptr || count > SECUREC_STRING_MAX_LEN) {
        strDest[0] = '\0';
        return strSrc == nullptr ? SECUREC_EINVAL_AND_RESET : SECUREC_ERANGE_AND_RESET;
    }
    size_t len = BoundedLen(strSrc, count < destMax ? count : destMax);
    if (len >= destMax) {  // the copy and its terminator would not fit
        strDest[0] = '\0';
        return SECUREC_ERANGE_AND_RESET;
    }
    if (Overlaps(strDest, len + 1, strSrc, len + 1)) {
        strDest[0] = '\0';
        return SECUREC_EOVERLAP_AND_RESET;
    }
    memcpy(strDest, strSrc, len);
    strDest[len] = '\0';
    return EOK;
}

errno_t strcpy_s(char* strDest, size_t destMax, const char* strSrc) {
    return strncpy_s(strDest, destMax, strSrc, SECUREC_STRING_MAX_LEN);
}

int vsnprintf_s(char* strDest, size_t destMax, size_t count, const char* format, va_list argList) {
    if (strDest == nullptr || destMax == 0 || destMax > SECUREC_STRING_MAX_LEN) {
        return -1;
    }
    if (format == nullptr) {
        strDest[0] = '\0';
        return -1;
    }
    bool truncate = count < destMax;  // the caller accepts a cut at `count` characters
    size_t limit = truncate ? count + 1 : destMax;
    int n = vsnprintf(strDest, limit, format, argList);
    if (n < 0) {
        strDest[0] = '\0';
        return -1;
    }
    if (static_cast<size_t>(n) >= limit) {
        if (!truncate) {
            strDest[0] = '\0';  // does not fit: nothing, rather than a cut text
        }
        return -1;
    }
    return n;
}

int snprintf_s(char* strDest, size_t destMax, size_t count, const char* format, ...) {
    va_list ap;
    va_start(ap, format);
    int n = vsnprintf_s(strDest, destMax, count, format, ap);
    va_end(ap);
    return n;
}

int sprintf_s(char* strDest, size_t destMax, const char* format, ...) {
    va_list ap;
    va_start(ap, format);
    int n = vsnprintf_s(strDest, destMax, destMax, format, ap);
    va_end(ap);
    return n;
}

}  // extern "C"
