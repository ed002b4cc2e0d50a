// BaspPolicyStage: one aging stage of a battery's policy, read from one element of the stage
// array the battery's "BaspPolicy" names. Plain data plus its check; copyable, so that a battery
// can hand out a copy with the graded decrement filled in.
//
// Units: currents mA, capacities mAh, DcVoltDec as the direct-charger voltage limitator takes
// it, NonDcVoltDec mV, ratios percent. Threads: used by the aging monitor thread only.
#pragma once

#include <json/json.h>

#include <cstdint>

class BaspPolicyStage {
public:
    // How the capacity and cycle conditions combine in Check.
    enum LogicalMode : uint32_t { kAnd = 0, kOr = 1, kCyclesOnly = 2, kFccOnly = 3 };

    BaspPolicyStage() = default;
    virtual ~BaspPolicyStage() = default;
    BaspPolicyStage(const BaspPolicyStage&) = default;
    BaspPolicyStage& operator=(const BaspPolicyStage&) = default;

    // Reads the stage; "NonDcVoltDec" must have exactly `stepCount` entries and the entry
    // `stepIndex` is taken. 0 on success; non-zero when the array is wrong or a key other than
    // "WeekAswell" (default 0) is missing. Missing "Logical" reads as 0 (AND).
    int Init(const Json::Value& stage, uint32_t stepIndex, uint32_t stepCount);
    // True when the stage applies: the swell allowance reaches WeekAswell and the capacity
    // (FccRatio % of designFcc above avgFcc) and cycle (Cycles below cycleCount) conditions
    // hold as Logical says. An unknown Logical never holds.
    bool Check(uint32_t designFcc, uint32_t avgFcc, uint32_t cycleCount,
               uint32_t noDecAswell) const;
    // FccRatio % of designFcc, mAh, truncated.
    uint32_t FccLimit(uint32_t designFcc) const;

    uint32_t Level = 0;
    uint32_t Cycles = 0;
    uint32_t FccRatio = 0;
    uint32_t WeekAswell = 0;
    uint32_t DcVoltDec = 0;
    uint32_t NonDcVoltDec = 0;
    uint32_t CurrentRatio = 0;
    uint32_t CurrentPolicy = 0;  // carried for the kernel's use; no decision here reads it
    uint32_t ErrNo = 0;
    uint32_t refCurrent = 0;  // mA; set by the battery: IChargerMax or the learned FCC
    uint32_t CurrentRefer = 0;
    uint32_t Logical = kAnd;
};
