// The cell's laws: its open-circuit voltage curve, the temperature dependence of its
// resistance, its capacity fade and its swelling. Pure functions of their arguments; no state,
// no locks.
//
// Units: SOC as a fraction 0..1 of the cell's present capacity; voltages V; temperatures K
// where named "kelvin", otherwise degC; resistance factors and fades dimensionless; calendar
// time in days; charge throughput normalised to the design capacity (Ah / design Ah, so one
// equivalent full cycle of charge and discharge is 2).
//
// OCV: a table of a graphite / LCO-type cell of the 4.45 V class every 5 % SOC, 3.40 V empty
// and 4.45 V at 100 %, interpolated linearly. The curve has the shape of published OCV-SOC
// curves of such cells (the flat graphite stages between 20 and 50 %, the steep LCO rise above
// 80 %); its points are ours.
//
// Aging: calendar fade, cycle fade and swelling, each a function of the OCV (the electrodes'
// state, not the terminal voltage) and the cell temperature. The coefficients come from
// published measurements of commercial graphite-anode cells; sim/model/README.md lists the
// figures, what was fitted to which, and what is assumed. In short:
//
//   calendar  Qcal = kcal(T, V) * t^0.75                                 t in days
//             kcal = kSei * A(T, kSeiEa) + kHv * A(T, kHvEa) * exp((V - kVFull) / kHvVScale)
//             A(T, Ea) = exp(Ea/Rg * (1/Tref - 1/T))
//             two terms: a slow, strongly thermal one at every SOC (anode film growth) and one
//             that rises with the voltage (electrolyte oxidation at the charged cathode); fitted
//             to one-year storage fades at 40 % and 100 % SOC and 0 to 60 degC.
//   cycling   Qcyc = kCyc * sqrt(D),  D = sum |dAh| / designAh * w(V)
//             w(V) = exp((V - kVFull) / kCycVScale) / kCycWeightMean: charge moved near the top
//             of the curve wears the cell more; w averages 1 over a cycle from empty to full,
//             so D is the charge throughput of full cycles (2 per cycle). kCycVScale makes a
//             cycle to a 100 mV lower cut-off wear about half as much, which about doubles the
//             cycle life.
//   swelling  dS/dt = kSwell * A(T, kSwellEa) * exp(max(0, V - kSwellKneeV) / kSwellVScale)
//             S in % of the cell's thickness; flat below 80 % SOC, rising steeply above.
//   fade      F = aging_scale * (Qcal + Qcyc);  capacity = design * (1 - F)
//
// Voltages are mapped by SOC: a storage at "100 %" in the literature (a 4.2 V cell at 4.2 V)
// is taken as this cell at kVFull, a cut-off "100 mV lower" as 100 mV below kVFull.
// With a varying kcal the calendar term is integrated by the equivalent-time rule (the fade so
// far is converted into the time that the present kcal would have needed, then advanced).
//
// Resistance: R = R25 * (1 + kRFade * F) * exp(EaR/Rg * (1/T - 1/Tref)): growth tied to the
// fade, and an Arrhenius rise at low temperature (about x2 at 0 degC).
#pragma once

namespace sim {
namespace cell {

constexpr double kGasConstant = 8.314;  // J/(mol K)
constexpr double kRefKelvin = 298.15;   // 25 degC
constexpr double kZeroCelsius = 273.15;

constexpr double kVFull = 4.45;  // OCV of the full cell, V

// Calendar aging (per day^0.75 at 25 degC).
constexpr double kCalExponent = 0.75;
constexpr double kSei = 1.99e-4;    // film growth, at every SOC
constexpr double kSeiEa = 85000.0;  // J/mol
constexpr double kHv = 2.196e-3;    // high-voltage term at kVFull
constexpr double kHvEa = 20000.0;   // J/mol
constexpr double kHvVScale = 0.30;  // V per e-fold
// Cycle aging.
constexpr double kCyc = 7.07e-3;            // per sqrt(D): 400 full cycles (D = 800) fade 20 %
constexpr double kCycVScale = 0.11;         // V per e-fold of the wear per Ah
constexpr double kCycWeightMean = 0.06758;  // mean of exp((V - kVFull) / kCycVScale) over 0..100 %
// Swelling, % of the thickness per day at 25 degC below the knee.
constexpr double kSwell = 3.0e-3;
constexpr double kSwellEa = 53000.0;    // J/mol: doubles per 10 K near room temperature
constexpr double kSwellKneeV = 4.16;    // OCV at 80 % SOC
constexpr double kSwellVScale = 0.126;  // V per e-fold: x10 from the knee to kVFull
// Resistance.
constexpr double kRFade = 2.5;    // relative growth per unit of fade
constexpr double kREa = 20000.0;  // J/mol
// The fade is kept below this (a cell that far gone is not simulated further).
constexpr double kMaxFade = 0.9;

// OCV of the curve at `soc` (clamped to 0..1), V.
double Ocv(double soc);
// dOCV/dSOC of the segment holding `soc`, V per unit SOC (always > 0).
double OcvSlope(double soc);
// The SOC at which the curve reaches `ocv` (clamped to 0..1).
double SocAtOcv(double ocv);

// Calendar rate kcal at cell temperature `celsius` and open-circuit voltage `ocv`, per
// day^0.75, before aging_scale.
double CalendarRate(double celsius, double ocv);
// Calendar fade after advancing `fade` (the calendar fade so far) by `days` at the mean rate
// `rate` (equivalent-time rule).
double AdvanceCalendarFade(double fade, double rate, double days);
// Wear weight w of charge moved at open-circuit voltage `ocv` (1 on average over a full cycle).
double CycleWeight(double ocv);
// Cycle fade after a weighted throughput D of `dose` (design-Ah units, 2 per full cycle).
double CycleFade(double dose);
// Swelling rate at cell temperature `celsius` and open-circuit voltage `ocv`, % per day, before
// aging_scale.
double SwellingRate(double celsius, double ocv);
// Resistance factor relative to a new cell at 25 degC.
double ResistanceFactor(double celsius, double fade);

}  // namespace cell
}  // namespace sim
