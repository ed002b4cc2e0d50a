#include "check/check_estimators.h"

#include <memory>
#include <set>

#include "asw/asw_battery.h"
#include "asw/asw_scene.h"
#include "basp/basp_battery.h"
#include "check/log_capture.h"
#include "core/soh_enviroment.h"
#include "core/soh_estimator.h"
#include "core/soh_protector.h"
#include "cvt/cvt_battery.h"
#include "eis/eis_estimator.h"

namespace {

constexpr const char* kMatchKeys[] = {"Product", "Country", "Model"};

const Json::Value* Member(const Json::Value& v, const char* key) {
    return v.isObject() && v.isMember(key) ? &v[key] : nullptr;
}

// The entry without its device-matching keys: validation must not depend on the device.
Json::Value Unmatched(const Json::Value& entry) {
    Json::Value copy = entry;
    for (const char* key : kMatchKeys) {
        copy.removeMember(key);
    }
    return copy;
}

void CheckMatchKeys(const Json::Value& entry, const std::string& base, LogCapture& capture,
                    Findings& findings) {
    for (const char* key : kMatchKeys) {
        const Json::Value* v = Member(entry, key);
        if (v == nullptr) {
            continue;
        }
        capture.Take();
        // The matcher's own type rule; the predicate keeps the device out of it.
        bool ok = SOHEnviroment::MatchCfg(*v, [](const std::string&) { return true; });
        findings.FromParser(ok, CheckPath::Key(base, key), *v, capture.Take(), {},
                            "a string: a comma-separated list, or all");
    }
}

// Walks a "Battery" array; `each` validates one entry (an object) at its path.
template <typename Each>
void ForEachBattery(const Json::Value& slice, const std::string& base, LogCapture& capture,
                    Findings& findings, Each each) {
    const Json::Value* batteries = Member(slice, "Battery");
    const std::string path = CheckPath::Key(base, "Battery");
    if (batteries == nullptr || !batteries->isArray()) {
        findings.Add(path, "an array of battery entries", batteries);
        return;
    }
    for (Json::ArrayIndex i = 0; i < batteries->size(); ++i) {
        const Json::Value& entry = (*batteries)[i];
        const std::string at = CheckPath::Index(path, i);
        if (!entry.isObject()) {
            findings.Add(at, "a battery entry (object)", &entry);
            continue;
        }
        CheckMatchKeys(entry, at, capture, findings);
        each(entry, at);
    }
}

// ---- BASP ----

const std::vector<MessageRule> kBaspBatteryRules = {
    {"basp battery not config IChargerMax", "IChargerMax", "an unsigned integer (mA)"},
    {"battery policy config error", "BaspPolicy", "a string naming the stage array"},
    {"basp compatible version is empty", "BaspPolicy", "a non-empty stage array name"},
    {"basp version (-?[0-9]+) is not compatible", "BaspPolicy",
     "a stage array name starting with 2 (the stage format)"},
    {"basp battery not config ndcDefautStep", "ndcDefautStep", "an unsigned integer (mV)"},
    {"basp ndcVtermStep not in ndcVtermSteps", "ndcVtermSteps",
     "an array of unsigned integers that holds ndcDefautStep"},
};

const std::vector<MessageRule> kBaspStageRules = {
    {"get int value for WeekAswell failed", nullptr, nullptr},
    {"basp weekAswell not config", nullptr, nullptr},
    {"get int value for (\\w+) failed", "$1", "an unsigned integer"},
    {"nonDcVoltDec configure is invalid", "NonDcVoltDec",
     "an array of unsigned integers (mV), one per ndcVtermSteps entry"},
    {"basp weekAswell not config", "WeekAswell", "an unsigned integer"},
};

void CheckBasp(const Json::Value& slice, const std::string& base, Findings& findings) {
    LogCapture capture;
    std::set<std::string> checkedPolicies;
    ForEachBattery(
        slice, base, capture, findings, [&](const Json::Value& entry, const std::string& at) {
            const Json::Value stripped = Unmatched(entry);
            const Json::Value* policy = Member(entry, "BaspPolicy");
            const std::string policyName =
                policy != nullptr && policy->isString() ? policy->asString() : std::string();
            // The entry's own keys, with its stage array emptied (stages are checked one by one).
            Json::Value root = slice;
            if (!policyName.empty() && root[policyName].isArray()) {
                root[policyName] = Json::Value(Json::arrayValue);
            }
            capture.Take();
            const bool ok = BaspBattery("check").Init(root, stripped) == 0;
            std::vector<std::string> messages = capture.Take();
            bool stageArrayMissing = false;
            for (const std::string& m : messages) {
                stageArrayMissing = stageArrayMissing || m == "policy configure is null";
            }
            findings.FromParser(ok || stageArrayMissing, at, entry, messages, kBaspBatteryRules,
                                "a usable battery entry");
            if (stageArrayMissing) {
                findings.Add(CheckPath::Key(base, policyName),
                             "an array of stages (named by " + at + ".BaspPolicy)",
                             Member(slice, policyName.c_str()));
                return;
            }
            if (policyName.empty() || !checkedPolicies.insert(policyName).second ||
                !slice[policyName].isArray()) {
                return;
            }
            const Json::Value& stages = slice[policyName];
            const std::string stagesPath = CheckPath::Key(base, policyName);
            for (Json::ArrayIndex j = 0; j < stages.size(); ++j) {
                BaspBattery battery("check");
                capture.Take();
                if (battery.InitNdcVstep(stripped) != 0) {
                    return;  // reported above; stages cannot be read without the step
                }
                Json::Value one(Json::arrayValue);
                one.append(stages[j]);
                capture.Take();
                const bool stageOk = battery.InitPolicys(one) == 0;
                findings.FromParser(stageOk, CheckPath::Index(stagesPath, j), stages[j],
                                    capture.Take(), kBaspStageRules, "a stage object");
            }
        });
}

// ---- ASW ----

const std::vector<MessageRule> kAswBatteryRules = {
    {"asw battery not configure name", "Name", "a string"},
    {"asw battery not configure policy", "AswPolicy", "a string naming the scene array"},
    {"asw compatible version is empty", "AswPolicy", "a non-empty scene array name"},
    {"asw version (-?[0-9]+) is not compatible", "AswPolicy",
     "a scene array name starting with 2 or 3 (the policy version)"},
    {"asw battery not configure swelltable", "SwellTabe", "a string naming the swell table"},
    {"asw battery not configure simsupport", "SimSupport", "an unsigned integer"},
    {"asw battery not configure normal scene dmd no", "NormalSceneDmdNo", "an unsigned integer"},
};

const std::vector<MessageRule> kAswSceneRules = {
    {"asw scene (\\w+) configure error", "$1", "an unsigned integer"},
    {"asw scene conditions is not array", "Condtion", "an array of condition groups"},
};

const std::vector<MessageRule> kAswGroupRules = {
    {"asw scene condition group type is -?[0-9]+", "", "a condition group (object)"},
    {"asw scene condition group no configure error", "GroupNo", "an unsigned integer"},
    {"asw scene condition group entry obj type error", "EntryObjType", "an unsigned integer"},
    {"asw scene condition group exit obj type error", "ExitObjType", "an unsigned integer"},
    {"asw scene condition entry group configure error", "Entry",
     "an object of conditions: name -> [low, high]"},
    {"asw scene condition exit group configure error", "Exit",
     "an array of condition objects (name -> [low, high])"},
};

void CheckAswScenes(const Json::Value& slice, const std::string& base, const std::string& name,
                    const std::string& namedBy, LogCapture& capture, Findings& findings) {
    const Json::Value* scenes = Member(slice, name.c_str());
    const std::string path = CheckPath::Key(base, name);
    if (scenes == nullptr || !scenes->isArray()) {
        findings.Add(path, "an array of scenes (named by " + namedBy + ")", scenes);
        return;
    }
    for (Json::ArrayIndex j = 0; j < scenes->size(); ++j) {
        const Json::Value& scene = (*scenes)[j];
        const std::string at = CheckPath::Index(path, j);
        if (!scene.isObject()) {
            findings.Add(at, "a scene object", &scene);
            continue;
        }
        // The scene's own keys, without its groups; then each group on its own, so that a
        // fault is placed at its group.
        Json::Value bare = scene;
        const Json::Value* groups = Member(scene, "Condtion");
        if (groups != nullptr && groups->isArray()) {
            bare["Condtion"] = Json::Value(Json::arrayValue);
        }
        capture.Take();
        bool ok = AswScene(bare).Init(bare) == 0;
        findings.FromParser(ok, at, scene, capture.Take(), kAswSceneRules, "a scene object");
        if (!ok || groups == nullptr || !groups->isArray()) {
            continue;
        }
        for (Json::ArrayIndex k = 0; k < groups->size(); ++k) {
            Json::Value one = bare;
            one["Condtion"].append((*groups)[k]);
            capture.Take();
            const bool groupOk = AswScene(one).Init(one) == 0;
            std::vector<std::string> messages = capture.Take();
            // The summary line adds nothing once the cause is placed.
            std::vector<std::string> useful;
            for (const std::string& m : messages) {
                if (m != "asw scene conditions configure error") {
                    useful.push_back(m);
                }
            }
            findings.FromParser(groupOk, CheckPath::Index(CheckPath::Key(at, "Condtion"), k),
                                (*groups)[k], useful, kAswGroupRules, "a condition group");
        }
    }
}

void CheckAsw(const Json::Value& slice, const std::string& base, Findings& findings) {
    LogCapture capture;
    std::set<std::string> checkedScenes;
    ForEachBattery(
        slice, base, capture, findings, [&](const Json::Value& entry, const std::string& at) {
            const Json::Value stripped = Unmatched(entry);
            capture.Take();
            AswBattery battery(slice, stripped);
            const bool ok = battery.Init(false) == 0;
            std::vector<std::string> messages = capture.Take();
            bool tableBad = false;
            bool policyBad = false;  // then its scene array cannot be named
            for (const std::string& m : messages) {
                tableBad = tableBad || m == "asw battery swelltable is not legal";
                policyBad = policyBad || m == "asw battery not configure policy" ||
                            m == "asw compatible version is empty" ||
                            m.rfind("asw version ", 0) == 0;
            }
            findings.FromParser(ok || tableBad, at, entry, messages, kAswBatteryRules,
                                "a usable battery entry");
            if (tableBad) {
                const std::string table = entry["SwellTabe"].asString();
                findings.Add(
                    CheckPath::Key(base, table),
                    "a swell table: \"Vbat\" and \"Temp\" ascending arrays and a \"Table\" "
                    "of len(Temp)+1 rows of len(Vbat)+1 numbers",
                    Member(slice, table.c_str()), "asw battery swelltable is not legal");
            }
            const Json::Value* policy = Member(entry, "AswPolicy");
            if (!policyBad && policy != nullptr && policy->isString() &&
                checkedScenes.insert(policy->asString()).second) {
                CheckAswScenes(slice, base, policy->asString(), at + ".AswPolicy", capture,
                               findings);
            }
        });
}

// ---- CVT ----

const std::vector<MessageRule> kCvtRules = {
    {"(Ratio|Temp) not config", "TempRecoup.$1",
     "an ascending array of integers, as long as its partner in TempRecoup"},
    {"(\\w+) not config", "$1", "an integer"},
};

void CheckCvt(const Json::Value& slice, const std::string& base, Findings& findings) {
    LogCapture capture;
    ForEachBattery(
        slice, base, capture, findings, [&](const Json::Value& entry, const std::string& at) {
            capture.Take();
            CvtBattery battery;
            const bool ok = battery.Init(Unmatched(entry));
            findings.FromParser(ok, at, entry, capture.Take(), kCvtRules,
                                "non-negative ChargeCycleMax and ChargeSocMin, and TempRecoup "
                                "arrays of equal length");
        });
}

// ---- EIS ----

void CheckEis(const Json::Value& slice, const std::string& base, Findings& findings) {
    LogCapture capture;
    const Json::Value* monitors = Member(slice, "Monitors");
    const std::string path = CheckPath::Key(base, "Monitors");
    if (monitors == nullptr || !monitors->isObject()) {
        findings.Add(path, "an object: monitor name -> {node path: processor type}", monitors);
    } else {
        for (const std::string& name : monitors->getMemberNames()) {
            const Json::Value& nodes = (*monitors)[name];
            const std::string at = CheckPath::Key(path, name);
            if (!nodes.isObject()) {
                findings.Add(at, "an object: node path -> processor type", &nodes);
                continue;
            }
            for (const std::string& node : nodes.getMemberNames()) {
                const Json::Value& type = nodes[node];
                if (!type.isInt() || EISEstimator::MakeInfo(type.asInt()) == nullptr) {
                    findings.Add(CheckPath::Key(at, node), "a processor type: 0 (ACR) or 1 (DCR)",
                                 &type);
                }
            }
        }
    }
    const Json::Value* paras = Member(slice, "Parameters");
    if (paras != nullptr) {
        EISEstimator eis("EIS");
        capture.Take();
        eis.InitParas(*paras);
        std::vector<std::string> messages = capture.Take();
        findings.FromParser(messages.empty(), CheckPath::Key(base, "Parameters"), *paras, messages,
                            {}, "an object of parameter groups");
    }
}

}  // namespace

void CheckProtectors(const Json::Value& member, const std::string& base, Findings& findings) {
    const Json::Value* protectors = Member(member, "Protectors");
    if (protectors == nullptr) {
        return;
    }
    const std::string path = CheckPath::Key(base, "Protectors");
    if (!protectors->isArray()) {
        findings.Add(path, "an array of protector names", protectors);
        return;
    }
    LogCapture quiet;  // a protector logs what it restores when it is created
    for (Json::ArrayIndex i = 0; i < protectors->size(); ++i) {
        const Json::Value& p = (*protectors)[i];
        if (!p.isString() || ProtectorPool().GetObjectByName(p.asString()) == nullptr) {
            findings.Add(CheckPath::Index(path, i),
                         "a protector name: STOP_CHARGE, DcVoltLimitator, NonDcVoltLimitator, "
                         "DcCurLimitator, NonDcCurLimitator, SocLimitator or StatusLimitator",
                         &p);
        }
    }
}

void CheckEstimatorSlice(const std::string& name, const Json::Value& slice, const std::string& base,
                         Findings& findings) {
    if (name == "BASP") {
        CheckBasp(slice, base, findings);
    } else if (name == "ASW") {
        CheckAsw(slice, base, findings);
    } else if (name == "CVT") {
        CheckCvt(slice, base, findings);
    } else if (name == "EIS") {
        CheckEis(slice, base, findings);
    }
    // APP, CFSD and ISCD read nothing beyond their protectors.
}

EstimatorChoice ChooseForDevice(const std::string& name, const Json::Value& slice,
                                const std::string& base) {
    EstimatorChoice choice;
    choice.estimator = name;
    const Json::Value* batteries = Member(slice, "Battery");
    if (batteries == nullptr || !batteries->isArray()) {
        return choice;
    }
    LogCapture quiet;  // the matchers' mismatch lines are not problems
    for (Json::ArrayIndex i = 0; i < batteries->size(); ++i) {
        const Json::Value& entry = (*batteries)[i];
        if (!entry.isObject() || !SOHEnviroment::MatchProductCfg(entry["Product"]) ||
            !SOHEnviroment::MatchCountryCfg(entry["Country"]) ||
            !SOHEnviroment::MatchBatteryModelCfg(entry["Model"])) {
            continue;
        }
        choice.batteryPath = CheckPath::Index(CheckPath::Key(base, "Battery"), i);
        choice.battery = entry["Name"].isString() ? entry["Name"].asString() : "";
        for (const char* key : {"BaspPolicy", "AswPolicy", "SwellTabe"}) {
            if (entry[key].isString()) {
                choice.uses.emplace_back(key, entry[key].asString());
            }
        }
        const Json::Value* scenes =
            entry["AswPolicy"].isString() ? Member(slice, entry["AswPolicy"].asCString()) : nullptr;
        if (scenes != nullptr && scenes->isArray()) {
            std::string names;
            for (const Json::Value& scene : *scenes) {
                names += (names.empty() ? "" : ", ") +
                         (scene["Name"].isString() ? scene["Name"].asString() : "?");
            }
            choice.uses.emplace_back("scenes", names);
        }
        break;
    }
    return choice;
}
