// System properties, as the platform's property library declares them.
//
// Host build: one file per property under $QUEN_ROOT/properties/<name>; every call reads
// or replaces that file afresh, so other processes (tests, the simulator) see changes at once.
// Thread-safe: no shared state in this process.
#pragma once

#define PROPERTY_KEY_MAX 32
#define PROPERTY_VALUE_MAX 92

#ifdef __cplusplus
extern "C" {
#endif

// Copies the value of `key` (at most PROPERTY_VALUE_MAX - 1 bytes, NUL-terminated) into
// `value`, which must hold PROPERTY_VALUE_MAX bytes. A missing property yields
// `default_value` (or the empty string when it is null). Returns the length copied.
int property_get(const char* key, char* value, const char* default_value);

// Replaces the value of `key`. Returns 0 on success, a negative value when the key or
// value is invalid (empty or unsafe key, value of PROPERTY_VALUE_MAX bytes or more) or the
// store cannot be written.
int property_set(const char* key, const char* value);

#ifdef __cplusplus
}
#endif
