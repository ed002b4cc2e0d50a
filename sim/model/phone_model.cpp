// Integration of the simulated phone (see phone_model.h).
#include "sim/model/phone_model.h"

#include <algorithm>
#include <cmath>

#include "sim/model/cell_laws.h"

namespace sim {

namespace {

constexpr double kSecondsPerDay = 86400.0;
constexpr double kSecondsPerHour = 3600.0;
// Shares of the DC resistance that the impedance measurements see.
constexpr double kAcrShare = 0.6;
constexpr double kR0Share = 0.5;
// The gauge's spread of a learned FCC, +/- half of this.
constexpr double kFccNoise = 0.008;
constexpr uint32_t kFccNoiseSalt = 4;
// Voltage at which a start age is taken to have been spent (the mean stress of nightly full
// charges).
constexpr double kStartAgeOcv = 4.2;
// The shown 100 % never falls below this true SOC, whatever a charge ended at.
constexpr double kMinFullSoc = 0.3;
// A charge session teaches the gauge the capacity when it covers at least this SOC span.
constexpr double kMinLearnSocDelta = 0.3;

uint32_t RoundU32(double x) {
    return x <= 0.0 ? 0u : static_cast<uint32_t>(std::lround(x));
}

}  // namespace

PhoneModel::PhoneModel(const ModelParams& params, double startEpochSeconds)
    : params_(params),
      designAh_(params.design_capacity_mah / 1000.0),
      now_(startEpochSeconds),
      day_(MakeUserDay(startEpochSeconds, params)),
      soc_(params.start_soc_pct / 100.0),
      tempC_(params.ambient_c),
      throughputAh_(params.start_cycles * 2.0 * params.design_capacity_mah / 1000.0),
      cycleDose_(params.start_cycles * 2.0),  // start cycles count as full ones
      swellingPct_(cell::SwellingRate(params.ambient_c, kStartAgeOcv) * params.start_age_days),
      calendarFade_(cell::AdvanceCalendarFade(
          0.0, cell::CalendarRate(params.ambient_c, kStartAgeOcv), params.start_age_days)),
      fccAh_(designAh_),
      thermalDecay60_(std::exp(-kMaxStepSeconds / params.thermal_time_constant_s)) {
    FlushAging();
    // A full charge at the nominal voltage ends where the termination current's IR drop
    // leaves the OCV.
    fullSoc_ = std::max(kMinFullSoc,
                        cell::SocAtOcv(params_.termination_voltage_mv / 1000.0 -
                                       params_.termination_current_ma / 1000.0 * ResistanceOhm()));
    agingRecord_.designFcc = RoundU32(params_.design_capacity_mah);
    agingRecord_.cycleCount = static_cast<uint32_t>(Cycles());
    plugged_ = day_.Plugged(now_);
    UpdateCharging();
    chargeStarts_ = 0;  // a charge running at the start was not seen to begin
}

void PhoneModel::AdvanceTo(double t) {
    if (!std::isfinite(t)) {
        return;
    }
    while (now_ < t) {
        const double next = std::min({t, now_ + kMaxStepSeconds, day_.NextBoundary(now_)});
        Step(next - now_);
        now_ = next;
        UpdateUser();
        UpdateCharging();
        MaybeMeasureImpedance();
    }
}

void PhoneModel::UpdateUser() {
    if (!day_.Contains(now_)) {
        day_ = MakeUserDay(now_, params_);
    }
    const bool plugged = day_.Plugged(now_);
    if (plugged != plugged_) {
        plugged_ = plugged;
        if (!plugged) {
            charging_ = done_ = sessionOpen_ = false;
        }
    }
}

void PhoneModel::SetLimits(const ChargerLimits& limits) {
    limits_ = limits;
    UpdateCharging();
}

int PhoneModel::EffectiveVtermMv() const {
    const int dec = std::max({0, limits_.vtermDecMv, limits_.policyVdecMv});
    return params_.termination_voltage_mv - dec;
}

int PhoneModel::EffectiveCurrentLimitMa() const {
    const double cap = params_.charge_current_max_ma;
    double buck = std::min(params_.buck_current_max_ma, cap);
    if (limits_.buckLimitMa > 0) {
        buck = std::min(buck, static_cast<double>(limits_.buckLimitMa));
    }
    double limit = buck;
    if (params_.IsDirectAdapter()) {
        const double ratio =
            limits_.directRatioPct > 0 ? std::min(limits_.directRatioPct, 100) : 100;
        limit = std::max(cap * ratio / 100.0, buck);
    }
    return static_cast<int>(std::lround(limit));
}

CellState PhoneModel::State() const {
    CellState s;
    s.time = now_;
    s.socPct = soc_ * 100.0;
    s.shownSocPct = ShownSoc() * 100.0;
    s.ocvV = cell::Ocv(soc_);
    const double r = ResistanceOhm();
    s.voltageV = s.ocvV + currentA_ * r;
    s.currentA = currentA_;
    s.tempC = tempC_;
    s.cycles = Cycles();
    s.fccMah = fccAh_ * 1000.0;
    s.fadePct = fade_ * 100.0;
    s.resistanceMohm = r * 1000.0;
    s.swellingPct = params_.aging_scale * swellingPct_;
    s.plugged = plugged_;
    s.charging = charging_;
    s.chargeDone = done_;
    s.socHold = hold_;
    s.vtermMv = EffectiveVtermMv();
    s.currentLimitMa = EffectiveCurrentLimitMa();
    return s;
}

int PhoneModel::ShownSocPercent() const {
    return static_cast<int>(std::lround(ShownSoc() * 100.0));
}

double PhoneModel::ShownSoc() const {
    if (plugged_ && done_) {
        return 1.0;
    }
    return std::min(1.0, soc_ / fullSoc_);
}

double PhoneModel::SocCap() const {
    if (!limits_.socWindow || limits_.socHighPct >= 100) {
        return 1.0;
    }
    return std::max(0, limits_.socHighPct) / 100.0 * fullSoc_;
}

double PhoneModel::ResistanceOhm() const {
    return params_.resistance_mohm / 1000.0 * cell::ResistanceFactor(tempC_, fade_);
}

double PhoneModel::Cycles() const {
    return throughputAh_ / (2.0 * designAh_);
}

void PhoneModel::UpdateCharging() {
    if (!limits_.socWindow || limits_.socHighPct >= 100) {
        hold_ = false;
    } else {
        const double shown = ShownSoc() * 100.0;
        if (shown >= limits_.socHighPct - 1e-9) {
            if (!hold_ && sessionOpen_) {
                EndSession();  // the window ends this charge as "done" ends a full one
            }
            hold_ = true;
        } else if (shown < limits_.socLowPct) {
            hold_ = false;
        }
    }
    if (done_ && plugged_ &&
        cell::Ocv(soc_) < (EffectiveVtermMv() - params_.recharge_mv) / 1000.0) {
        done_ = false;  // recharge
    }
    const bool allowed = plugged_ && !done_ && !hold_ && limits_.statusLevel < 1;
    if (allowed && !charging_) {
        charging_ = true;
        if (!sessionOpen_) {
            sessionStartSoc_ = soc_;
        }
        sessionOpen_ = true;
        ++chargeStarts_;
    } else if (!allowed) {
        charging_ = false;
    }
}

double PhoneModel::LoadCurrent() const {
    if (soc_ <= 0.0) {
        return 0.0;  // the phone is off
    }
    if (plugged_) {
        const bool aboveWindow = hold_ && ShownSoc() * 100.0 > limits_.socHighPct;
        return aboveWindow ? params_.standby_current_ma / 1000.0 : 0.0;
    }
    return params_.day_current_ma / 1000.0 * day_.usageFactor;
}

void PhoneModel::Step(double dt) {
    const double r = ResistanceOhm();
    const double q = fccAh_ * kSecondsPerHour;  // coulombs
    const double socBefore = soc_;
    double moved = 0.0;  // coulombs, + into the cell
    double endCurrent = 0.0;
    ChargeEnd end = ChargeEnd::kRunning;
    if (charging_) {
        end = ChargeStep(dt, r, moved, endCurrent);
    } else {
        const double load = LoadCurrent();
        moved = -std::min(load * dt, soc_ * q);
        endCurrent = soc_ * q + moved > 0.0 ? -load : 0.0;
        soc_ = std::max(0.0, soc_ + moved / q);
        if (moved < 0.0) {
            done_ = false;  // a battery that supplies the phone is no longer full
        }
    }
    currentA_ = endCurrent;
    if (moved != 0.0) {
        const double ah = std::fabs(moved) / kSecondsPerHour;
        throughputAh_ += ah;
        cycleDose_ += ah / designAh_ * cell::CycleWeight(cell::Ocv(0.5 * (socBefore + soc_)));
    }

    // First-order thermal response to the step's mean I^2*R heat.
    const double meanCurrent = moved / dt;
    const double steady =
        params_.ambient_c + meanCurrent * meanCurrent * r * params_.thermal_resistance_k_per_w;
    const double decay =
        dt == kMaxStepSeconds ? thermalDecay60_ : std::exp(-dt / params_.thermal_time_constant_s);
    tempC_ = steady + (tempC_ - steady) * decay;

    const double ocv = cell::Ocv(soc_);
    agingRateSum_ += cell::CalendarRate(tempC_, ocv) * dt;
    swellingPct_ += cell::SwellingRate(tempC_, ocv) * dt / kSecondsPerDay;
    agingSeconds_ += dt;
    if (agingSeconds_ >= kAgingPeriodSeconds) {
        FlushAging();
    }

    if (end == ChargeEnd::kTerminated) {
        CompleteCharge();
    } else if (end == ChargeEnd::kCapped) {
        hold_ = true;
        charging_ = false;
        if (sessionOpen_) {
            EndSession();
        }
    }
}

PhoneModel::ChargeEnd PhoneModel::ChargeStep(double dt, double r, double& moved,
                                             double& endCurrent) {
    const double q = fccAh_ * kSecondsPerHour;
    const double vterm = EffectiveVtermMv() / 1000.0;
    const double ilim = EffectiveCurrentLimitMa() / 1000.0;
    const double iterm = params_.termination_current_ma / 1000.0;
    const double cap = SocCap();
    double left = dt;
    moved = 0.0;
    endCurrent = 0.0;

    // Constant current until the terminal voltage reaches the termination voltage.
    double ocv = cell::Ocv(soc_);
    if (ocv + ilim * r < vterm) {
        const double switchSoc = cell::SocAtOcv(vterm - ilim * r);
        const double stopSoc = std::min(switchSoc, cap);
        const double toStop = (stopSoc - soc_) * q / ilim;  // s
        if (toStop >= left) {
            soc_ += ilim * left / q;
            moved = ilim * left;
            endCurrent = ilim;
            return ChargeEnd::kRunning;
        }
        const double used = std::max(0.0, toStop);
        soc_ = std::max(soc_, stopSoc);
        moved = ilim * used;
        left -= used;
        if (stopSoc >= cap) {
            return ChargeEnd::kCapped;
        }
        ocv = cell::Ocv(soc_);
    }

    // Constant voltage: I = (Vterm - OCV) / R decays as exp(-t / tau), tau = R * Q / slope.
    const double i0 = std::min(ilim, (vterm - ocv) / r);
    if (i0 <= iterm || soc_ >= 1.0) {
        return ChargeEnd::kTerminated;
    }
    const double tau = r * q / cell::OcvSlope(soc_);
    const double toTerm = tau * std::log(i0 / iterm);
    const double capCharge = (cap - soc_) * q;  // coulombs to the window's stop
    double toCap = left + 1.0;
    if (cap < 1.0 && capCharge < i0 * tau) {
        toCap = -tau * std::log(1.0 - capCharge / (i0 * tau));
    }
    const double run = std::min({left, toTerm, toCap});
    const double e = std::exp(-run / tau);
    const double dq = i0 * tau * (1.0 - e);
    soc_ = std::min(1.0, soc_ + dq / q);
    moved += dq;
    if (run == toCap) {
        return ChargeEnd::kCapped;
    }
    if (run == toTerm) {
        return ChargeEnd::kTerminated;
    }
    endCurrent = i0 * e;
    return ChargeEnd::kRunning;
}

void PhoneModel::FlushAging() {
    if (agingSeconds_ > 0.0) {
        calendarFade_ = cell::AdvanceCalendarFade(calendarFade_, agingRateSum_ / agingSeconds_,
                                                  agingSeconds_ / kSecondsPerDay);
    }
    agingRateSum_ = 0.0;
    agingSeconds_ = 0.0;
    fade_ = std::min(cell::kMaxFade,
                     params_.aging_scale * (calendarFade_ + cell::CycleFade(cycleDose_)));
    fccAh_ = designAh_ * (1.0 - fade_);
}

void PhoneModel::CompleteCharge() {
    charging_ = false;
    done_ = true;
    fullSoc_ = std::max(kMinFullSoc, soc_);
    if (sessionOpen_) {
        EndSession();
    }
}

void PhoneModel::EndSession() {
    sessionOpen_ = false;
    AgingRecord& rec = agingRecord_;
    // The gauge learns the capacity only from a charge long enough to measure it.
    if (soc_ - sessionStartSoc_ >= kMinLearnSocDelta) {
        const double noise =
            (Noise(params_.seed, static_cast<int64_t>(agingRecords_), kFccNoiseSalt) - 0.5) *
            kFccNoise;
        const uint32_t learned = RoundU32(fccAh_ * 1000.0 * (1.0 + noise));
        if (rec.fccCount == AgingRecord::kMaxFccs) {
            std::copy(rec.fccs + 1, rec.fccs + AgingRecord::kMaxFccs, rec.fccs);
            rec.fccs[AgingRecord::kMaxFccs - 1] = learned;
        } else {
            rec.fccs[rec.fccCount++] = learned;
        }
    }
    rec.cycleCount = static_cast<uint32_t>(Cycles());
    ++agingRecords_;
}

void PhoneModel::MaybeMeasureImpedance() {
    if (impedanceDay_ == day_.number || !day_.InEisWindow(now_) || !plugged_ || charging_) {
        return;
    }
    impedanceDay_ = day_.number;
    const double r = ResistanceOhm();
    impedance_.dcrUohm = RoundU32(r * 1e6);
    impedance_.acrUohm = RoundU32(r * kAcrShare * 1e6);
    impedance_.r0Uohm = RoundU32(r * kR0Share * 1e6);
    impedance_.cycleCount = static_cast<uint32_t>(Cycles());
    impedance_.tempC = static_cast<int32_t>(std::lround(tempC_));
    impedance_.voltMv = RoundU32(cell::Ocv(soc_) * 1000.0);
    ++impedanceCount_;
}

}  // namespace sim
