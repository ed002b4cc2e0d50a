// The cell's laws: its open-circuit voltage curve, the temperature dependence of its
// resistance, and its capacity fade. Pure functions of their arguments; no state, no locks.
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
// Capacity fade, in the form of the semi-empirical aging laws of the literature (calendar
// fade proportional to t^0.75 with a voltage stress factor and an Arrhenius temperature term,
// cycle fade proportional to the square root of the charge throughput: Schmalstieg et al.,
// "A holistic aging model for Li(NiMnCo)O2 based 18650 lithium-ion batteries", J. Power
// Sources 257 (2014) 325-334; the Arrhenius-times-power-of-Ah form of Wang et al., "Cycle-life
// model for graphite-LiFePO4 cells", J. Power Sources 196 (2011) 3942-3948):
//
//   calendar  Qcal = kcal(T, V) * t^0.75                      t in days
//             kcal = kCal0 * exp(Ea/Rg * (1/Tref - 1/T)) * exp((Vocv - kVRef) / kVScale)
//   cycling   Qcyc = kCyc0 * sqrt(Ah / designAh)
//   fade      F = aging_scale * (Qcal + Qcyc);  capacity = design * (1 - F)
//
// The voltage factor is exponential (the electrolyte oxidation at the charged cathode rises
// exponentially with its potential), so that storage at a high SOC ages the cell several
// times faster than at a medium one. With a varying kcal the calendar term is integrated by
// the equivalent-time rule (the fade so far is converted into the time that the present kcal
// would have needed, then advanced). The coefficients are chosen, not fitted to one cell:
// a phone that is charged to full every night and cycled about 0.75 times a day at 25 degC
// loses about 10 % in a year, half calendar and half cycling.
//
// Resistance: R = R25 * (1 + kRFade * F) * exp(EaR/Rg * (1/T - 1/Tref)): growth tied to the
// fade, and an Arrhenius rise at low temperature (about x2 at 0 degC).
#pragma once

namespace sim {
namespace cell {

constexpr double kGasConstant = 8.314;  // J/(mol K)
constexpr double kRefKelvin = 298.15;   // 25 degC
constexpr double kZeroCelsius = 273.15;

// Calendar aging.
constexpr double kCal0 = 1.7e-4;    // per day^0.75 at 25 degC and kVRef
constexpr double kCalEa = 50000.0;  // J/mol
constexpr double kVRef = 3.90;      // V
constexpr double kVScale = 0.30;    // V per e-fold of the stress
constexpr double kCalExponent = 0.75;
// Cycle aging.
constexpr double kCyc0 = 2.1e-3;  // per sqrt(Ah / design Ah)
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
// Cycle fade after a normalised throughput of `ahPerDesignAh`.
double CycleFade(double ahPerDesignAh);
// Resistance factor relative to a new cell at 25 degC.
double ResistanceFactor(double celsius, double fade);

}  // namespace cell
}  // namespace sim
