#include "basp/basp_policy_stage.h"

#include <utility>

#include "core/soh_algo_para.h"
#include "core/soh_log.h"

int BaspPolicyStage::Init(const Json::Value& stage, uint32_t stepIndex, uint32_t stepCount) {
    // A stage that is not an object has no decrements (and must not be indexed by key).
    const Json::Value& decs =
        stage.isObject() ? stage["NonDcVoltDec"] : Json::Value::nullSingleton();
    if (!decs.isArray() || decs.size() != stepCount || stepIndex >= stepCount ||
        !decs[stepIndex].isUInt()) {
        SOH_LOGE("nonDcVoltDec configure is invalid\n");
        return -1;
    }
    SOH_LOGI("stepIndex %d, nonDcVdecSize %d\n", static_cast<int>(stepIndex),
             static_cast<int>(decs.size()));
    NonDcVoltDec = decs[stepIndex].asUInt();

    const SohMetaPara para(stage);
    const std::pair<const char*, uint32_t*> keys[] = {
        {"WeekAswell", &WeekAswell},
        {"Level", &Level},
        {"Cycles", &Cycles},
        {"FccRatio", &FccRatio},
        {"DcVoltDec", &DcVoltDec},
        {"CurrentRatio", &CurrentRatio},
        {"CurrentPolicy", &CurrentPolicy},
        {"ErrNo", &ErrNo},
        {"Logical", &Logical},
        {"CurrentRefer", &CurrentRefer},
    };
    int missing = 0;
    for (const auto& [key, field] : keys) {
        int value = 0;
        if (para.GetPara(key, value)) {
            *field = static_cast<uint32_t>(value);
            continue;
        }
        SOH_LOGE("get int value for %s failed\n", key);
        *field = 0;
        if (field == &WeekAswell) {
            SOH_LOGE("basp weekAswell not config\n");
        } else {
            ++missing;
        }
    }
    SOH_LOGI("init policy stage %d, weekAswell %u nondcVoltDec %u\n", static_cast<int>(Level),
             WeekAswell, NonDcVoltDec);
    return missing;
}

uint32_t BaspPolicyStage::FccLimit(uint32_t designFcc) const {
    return static_cast<uint32_t>(static_cast<uint64_t>(FccRatio) * designFcc / 100);
}

bool BaspPolicyStage::Check(uint32_t designFcc, uint32_t avgFcc, uint32_t cycleCount,
                            uint32_t noDecAswell) const {
    if (WeekAswell > noDecAswell) {
        SOH_LOGI("policy stage %d swell %u:%u not mtach\n", static_cast<int>(Level), WeekAswell,
                 noDecAswell);
        return false;
    }
    const uint32_t fccLimit = FccLimit(designFcc);
    const bool fccAged = fccLimit > avgFcc;
    const bool cycled = Cycles < cycleCount;
    SOH_LOGI("policy stage %d check %u:%u, %u:%u logic %u\n", static_cast<int>(Level), fccLimit,
             avgFcc, Cycles, cycleCount, Logical);
    switch (Logical) {
        case kAnd:
            return fccAged && cycled;
        case kOr:
            return fccAged || cycled;
        case kCyclesOnly:
            return cycled;
        case kFccOnly:
            return fccAged;
        default:
            return false;
    }
}
