// Small helpers of the record inspector: UTC time text, printable text from raw bytes, and
// fixed-size reads. No state; any thread.
#pragma once

#include <json/json.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace InspectUtil {

// "YYYY-MM-DD HH:MM:SS" in UTC; "-" for 0 (never set).
std::string UtcText(int64_t seconds);
// Parses "YYYY-MM-DD HH:MM:SS" as UTC; false when the text is not such a time.
bool ParseUtc(const std::string& text, int64_t& seconds);
// A time as JSON: {"..": seconds} and {".._text": UTC text}, added to `object` under `key`.
void PutTime(Json::Value& object, const std::string& key, int64_t seconds);
// The bytes of a fixed-size, NUL-terminated text field up to its first NUL; bytes outside
// printable ASCII are shown as \xNN, so garbage stays visible and harmless.
std::string FieldText(const char* bytes, size_t size);
// `value` with the same escaping, for text that came from a record.
std::string Printable(const std::string& value);
// "1500", "80.5" (at most 3 decimals, trailing zeros dropped).
std::string Number(double value);

}  // namespace InspectUtil
