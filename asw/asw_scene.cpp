#include "asw/asw_scene.h"

#include "asw/asw_common.h"
#include "asw/extra_j_value.h"
#include "core/soh_log.h"

namespace {

// A number for a log line; 0 for anything that is not a number.
double LogNumber(const Json::Value& v) {
    return ExtraJValue::IsNumeric(v) ? v.asDouble() : 0.0;
}

// Object type 0 selects the week object; anything else the history object.
bool IsWeekObject(const Json::Value& objType) {
    return objType.isUInt() && objType.asUInt() == 0;
}

}  // namespace

AswScene::AswScene(const Json::Value& config) {
    if (config.isObject()) {
        condition_ = config["Condtion"];
    }
}

bool AswScene::InitBasicInfo(const Json::Value& config) {
    if (config["Name"].isString()) {
        name_ = config["Name"].asString();
    }
    bool ok = true;
    struct Field {
        const char* key;
        uint32_t* value;
    };
    for (const Field& f : {Field{"No", &no_}, Field{"DmdNo", &dmdNo_}}) {
        const Json::Value& v = config[f.key];
        if (v.isUInt()) {
            *f.value = v.asUInt();
        } else {
            SOH_LOGE("asw scene %s configure error\n", f.key);
            ok = false;
        }
    }
    // Optional limits: a missing (or non-unsigned) key keeps its default.
    for (const Field& f : {Field{"DcVoltDec", &dcVoltDec_}, Field{"NoDcVoltDec", &noDcVoltDec_},
                           Field{"CutoffSoc", &cutoffSoc_}, Field{"RestoreSoc", &restoreSoc_},
                           Field{"VbatLlimit", &vbatLlimit_}, Field{"TbatLlimit", &tbatLlimit_}}) {
        const Json::Value& v = config[f.key];
        if (v.isUInt()) {
            *f.value = v.asUInt();
        } else {
            SOH_LOGI("asw scene %s configure is not exist\n", f.key);
        }
    }
    return ok;
}

uint32_t AswScene::Init(const Json::Value& config) {
    if (!config.isObject() || !InitBasicInfo(config)) {
        return Asw::kFail;
    }
    const Json::Value& groups = config["Condtion"];
    if (!groups.isArray()) {
        SOH_LOGE("asw scene conditions is not array\n");
        return Asw::kFail;
    }
    for (const Json::Value& group : groups) {
        if (!CheckGroup(group)) {
            SOH_LOGE("asw scene conditions configure error\n");
            return Asw::kFail;
        }
    }
    condition_ = groups;
    return 0;
}

bool AswScene::CheckGroup(const Json::Value& group) const {
    if (!group.isObject()) {
        SOH_LOGE("asw scene condition group type is %d\n", static_cast<int>(group.type()));
        return false;
    }
    if (!group["GroupNo"].isUInt()) {
        SOH_LOGE("asw scene condition group no configure error\n");
        return false;
    }
    if (!group["EntryObjType"].isUInt()) {
        SOH_LOGE("asw scene condition group entry obj type error\n");
        return false;
    }
    if (!group["ExitObjType"].isUInt()) {
        SOH_LOGE("asw scene condition group exit obj type error\n");
        return false;
    }
    if (!CheckCondition(group["Entry"])) {
        SOH_LOGE("asw scene condition entry group configure error\n");
        return false;
    }
    if (!CheckExit(group["Exit"])) {
        SOH_LOGE("asw scene condition exit group configure error\n");
        return false;
    }
    return true;
}

bool AswScene::CheckCondition(const Json::Value& condition) const {
    if (!condition.isObject()) {
        SOH_LOGE("asw scene condition type is %d\n", static_cast<int>(condition.type()));
        return false;
    }
    for (const Json::Value& item : condition) {
        if (ExtraJValue::IsNumeric(item)) {
            continue;
        }
        if (!item.isArray() || item.size() != 2) {
            SOH_LOGE("asw scene condition item type is %d\n", static_cast<int>(item.type()));
            return false;
        }
        for (const Json::Value& bound : item) {
            if (!ExtraJValue::IsNumeric(bound)) {
                SOH_LOGE("asw scene condition item list type is %d\n",
                         static_cast<int>(bound.type()));
                return false;
            }
        }
        if (ExtraJValue(item[1]) < ExtraJValue(item[0])) {
            SOH_LOGE("asw scene condition item value configure error\n");
            return false;
        }
    }
    return true;
}

bool AswScene::CheckExit(const Json::Value& exit) const {
    if (exit.isNull()) {
        return true;
    }
    if (!exit.isArray()) {
        SOH_LOGE("asw scene condition exit group type error\n");
        return false;
    }
    for (const Json::Value& condition : exit) {
        if (!CheckCondition(condition)) {
            return false;
        }
    }
    return true;
}

bool AswScene::MatchConditionItem(const Json::Value& value, const Json::Value& item) const {
    if (value.isNull()) {
        SOH_LOGE("asw value is null\n");
        return false;
    }
    if (ExtraJValue::IsNumeric(item)) {
        SOH_LOGI("asw scene %s condition %f value %f\n", name_.c_str(), item.asDouble(),
                 LogNumber(value));
        return ExtraJValue(item) == ExtraJValue(value);
    }
    if (item.isArray() && item.size() == 2) {
        const Json::Value& lo = item[0];
        const Json::Value& hi = item[1];
        SOH_LOGI("asw scene %s condition [%f,%f] value %f\n", name_.c_str(), LogNumber(lo),
                 LogNumber(hi), LogNumber(value));
        ExtraJValue v(value);
        if (ExtraJValue(lo) == ExtraJValue(Json::Value(Json::Int(0)))) {
            // A range starting at 0 includes 0 itself.
            if (v < ExtraJValue(lo)) {
                return false;
            }
        } else if (!(ExtraJValue(lo) < v)) {
            return false;
        }
        return !(ExtraJValue(hi) < v);
    }
    SOH_LOGE("asw condition item configure error\n");
    return false;
}

bool AswScene::MatchAll(const AswDataObject& object, const Json::Value& condition,
                        bool stopAtFirstFailure) const {
    bool all = true;
    for (const std::string& key : condition.getMemberNames()) {
        if (!MatchConditionItem(object[key], condition[key])) {
            all = false;
            if (stopAtFirstFailure) {
                break;
            }
        }
    }
    return all;
}

void AswScene::CopyThresholds(AswDataObject& week, AswDataObject& addup) const {
    week.SetThreshold(vbatLlimit_, tbatLlimit_);
    addup.SetThreshold(vbatLlimit_, tbatLlimit_);
}

bool AswScene::Entry(AswDataObject& week, AswDataObject& addup) {
    if (!condition_.isArray()) {
        return false;
    }
    CopyThresholds(week, addup);
    for (const Json::Value& group : condition_) {
        if (!group.isObject() || !group["Entry"].isObject() || !group["GroupNo"].isUInt()) {
            SOH_LOGE("asw group condition configure error\n");
            continue;
        }
        AswDataObject& object = IsWeekObject(group["EntryObjType"]) ? week : addup;
        if (MatchAll(object, group["Entry"], false)) {
            effectGroup_ = group["GroupNo"].asUInt();
            return true;
        }
    }
    effectGroup_ = 0;
    return false;
}

bool AswScene::Exit(AswDataObject& week, AswDataObject& addup) {
    if (!condition_.isArray()) {
        return false;
    }
    CopyThresholds(week, addup);
    const Json::Value* group = FindGroup(effectGroup_);
    if (group == nullptr) {
        return false;
    }
    const Json::Value& exits = (*group)["Exit"];
    if (exits.isNull()) {
        return false;
    }
    if (!exits.isArray()) {
        SOH_LOGE("asw exit condition configure error\n");
        return false;
    }
    AswDataObject& object = IsWeekObject((*group)["ExitObjType"]) ? week : addup;
    for (const Json::Value& exit : exits) {
        if (exit.isObject() && MatchAll(object, exit, true)) {
            effectGroup_ = 0;
            return true;
        }
    }
    return false;
}

const Json::Value* AswScene::FindGroup(uint32_t groupNo) const {
    if (!condition_.isArray()) {
        return nullptr;
    }
    for (const Json::Value& group : condition_) {
        if (group.isObject() && group["GroupNo"].isUInt() && group["GroupNo"].asUInt() == groupNo) {
            return &group;
        }
    }
    return nullptr;
}

uint32_t AswScene::SetEffectConditon(uint32_t groupNo) {
    if (FindGroup(groupNo) == nullptr) {
        return Asw::kFail;
    }
    effectGroup_ = groupNo;
    return 0;
}

bool AswScene::GetProtectEnable() const {
    const Json::Value* group = FindGroup(effectGroup_);
    if (group == nullptr) {
        return false;
    }
    const Json::Value& enable = (*group)["ProtectEnable"];
    return enable.isUInt() && enable.asUInt() != 0;
}
