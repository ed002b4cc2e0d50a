#include "asw/asw_battery.h"

#include <bms_interface.h>
#include <time.h>

#include <chrono>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "asw/asw_old.h"
#include "asw/asw_policy_factory.h"
#include "core/soh_big_data.h"
#include "core/soh_configure.h"
#include "core/soh_enviroment.h"
#include "core/soh_file.h"
#include "core/soh_json.h"
#include "core/soh_log.h"
#include "core/soh_week_swell.h"

namespace {

const Json::Value& Member(const Json::Value& object, const char* key) {
    static const Json::Value& kNull = *new Json::Value;  // never destroyed: detached threads may
                                                         // still use it while the process exits
    return object.isObject() ? object[key] : kNull;
}

// A stored instant as seconds; false when it is not an integer.
bool AsSeconds(const Json::Value& v, int64_t& out) {
    if (!v.isInt64()) {
        return false;
    }
    out = v.asInt64();
    return true;
}

// A fraction of a percentage quantity; -1 when it could not be computed.
float Fraction(const Json::Value& percent) {
    return percent.isNumeric() ? static_cast<float>(percent.asDouble() / 100.0) : -1.0f;
}

int ClampInt(const Json::Value& v) {
    if (!v.isNumeric()) {
        return 0;
    }
    double d = v.asDouble();
    if (d >= static_cast<double>(INT_MAX)) {
        return INT_MAX;
    }
    if (d <= static_cast<double>(INT_MIN)) {
        return INT_MIN;
    }
    return static_cast<int>(d);
}

bool FormatLocal(const Json::Value& v, std::string& out) {
    int64_t seconds = 0;
    if (!AsSeconds(v, seconds)) {
        return false;
    }
    time_t t = static_cast<time_t>(seconds);
    struct tm tm {};
    char buf[32];
    if (localtime_r(&t, &tm) == nullptr ||
        strftime(buf, sizeof(buf), "%Y-%m-%d %H:%M:%S", &tm) == 0) {
        return false;
    }
    out = buf;
    return true;
}

}  // namespace

AswBattery::AswBattery(const Json::Value& config, const Json::Value& battery)
    : config_(config), battery_(battery), lastSave_(Asw::Now()) {}

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
    if (!battery_["NormalSceneDmdNo"].isUInt()) {
        SOH_LOGE("asw battery not configure normal scene dmd no\n");
        return Asw::kFail;
    }
    normalDmdNo_ = battery_["NormalSceneDmdNo"].asUInt();
    dataFile_ = Asw::GetDataFile(battery_["Name"].asString());
    CreateDataObjects();
    if (addup_ == nullptr || today_ == nullptr) {
        return Asw::kFail;
    }
    addup_->SetSupportSim(simSupport_);
    today_->SetSupportSim(simSupport_);
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
    const Json::Value& table = Member(config_, tableName_.c_str());
    swellTable_ = std::make_unique<AswTable>(Member(table, "Vbat"), Member(table, "Temp"),
                                             Member(table, "Table"));
    if (Member(table, "Table").isNull() || !swellTable_->IsLegal()) {
        SOH_LOGE("asw battery swelltable is not legal\n");
        return false;
    }
    return true;
}

void AswBattery::CreateDataObjects() {
    if (SOHEnviroment::IsBatteryChanged()) {
        SOH_LOGE("battery changed clear ASW record\n");
        AswOld::Remove();
        SohFile::Remove(dataFile_);
        CreateWithoutHistory();
    } else if (!SohFile::Exists(dataFile_)) {
        CreateWithoutHistory();
        double old = AswOld::GetAswell();
        SOH_LOGI("asw old aswell is %.5f\n", old);
        if (addup_ != nullptr) {
            addup_->SetOldAswell(old);
        }
    } else {
        LoadDataFile();
    }
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

std::unique_ptr<AswDataObject> AswBattery::NewDay() const {
    auto day = AswPolicyFactory::CreateDataInstance("Day", swellTable_->X(), swellTable_->Y());
    if (day != nullptr) {
        day->SetSupportSim(simSupport_);
    }
    return day;
}

// Any fault of the file falls back to fresh objects (the file's counters are lost, the
// accounting goes on); the file is replaced at the next save.
void AswBattery::LoadDataFile() {
    std::string text;
    Json::Value root;
    if (!SohFile::ReadAll(dataFile_, text)) {
        SOH_LOGE("open asw data file failed\n");
        CreateWithoutHistory();
        return;
    }
    if (!SohJson::Parse(text, root)) {
        SOH_LOGE("read asw data file failed\n");
        CreateWithoutHistory();
        return;
    }
    if (!root.isObject()) {
        SOH_LOGE("asw data is empty\n");
        CreateWithoutHistory();
        return;
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
        const Json::Value& days = root["Day"];
        bool daysOk = days.isArray() && !days.empty();
        if (!days.isArray()) {
            SOH_LOGE("asw day data object type is not array\n");
        }
        for (Json::ArrayIndex i = 0; daysOk && i < days.size(); ++i) {
            if (!days[i].isObject()) {
                SOH_LOGE("asw day data object item type is not object\n");
                daysOk = false;
            }
        }
        if (daysOk) {
            today_ = LoadObject(days[days.size() - 1], x, y);
        }
        if (today_ == nullptr) {
            SOH_LOGE("asw day data object create failed\n");
            today_ = NewDay();  // the history is kept, the days start again
            daysOk = false;
        }
        for (Json::ArrayIndex i = 0; daysOk && i + 1 < days.size(); ++i) {
            closedDays_.append(days[i]);
        }
        while (closedDays_.size() > kWeekDays) {
            Json::Value dropped;
            closedDays_.removeIndex(0, &dropped);
        }
        if (closedDays_.size() >= kWeekDays) {
            BuildWeek();
        }
    }
    CreateActiveScene(root["ConditonGroupNo"]);
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

void AswBattery::BuildWeek() {
    week_ = LoadObject(closedDays_[0], swellTable_->X(), swellTable_->Y());
    for (Json::ArrayIndex i = 1; week_ != nullptr && i < kWeekDays; ++i) {
        auto day = LoadObject(closedDays_[i], swellTable_->X(), swellTable_->Y());
        if (day != nullptr) {
            *week_ += *day;
        }
    }
    if (week_ == nullptr) {
        return;
    }
    UpdateObj(*week_, ReadSample());
    Json::Value swell = (*week_)["Aswell"];
    WeekSwell().store(swell.isNumeric() ? swell.asDouble() : 0.0, std::memory_order_seq_cst);
}

void AswBattery::CreateActiveScene(const Json::Value& groupNo) {
    const Json::Value& scenes = Member(config_, policyName_.c_str());
    if (!scenes.isArray()) {
        SOH_LOGE("asw scene configure is null\n");
        return;
    }
    for (const Json::Value& config : scenes) {
        std::unique_ptr<AswScene> scene = AswPolicyFactory::CreateSceneInstance("AswScene", config);
        if (scene == nullptr) {
            SOH_LOGE("create scene instance failed\n");
            return;
        }
        if (scene->Init(config) != 0) {
            return;  // a faulty scene list: no scene is restored
        }
        if (sceneNo_ != 0 && scene->GetNo() == sceneNo_) {
            scene_ = std::move(scene);
            break;
        }
    }
    if (scene_ != nullptr && groupNo.isUInt()) {
        scene_->SetEffectConditon(groupNo.asUInt());
    }
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
    Sample s;
    s.vbatMv = Asw::ReadDeviceStrToT<unsigned>(AswNodes::kBatteryVoltageNow) / 1000;
    // Tenths of a degree to whole degrees, truncated; a negative temperature is passed on as
    // a large unsigned number and so counted in the top row (a failed read likewise).
    float deci = Asw::ReadDeviceStrToT<float>(AswNodes::kBatteryTemp) / 10.0f;
    int32_t temp = 0;
    if (deci >= 2147483647.0f) {
        temp = INT32_MAX;
    } else if (deci <= -2147483648.0f) {
        temp = INT32_MIN;
    } else if (!std::isnan(deci)) {
        temp = static_cast<int32_t>(deci);
    }
    s.tempC = static_cast<unsigned>(temp);
    s.usbIn = Asw::ReadDeviceStrToT<unsigned>(AswNodes::kChargerType) != kNoCharger;
    s.simIn = Asw::IsSimPlugIn();
    s.cycles = Asw::ReadDeviceStrToT<int>(AswNodes::kBatteryCycleCount);
    return s;
}

void AswBattery::UpdateObj(AswDataObject& object, const Sample& sample) {
    object.Update(sample.vbatMv, sample.tempC, sample.usbIn, sample.simIn, sceneNo_ != 0,
                  sample.cycles, *swellTable_);
}

void AswBattery::TryUpdateScene() {
    int64_t start = 0;
    int64_t end = 0;
    bool dayChanged = AsSeconds((*today_)["Tstart"], start) && AsSeconds((*today_)["Tend"], end) &&
                      !Asw::IsSameDay(start, end);
    if (dayChanged) {
        OverDay();
    }
    if (week_ == nullptr) {
        return;
    }
    if (dayChanged) {
        scene_ =
            AswPolicyFactory::SelectScene(Member(config_, policyName_.c_str()), *week_, *addup_);
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

void AswBattery::OverDay() {
    while (closedDays_.size() >= kWeekDays) {
        Json::Value dropped;
        closedDays_.removeIndex(0, &dropped);
    }
    closedDays_.append(Serialize(*today_));
    if (closedDays_.size() >= kWeekDays) {
        BuildWeek();
    }
    std::unique_ptr<AswDataObject> day = NewDay();
    if (day == nullptr) {
        SOH_LOGE("asw current day data object create failed in overy day\n");
    } else {
        UpdateObj(*day, ReadSample());
        today_ = std::move(day);
    }
    SaveDataToFile();
    lastSave_ = Asw::Now();
}

void AswBattery::TryReportBigData() {
    uint32_t now = NowSeconds();
    if (now < tReport_) {
        tReport_ = now;
    } else if (now - tReport_ >= kReportIntervalSeconds && !BmsPropertyIsChargerMode()) {
        SendReports();
    }
}

void AswBattery::SendReports() {
    ReportWeek();
    ReportAddup();
    tReport_ = NowSeconds();
}

void AswBattery::ReportWeek() {
    SOHBigData event(kWeekEvent);
    if (!event.Available()) {
        SOH_LOGE("create client for asw event failed\n");
        return;
    }
    event.Set("SIM_IN", Fraction((*week_)["Psim_in"]));
    event.Set("HIGHV", Fraction((*week_)["Pvbat_ov"]));
    event.Set("S_SIM", static_cast<int>(simSupport_));
    event.Set("PARA_VERSION", policyName_.c_str());
    event.Set("USER_SET", (SOHConfigure::GetProtectMark() || GetSceneProtectEnable()) ? 1 : 0);
    SetUniverBigData(event, *week_);
    event.Send();
}

void AswBattery::ReportAddup() {
    SOHBigData event(kAddupEvent);
    if (!event.Available()) {
        SOH_LOGE("create client for asw event failed\n");
        return;
    }
    event.Set("STARTCYCLE", ClampInt((*addup_)["CycStart"]));
    event.Set("ENDCYCLE", ClampInt((*addup_)["CycEnd"]));
    event.Set("PARA_VERSION", policyName_.c_str());
    event.Set("USER_SET", (SOHConfigure::GetProtectMark() || GetSceneProtectEnable()) ? 1 : 0);
    SetUniverBigData(event, *addup_);
    event.Send();
}

void AswBattery::SetUniverBigData(SOHBigData& event, const AswDataObject& object) const {
    std::string start;
    std::string end;
    if (FormatLocal(object["Tstart"], start) && FormatLocal(object["Tend"], end)) {
        event.Set("STARTTIME", start.c_str());
        event.Set("ENDTIME", end.c_str());
    } else {
        SOH_LOGE("asw convert time_t to string failed\n");
    }
    char name[SOHEnviroment::kBatteryNameSize] = {0};
    if (SOHEnviroment::GetBatteryType(name, sizeof(name))) {
        event.Set("BATTNAME", name);
    } else {
        SOH_LOGE("asw read battery name error\n");
    }
    SetBigDataTswell(event, object);
    event.Set("CHAREIGN", Fraction(object["Pusb_in"]));
    event.Set("RECOGSCENE", static_cast<int>(sceneNo_));
    Json::Value action = object["Taction"];
    event.Set("PROTT", action.isNumeric() ? ClampInt(Json::Value(action.asDouble() / 86400.0)) : 0);
    Json::Value swell = object["Aswell"];
    event.Set("SWELP", swell.isNumeric() ? static_cast<float>(swell.asDouble()) : 0.0f);
}

void AswBattery::SetBigDataTswell(SOHBigData& event, const AswDataObject& object) const {
    const Json::Value& table = object.GetTimeTable().Table();
    std::vector<int> cells;
    int rows = 0;
    int columns = 0;
    if (object.GetTimeTable().IsLegal()) {
        rows = static_cast<int>(table.size());
        columns = static_cast<int>(table[0].size());
        for (const Json::Value& row : table) {
            for (const Json::Value& cell : row) {
                cells.push_back(ClampInt(cell));
            }
        }
    }
    event.Set("TSWELL", cells.data(), static_cast<unsigned>(cells.size()));
    const int shape[] = {rows, columns};
    event.Set("TSWELL_SHAPE", shape, 2);
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
