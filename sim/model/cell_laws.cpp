// The cell's OCV curve, resistance and aging laws (see cell_laws.h for the forms and units).
#include "sim/model/cell_laws.h"

#include <algorithm>
#include <cmath>

namespace sim {
namespace cell {

namespace {

constexpr int kSegments = 20;  // points every 5 % SOC
constexpr double kOcvTable[kSegments + 1] = {
    3.400, 3.610, 3.680, 3.715, 3.745, 3.770, 3.790, 3.810, 3.832, 3.858, 3.888,
    3.925, 3.968, 4.013, 4.060, 4.108, 4.160, 4.215, 4.275, 4.345, 4.450,
};

int Segment(double soc) {
    const int k = static_cast<int>(soc * kSegments);
    return std::clamp(k, 0, kSegments - 1);
}

}  // namespace

double Ocv(double soc) {
    soc = std::clamp(soc, 0.0, 1.0);
    const int k = Segment(soc);
    const double frac = soc * kSegments - k;
    return kOcvTable[k] + (kOcvTable[k + 1] - kOcvTable[k]) * frac;
}

double OcvSlope(double soc) {
    const int k = Segment(std::clamp(soc, 0.0, 1.0));
    return (kOcvTable[k + 1] - kOcvTable[k]) * kSegments;
}

double SocAtOcv(double ocv) {
    if (ocv <= kOcvTable[0]) {
        return 0.0;
    }
    for (int k = 0; k < kSegments; ++k) {
        if (ocv <= kOcvTable[k + 1]) {
            const double frac = (ocv - kOcvTable[k]) / (kOcvTable[k + 1] - kOcvTable[k]);
            return (k + frac) / kSegments;
        }
    }
    return 1.0;
}

namespace {

// Arrhenius factor relative to 25 degC.
double Arrhenius(double celsius, double ea) {
    return std::exp(ea / kGasConstant * (1.0 / kRefKelvin - 1.0 / (celsius + kZeroCelsius)));
}

}  // namespace

double CalendarRate(double celsius, double ocv) {
    return kSei * Arrhenius(celsius, kSeiEa) +
           kHv * Arrhenius(celsius, kHvEa) * std::exp((ocv - kVFull) / kHvVScale);
}

double AdvanceCalendarFade(double fade, double rate, double days) {
    if (rate <= 0.0 || days <= 0.0) {
        return fade;
    }
    const double equivalentDays = std::pow(fade / rate, 1.0 / kCalExponent);
    return rate * std::pow(equivalentDays + days, kCalExponent);
}

double CycleWeight(double ocv) {
    return std::exp((ocv - kVFull) / kCycVScale) / kCycWeightMean;
}

double CycleFade(double dose) {
    return kCyc * std::sqrt(std::max(0.0, dose));
}

double SwellingRate(double celsius, double ocv) {
    return kSwell * Arrhenius(celsius, kSwellEa) *
           std::exp(std::max(0.0, ocv - kSwellKneeV) / kSwellVScale);
}

double ResistanceFactor(double celsius, double fade) {
    const double kelvin = celsius + kZeroCelsius;
    return (1.0 + kRFade * std::clamp(fade, 0.0, kMaxFade)) *
           std::exp(kREa / kGasConstant * (1.0 / kelvin - 1.0 / kRefKelvin));
}

}  // namespace cell
}  // namespace sim
