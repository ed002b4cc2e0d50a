// The kernel side of the node formats: the raw records the battery-health driver publishes
// and takes (native byte order, packed 32-bit fields), and the parsers of the text lines the
// daemon writes to the charger's limit nodes.
//
// Lines: one line, optionally ending in one "\n"; words separated by single spaces; numbers
// in decimal with an optional '-'. Anything else is malformed and refused (the node then
// answers -EINVAL). Ranges are per parser, noted below.
//
// Threads: pure functions.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>

namespace sim {
namespace kernel {

// The daemon's answer to an aging record: 16 bytes.
struct AgingPolicy {
    uint32_t level;     // chosen stage, 0 when none
    uint32_t learnFcc;  // mAh
    uint32_t ndcVdec;   // graded termination voltage decrease, mV
    uint32_t errNo;
};
static_assert(sizeof(AgingPolicy) == 16, "kernel layout");

// An AC resistance measurement: 24 bytes.
struct AcrInfo {
    uint32_t acrValue;  // micro-ohm
    uint32_t cycleCount;
    uint32_t batTemp;    // degC
    uint32_t icTempMax;  // degC
    uint32_t icTempMin;  // degC
    uint32_t batVolt;    // mV
};
static_assert(sizeof(AcrInfo) == 24, "kernel layout");

// A DC resistance measurement: 20 bytes.
struct DcrInfo {
    uint32_t batR0;     // micro-ohm
    uint32_t dcrValue;  // micro-ohm
    uint32_t cycleCount;
    uint32_t batTemp;  // degC
    uint32_t batVolt;  // mV
};
static_assert(sizeof(DcrInfo) == 20, "kernel layout");

// The weekly report's battery data: 88 bytes.
struct HeraldData {
    uint32_t batCap;  // mAh, design
    uint32_t reserved0;
    uint32_t batCycle;
    uint32_t reserved1;
    uint32_t qmax;     // mAh, present capacity
    char batMan[32];   // NUL-terminated
    char batParF[36];  // NUL-terminated
};
static_assert(sizeof(HeraldData) == 88, "kernel layout");

template <typename T>
std::string ToBytes(const T& record) {
    return std::string(reinterpret_cast<const char*>(&record), sizeof(T));
}

// True, with `record` filled, only when `bytes` holds exactly one record.
template <typename T>
bool FromBytes(const std::string& bytes, T& record) {
    if (bytes.size() != sizeof(T)) {
        return false;
    }
    std::memcpy(&record, bytes.data(), sizeof(T));
    return true;
}

// "quen TYPE N" with TYPE "all" or a charger type word and N within [lo, hi].
bool ParseTypedLine(const std::string& line, int64_t lo, int64_t hi, std::string& type,
                    int32_t& value);
// "quen ENABLE LOW HIGH": ENABLE >= 0 (non-zero: on), 0 <= LOW <= HIGH <= 100.
bool ParseSocControl(const std::string& line, int32_t& enable, int32_t& low, int32_t& high);
// "quen TYPE" with TYPE >= 0.
bool ParseSocStrategy(const std::string& line, int32_t& type);
// A plain decimal number within [lo, hi].
bool ParseDecimal(const std::string& line, int64_t lo, int64_t hi, int32_t& value);
// "asw N" with N >= 0. Returns false for other lines; `malformed` is set when the line starts
// with "asw" but is not of that form.
bool ParseAswReport(const std::string& line, uint32_t& scene, bool& malformed);

}  // namespace kernel
}  // namespace sim
