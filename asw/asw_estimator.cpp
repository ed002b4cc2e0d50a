#include "asw/asw_estimator.h"

#include <bms_interface.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>

#include "asw/asw_common.h"
#include "core/device_stream.h"
#include "core/soh_configure.h"
#include "core/soh_enviroment.h"
#include "core/soh_log.h"
#include "platform/soh_clock.h"

namespace {

// A real as the C++ library's stod reads it: leading blanks, a number, anything after it
// ignored. False when there is no number at all or it is out of range; a value that is not
// finite ("inf", "nan") is refused too: it would poison every swell it is added to.
bool ParseReal(const std::string& text, double& out) {
    const char* begin = text.c_str();
    char* end = nullptr;
    errno = 0;
    out = strtod(begin, &end);
    return end != begin && errno != ERANGE && std::isfinite(out);
}

}  // namespace

void AswEstimator::StartMonitor() {
    if (!CanStartMonitor("")) {
        return;
    }
    RunMonitorThread([this] { Monitor(); });
}

void AswEstimator::Monitor() {
    enabled_ = SOHEnviroment::IsSohSubSysEnable(kBoardKey) && !BmsPropertyIsFactoryMode() &&
               !BmsPropertyIsDemoVersion();
    if (InitBatterys() != 0) {
        SOH_LOGE("asw init batterys failed to abnormal stop now\n");
    } else if (batterys_.empty()) {
        SOH_LOGE("asw no battery match to abnormal stop now\n");
    } else {
        Update();
        batterys_.clear();
        enabled_ = false;
    }
}

int AswEstimator::InitBatterys() {
    const Json::Value& root = *GetJsonValue();
    if (root.isNull()) {
        SOH_LOGE("asw configure is empty\n");
        return -1;
    }
    if (!root.isObject() || !root["Battery"].isArray()) {
        SOH_LOGE("asw root configure not have battery\n");
        return -1;
    }
    for (const Json::Value& entry : root["Battery"]) {
        auto battery = std::make_unique<AswBattery>(root, entry);
        if (battery->Init(enabled_) != 0) {
            SOH_LOGE("asw battery init failed\n");
            continue;
        }
        batterys_.push_back(std::move(battery));
        break;
    }
    return 0;
}

void AswEstimator::Update() {
    for (;;) {
        if (SOHConfigure::IsSchemeClosed(GetName())) {
            SOH_LOGE("asw has closed by app\n");
            std::lock_guard<std::mutex> lock(lock_);
            UpdateLimitValue();
            return;
        }
        if (Asw::ToSeconds(Asw::Now()) <= kClockSetSeconds) {
            SohClock::Sleep(1);  // nothing is accounted before the clock is set
            continue;
        }
        Asw::UpdateStub();
        for (auto& battery : batterys_) {
            if (battery->Update() != 0) {
                SOH_LOGE("asw battery update error\n");
                std::lock_guard<std::mutex> lock(lock_);
                UpdateLimitValue();
                return;
            }
        }
        std::unique_lock<std::mutex> lock(lock_);
        if (enabled_) {
            UpdateLimitValue();
        }
        SohClock::WaitFor(wake_, lock, static_cast<int64_t>(kLoopSeconds) * 1000000000LL,
                          [this] { return wakeRequested_; });
        wakeRequested_ = false;
    }
}

void AswEstimator::UpdateLimitValue() {
    bool protect = !SOHConfigure::GetProtectMark() && !SOHConfigure::IsSchemeClosed(GetName());
    for (const auto& battery : batterys_) {
        protect = protect && battery->GetSceneProtectEnable();
    }
    if (!protect) {
        NotifyOne("DcVoltLimitator", 0.0);
        NotifyOne("NonDcVoltLimitator", 0.0);
        NotifySocStrategy(1, 100, 100, false);
        return;
    }
    UpdateVolLimitValue();
    uint32_t cutoff = 100;
    uint32_t restore = 100;
    for (const auto& battery : batterys_) {
        if (battery->GetCutoffSoc() < cutoff) {
            cutoff = battery->GetCutoffSoc();
            restore = battery->GetRestoreSoc();
        }
    }
    NotifySocStrategy(1, cutoff, restore, false);
}

void AswEstimator::UpdateVolLimitValue() {
    uint32_t dc = 0;
    uint32_t nonDc = 0;
    for (const auto& battery : batterys_) {
        dc = std::max(dc, battery->GetDcVoltDec());
        nonDc = std::max(nonDc, battery->GetNoDcVoltDec());
    }
    NotifyOne("DcVoltLimitator", static_cast<double>(dc));
    NotifyOne("NonDcVoltLimitator", static_cast<double>(nonDc));
}

// Integers are read with atoi (leading blanks and a sign, anything after the digits ignored,
// no number at all is 0), as the apps have always sent them.
int AswEstimator::SetPara(const std::string& name, const std::string& value) {
    if (name == "smart_charge_enable") {
        // A negative mark becomes a huge one and is refused by SetProtectMark.
        if (SOHConfigure::SetProtectMark(static_cast<unsigned>(atoi(value.c_str()))) != 0) {
            return -1;
        }
        std::lock_guard<std::mutex> lock(lock_);
        wakeRequested_ = true;
        SohClock::NotifyAll(wake_);
        return 0;
    }
    if (name == "smart_charge_support") {
        support_ = atoi(value.c_str()) != 0;
        return 0;
    }
    if (name == Asw::kAswellAddKey) {
        double d = 0.0;
        if (!ParseReal(value, d)) {
            return -1;
        }
        Asw::SetValue(Asw::kAswellAddKey, d);
        return 0;
    }
    return -1;
}

int AswEstimator::GetPara(const std::string& name, std::string& value) {
    if (name == "smart_charge_enable") {
        value = SOHConfigure::GetProtectMark() ? "1" : "0";
        return 0;
    }
    if (name == "smart_charge_feature") {
        value = (support_ || enabled_) ? "1" : "0";
        return 0;
    }
    if (name == "smart_charging") {
        if (!support_ && !enabled_) {
            value = "0";
            return 0;
        }
        std::lock_guard<std::mutex> lock(lock_);
        // A failed read yields the maximum, as every device read does: the flag is answered.
        unsigned connected = 0;
        if (DeviceReader(AswNodes::kConnectState).ReadStrToT(connected) != 0) {
            connected = UINT_MAX;
        }
        value = (SOHConfigure::GetSmartCharging() != 0 && connected != 0) ? "1" : "0";
        return 0;
    }
    return -1;
}
