// AswBattery: one battery of the anti-swelling estimator: its policy, its swell accounting
// (today, the last seven closed days, the week total and the whole history), its active
// protection scene and its data file.
//
// Battery object (an element of the configuration's "Battery" array): "Name" (data file
// Asw::GetDataFile(Name)), "Product", "Country", "Model" (matched against the device),
// "AswPolicy" (name of the scene array; its leading integer is the policy version, 2 or 3),
// "SwellTabe" (name of the swell table {"Vbat", "Temp", "Table"}, swell per day in each bin),
// "SimSupport" and "NormalSceneDmdNo" (unsigned).
//
// Data file (styled JSON text, replaced atomically): "AswPolicy", "Vbat",
// "Temp" (the swell table's axes), "Scene", "ConditonGroupNo" (only while a scene is in force),
// "TReport", "Addup" (history: stored quantities + "SwellTimes") and "Day" (closed days,
// oldest first, then today). Saved at most every 20 minutes of ASW-clock time, at each day
// close and when the scene number changes (so that a scene survives a restart).
//
// The closed days are read from the file once at Init and kept in memory as they are then
// written to it (each on the configured axes). At start, with eight or more "Day" elements,
// the week object is Day[0] merged with Day[1..6] as stored: it is not updated, its swell
// stays 0.0 and nothing is published. At each day close the closed days are cut to the
// newest six (more are only in a file written elsewhere), the day joins them, and the week
// is rebuilt from the seven, updated once (which computes its swell) and its "Aswell" is
// published in WeekSwell() with a sequentially consistent store. A "Day" element that is not an
// object is logged and left out; it costs no other day.
//
// A change of the swell table's axes restarts every stored time table (history, closed days,
// today) from zero on the new axes; the counters are kept.
//
// Reports (big-data events, not in charger mode) at each scene change and, at a day close,
// when 7 days have passed since the last report:
//   930001006 (week): "SIM_IN", "HIGHV" (fractions 0..1, float), "S_SIM", "PARA_VERSION",
//                     "USER_SET", then the common keys;
//   930001002 (history): "STARTCYCLE", "ENDCYCLE", "PARA_VERSION", "USER_SET", common keys.
//   Common keys: "STARTTIME", "ENDTIME" (local "%Y-%m-%d %H:%M:%S"), "BATTNAME",
//   "TSWELL" (int[]: the period's time table, seconds per bin, row by row: temperature rows,
//   voltage columns, each saturated at 2147483647, a non-number as 0), "TSWELL_SHAPE"
//   (int[2]: rows, columns), "CHAREIGN" (charger-in fraction, float), "RECOGSCENE" (scene
//   number), "PROTT" (whole days with a scene in force), "SWELP" (the period's "Aswell",
//   float: the swell accumulated by the period, in the swell table's units).
//   A fraction that cannot be computed (no time accounted yet) is sent as -1.
//   "USER_SET" is 1 when the user asked for protection (protect mark) or the active scene's
//   group enables it, else 0.
//
// Ownership: keeps references to the configuration and the battery object, which must
// outlive it (the estimator's configuration lives for the process). Threads: used by the ASW
// monitor thread only, except the limit getters, which the estimator calls under its mutex
// on that same thread.
#pragma once

#include <json/json.h>

#include <cstdint>
#include <memory>
#include <string>

#include "asw/asw_common.h"
#include "asw/asw_data_object.h"
#include "asw/asw_scene.h"
#include "asw/asw_table.h"

class SOHBigData;

class AswBattery {
public:
    static constexpr unsigned kSaveIntervalSeconds = 1200;
    static constexpr unsigned kReportIntervalSeconds = 604800;
    static constexpr unsigned kWeekDays = 7;
    static constexpr unsigned kNoCharger = 5;  // charger type while nothing is connected
    static constexpr uint32_t kWeekEvent = 930001006;
    static constexpr uint32_t kAddupEvent = 930001002;

    AswBattery(const Json::Value& config, const Json::Value& battery);

    // Matches the battery, checks its policy and tables, loads or creates its data and
    // restores its scene. 0, or Asw::kFail (a mismatch silently, a fault logged).
    uint32_t Init(bool enabled);
    // One pass: accounts history and today, closes the day, updates the scene, saves.
    // 0, or Asw::kFail when the history or today object is missing.
    uint32_t Update();

    uint32_t GetDcVoltDec() const;
    uint32_t GetNoDcVoltDec() const;
    uint32_t GetCutoffSoc() const;
    uint32_t GetRestoreSoc() const;
    bool GetSceneProtectEnable() const;

    uint32_t GetSceneNo() const { return sceneNo_; }
    uint32_t GetReportTime() const { return tReport_; }
    const AswDataObject* GetAddup() const { return addup_.get(); }
    const AswDataObject* GetToday() const { return today_.get(); }
    const AswDataObject* GetWeek() const { return week_.get(); }

private:
    // Init's steps (asw_battery.cpp).
    bool CheckPolicy();
    bool CheckSwellTable();
    // The configuration member `key` (null when absent or not an object).
    const Json::Value& ConfigMember(const std::string& key) const;

    // The data file (asw_battery_file.cpp). CreateDataObjects returns the file's
    // "ConditonGroupNo" (null without a file).
    Json::Value CreateDataObjects();
    void CreateWithoutHistory();
    Json::Value LoadDataFile();
    void LoadDays(const Json::Value& days, const Json::Value& x, const Json::Value& y);
    // A data object from a file element: its "SwellTimes" on the file's axes, or a zero
    // table on the configured axes when those do not fit the swell table.
    std::unique_ptr<AswDataObject> LoadObject(const Json::Value& element, const Json::Value& x,
                                              const Json::Value& y) const;
    void TrySaveDataToFile();
    bool SaveDataToFile();
    static Json::Value Serialize(const AswDataObject& object);

    // Days and the week (asw_battery_days.cpp).
    std::unique_ptr<AswDataObject> NewDay() const;
    void OverDay();
    // Builds the week from the first seven closed days, updates it once and publishes it.
    void BuildWeek();

    // Scenes (asw_battery_scene.cpp). CreateActiveScene: false on a configuration fault that
    // fails Init (no "NormalSceneDmdNo").
    bool CreateActiveScene(const Json::Value& groupNo);
    void TryUpdateScene();

    // What one pass accounts, read once for all its objects: battery voltage (mV), temperature
    // (whole degC, a negative one as a large unsigned number), charger connected, SIM present,
    // cycle count.
    struct Sample {
        unsigned vbatMv = 0;
        unsigned tempC = 0;
        bool usbIn = false;
        bool simIn = false;
        int cycles = 0;
    };
    Sample ReadSample() const;
    void UpdateObj(AswDataObject& object, const Sample& sample);
    uint32_t NowSeconds() const;

    // Reports (asw_battery_report.cpp).
    void TryReportBigData();
    void SendReports();
    void ReportWeek();
    void ReportAddup();
    void SetUniverBigData(SOHBigData& event, const AswDataObject& object) const;
    void SetBigDataTswell(SOHBigData& event, const AswDataObject& object) const;

    uint32_t sceneNo_ = 0;
    uint32_t normalDmdNo_ = 0;
    uint32_t simSupport_ = 0;
    uint32_t tReport_ = 0;
    bool enabled_ = false;
    const Json::Value& config_;
    const Json::Value& battery_;
    Asw::TimePoint lastSave_;
    std::unique_ptr<AswDataObject> addup_;
    std::unique_ptr<AswDataObject> today_;
    std::unique_ptr<AswDataObject> week_;
    std::unique_ptr<AswScene> scene_;

    std::string policyName_;
    std::string tableName_;
    std::string dataFile_;
    std::unique_ptr<AswTable> swellTable_;
    Json::Value closedDays_{Json::arrayValue};  // serialized closed days, oldest first
};
