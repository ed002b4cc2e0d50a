// AswBattery's reports: the week and history big-data events, sent at a change of scene and
// every seven days at a day close.
#include <bms_interface.h>
#include <time.h>

#include <climits>
#include <string>
#include <vector>

#include "asw/asw_battery.h"
#include "core/soh_big_data.h"
#include "core/soh_configure.h"
#include "core/soh_enviroment.h"
#include "core/soh_log.h"

namespace {

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
    if (!v.isInt64()) {
        return false;
    }
    time_t t = static_cast<time_t>(v.asInt64());
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
