// AswBattery's scenes: the scene restored at start, the selection at a day close, the exit
// check at every pass and what a change of scene sends and saves.
#include <bms_interface.h>

#include "asw/asw_battery.h"
#include "asw/asw_policy_factory.h"
#include "core/soh_log.h"

bool AswBattery::CreateActiveScene(const Json::Value& groupNo) {
    if (!battery_["NormalSceneDmdNo"].isUInt()) {
        SOH_LOGE("asw battery not configure normal scene dmd no\n");
        return false;
    }
    normalDmdNo_ = battery_["NormalSceneDmdNo"].asUInt();
    const Json::Value& scenes = ConfigMember(policyName_);
    if (!scenes.isArray()) {
        SOH_LOGE("asw scene configure is null\n");
        return true;  // the battery runs without scenes
    }
    for (const Json::Value& config : scenes) {
        std::unique_ptr<AswScene> scene = AswPolicyFactory::CreateSceneInstance("AswScene", config);
        if (scene == nullptr) {
            SOH_LOGE("create scene instance failed\n");
            return true;
        }
        if (scene->Init(config) != 0) {
            return true;  // a faulty scene list: no scene is restored
        }
        if (sceneNo_ != 0 && scene->GetNo() == sceneNo_) {
            scene_ = std::move(scene);
            break;
        }
    }
    if (scene_ != nullptr && groupNo.isUInt()) {
        scene_->SetEffectConditon(groupNo.asUInt());
    }
    return true;
}

// A change of scene is saved at once, besides the regular saves: a restart right after it then
// restores the scene the kernel was told about.
void AswBattery::TryUpdateScene() {
    int64_t start = 0;
    int64_t end = 0;
    bool dayChanged = today_->GetPeriodSeconds(start, end) && !Asw::IsSameDay(start, end);
    if (dayChanged) {
        OverDay();
    }
    if (week_ == nullptr) {
        return;
    }
    if (dayChanged) {
        scene_ = AswPolicyFactory::SelectScene(ConfigMember(policyName_), *week_, *addup_);
    }
    if (scene_ != nullptr && scene_->Exit(*week_, *addup_)) {
        SOH_LOGI("asw scene %d exit now\n", static_cast<int>(scene_->GetNo()));
        scene_.reset();
    }
    uint32_t no = scene_ != nullptr ? scene_->GetNo() : 0;
    if (no != sceneNo_) {
        SOH_LOGI("asw entry scene %d from %d\n", static_cast<int>(no), static_cast<int>(sceneNo_));
        sceneNo_ = no;
        Asw::SendDmdToKernel(scene_ != nullptr ? scene_->GetDmdNo() : normalDmdNo_);
        if (!BmsPropertyIsChargerMode()) {
            SendReports();
        }
        if (SaveDataToFile()) {
            lastSave_ = Asw::Now();
        }
    } else if (dayChanged) {
        TryReportBigData();
    }
}
