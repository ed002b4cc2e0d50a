// PhoneModel: the simulated phone's battery, charger and user, integrated over simulated time.
//
// Battery: SOC by charge counting against the present capacity; OCV from the cell's curve;
// terminal voltage = OCV + I*R (I > 0 charging); temperature = ambient + I^2*R heating through a
// first-order thermal model; equivalent full cycles from the Ah throughput (charge and
// discharge, 2 x design Ah per cycle); capacity fade, resistance growth and swelling by the
// laws of cell_laws.h: the calendar term from the OCV and temperature of every sub-step,
// applied every 15 simulated minutes; the cycle term from the charge moved, weighted by the
// OCV at which it moved; swelling from the OCV and temperature of every sub-step. So a lower
// termination voltage or an SOC window slows all three.
//
// Charger: CC-CV to the effective termination voltage (nominal minus the larger of the
// vterm_dec decrease for the adapter's type and the aging policy's decrease); the CV phase
// decays exponentially (OCV linearised over the step) and ends when the current falls below
// the termination current ("charge done" until unplugged, or until the OCV falls recharge_mv
// below the termination voltage). Current limit: a buck adapter charges at
// min(charge max, buck max, ichg_limit); a direct adapter at
// max(charge max * ichg_ratio %, that buck current) (below the buck's current the kernel
// falls back to the buck charger), never above the charge max. The SOC window stops charging
// when the shown SOC reaches HIGH (< 100) and lets it resume once it is below LOW; above HIGH
// a held battery supplies the standby current. A status level of 1 or more stops charging.
//
// User: see user_day.h. On the charger the phone runs from the adapter (no battery current
// unless charging or held above HIGH); off it, it draws the day current; at 0 % it is off.
//
// Events (counters that only grow): a charge start each time charging begins (plug-in,
// resume after a hold or a lifted status, recharge); an aging record when a charge session
// ends at "charge done" or at the SOC window's upper bound (the cycle count, and when the
// session charged at least 30 % a learned FCC with +/-0.4 % gauge noise appended to a ring of
// 5); an impedance measurement once per local day, at the first moment from eis_hour on
// while the phone is on the charger and not charging, within that night's charger period.
//
// Time: epoch seconds (double). AdvanceTo integrates in sub-steps of at most 60 s, split at
// the user's plug/unplug instants and at the impedance instant; an earlier or equal time, or
// one that is not finite, does nothing. Cost: about 0.1 us per sub-step, so a simulated day takes
// about 0.15 ms.
//
// Threads: not thread-safe; the owner serialises every call (ModelNodes holds its lock).
#pragma once

#include <cstdint>

#include "sim/model/model_params.h"
#include "sim/model/user_day.h"

namespace sim {

// What the daemon asked of the kernel, resolved for the adapter in use.
struct ChargerLimits {
    int vtermDecMv = 0;       // vterm_dec for the adapter's type, mV; <= 0: none
    int policyVdecMv = 0;     // the aging policy's graded decrease (basp_policy), mV; <= 0: none
    int buckLimitMa = -1;     // ichg_limit, mA; <= 0: none
    int directRatioPct = -1;  // ichg_ratio, % (1..100); <= 0: none
    bool socWindow = false;   // SOC control enabled
    int socLowPct = 0;        // charging resumes below this shown SOC, %
    int socHighPct = 100;     // and stops at this one (100: never)
    int statusLevel = 0;      // short-circuit driver's level; >= 1 stops charging
};

// The kernel's aging record (layout of the basp_data node's content).
struct AgingRecord {
    static constexpr uint32_t kMaxFccs = 5;
    uint32_t designFcc = 0;  // mAh
    uint32_t cycleCount = 0;
    uint32_t fccCount = 0;
    uint32_t fccs[kMaxFccs] = {};  // learned FCC, mAh, oldest first
};
static_assert(sizeof(AgingRecord) == 32, "the kernel's aging record is 32 bytes");

// One daily impedance measurement. Resistances in micro-ohm.
struct ImpedanceMeasurement {
    uint32_t acrUohm = 0;  // AC resistance at 1 kHz (the ohmic share of the DC resistance)
    uint32_t dcrUohm = 0;  // DC resistance
    uint32_t r0Uohm = 0;   // ohmic part of the DC pulse response
    uint32_t cycleCount = 0;
    int32_t tempC = 0;    // cell temperature, degC, rounded
    uint32_t voltMv = 0;  // cell voltage at rest, mV
};

// A snapshot for traces and tests.
struct CellState {
    double time = 0.0;         // epoch s
    double socPct = 0.0;       // true SOC of the present capacity, %
    double shownSocPct = 0.0;  // the fuel gauge's SOC (100 at charge done), %
    double ocvV = 0.0;
    double voltageV = 0.0;  // terminal, V
    double currentA = 0.0;  // + charging, - discharging
    double tempC = 0.0;
    double cycles = 0.0;  // equivalent full cycles
    double fccMah = 0.0;  // present capacity
    double fadePct = 0.0;
    double resistanceMohm = 0.0;  // DC, at the present temperature
    double swellingPct = 0.0;     // thickness growth since new, % of the new cell's thickness
    bool plugged = false;
    bool charging = false;
    bool chargeDone = false;
    bool socHold = false;    // held by the SOC window
    int vtermMv = 0;         // effective termination voltage
    int currentLimitMa = 0;  // effective charge current limit
};

class PhoneModel {
public:
    static constexpr double kMaxStepSeconds = 60.0;
    static constexpr double kAgingPeriodSeconds = 900.0;

    // A model whose clock starts at `startEpochSeconds`, in the state the parameters describe
    // (a start age or start cycles are aged in at once).
    PhoneModel(const ModelParams& params, double startEpochSeconds);

    void AdvanceTo(double epochSeconds);
    double Now() const { return now_; }
    const ModelParams& Params() const { return params_; }

    // Takes effect at the model's present time (advance first); may start or stop charging.
    void SetLimits(const ChargerLimits& limits);
    const ChargerLimits& Limits() const { return limits_; }
    int EffectiveVtermMv() const;
    int EffectiveCurrentLimitMa() const;

    CellState State() const;
    // The shown SOC rounded as the capacity node gives it, %.
    int ShownSocPercent() const;

    uint64_t ChargeStarts() const { return chargeStarts_; }
    uint64_t AgingRecords() const { return agingRecords_; }
    // The record in force: before the first full charge, the design capacity, the start
    // cycles and no samples.
    const AgingRecord& LastAgingRecord() const { return agingRecord_; }
    uint64_t ImpedanceMeasurements() const { return impedanceCount_; }
    const ImpedanceMeasurement& LastImpedance() const { return impedance_; }

private:
    enum class ChargeEnd { kRunning, kTerminated, kCapped };

    void Step(double dt);
    ChargeEnd ChargeStep(double dt, double r, double& chargeCoulombs, double& endCurrent);
    double LoadCurrent() const;  // A drawn from the battery while not charging
    void UpdateUser();           // the day and the plug state at now_
    void UpdateCharging();
    void FlushAging();
    void CompleteCharge();
    // Ends the open charge session: an aging record, with a learned capacity when the session
    // charged at least kMinLearnSocDelta of the capacity.
    void EndSession();
    void MaybeMeasureImpedance();
    double ShownSoc() const;  // 0..1
    double SocCap() const;    // the SOC at which the window stops charging (1: none)
    double ResistanceOhm() const;
    double Cycles() const;

    ModelParams params_;
    double designAh_;
    double now_;
    UserDay day_;

    // Cell.
    double soc_;
    double tempC_;
    double currentA_ = 0.0;
    double throughputAh_;
    double cycleDose_;     // weighted throughput D of the cycle fade, design-Ah units
    double swellingPct_;   // before aging_scale
    double calendarFade_;  // before aging_scale
    double fade_ = 0.0;
    double fccAh_;
    double fullSoc_;  // true SOC at the last charge done: the gauge's 100 %
    double agingRateSum_ = 0.0;
    double agingSeconds_ = 0.0;
    double thermalDecay60_;  // exp(-60 s / tau)

    // Charger and user.
    ChargerLimits limits_;
    bool plugged_ = false;
    bool charging_ = false;
    bool done_ = false;
    bool hold_ = false;
    bool sessionOpen_ = false;  // a charge began and has not yet ended (done, or the SOC window)
    double sessionStartSoc_ = 0.0;  // true SOC when the open session began

    // Events.
    uint64_t chargeStarts_ = 0;
    uint64_t agingRecords_ = 0;
    AgingRecord agingRecord_;
    uint64_t impedanceCount_ = 0;
    ImpedanceMeasurement impedance_;
    int64_t impedanceDay_ = INT64_MIN;  // local day of the last measurement
};

}  // namespace sim
