// Parameters of the simulated phone: its cell, its charger and its user.
//
// A scenario gives them as one JSON object whose keys are the field names below; every key is
// optional (the default stands) and an unknown key is an error, so that a misspelt key cannot
// silently leave a default in place. Units are in the key names: mAh, mV, mA, mOhm, degC,
// hours of local time (fractions allowed, e.g. 22.5 is 22:30), minutes, seconds, K/W, percent.
//
// Threads: plain values, no locking.
#pragma once

#include <json/json.h>

#include <cstdint>
#include <string>

namespace sim {

struct ModelParams {
    // --- Cell (a graphite / LCO-type phone cell, 4.45 V class).
    double design_capacity_mah = 4500.0;  // capacity of a new cell, [500, 20000]
    int termination_voltage_mv = 4450;    // charger's nominal termination voltage, [4000, 4450]
    double resistance_mohm = 60.0;        // DC resistance of a new cell at 25 degC, [5, 1000]
    double termination_current_ma =
        225.0;              // charge ends when the CV current falls below, [10, 2000]
    int recharge_mv = 100;  // a full battery charges again when its OCV drops this far, [10, 500]

    // --- Start state.
    double start_cycles = 0.0;    // equivalent full cycles already done, [0, 5000]
    double start_age_days = 0.0;  // calendar age at the start, days, [0, 3650]
    double start_soc_pct = 60.0;  // state of charge at the start, [0, 100]
    double ambient_c = 25.0;      // ambient temperature, degC, [-20, 60]

    // --- Thermal: first-order, I^2*R heating.
    double thermal_resistance_k_per_w = 10.0;  // cell to ambient, K/W, [0.5, 100]
    double thermal_time_constant_s = 1500.0;   // s, [60, 36000]

    // --- Charger.
    // Adapter in use, as the kernel names charger types: buck "dcp", "fcp", "pd", "wl";
    // direct (switched-capacitor) "lvc", "sc", "wl_sc".
    std::string adapter = "sc";
    int charger_type_code = 3;            // chargerType node while plugged, [0, 100], not 5
    double charge_current_max_ma = 5000;  // hardware maximum (basp_ichg_max), [100, 20000]
    double buck_current_max_ma = 2000;    // buck charger's own maximum, [100, 20000]

    // --- User (local time; the TZ environment variable decides the zone).
    double plug_hour = 22.0;             // plugs in around this hour every evening, [0, 24)
    double unplug_hour = 7.0;            // unplugs around this hour every morning, [0, 24)
    double schedule_jitter_min = 30;     // day-to-day spread of both, +/- minutes, [0, 180]
    double day_current_ma = 220.0;       // mean discharge current while unplugged, [0, 5000]
    double day_current_spread_pct = 25;  // day-to-day spread of that current, +/- %, [0, 90]
    double standby_current_ma = 10.0;    // drawn from a held battery above its SOC window, [0, 500]
    double eis_hour = 3.0;               // impedance measurement once a day from this hour, [0, 24)
    uint32_t seed = 1;                   // seeds the day-to-day spreads and the FCC noise

    // --- Aging.
    double aging_scale =
        1.0;  // multiplies the fade and swelling laws (scenarios that need fast aging), [0, 1000]

    // --- Kernel identity.
    std::string battery_name;  // non-empty: served by the brand nodes ("NAME\n"); empty: the tree's

    bool IsDirectAdapter() const;
};

// The kernel's charger type words; true for one of the seven above.
bool IsChargerTypeWord(const std::string& word);

// Fills `out` from `obj` over the defaults. `obj` may be null (all defaults) or an object.
// Returns false with a message naming the key and the problem (wrong type, out of range,
// unknown key, or a plug/unplug schedule that is not overnight); `out` then holds partial values.
bool LoadModelParams(const Json::Value& obj, ModelParams& out, std::string& error);

}  // namespace sim
