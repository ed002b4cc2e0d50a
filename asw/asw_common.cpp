#include "asw/asw_common.h"

#include <cutils/properties.h>
#include <time.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <map>
#include <mutex>
#include <type_traits>

#include "core/device_stream.h"
#include "core/soh_file.h"
#include "core/soh_log.h"
#include "platform/soh_clock.h"

namespace Asw {
namespace {

struct StubState {
    std::mutex lock;  // guards every member below
    std::map<std::string, double> values;
    bool stubMode = false;
    unsigned speed = 1;
    int64_t baseUs = 0;  // wall instant of the last speed change
};

StubState& Stub() {
    static StubState* state = new StubState;  // never destroyed: detached threads may still use it
                                              // while the process exits
    return *state;
}

int64_t WallUs() {
    return SohClock::WallNs() / 1000;
}

// A stub number as T: integral types truncate toward zero, wrapping like a C conversion of
// the 64-bit integer (a negative value as unsigned is a large number); no undefined casts.
template <typename T>
T FromStub(double v) {
    if (std::is_floating_point<T>::value) {
        return static_cast<T>(v);
    }
    if (std::isnan(v)) {
        return 0;
    }
    constexpr double kMax = 9.2e18;
    double clamped = v > kMax ? kMax : (v < -kMax ? -kMax : v);
    return static_cast<T>(static_cast<int64_t>(clamped));
}

}  // namespace

TimePoint Now() {
    unsigned speed = 1;
    return Now(speed);
}

TimePoint Now(unsigned& speed) {
    int64_t nowUs = WallUs();
    int64_t baseUs;
    {
        StubState& s = Stub();
        std::lock_guard<std::mutex> guard(s.lock);
        speed = s.speed;
        baseUs = s.baseUs;
    }
    if (speed == 1) {
        return TimePoint(std::chrono::microseconds(nowUs));
    }
    int64_t wholeSeconds = (nowUs - baseUs) / 1000000;
    int64_t us = baseUs + static_cast<int64_t>(speed) * wholeSeconds * 1000000;
    return TimePoint(std::chrono::microseconds(us));
}

int64_t ToSeconds(TimePoint t) {
    return std::chrono::duration_cast<std::chrono::seconds>(t.time_since_epoch()).count();
}

bool SetTimeSpeed(unsigned speed) {
    if (speed == 0) {
        speed = 1;
    }
    StubState& s = Stub();
    std::lock_guard<std::mutex> guard(s.lock);
    if (speed == s.speed) {
        return false;
    }
    s.speed = speed;
    s.baseUs = WallUs();
    return true;
}

unsigned GetTimeSpeed() {
    StubState& s = Stub();
    std::lock_guard<std::mutex> guard(s.lock);
    return s.speed;
}

void SetStubMode(bool on) {
    StubState& s = Stub();
    std::lock_guard<std::mutex> guard(s.lock);
    s.stubMode = on;
}

bool IsStubMode() {
    StubState& s = Stub();
    std::lock_guard<std::mutex> guard(s.lock);
    return s.stubMode;
}

void SetValue(const std::string& name, double value) {
    StubState& s = Stub();
    std::lock_guard<std::mutex> guard(s.lock);
    s.values[name] = value;
}

bool GetStubValue(const std::string& name, double& value) {
    StubState& s = Stub();
    std::lock_guard<std::mutex> guard(s.lock);
    auto it = s.values.find(name);
    if (it == s.values.end()) {
        return false;
    }
    value = it->second;
    return true;
}

void ResetStub() {
    StubState& s = Stub();
    std::lock_guard<std::mutex> guard(s.lock);
    s.values.clear();
    s.stubMode = false;
    s.speed = 1;
    s.baseUs = 0;
}

template <typename T>
T ReadDeviceStrToT(const std::string& path) {
    if (IsStubMode()) {
        double v = 0.0;
        return GetStubValue(path, v) ? FromStub<T>(v) : T{};
    }
    T value{};
    DeviceReader reader(path);
    if (reader.ReadStrToT(value) != 0) {
        return std::numeric_limits<T>::max();
    }
    return value;
}

template unsigned ReadDeviceStrToT<unsigned>(const std::string& path);
template int ReadDeviceStrToT<int>(const std::string& path);
template float ReadDeviceStrToT<float>(const std::string& path);

bool IsSameDay(int64_t t1, int64_t t2) {
    time_t a = static_cast<time_t>(t1);
    time_t b = static_cast<time_t>(t2);
    struct tm ta {};
    struct tm tb {};
    if (localtime_r(&a, &ta) == nullptr || localtime_r(&b, &tb) == nullptr) {
        return false;
    }
    return ta.tm_year == tb.tm_year && ta.tm_mon == tb.tm_mon && ta.tm_mday == tb.tm_mday;
}

bool IsFileExist(const std::string& path) {
    return SohFile::Exists(path);
}

namespace {

constexpr int kSimSlots = 3;

// The modem signal property of each slot, built once (every pass reads at least one).
const std::string& SimKey(int slot) {
    static const std::string* keys = [] {
        auto* k = new std::string[kSimSlots];  // never destroyed, as Stub()
        for (int i = 0; i < kSimSlots; ++i) {
            k[i] = std::string(AswNodes::kSimPropPrefix) + std::to_string(i) +
                   AswNodes::kSimPropSuffix;
        }
        return k;
    }();
    return keys[slot];
}

}  // namespace

bool IsSimPlugIn() {
    for (int slot = 0; slot < kSimSlots; ++slot) {
        const std::string& key = SimKey(slot);
        char value[PROPERTY_VALUE_MAX] = {0};
        int rc = property_get(key.c_str(), value, "");
        if (rc < 0) {
            SOH_LOGE("get %s property failed %d\n", key.c_str(), rc);
            return false;
        }
        if (value[0] == '\0') {
            return false;
        }
        if (atoi(value) == -1) {
            continue;
        }
        SOH_LOGI("%s property value is valid\n", key.c_str());
        return true;
    }
    return false;
}

void UpdateStub() {
    static const bool enabled =
        IsFileExist(AswNodes::kTimeSpeed) && IsFileExist(AswNodes::kStubData);
    if (!enabled) {
        return;
    }
    unsigned speed = 1;
    if (DeviceReader(AswNodes::kTimeSpeed).ReadStrToT(speed) == 0 && SetTimeSpeed(speed)) {
        SOH_LOGI("asw time speed %u\n", GetTimeSpeed());
    }
    char buf[128] = {0};
    if (DeviceReader(AswNodes::kStubData).ReadRawStr(buf, sizeof(buf)) != 0) {
        return;
    }
    int mode = 0;
    int chargerType = 0;
    int voltage = 0;
    int temp = 0;
    if (sscanf(buf, "%d %d %d %d", &mode, &chargerType, &voltage, &temp) != 4) {
        return;
    }
    SetValue(AswNodes::kChargerType, chargerType);
    SetValue(AswNodes::kBatteryVoltageNow, voltage);
    SetValue(AswNodes::kBatteryTemp, temp);
    SetStubMode(mode != 0);
    SOH_LOGI("asw demon data %d %d %d %d\n", mode, chargerType, voltage, temp);
}

int SendDmdToKernel(unsigned n) {
    if (n == 0) {
        return 0;
    }
    if (DeviceWriter(AswNodes::kDmdReport).Write("asw " + std::to_string(n)) != 0) {
        SOH_LOGE("asw send dmd %d to kernel failed\n", static_cast<int>(n));
        return -1;
    }
    return 0;
}

std::string GetDataFile(const std::string& name) {
    return std::string(AswNodes::kDataDir) + AswNodes::kDataPrefix + name + AswNodes::kDataSuffix;
}

}  // namespace Asw
