// AswBattery's data file: creating the data objects at Init (fresh, from the legacy log, or
// from the file) and saving them.
#include <chrono>

#include "asw/asw_battery.h"
#include "asw/asw_old.h"
#include "asw/asw_policy_factory.h"
#include "core/soh_enviroment.h"
#include "core/soh_file.h"
#include "core/soh_json.h"
#include "core/soh_log.h"

Json::Value AswBattery::CreateDataObjects() {
    if (SOHEnviroment::IsBatteryChanged()) {
        SOH_LOGE("battery changed clear ASW record\n");
        AswOld::Remove();
        SohFile::Remove(dataFile_);
        CreateWithoutHistory();
        return Json::Value();
    }
    if (!SohFile::Exists(dataFile_)) {
        CreateWithoutHistory();
        double old = AswOld::GetAswell();
        SOH_LOGI("asw old aswell is %.5f\n", old);
        if (addup_ != nullptr) {
            addup_->SetOldAswell(old);
        }
        return Json::Value();
    }
    return LoadDataFile();
}

void AswBattery::CreateWithoutHistory() {
    week_.reset();
    closedDays_ = Json::Value(Json::arrayValue);
    addup_ = AswPolicyFactory::CreateDataInstance("Addup", swellTable_->X(), swellTable_->Y());
    if (addup_ == nullptr) {
        SOH_LOGE("asw addup data object create failed\n");
        return;
    }
    today_ = NewDay();
    if (today_ == nullptr) {
        SOH_LOGE("asw current day data object create failed\n");
    }
}

// A fault of the whole file or of its history falls back to fresh objects (the file's counters
// are lost, the accounting goes on); the file is replaced at the next save. A fault of one day
// costs only that day.
Json::Value AswBattery::LoadDataFile() {
    std::string text;
    Json::Value root;
    if (!SohFile::ReadAll(dataFile_, text)) {
        SOH_LOGE("open asw data file failed\n");
        CreateWithoutHistory();
        return Json::Value();
    }
    if (!SohJson::Parse(text, root)) {
        SOH_LOGE("read asw data file failed\n");
        CreateWithoutHistory();
        return Json::Value();
    }
    if (!root.isObject()) {
        SOH_LOGE("asw data is empty\n");
        CreateWithoutHistory();
        return Json::Value();
    }
    if (root["Scene"].isUInt()) {
        sceneNo_ = root["Scene"].asUInt();
    }
    if (root["TReport"].isUInt()) {
        tReport_ = root["TReport"].asUInt();
    }
    SOH_LOGI("asw init scene no:%d  report:%u\n", static_cast<int>(sceneNo_), tReport_);
    const Json::Value& x = root["Vbat"];
    const Json::Value& y = root["Temp"];
    if (!root["Addup"].isObject()) {
        SOH_LOGE("asw addup data object type is error\n");
        CreateWithoutHistory();
    } else if ((addup_ = LoadObject(root["Addup"], x, y)) == nullptr) {
        SOH_LOGE("asw addup data object create failed\n");
        CreateWithoutHistory();
    } else {
        LoadDays(root["Day"], x, y);
    }
    return root["ConditonGroupNo"];
}

std::unique_ptr<AswDataObject> AswBattery::LoadObject(const Json::Value& element,
                                                      const Json::Value& x,
                                                      const Json::Value& y) const {
    Json::Value data = element;
    Json::Value times;
    data.removeMember("SwellTimes", &times);
    AswTable table(x, y, times);
    if (!table.IsLegal() || !(table == *swellTable_)) {
        table = AswTable(swellTable_->X(), swellTable_->Y());
    }
    return AswPolicyFactory::CreateDataInstance("Day", std::move(table), std::move(data));
}

void AswBattery::TrySaveDataToFile() {
    Asw::TimePoint now = Asw::Now();
    if (!(now > lastSave_)) {
        lastSave_ = now;
        return;
    }
    if (now - lastSave_ < std::chrono::seconds(kSaveIntervalSeconds)) {
        return;
    }
    lastSave_ = now;
    SaveDataToFile();
}

bool AswBattery::SaveDataToFile() {
    Json::Value root(Json::objectValue);
    root["AswPolicy"] = policyName_;
    root["Vbat"] = swellTable_->X();
    root["Temp"] = swellTable_->Y();
    root["Scene"] = sceneNo_;
    if (scene_ != nullptr) {
        root["ConditonGroupNo"] = scene_->GetEffectConditon();
    }
    root["TReport"] = tReport_;
    root["Addup"] = Serialize(*addup_);
    Json::Value days = closedDays_;
    days.append(Serialize(*today_));
    root["Day"] = days;
    bool openFailed = false;
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "   ";  // styled text, as the record has always been written
    if (!SohFile::WriteAtomic(dataFile_, Json::writeString(writer, root), 0660, &openFailed)) {
        if (openFailed) {
            SOH_LOGE("asw open asw data file failed\n");
        } else {
            SOH_LOGE("asw save data to file failed\n");
        }
        return false;
    }
    SOH_LOGI("asw save data to file success\n");
    return true;
}

Json::Value AswBattery::Serialize(const AswDataObject& object) {
    Json::Value element = object.GetData();
    element["SwellTimes"] = object.GetTimeTable().Table();
    return element;
}
