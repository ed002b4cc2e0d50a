#include "asw/asw_battery.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "core/soh_enviroment.h"
#include "core/soh_log.h"

namespace {

// The nodes a pass samples, as strings made once.
struct SamplePaths {
    std::string voltage{AswNodes::kBatteryVoltageNow};
    std::string temp{AswNodes::kBatteryTemp};
    std::string charger{AswNodes::kChargerType};
    std::string cycles{AswNodes::kBatteryCycleCount};
};

const SamplePaths& Paths() {
    static const SamplePaths* paths = new SamplePaths;  // never destroyed: detached threads may
                                                        // still use it while the process exits
    return *paths;
}

}  // namespace

AswBattery::AswBattery(const Json::Value& config, const Json::Value& battery)
    : config_(config), battery_(battery), lastSave_(Asw::Now()) {}

const Json::Value& AswBattery::ConfigMember(const std::string& key) const {
    static const Json::Value& kNull = *new Json::Value;  // never destroyed: detached threads may
                                                         // still use it while the process exits
    return config_.isObject() ? config_[key] : kNull;
}

// The order matters: the data objects (and a changed battery's records) come before the scene
// checks, so a fault of the scene configuration never keeps old records of another battery.
uint32_t AswBattery::Init(bool enabled) {
    if (!battery_.isObject() || !SOHEnviroment::MatchProductCfg(battery_["Product"]) ||
        !SOHEnviroment::MatchCountryCfg(battery_["Country"]) ||
        !SOHEnviroment::MatchBatteryModelCfg(battery_["Model"])) {
        return Asw::kFail;
    }
    if (!battery_["Name"].isString()) {
        SOH_LOGE("asw battery not configure name\n");
        return Asw::kFail;
    }
    if (!CheckPolicy() || !CheckSwellTable()) {
        return Asw::kFail;
    }
    if (!battery_["SimSupport"].isUInt()) {
        SOH_LOGE("asw battery not configure simsupport\n");
        return Asw::kFail;
    }
    simSupport_ = battery_["SimSupport"].asUInt();
    dataFile_ = Asw::GetDataFile(battery_["Name"].asString());
    const Json::Value groupNo = CreateDataObjects();
    if (addup_ == nullptr || today_ == nullptr) {
        return Asw::kFail;
    }
    addup_->SetSupportSim(simSupport_);
    today_->SetSupportSim(simSupport_);
    if (!CreateActiveScene(groupNo)) {
        return Asw::kFail;
    }
    if (tReport_ == 0) {
        tReport_ = NowSeconds();
    }
    enabled_ = enabled;
    lastSave_ = Asw::Now();
    SOH_LOGI("asw: init battery policy ver:%s, table ver:%s\n", policyName_.c_str(),
             tableName_.c_str());
    return 0;
}

bool AswBattery::CheckPolicy() {
    if (!battery_["AswPolicy"].isString()) {
        SOH_LOGE("asw battery not configure policy\n");
        return false;
    }
    policyName_ = battery_["AswPolicy"].asString();
    if (policyName_.empty()) {
        SOH_LOGE("asw compatible version is empty\n");
        return false;
    }
    int version = atoi(policyName_.c_str());
    if (version != 2 && version != 3) {
        SOH_LOGE("asw version %d is not compatible\n", version);
        return false;
    }
    return true;
}

bool AswBattery::CheckSwellTable() {
    if (!battery_["SwellTabe"].isString()) {
        SOH_LOGE("asw battery not configure swelltable\n");
        return false;
    }
    tableName_ = battery_["SwellTabe"].asString();
    const Json::Value& table = ConfigMember(tableName_);
    // A null "Table" would be filled with zeros by the table itself: it is not legal here.
    if (!table.isObject() || table["Table"].isNull()) {
        SOH_LOGE("asw battery swelltable is not legal\n");
        return false;
    }
    swellTable_ = std::make_unique<AswTable>(table["Vbat"], table["Temp"], table["Table"]);
    if (!swellTable_->IsLegal()) {
        SOH_LOGE("asw battery swelltable is not legal\n");
        return false;
    }
    return true;
}

uint32_t AswBattery::Update() {
    if (addup_ == nullptr || today_ == nullptr) {
        return Asw::kFail;
    }
    const Sample sample = ReadSample();
    UpdateObj(*addup_, sample);
    UpdateObj(*today_, sample);
    TryUpdateScene();
    TrySaveDataToFile();
    return 0;
}

AswBattery::Sample AswBattery::ReadSample() const {
    const SamplePaths& paths = Paths();
    Sample s;
    s.vbatMv = Asw::ReadDeviceStrToT<unsigned>(paths.voltage) / 1000;
    // Tenths of a degree to whole degrees, truncated; a negative temperature is passed on as
    // a large unsigned number and so counted in the top row (a failed read likewise).
    float deci = Asw::ReadDeviceStrToT<float>(paths.temp) / 10.0f;
    int32_t temp = 0;
    if (deci >= 2147483647.0f) {
        temp = INT32_MAX;
    } else if (deci <= -2147483648.0f) {
        temp = INT32_MIN;
    } else if (!std::isnan(deci)) {
        temp = static_cast<int32_t>(deci);
    }
    s.tempC = static_cast<unsigned>(temp);
    s.usbIn = Asw::ReadDeviceStrToT<unsigned>(paths.charger) != kNoCharger;
    s.simIn = Asw::IsSimPlugIn();
    s.cycles = Asw::ReadDeviceStrToT<int>(paths.cycles);
    return s;
}

void AswBattery::UpdateObj(AswDataObject& object, const Sample& sample) {
    object.Update(sample.vbatMv, sample.tempC, sample.usbIn, sample.simIn, sceneNo_ != 0,
                  sample.cycles, *swellTable_);
}

uint32_t AswBattery::NowSeconds() const {
    return static_cast<uint32_t>(Asw::ToSeconds(Asw::Now()));
}

uint32_t AswBattery::GetDcVoltDec() const {
    return scene_ != nullptr ? scene_->GetDcVoltDec() : 0;
}

uint32_t AswBattery::GetNoDcVoltDec() const {
    return scene_ != nullptr ? scene_->GetNoDcVoltDec() : 0;
}

uint32_t AswBattery::GetCutoffSoc() const {
    return scene_ != nullptr ? scene_->GetCutoffSoc() : 100;
}

uint32_t AswBattery::GetRestoreSoc() const {
    return scene_ != nullptr ? scene_->GetRestoreSoc() : 100;
}

bool AswBattery::GetSceneProtectEnable() const {
    return scene_ != nullptr && scene_->GetProtectEnable();
}
