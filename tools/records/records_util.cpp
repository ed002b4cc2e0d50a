#include "tools/records/records_util.h"

#include <stdio.h>
#include <time.h>

#include <cmath>

namespace InspectUtil {

std::string UtcText(int64_t seconds) {
    if (seconds == 0) {
        return "-";
    }
    time_t t = static_cast<time_t>(seconds);
    struct tm tm {};
    char buf[32];
    if (gmtime_r(&t, &tm) == nullptr || strftime(buf, sizeof(buf), "%F %T", &tm) == 0) {
        return std::to_string(static_cast<long long>(seconds));
    }
    return buf;
}

bool ParseUtc(const std::string& text, int64_t& seconds) {
    struct tm tm {};
    const char* end = strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &tm);
    if (end == nullptr || *end != '\0') {
        return false;
    }
    seconds = static_cast<int64_t>(timegm(&tm));
    return true;
}

void PutTime(Json::Value& object, const std::string& key, int64_t seconds) {
    object[key] = static_cast<Json::Int64>(seconds);
    object[key + "_text"] = UtcText(seconds);
}

std::string Printable(const std::string& value) {
    std::string out;
    for (unsigned char c : value) {
        if (c >= 0x20 && c < 0x7f && c != '\\') {
            out += static_cast<char>(c);
        } else {
            char buf[8];
            snprintf(buf, sizeof(buf), "\\x%02x", c);
            out += buf;
        }
    }
    return out;
}

std::string FieldText(const char* bytes, size_t size) {
    size_t n = 0;
    while (n < size && bytes[n] != '\0') {
        ++n;
    }
    return Printable(std::string(bytes, n));
}

std::string Number(double value) {
    if (!std::isfinite(value)) {
        return std::isnan(value) ? "nan" : (value > 0 ? "inf" : "-inf");
    }
    char buf[64];
    snprintf(buf, sizeof(buf), "%.3f", value);
    std::string s = buf;
    while (!s.empty() && s.back() == '0') {
        s.pop_back();
    }
    if (!s.empty() && s.back() == '.') {
        s.pop_back();
    }
    return s == "-0" ? "0" : s;
}

}  // namespace InspectUtil
