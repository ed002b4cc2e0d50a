// The simulated user's local day (see user_day.h).
#include "sim/model/user_day.h"

#include <algorithm>
#include <cmath>
#include <ctime>

namespace sim {

namespace {

enum Salt : uint32_t { kUnplugSalt = 1, kPlugSalt = 2, kUsageSalt = 3 };

// Days since 1970-01-01 of a proleptic Gregorian date (H. Hinnant's days_from_civil).
int64_t DaysFromCivil(int64_t y, unsigned m, unsigned d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

// Epoch seconds of the local wall-clock time `hours` (fractional) on `date` (day offset
// `addDays`). mktime normalises overflowing fields and picks the zone's offset of that
// moment, so 22:00 on a day of 23 hours is 21 hours after its midnight.
double LocalTime(const struct tm& date, int addDays, double hours) {
    const double seconds = hours * 3600.0;
    const int whole = static_cast<int>(std::floor(seconds));
    struct tm t = date;
    t.tm_mday += addDays;
    t.tm_hour = whole / 3600;
    t.tm_min = 0;
    t.tm_sec = whole % 3600;
    t.tm_isdst = -1;
    return static_cast<double>(mktime(&t)) + (seconds - whole);
}

// Spread in [-1, 1).
double Spread(uint32_t seed, int64_t day, uint32_t salt) {
    return 2.0 * Noise(seed, day, salt) - 1.0;
}

}  // namespace

double Noise(uint32_t seed, int64_t counter, uint32_t salt) {
    // splitmix64 finaliser over the packed inputs.
    uint64_t z = (static_cast<uint64_t>(seed) << 32) ^ static_cast<uint64_t>(counter) ^
                 (static_cast<uint64_t>(salt) * 0x9E3779B97F4A7C15ull);
    z += 0x9E3779B97F4A7C15ull;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    z ^= z >> 31;
    return static_cast<double>(z >> 11) * (1.0 / 9007199254740992.0);
}

double UserDay::NextBoundary(double t) const {
    double next = end;
    for (double b : {unplugAt, plugAt, eisAt}) {
        if (b > t && b < next) {
            next = b;
        }
    }
    return next;
}

UserDay MakeUserDay(double t, const ModelParams& p) {
    const time_t whole = static_cast<time_t>(std::floor(t));
    struct tm date {};
    localtime_r(&whole, &date);

    UserDay day;
    day.number = DaysFromCivil(date.tm_year + 1900, static_cast<unsigned>(date.tm_mon + 1),
                               static_cast<unsigned>(date.tm_mday));
    // A zone whose clock skips midnight could put "midnight" after `t`: the day always holds t.
    day.start = std::min(LocalTime(date, 0, 0.0), t);
    day.end = std::max(LocalTime(date, 1, 0.0), t + 1.0);
    const double jitterS = p.schedule_jitter_min * 60.0;
    day.unplugAt =
        LocalTime(date, 0, p.unplug_hour) + jitterS * Spread(p.seed, day.number, kUnplugSalt);
    day.plugAt = LocalTime(date, 0, p.plug_hour) + jitterS * Spread(p.seed, day.number, kPlugSalt);
    day.eisAt = LocalTime(date, 0, p.eis_hour);
    day.usageFactor =
        1.0 + p.day_current_spread_pct / 100.0 * Spread(p.seed, day.number, kUsageSalt);
    // A day cut short by a clock change keeps its instants inside it.
    for (double* b : {&day.unplugAt, &day.plugAt, &day.eisAt}) {
        *b = std::clamp(*b, day.start, day.end);
    }
    return day;
}

}  // namespace sim
