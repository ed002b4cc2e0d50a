// One local calendar day of the simulated user: when the phone comes off the charger in the
// morning, when it goes back on in the evening, how hard it is used in between, and when the
// kernel's daily impedance measurement falls due.
//
// Local time is the process's (localtime_r / mktime, so the TZ environment variable decides);
// days of 23 or 25 hours are handled. The day-to-day spread is drawn from a hash of the seed
// and the day's number, so a day is the same however the simulation steps through it.
//
// Units: epoch seconds. Threads: plain values; MakeUserDay reads the time-zone state of the C
// library only.
#pragma once

#include <cstdint>

#include "sim/model/model_params.h"

namespace sim {

struct UserDay {
    int64_t number = 0;        // days since 1970-01-01 of the local calendar
    double start = 0.0;        // local midnight
    double end = 0.0;          // next local midnight
    double unplugAt = 0.0;     // morning unplug
    double plugAt = 0.0;       // evening plug-in
    double eisAt = 0.0;        // impedance measurement due from here
    double usageFactor = 1.0;  // multiplies the day current

    bool Contains(double t) const { return t >= start && t < end; }
    // On the charger: before the morning unplug or from the evening plug-in.
    bool Plugged(double t) const { return t < unplugAt || t >= plugAt; }
    // From the impedance instant to the end of the charger period that holds it.
    bool InEisWindow(double t) const { return t >= eisAt && (eisAt >= plugAt || t < unplugAt); }
    // The first of the day's instants (unplug, plug, EIS, end) strictly after `t`.
    double NextBoundary(double t) const;
};

// The local day holding epoch time `t`.
UserDay MakeUserDay(double t, const ModelParams& params);

// A uniform number in [0, 1) from the seed, a counter and a salt (stable across platforms).
double Noise(uint32_t seed, int64_t counter, uint32_t salt);

}  // namespace sim
