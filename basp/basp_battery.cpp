#include "basp/basp_battery.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdlib>

#include "basp/basp_nodes.h"
#include "core/device_stream.h"
#include "core/soh_enviroment.h"
#include "core/soh_log.h"
#include "core/soh_week_swell.h"
#include "platform/soh_clock.h"

namespace {

// The samples of a record, at most five whatever the kernel claims.
uint32_t SampleCount(const BaspBattery::BatteryAgingData& data) {
    return std::min(data.fccCount, BaspBattery::kMaxFccs);
}

uint32_t MeanFcc(const BaspBattery::BatteryAgingData& data) {
    const uint32_t n = SampleCount(data);
    uint64_t sum = 0;
    for (uint32_t i = 0; i < n; ++i) {
        sum += data.fccs[i];
    }
    return n == 0 ? 0 : static_cast<uint32_t>(sum / n);
}

}  // namespace

BaspBattery::BaspBattery(const std::string& name) : name_(name), herald_(name) {}

int BaspBattery::Init(const Json::Value& root, const Json::Value& entry) {
    if (!SOHEnviroment::MatchProductCfg(entry["Product"]) ||
        !SOHEnviroment::MatchCountryCfg(entry["Country"]) ||
        !SOHEnviroment::MatchBatteryModelCfg(entry["Model"])) {
        return -1;
    }
    if (InitIChgMax(entry) != 0) {
        return -1;
    }
    if (entry["NdcVtermGradeUV"].isUInt()) {
        ndcVdecGradeUV_ = entry["NdcVtermGradeUV"].asUInt();
    }
    SOH_LOGE("ndcVdecGradeUV %d\n", static_cast<int>(ndcVdecGradeUV_));
    if (entry["SwellCycleTh"].isUInt()) {
        swellCycleTh_ = entry["SwellCycleTh"].asUInt();
    }
    SOH_LOGE("basp swellCycleTh %d\n", static_cast<int>(swellCycleTh_));

    const Json::Value& policy = entry["BaspPolicy"];
    if (!policy.isString()) {
        SOH_LOGE("battery policy config error\n");
        return -1;
    }
    version_ = policy.asString();
    if (version_.empty()) {
        SOH_LOGE("basp compatible version is empty\n");
        return -1;
    }
    // The policy name starts with the stage format's version; only the leading number counts.
    const long version = strtol(version_.c_str(), nullptr, 10);
    if (version != kPolicyVersion) {
        SOH_LOGE("basp version %d is not compatible\n", static_cast<int>(version));
        return -1;
    }
    if (InitNdcVstep(entry) != 0 || InitPolicys(root[version_]) != 0) {
        return -1;
    }
    SOH_LOGE("basp: init battery imax:%u, ver:%s\n", iChgMax_, version_.c_str());
    herald_.Init(version_);
    herald_.GetPolicyRec(rec_);
    return 0;
}

int BaspBattery::InitIChgMax(const Json::Value& entry) {
    uint32_t fromKernel = 0;
    if (DeviceReader(BaspNodes::kIChgMax).Read(fromKernel) == 0 && fromKernel != 0) {
        iChgMax_ = fromKernel;
    } else if (entry["IChargerMax"].isUInt()) {
        iChgMax_ = entry["IChargerMax"].asUInt();
    } else {
        SOH_LOGE("basp battery not config IChargerMax\n");
        return -1;
    }
    SOH_LOGE("basp ichg_max is %d\n", static_cast<int>(iChgMax_));
    return 0;
}

int BaspBattery::InitNdcVstep(const Json::Value& entry) {
    uint32_t cell = 0;  // device-tree cells are big-endian
    if (DeviceReader(BaspNodes::kNdcVtermStep).Read(cell) == 0 && ntohl(cell) != 0) {
        vtermStep_ = ntohl(cell);
    } else if (entry["ndcDefautStep"].isUInt()) {
        vtermStep_ = entry["ndcDefautStep"].asUInt();
    } else {
        SOH_LOGE("basp battery not config ndcDefautStep\n");
        return -1;
    }
    SOH_LOGE("vterm step %d\n", static_cast<int>(vtermStep_));
    const Json::Value& steps = entry["ndcVtermSteps"];
    stepCount_ = steps.isArray() ? steps.size() : 0;
    for (uint32_t i = 0; i < stepCount_; ++i) {
        if (steps[i].isUInt() && steps[i].asUInt() == vtermStep_) {
            stepIndex_ = i;
            return 0;
        }
    }
    SOH_LOGE("basp ndcVtermStep not in ndcVtermSteps\n");
    return -1;
}

int BaspBattery::InitPolicys(const Json::Value& stages) {
    if (!stages.isArray()) {
        SOH_LOGE("policy configure is null\n");
        return -1;
    }
    for (const Json::Value& element : stages) {
        auto stage = std::make_shared<BaspPolicyStage>();
        if (stage->Init(element, stepIndex_, stepCount_) != 0) {
            SOH_LOGE("init battery basp policy failed\n");
            return -1;
        }
        stages_.push_back(std::move(stage));
    }
    return 0;
}

int BaspBattery::Update(const BatteryAgingData& data) {
    SOH_LOGI("refresh basp policy now\n");
    cycleCount_ = data.cycleCount;

    // The swell allowance only matters for a battery that is old enough and already lowered.
    if (swellCycleTh_ == 0 || cycleCount_ < swellCycleTh_ || rec_.ndcVdecUV == 0) {
        rec_.noDecAswell = 0;
    } else {
        const double scaled = WeekSwell().load() * 1000.0;
        const uint32_t swell =
            scaled >= 1.0 && scaled < 4294967296.0 ? static_cast<uint32_t>(scaled) : 0;
        SOH_LOGI("basp swell %d from asw\n", static_cast<int>(swell));
        // The last reading is part of the persistent record: a battery object lives for one
        // event only, and an unchanged reading must not raise the allowance again.
        if (swell >= 1 && swell <= kMaxSwell && swell != rec_.lastSwell) {
            rec_.lastSwell = swell;
            const uint32_t raised = std::min(rec_.noDecAswell + kSwellRise, swell);
            rec_.noDecAswell = std::max(rec_.noDecAswell, raised);
        }
    }

    UpdateBaspLevel(data);

    const uint32_t old = learnFcc_;
    if (SampleCount(data) > 2) {
        uint32_t floor = 0;
        for (const auto& stage : stages_) {
            const uint32_t limit = stage->FccLimit(data.designFcc);
            if (limit != 0 && (floor == 0 || limit < floor)) {
                floor = limit;
            }
        }
        SOH_LOGI("min fcc threshold is %u\n", floor);
        learnFcc_ = std::max(MeanFcc(data), floor);
    } else {
        learnFcc_ = data.designFcc;
    }
    if (learnFcc_ != old) {
        SOH_LOGI("refresh learn fcc %u->%u\n", old, learnFcc_);
    }

    SendPolicy();
    herald_.SavePolicyRec(rec_);
    herald_.Update(level_, std::vector<uint32_t>(data.fccs, data.fccs + SampleCount(data)));
    return 0;
}

void BaspBattery::UpdateBaspLevel(const BatteryAgingData& data) {
    const uint32_t avgFcc = SampleCount(data) > 2 ? MeanFcc(data) : data.designFcc;
    uint32_t level = 0;
    for (const auto& stage : stages_) {
        if (stage->Check(data.designFcc, avgFcc, data.cycleCount, rec_.noDecAswell)) {
            level = std::max(level, stage->Level);
        }
    }
    level_ = level;
    SOH_LOGI("basp level %d avgFcc %u, input data: %u %u, noDecAswell %u\n",
             static_cast<int>(level_), avgFcc, data.designFcc, data.cycleCount, rec_.noDecAswell);
}

uint32_t BaspBattery::GetGradeNdcVdec(uint64_t targetUV) {
    const uint32_t now = static_cast<uint32_t>(SohClock::Time(nullptr));
    if (cycleCount_ == 0 || rec_.ndcVdecUV < kMinStoredVdecUV ||
        rec_.ndcVdecUV >= kMaxStoredVdecUV) {
        rec_.ndcVdecUV = 0;
    }
    uint32_t days = 0;
    if (now >= rec_.timestamp) {
        days = std::min(now - rec_.timestamp, kMaxGradeDays * kSecondsPerDay) / kSecondsPerDay;
    } else {
        rec_.timestamp = now;  // the clock went back: count days from here
    }

    // 64 bits throughout: a target of a few thousand volts in mV is still exact in uV.
    const uint64_t current = rec_.ndcVdecUV;
    const bool grading = ndcVdecGradeUV_ != 0 && vtermStep_ != 0;
    uint64_t value = targetUV;
    if (grading && targetUV != 0 && current == 0) {
        value = targetUV;  // the first decrement is applied at once
    } else if (grading || targetUV == 0) {
        const uint64_t move = static_cast<uint64_t>(ndcVdecGradeUV_) * days;
        if (current > targetUV) {
            value = std::max<uint64_t>(targetUV, current - std::min<uint64_t>(current, move));
        } else {
            value = std::min<uint64_t>(targetUV, current + move);
        }
    }
    if (value != current) {
        // A value beyond 32 bits is stored saturated; the store treats it as corrupt and the
        // next event takes the target afresh.
        rec_.ndcVdecUV = static_cast<uint32_t>(std::min<uint64_t>(value, UINT32_MAX));
        rec_.timestamp = now;
    }

    uint64_t rounded = 0;
    if (vtermStep_ != 0) {
        const uint64_t mv = value / 1000;
        if (value > targetUV && value >= 1000) {
            rounded = ((mv - 1) / vtermStep_ + 1) * vtermStep_;  // on the way down: round up
        } else {
            rounded = mv / vtermStep_ * vtermStep_;
        }
    }
    const uint32_t roundedMv = static_cast<uint32_t>(std::min<uint64_t>(rounded, UINT32_MAX));
    SOH_LOGI("basp: grade now %d, timestamp %d, ndcVdecUV %d, roundDec %d\n", static_cast<int>(now),
             static_cast<int>(rec_.timestamp), static_cast<int>(rec_.ndcVdecUV),
             static_cast<int>(roundedMv));
    return roundedMv;
}

BaspPolicyStage* BaspBattery::CurrentStage() {
    for (const auto& stage : stages_) {
        if (stage->Level == level_) {
            stage->refCurrent = stage->CurrentRefer != 0 ? iChgMax_ : learnFcc_;
            return stage.get();
        }
    }
    return nullptr;
}

void BaspBattery::SendPolicy() {
    const BaspPolicyStage* stage = CurrentStage();
    if (stage == nullptr) {
        SOH_LOGE("policy of current stage %d is null\n", static_cast<int>(level_));
        return;
    }
    const BatteryAgingPolicy policy{
        level_, learnFcc_, GetGradeNdcVdec(uint64_t{stage->NonDcVoltDec} * 1000), stage->ErrNo};
    SOH_LOGI("send policy to kernel %u %u %u %u\n", policy.level, policy.learnFcc, policy.ndcVdec,
             policy.errNo);
    if (DeviceWriter(BaspNodes::kPolicy).Write(policy) != 0) {
        SOH_LOGE("write basp policy file failed\n");
    }
}

std::shared_ptr<BaspPolicyStage> BaspBattery::GetPolicy() {
    const BaspPolicyStage* stage = CurrentStage();
    if (stage == nullptr) {
        return nullptr;
    }
    auto copy = std::make_shared<BaspPolicyStage>(*stage);
    copy->NonDcVoltDec = GetGradeNdcVdec(uint64_t{stage->NonDcVoltDec} * 1000);
    return copy;
}
