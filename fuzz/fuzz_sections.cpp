#include "fuzz/fuzz_sections.h"

#include <fcntl.h>
#include <unistd.h>

#include <initializer_list>
#include <memory>

#include "asw/asw_battery.h"
#include "asw/asw_common.h"
#include "asw/asw_policy_factory.h"
#include "asw/asw_scene.h"
#include "asw/asw_table.h"
#include "basp/basp_battery.h"
#include "core/soh_algo_para.h"
#include "core/soh_estimator.h"
#include "cvt/cvt_battery.h"
#include "cvt/cvt_nodes.h"
#include "eis/eis_estimator.h"
#include "fuzz/fuzz_device.h"

namespace FuzzSections {
namespace {

constexpr const char* kAcrNode = "/sys/devices/platform/vorlan_batt_soh/eis/acr_info";
constexpr const char* kDcrNode = "/sys/devices/platform/vorlan_batt_soh/eis/dcr_info";
constexpr int64_t kDay = 86400;

template <typename T>
std::string Bytes(const T& value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof(value));
}

BaspBattery::BatteryAgingData AgingRecord(uint32_t cycles, std::initializer_list<uint32_t> fccs) {
    BaspBattery::BatteryAgingData d{};
    d.designFcc = 4500;
    d.cycleCount = cycles;
    d.fccCount = static_cast<uint32_t>(fccs.size());
    uint32_t i = 0;
    for (uint32_t f : fccs) {
        d.fccs[i++] = f;
    }
    return d;
}

// An estimator with no thread of its own, to hold the protectors a section names.
class ScratchEstimator : public SOHEstimator {
public:
    using SOHEstimator::SOHEstimator;
    void StartMonitor() override {}
    using SOHEstimator::GetProtector;
};

// A week of accounting on the given axes: long enough for a scene selection, mostly on the
// charger, with time in a high-voltage, warm bin.
std::unique_ptr<AswDataObject> Week(const Json::Value& x, const Json::Value& y) {
    Json::Value data(Json::objectValue);
    data["Tstart"] = Json::UInt(FuzzDevice::kStartSeconds - 7 * kDay);
    data["Tend"] = Json::UInt(FuzzDevice::kStartSeconds);
    data["Tstat"] = Json::UInt(7 * kDay - 1);
    data["Tusb_in"] = Json::UInt(5 * kDay);
    data["Tsim_in"] = Json::UInt(4 * kDay);
    data["Taction"] = Json::UInt(kDay);
    data["CycStart"] = 100;
    data["CycEnd"] = 120;
    data["Sim"] = 1;
    AswTable times(x, y);
    times(Json::Value(4420u), Json::Value(30u)) = Json::UInt(3 * kDay);
    return AswPolicyFactory::CreateDataInstance("Day", std::move(times), std::move(data));
}

const Json::Value& SampleAxis(const char* name) {
    const Json::Value& asw = FuzzDevice::SampleSection("ASW");
    const Json::Value& table = asw.isObject() ? asw["SwellTable_QBT41"] : asw;
    return table.isObject() ? table[name] : Json::Value::nullSingleton();
}

void Scenes(const Json::Value& scenes) {
    auto week = Week(SampleAxis("Vbat"), SampleAxis("Temp"));
    auto addup = Week(SampleAxis("Vbat"), SampleAxis("Temp"));
    AswPolicyFactory::SelectScene(scenes, *week, *addup);
    for (const Json::Value& config : scenes) {
        AswScene scene(config);
        if (scene.Init(config) != 0) {
            continue;
        }
        scene.Entry(*week, *addup);
        scene.GetProtectEnable();
        scene.Exit(*week, *addup);
        scene.SetEffectConditon(1);
        scene.GetProtectEnable();
    }
}

void SwellTable(const Json::Value& table) {
    AswTable swell(table["Vbat"], table["Temp"], table["Table"]);
    if (!swell.IsLegal()) {
        return;
    }
    auto period = Week(swell.X(), swell.Y());
    period->Update(4420, 30, true, true, false, swell);  // the first update only prepares
    FuzzDevice::SetTime(30);
    period->Update(4420, 30, true, true, true, swell);
    FuzzDevice::SetTime();
    period->SetThreshold(4300, 35);
    for (const char* key : {"Aswell", "Pvbat_ov", "Ptbat_ot", "Pusb_in", "Psim_in"}) {
        (*period)[key];
    }
    AswTable sum(swell);
    sum += period->GetTimeTable();
    (void)(sum * swell);
    sum.AccumulateX(Json::Value(4300u));
    sum.AccumulateY(Json::Value(35u));
}

}  // namespace

void Setup() {
    AcrRaw acr{310, 143, 27, 41, 30, 4200};
    DcrRaw dcr{120, 95, 143, 27, 4150};
    FuzzDevice::Write(kAcrNode, Bytes(acr));
    FuzzDevice::Write(kDcrNode, Bytes(dcr));
}

void Basp(const Json::Value& section) {
    if (!section.isObject() || !section["Battery"].isArray()) {
        return;
    }
    for (const Json::Value& entry : section["Battery"]) {
        if (!entry.isObject() || !entry["Name"].isString()) {
            continue;
        }
        BaspBattery battery(entry["Name"].asString());
        const bool ready = battery.Init(section, entry) == 0;
        if (ready) {
            battery.Update(AgingRecord(150, {4400, 4390, 4380}));
            battery.Update(AgingRecord(1500, {3500, 3450, 3400, 3380, 3300}));
            battery.GetPolicy();
        }
        FuzzDevice::Remove(battery.Herald().Path());
        if (ready) {
            break;
        }
    }
}

void Asw(const Json::Value& section) {
    if (!section.isObject()) {
        return;
    }
    const Json::Value& batteries = section["Battery"];
    for (const Json::Value& entry : batteries.isArray() ? batteries : Json::Value()) {
        const bool named = entry.isObject() && entry["Name"].isString();
        const std::string file = named ? Asw::GetDataFile(entry["Name"].asString()) : "";
        if (named) {
            FuzzDevice::Remove(file);
        }
        AswBattery battery(section, entry);
        const bool ready = battery.Init(true) == 0;
        if (ready) {
            battery.Update();
            FuzzDevice::SetTime(120);  // across midnight: the day closes
            battery.Update();
            FuzzDevice::SetTime();
            battery.GetDcVoltDec();
            battery.GetCutoffSoc();
            battery.GetSceneProtectEnable();
        }
        if (named) {
            FuzzDevice::Remove(file);
        }
        if (ready) {
            break;
        }
    }
    for (const std::string& key : section.getMemberNames()) {
        const Json::Value& member = section[key];
        if (member.isArray()) {
            Scenes(member);
        } else if (member.isObject()) {
            SwellTable(member);
        }
    }
}

void Cvt(const Json::Value& section) {
    const Json::Value& batteries =
        section.isObject() ? section["Battery"] : Json::Value::nullSingleton();
    if (!batteries.isArray()) {
        return;
    }
    for (const Json::Value& entry : batteries) {
        if (!entry.isObject() || !entry["Name"].isString()) {
            return;  // the estimator refuses the whole list
        }
    }
    for (const Json::Value& entry : batteries) {
        FuzzDevice::Remove(CvtNodes::kCvtFile);
        CvtBattery battery;
        if (!battery.Init(entry)) {
            continue;
        }
        for (int temp : {-40, 0, 10, 25, 33, 45, 80}) {
            battery.CvtTempAdjust(1800, temp);
        }
        battery.HandleChargeTimeData(1800.0);
        battery.Data().CvtSwellJudge(1000, 4000, 4500);
        break;
    }
    FuzzDevice::Remove(CvtNodes::kCvtFile);
}

void Eis(const Json::Value& section) {
    // A name without a section of its own: the constructor finds nothing, and the fuzzed
    // section is applied exactly as the constructor applies the configured one.
    EISEstimator eis("EIS_FUZZ");
    eis.InitMonitors(section.isObject() ? section["Monitors"] : Json::Value());
    eis.InitParas(section.isObject() ? section["Parameters"] : Json::Value());
    for (const auto& node :
         {std::make_pair(kAcrNode, PROCESSOR_ACR), std::make_pair(kDcrNode, PROCESSOR_DCR)}) {
        int fd = open(FuzzDevice::HostPath(node.first).c_str(), O_RDONLY | O_CLOEXEC);
        std::unique_ptr<EisInfo> info = EISEstimator::MakeInfo(node.second);
        if (fd >= 0 && info != nullptr) {
            eis.Processor(true, fd, *info);
        }
        if (fd >= 0) {
            close(fd);
        }
    }
    FuzzDevice::ForgetAppends();
}

void Common(const std::string& name, const Json::Value& section) {
    const Json::Value& config =
        section.isObject() && section["Common"].isObject() ? section["Common"] : section;
    ScratchEstimator estimator("FUZZ_" + name);
    const Json::Value& protectors =
        section.isObject() ? section["Protectors"] : Json::Value::nullSingleton();
    for (const Json::Value& item : protectors.isArray() ? protectors : Json::Value()) {
        if (!item.isString()) {
            continue;
        }
        if (SOHProtector* p = ProtectorPool().GetObjectByName(item.asString())) {
            estimator.RegisterSafeProtector(p);
            estimator.GetLimitValue(p);
            estimator.GetProtector(item.asString());
        }
    }
    SohAlgoPara paras;
    paras.AddConfig(config, name);
    for (const std::string& group :
         config.isObject() ? config.getMemberNames() : std::vector<std::string>()) {
        paras.Print2Log(group, "  ");
        int value = 0;
        unsigned positive = 0;
        const Json::Value& members = config[group];
        for (const std::string& key :
             members.isObject() ? members.getMemberNames() : std::vector<std::string>()) {
            paras.GetPara(group, key, value);
            paras.GetPara(group, key, positive);
        }
        paras.GetOutParas(group)->Print2Log(group, "  ");
    }
}

void All(const Json::Value& estimators) {
    if (!estimators.isObject()) {
        return;
    }
    for (const std::string& name : estimators.getMemberNames()) {
        const Json::Value& section = estimators[name];
        Common(name, section);
        if (name == "BASP") {
            Basp(section);
        } else if (name == "ASW") {
            Asw(section);
        } else if (name == "CVT") {
            Cvt(section);
        } else if (name == "EIS") {
            Eis(section);
        }
    }
}

}  // namespace FuzzSections
