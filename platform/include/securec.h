// Bounds-checked memory and string functions with the platform's secure-library semantics.
//
// Every function takes the size of its destination (destMax) and never writes past it.
// A result that would not fit is an error, never a silent truncation: the *_s copy
// functions clear the destination and return an *_AND_RESET code; the formatting
// functions return -1 (snprintf_s with count < destMax keeps the first `count` characters,
// terminated, and still returns -1). Thread-safe: no state.
#pragma once

#include <stdarg.h>
#include <stddef.h>

#ifndef EOK
#define EOK 0
#endif
#define SECUREC_EINVAL 22
#define SECUREC_ERANGE 34
#define SECUREC_EINVAL_AND_RESET (22 | 128)
#define SECUREC_ERANGE_AND_RESET (34 | 128)
#define SECUREC_EOVERLAP_AND_RESET (54 | 128)
// Largest destination size accepted (anything larger is taken for a corrupted size).
#define SECUREC_MEM_MAX_LEN (0x7fffffffUL)
#define SECUREC_STRING_MAX_LEN (0x7fffffffUL)

typedef int errno_t;

#ifdef __cplusplus
extern "C" {
#endif

errno_t memset_s(void* dest, size_t destMax, int c, size_t count);
errno_t memmove_s(void* dest, size_t destMax, const void* src, size_t count);
errno_t strcpy_s(char* strDest, size_t destMax, const char* strSrc);
errno_t strncpy_s(char* strDest, size_t destMax, const char* strSrc, size_t count);
int sprintf_s(char* strDest, size_t destMax, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
int snprintf_s(char* strDest, size_t destMax, size_t count, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
int vsnprintf_s(char* strDest, size_t destMax, size_t count, const char* format, va_list argList)
    __attribute__((format(printf, 4, 0)));

#ifdef __cplusplus
}
#endif
