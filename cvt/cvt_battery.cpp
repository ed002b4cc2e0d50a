#include "cvt/cvt_battery.h"

#include <climits>
#include <cmath>
#include <cstring>

#include "core/device_stream.h"
#include "core/soh_enviroment.h"
#include "core/soh_file.h"
#include "core/soh_log.h"
#include "cvt/cvt_nodes.h"
#include "platform/soh_clock.h"

namespace {

bool ReadInt(const Json::Value& obj, const char* key, int& out) {
    const Json::Value& v = obj[key];
    if (!v.isInt()) {
        SOH_LOGE("%s not config\n", key);
        return false;
    }
    out = v.asInt();
    return true;
}

bool ReadIntArray(const Json::Value& obj, const char* key, const char* name,
                  std::vector<int>& out) {
    const Json::Value& v = obj.isObject() ? obj[key] : Json::Value::nullSingleton();
    out.clear();
    if (!v.isArray() || v.empty()) {
        SOH_LOGE("%s not config\n", key);
        return false;
    }
    for (Json::ArrayIndex i = 0; i < v.size(); ++i) {
        if (!v[i].isInt()) {
            SOH_LOGE("%s not config\n", key);
            return false;
        }
        out.push_back(v[i].asInt());
        SOH_LOGI("%s[%d] = %d\n", name, static_cast<int>(i), out.back());
    }
    return true;
}

template <typename T>
bool ReadNode(const char* node, T& value) {
    return DeviceReader(node).ReadStrToT(value) == 0;
}

bool IsAccessChargerType(unsigned type) {
    return type == 3 || type == 4 || type == 9 || type == 10 || type == 12;
}

}  // namespace

bool CvtBattery::Init(const Json::Value& battery) {
    if (!battery.isObject()) {
        return false;
    }
    if (!SOHEnviroment::MatchProductCfg(battery["Product"]) ||
        !SOHEnviroment::MatchCountryCfg(battery["Country"]) ||
        !SOHEnviroment::MatchBatteryModelCfg(battery["Model"])) {
        SOH_LOGE("model and country not match\n");
        return false;
    }
    int cycleMin = 0;
    int startSocMax = 0;
    bool ok = ReadInt(battery, "ChargeCycleMax", cycleMin);
    ok = ReadInt(battery, "ChargeSocMin", startSocMax) && ok;
    ok = ReadInt(battery, "ChargeBeginSoc", beginSoc_) && ok;
    ok = ReadInt(battery, "ValidTempMin", tempMin_) && ok;
    ok = ReadInt(battery, "ValidTempMax", tempMax_) && ok;
    ok = ReadInt(battery, "ValidValueMin", valueMin_) && ok;
    ok = ReadInt(battery, "ValidValueMax", valueMax_) && ok;
    const Json::Value& recoup = battery["TempRecoup"];
    ok = ReadIntArray(recoup, "Ratio", "recoupRatio", recoupRatio_) && ok;
    ok = ReadIntArray(recoup, "Temp", "recoupTemp", recoupTemp_) && ok;
    if (!ok || cycleMin < 0 || startSocMax < 0 || recoupRatio_.size() != recoupTemp_.size()) {
        return false;
    }
    for (size_t k = 1; k < recoupTemp_.size(); ++k) {
        if (recoupTemp_[k] <= recoupTemp_[k - 1]) {
            SOH_LOGE("%s not config\n", "Temp");
            return false;
        }
    }
    cycleMin_ = static_cast<unsigned>(cycleMin);
    startSocMax_ = static_cast<unsigned>(startSocMax);
    SOH_LOGI("cvt init: Cycle:%u, Soc:%u, BeginSoc:%d, Temp:[%d, %d], Value:[%d, %d]\n", cycleMin_,
             startSocMax_, beginSoc_, tempMin_, tempMax_, valueMin_, valueMax_);
    data_.CvtInfoInit(battery);
    return true;
}

unsigned CvtBattery::GetChargerType() {
    unsigned detect = UINT_MAX;
    if (SohFile::Exists(CvtNodes::kDirectChargerDetect) &&
        ReadNode(CvtNodes::kDirectChargerDetect, detect) && detect == 0) {
        return 10;
    }
    detect = UINT_MAX;
    if (SohFile::Exists(CvtNodes::kDirectChargerScDetect) &&
        ReadNode(CvtNodes::kDirectChargerScDetect, detect) && detect == 0) {
        return 12;
    }
    unsigned type = 5;
    if (!ReadNode(CvtNodes::kChargerType, type)) {
        SOH_LOGE("cvt: read charger type sysfs failed\n");
        return 5;
    }
    return type;
}

unsigned CvtBattery::GetChargerStatus() {
    unsigned status = UINT_MAX;
    return ReadNode(CvtNodes::kChargerStatus, status) ? status : UINT_MAX;
}

bool CvtBattery::IsBatteryFull() {
    unsigned done = 0;
    return ReadNode(CvtNodes::kChargeDone, done) && done == 1;
}

bool CvtBattery::IsCharging() {
    char status[32] = {};
    if (!SohFile::Exists(CvtNodes::kBatteryStatus) ||
        DeviceReader(CvtNodes::kBatteryStatus).ReadRawStr(status, sizeof(status)) != 0) {
        return true;
    }
    return strncmp(status, "Charging", 8) == 0;
}

unsigned CvtBattery::GetBatterySoc() {
    unsigned soc = UINT_MAX;
    return ReadNode(CvtNodes::kBatteryCapacity, soc) ? soc : UINT_MAX;
}

int CvtBattery::GetBatteryTemp() {
    int tenths = INT_MAX;
    return ReadNode(CvtNodes::kBatteryTemp, tenths) ? tenths / 10 : INT_MAX;
}

bool CvtBattery::GetAverageCurVol(int& currentMa, int& voltageMv) {
    long long ua = 0;
    long long uv = 0;
    if (!ReadNode(CvtNodes::kBatteryCurrentNow, ua) ||
        !ReadNode(CvtNodes::kBatteryVoltageNow, uv)) {
        return false;
    }
    currentMa = static_cast<int>(ua / 1000);
    voltageMv = static_cast<int>(uv / 1000);
    return true;
}

void CvtBattery::UpdateChargeCycle() {
    unsigned cycle = 0;
    if (ReadNode(CvtNodes::kBatteryCycleCount, cycle)) {
        cycle_ = cycle;
    }
}

bool CvtBattery::AccessConditionJudgment() {
    unsigned soc = GetBatterySoc();
    UpdateChargeCycle();
    if (cycle_ < cycleMin_) {
        SOH_LOGI("new battery,do nothing, cycles=%d\n", static_cast<int>(cycle_));
        return false;
    }
    if (soc > startSocMax_) {
        SOH_LOGI("battery soc is high,do nothing, soc=%d\n", static_cast<int>(soc));
        return false;
    }
    SohClock::Sleep(kSampleSeconds);  // let the charger settle before asking its type
    unsigned type = GetChargerType();
    if (!IsAccessChargerType(type)) {
        SOH_LOGI("charger type is not right,do nothing, chargerType=%d\n", static_cast<int>(type));
        return false;
    }
    SOH_LOGI("access condition ok\n");
    return true;
}

void CvtBattery::ConstantVoltageTime() {
    if (!AccessConditionJudgment()) {
        return;
    }
    bool started = false;
    int64_t startNs = 0;
    const int64_t beginNs = SohClock::MonoNs();
    long samples = 0;
    unsigned unreadable = 0;  // consecutive samples whose reads failed
    unsigned idle = 0;        // consecutive samples without charging current
    meanTemp_ = 0.0;
    for (;; SohClock::Sleep(kSampleSeconds)) {
        if (SohClock::MonoNs() - beginNs > kMaxMeasureSeconds * 1000000000LL) {
            SOH_LOGE("cvt: no end of charge after %lld s, measurement abandoned\n",
                     static_cast<long long>(kMaxMeasureSeconds));
            return;
        }
        const unsigned status = GetChargerStatus();
        if (status == 0) {
            SOH_LOGI("charger remove, do nothing\n");
            return;
        }
        int cur = 0;
        int vol = 0;
        unsigned soc = GetBatterySoc();
        if (!GetAverageCurVol(cur, vol) || soc == UINT_MAX || status == UINT_MAX) {
            if (++unreadable >= kMaxUnreadableSamples) {
                SOH_LOGE(
                    "cvt: charger or battery unreadable for %u samples, measurement "
                    "abandoned\n",
                    unreadable);
                return;
            }
            continue;
        }
        unreadable = 0;
        idle = IsCharging() ? 0 : idle + 1;
        const auto stalled = [&]() {
            if (idle < kMaxIdleSamples) {
                return false;
            }
            SOH_LOGI(
                "cvt: charging stopped at soc %u, %d mV, before the end; measurement "
                "abandoned\n",
                soc, vol);
            return true;
        };
        if (!started) {
            if (vol >= kStartVoltageMv && static_cast<long long>(soc) >= beginSoc_) {
                started = true;
                startNs = SohClock::MonoNs();
                SOH_LOGI("start CVT calculate, soc=%d vol=%d cur=%d\n", static_cast<int>(soc), vol,
                         cur);
            } else if (stalled()) {
                return;
            }
            continue;
        }
        int temp = GetBatteryTemp();
        if (temp != INT_MAX) {
            ++samples;
            meanTemp_ = (meanTemp_ * static_cast<double>(samples - 1) + temp) /
                        static_cast<double>(samples);
        }
        if (IsBatteryFull() && vol >= kEndVoltageMv && soc >= static_cast<unsigned>(kFullSoc)) {
            SOH_LOGI("end CVT calculate, soc=%d vol=%d cur=%d\n", static_cast<int>(soc), vol, cur);
            // Whole seconds of monotonic time: a wall-clock step cannot stretch the phase.
            HandleChargeTimeData(
                static_cast<double>((SohClock::MonoNs() - startNs) / 1000000000LL));
            return;
        }
        if (stalled()) {
            return;
        }
    }
}

int CvtBattery::CvtTempAdjust(int value, int temperature) const {
    if (recoupTemp_.empty()) {
        return value;
    }
    double ratio = recoupRatio_.back();
    if (temperature < recoupTemp_.front()) {
        ratio = recoupRatio_.front();
    }
    for (size_t k = 0; k + 1 < recoupTemp_.size(); ++k) {
        if (recoupTemp_[k] <= temperature && temperature < recoupTemp_[k + 1]) {
            double span = static_cast<double>(recoupTemp_[k + 1]) - recoupTemp_[k];
            ratio = recoupRatio_[k] + (static_cast<double>(recoupRatio_[k + 1]) - recoupRatio_[k]) *
                                          (static_cast<double>(temperature) - recoupTemp_[k]) /
                                          span;
            break;
        }
    }
    return static_cast<int>(std::lround(value * ratio / 100.0));
}

void CvtBattery::HandleChargeTimeData(double seconds) {
    int temp = static_cast<int>(meanTemp_);
    if (temp < tempMin_ || temp > tempMax_) {
        SOH_LOGE("battery temp %d is outsize normal\n", temp);
        return;
    }
    int measured = static_cast<int>(std::min(seconds, static_cast<double>(INT_MAX)));
    int calculated = CvtTempAdjust(measured, temp);
    SOH_LOGI("CVT calculate OK, temp=%d, oldVal=%d, newVal=%d\n", temp, measured, calculated);
    if (calculated < valueMin_ || calculated > valueMax_) {
        SOH_LOGE("cvt value invalid, do nothing!\n");
        return;
    }
    unsigned fccNow = UINT_MAX;
    unsigned fccDesign = UINT_MAX;
    ReadNode(CvtNodes::kBatteryFcc, fccNow);
    ReadNode(CvtNodes::kBatteryFccDesign, fccDesign);
    SOH_LOGI("start handler CVT data, cycle=%u,fccNow=%u,fccDesign=%u\n", cycle_, fccNow,
             fccDesign);
    data_.CvtSaveInfoToFile(calculated, measured, cycle_, temp);
    data_.CvtSwellJudge(cycle_, fccNow, fccDesign);
    data_.CvtExportReport();
    data_.CvtPolicyExecute();
}
