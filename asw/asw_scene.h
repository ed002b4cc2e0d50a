// AswScene: one configured protection level of the anti-swelling estimator: charge limits
// and the condition groups under which the battery enters and leaves the level.
//
// Scene configuration (one element of the policy's scene array):
//   "Name" (text), "No", "DmdNo" (required unsigned), "DcVoltDec", "NoDcVoltDec" (mV, default
//   0), "CutoffSoc", "RestoreSoc" (%, default 100), "VbatLlimit" (mV), "TbatLlimit" (degC)
//   (default 4294967295), "Condtion": array of condition groups
//   {"GroupNo", "EntryObjType", "ExitObjType" (0: week object, else history object),
//    "Entry": condition object, "Exit": array of condition objects or absent,
//    "ProtectEnable": optional unsigned}.
// A condition object maps quantity names of an AswDataObject to items: a number (equal to
// it) or [lo, hi] (lo < value <= hi; with lo == 0 closed at both ends).
//
// A scene is inactive (effect group 0) until Entry finds a matching group, and active in
// that group until one of the group's exit objects matches.
//
// The scene keeps its own copy of the "Condtion" value. Used by the ASW monitor thread only.
#pragma once

#include <json/json.h>

#include <cstdint>
#include <string>

#include "asw/asw_data_object.h"

class AswScene {
public:
    explicit AswScene(const Json::Value& config);
    virtual ~AswScene() = default;

    // Checks and takes the configuration: 0, or 4294967295 on a fault (logged).
    virtual uint32_t Init(const Json::Value& config);
    // Sets both objects' thresholds, then enters through the first group whose entry
    // conditions all hold on its object; remembers that group as the effect group.
    virtual bool Entry(AswDataObject& week, AswDataObject& addup);
    // True (and effect group 0) when an exit object of the effect group fully matches.
    virtual bool Exit(AswDataObject& week, AswDataObject& addup);

    // Makes group `groupNo` the effect group: 0, or 4294967295 when no group has that number.
    uint32_t SetEffectConditon(uint32_t groupNo);
    // The effect group's "ProtectEnable" is a non-zero unsigned.
    bool GetProtectEnable() const;

    const std::string& GetName() const { return name_; }
    uint32_t GetNo() const { return no_; }
    uint32_t GetDmdNo() const { return dmdNo_; }
    uint32_t GetDcVoltDec() const { return dcVoltDec_; }
    uint32_t GetNoDcVoltDec() const { return noDcVoltDec_; }
    uint32_t GetCutoffSoc() const { return cutoffSoc_; }
    uint32_t GetRestoreSoc() const { return restoreSoc_; }
    uint32_t GetVbatLlimit() const { return vbatLlimit_; }
    uint32_t GetTbatLlimit() const { return tbatLlimit_; }
    uint32_t GetEffectConditon() const { return effectGroup_; }

private:
    bool InitBasicInfo(const Json::Value& config);
    bool CheckGroup(const Json::Value& group) const;
    bool CheckCondition(const Json::Value& condition) const;
    bool CheckExit(const Json::Value& exit) const;
    bool MatchConditionItem(const Json::Value& value, const Json::Value& item) const;
    bool MatchAll(const AswDataObject& object, const Json::Value& condition,
                  bool stopAtFirstFailure) const;
    // The first group numbered `groupNo`, or null.
    const Json::Value* FindGroup(uint32_t groupNo) const;
    void CopyThresholds(AswDataObject& week, AswDataObject& addup) const;

    std::string name_;
    uint32_t no_ = 0;
    uint32_t dcVoltDec_ = 0;
    uint32_t noDcVoltDec_ = 0;
    uint32_t cutoffSoc_ = 100;
    uint32_t restoreSoc_ = 100;
    uint32_t vbatLlimit_ = 4294967295u;
    uint32_t tbatLlimit_ = 4294967295u;
    uint32_t effectGroup_ = 0;
    uint32_t dmdNo_ = 0;
    Json::Value condition_;
};
