// Host property store shared by <cutils/properties.h> and the battery-management library:
// one file per property, $QUEN_ROOT/properties/<name>. Thread-safe (no in-process state).
#pragma once

#include <string>

namespace PropertyStore {

// True when `key` can name a file of the store (non-empty, no '/', not "." or "..").
bool ValidKey(const char* key);
// Reads the property. Returns false when it is unset or unreadable. One trailing newline of
// the file is not part of the value.
bool Get(const char* key, std::string& value);
// Replaces the property atomically (temporary file, rename). Returns false on failure.
bool Set(const char* key, const char* value);

}  // namespace PropertyStore
