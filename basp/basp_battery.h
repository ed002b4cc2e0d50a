// BaspBattery: one battery of the aging policy: its configuration, the choice of its aging
// stage from one kernel aging record, the graded voltage decrement, and the policy record it
// sends back to the kernel.
//
// A battery is built from the estimator's configuration for every kernel event and destroyed
// after it; what must outlive the event is kept by its BaspHerald (the persistent record).
//
// Units: capacities mAh, currents mA, the decrement in uV internally and mV towards the kernel
// and the limitators, time in seconds since the epoch (the clock seam). Ownership: the battery
// owns its herald and shares its stages (GetPolicy hands out copies). Threads: used by the
// aging monitor thread only; the weekly swell value it reads is a process-wide atomic.
#pragma once

#include <json/json.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "basp/basp_herald.h"
#include "basp/basp_policy_stage.h"

class BaspBattery {
public:
    static constexpr uint32_t kMaxFccs = 5;
    static constexpr uint32_t kPolicyVersion = 2;  // the stage format this build reads
    static constexpr uint32_t kMaxGradeDays = 3;
    static constexpr uint32_t kSecondsPerDay = 86400;
    static constexpr uint32_t kMinStoredVdecUV = 1000;    // a stored decrement below is noise
    static constexpr uint32_t kMaxStoredVdecUV = 300000;  // and at or above is corrupt
    static constexpr uint32_t kMaxSwell = 39;             // a larger reading is not believed
    static constexpr uint32_t kSwellRise = 10;            // per change of the reading

    // The kernel's aging record, read from the aging-data node.
    struct BatteryAgingData {
        uint32_t designFcc;       // mAh
        uint32_t cycleCount;      // charge cycles
        uint32_t fccCount;        // valid entries of fccs
        uint32_t fccs[kMaxFccs];  // learned FCC, mAh, oldest first
    };
    static_assert(sizeof(BatteryAgingData) == 32, "kernel layout");

    // The policy the daemon sends back to the kernel.
    struct BatteryAgingPolicy {
        uint32_t level;     // level of the chosen stage, 0 when none holds
        uint32_t learnFcc;  // mAh
        uint32_t ndcVdec;   // graded decrement, mV, a multiple of the vterm step
        uint32_t errNo;
    };
    static_assert(sizeof(BatteryAgingPolicy) == 16, "kernel layout");

    explicit BaspBattery(const std::string& name);

    // Reads the battery entry `entry` and its stage array from the estimator's object `root`,
    // then loads the persistent record. 0, or -1 (logged) when the battery does not apply to
    // this device or its configuration is unusable.
    int Init(const Json::Value& root, const Json::Value& entry);
    int InitIChgMax(const Json::Value& entry);
    int InitNdcVstep(const Json::Value& entry);
    int InitPolicys(const Json::Value& stages);

    // One refresh from a kernel record: swell allowance, level, learned FCC, policy to the
    // kernel, record kept and reported. Returns 0.
    int Update(const BatteryAgingData& data);
    void UpdateBaspLevel(const BatteryAgingData& data);
    // Moves the decrement towards `targetUV` by at most the daily grade per whole day since
    // its last change (three days at most) and returns it rounded to the vterm step, mV.
    uint32_t GetGradeNdcVdec(uint64_t targetUV);
    // A copy of the current stage with NonDcVoltDec set to the graded decrement (mV), and its
    // reference current set; empty when no stage has the current level.
    std::shared_ptr<BaspPolicyStage> GetPolicy();
    void SendPolicy();

    const std::string& Name() const { return name_; }
    uint32_t Level() const { return level_; }
    uint32_t LearnFcc() const { return learnFcc_; }
    uint32_t VtermStep() const { return vtermStep_; }
    uint32_t IChgMax() const { return iChgMax_; }
    const PolicyRecType& PolicyRec() const { return rec_; }
    const BaspHerald& Herald() const { return herald_; }

private:
    // The stage whose Level is the current level (first in order) with its reference current
    // set; null when none.
    BaspPolicyStage* CurrentStage();

    std::string name_;
    std::vector<std::shared_ptr<BaspPolicyStage>> stages_;  // configuration order
    uint32_t level_ = 0;
    uint32_t learnFcc_ = 0;
    uint32_t cycleCount_ = 0;
    uint32_t swellCycleTh_ = 0;
    uint32_t iChgMax_ = 0;
    BaspHerald herald_;
    std::string version_;          // the "BaspPolicy" string
    uint32_t vtermStep_ = 0;       // mV
    uint32_t ndcVdecGradeUV_ = 0;  // uV per day
    uint32_t stepCount_ = 0;
    uint32_t stepIndex_ = 0;
    PolicyRecType rec_;  // decrement state, loaded from and saved to the herald
};
