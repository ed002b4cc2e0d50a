// The aging laws against the published figures they were set from (sim/model/README.md), and
// the simulated phone's aging answering to a lower termination voltage and an SOC window.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <ctime>

#include "sim/model/cell_laws.h"
#include "sim/model/phone_model.h"

namespace sim {
namespace {

constexpr double kNewYear = 1704067200.0;  // 2024-01-01 00:00 UTC
constexpr double kDay = 86400.0;

// One-year storage (three months at 60 degC): fade after storage at a constant SOC and
// temperature, against the published table. The 25 and 40 degC rows (the phone's range) must
// agree within 30 %, the 0 and 60 degC rows, which one law cannot meet together with them,
// within a factor of 1.75.
TEST(CellAgingLawsTest, StorageFadeFollowsThePublishedTable) {
    struct Point {
        double celsius, soc, days, fade, factor;
    };
    const Point table[] = {
        {0, 0.4, 365, 0.02, 1.75}, {25, 0.4, 365, 0.04, 1.3}, {40, 0.4, 365, 0.15, 1.3},
        {60, 0.4, 91, 0.25, 1.75}, {0, 1.0, 365, 0.06, 1.75}, {25, 1.0, 365, 0.20, 1.3},
        {40, 1.0, 365, 0.35, 1.3}, {60, 1.0, 91, 0.40, 1.75},
    };
    for (const Point& p : table) {
        const double fade =
            cell::AdvanceCalendarFade(0.0, cell::CalendarRate(p.celsius, cell::Ocv(p.soc)), p.days);
        EXPECT_LE(fade, p.fade * p.factor) << p.celsius << " degC, SOC " << p.soc;
        EXPECT_GE(fade, p.fade / p.factor) << p.celsius << " degC, SOC " << p.soc;
    }
    // At room temperature full storage ages five times faster than storage at 40 %.
    const double full = cell::CalendarRate(25, cell::Ocv(1.0));
    const double part = cell::CalendarRate(25, cell::Ocv(0.4));
    EXPECT_NEAR(full / part, 5.0, 0.25);
}

// Full-depth cycles from empty to a charge cut-off: cycles until the capacity falls to 80 %,
// against the published cycle counts per cut-off (the cell's full voltage stands for 4.20 V).
TEST(CellAgingLawsTest, CycleLifeDoublesPerHundredMillivoltsLowerCutOff) {
    struct Row {
        double belowFullV;
        double minCycles, maxCycles;
    };
    const Row rows[] = {{0.0, 300, 500}, {0.1, 600, 1000}, {0.2, 1200, 2000}, {0.3, 2400, 4000}};
    constexpr int kSlices = 2000;
    for (const Row& r : rows) {
        const double top = cell::SocAtOcv(cell::kVFull - r.belowFullV);
        double dose = 0.0;  // charge and discharge over the same range
        for (int i = 0; i < kSlices; ++i) {
            const double soc = top * (i + 0.5) / kSlices;
            dose += 2.0 * cell::CycleWeight(cell::Ocv(soc)) * top / kSlices;
        }
        // The cycle fade's square-root law reaches 20 % after a dose of (0.2 / kCyc)^2.
        double lo = 0, hi = 1e5;
        while (hi - lo > 1) {
            const double mid = 0.5 * (lo + hi);
            (cell::CycleFade(mid * dose) < 0.2 ? lo : hi) = mid;
        }
        EXPECT_GE(lo, r.minCycles) << r.belowFullV;
        EXPECT_LE(lo, r.maxCycles) << r.belowFullV;
    }
}

TEST(CellAgingLawsTest, SwellingIsFlatBelowEightyPercentAndSteepAbove) {
    const double at80 = cell::SwellingRate(25, cell::Ocv(0.8));
    for (double soc : {0.3, 0.5, 0.7}) {
        EXPECT_NEAR(cell::SwellingRate(25, cell::Ocv(soc)), at80, at80 * 0.01) << soc;
    }
    EXPECT_GE(cell::SwellingRate(25, cell::Ocv(1.0)), 5.0 * at80);
    EXPECT_GT(cell::SwellingRate(25, cell::Ocv(0.9)), 1.5 * at80);
    EXPECT_NEAR(cell::SwellingRate(35, cell::Ocv(1.0)) / cell::SwellingRate(25, cell::Ocv(1.0)),
                2.0, 0.1);
}

class SimAgingTest : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("TZ", "UTC", 1);
        tzset();
    }
};

// A pouch phone cell charged to full every night swells 8 to 10 % over 500 cycles.
TEST_F(SimAgingTest, NightlyFullChargeSwellsAsPublishedOverFiveHundredCycles) {
    PhoneModel m(ModelParams{}, kNewYear);
    int day = 0;
    while (m.State().cycles < 500.0 && day < 2000) {
        m.AdvanceTo(kNewYear + ++day * kDay);
    }
    ASSERT_GE(m.State().cycles, 500.0);
    EXPECT_GE(m.State().swellingPct, 8.0);
    EXPECT_LE(m.State().swellingPct, 10.0);
}

// What the daemon writes must show in the cell: a year with the termination voltage lowered or
// the SOC capped, against a year of nightly full charges. A 100 mV lower cut-off halves the
// cycle wear and takes a quarter off the calendar rate at full; a cap at 80 to 90 % keeps the
// cell out of the steep top of both laws for most of the day.
TEST_F(SimAgingTest, LowerTerminationVoltageAndSocCapSlowFadeAndSwelling) {
    auto year = [](int vdecMv, int socHigh) {
        PhoneModel m(ModelParams{}, kNewYear);
        ChargerLimits limits;
        limits.policyVdecMv = vdecMv;
        if (socHigh < 100) {
            limits.socWindow = true;
            limits.socLowPct = socHigh - 5;
            limits.socHighPct = socHigh;
        }
        m.SetLimits(limits);
        m.AdvanceTo(kNewYear + 365 * kDay);
        return m.State();
    };
    const CellState full = year(0, 100);
    struct Arm {
        int vdecMv, socHigh;
        double maxFadeRatio, minFadeRatio, maxSwellRatio;
    };
    const Arm arms[] = {
        {50, 100, 0.95, 0.75, 0.85},
        {100, 100, 0.85, 0.6, 0.65},
        {0, 90, 0.75, 0.45, 0.5},
        {0, 80, 0.6, 0.3, 0.35},
    };
    CellState previous = full;
    for (const Arm& a : arms) {
        const CellState s = year(a.vdecMv, a.socHigh);
        const std::string what =
            std::to_string(a.vdecMv) + " mV, " + std::to_string(a.socHigh) + " %";
        EXPECT_LE(s.fadePct, full.fadePct * a.maxFadeRatio) << what;
        EXPECT_GE(s.fadePct, full.fadePct * a.minFadeRatio) << what;
        EXPECT_LE(s.swellingPct, full.swellingPct * a.maxSwellRatio) << what;
        EXPECT_LT(s.fadePct, previous.fadePct) << what;  // each arm milder than the one before
        EXPECT_LT(s.swellingPct, previous.swellingPct) << what;
        EXPECT_NEAR(s.cycles, full.cycles, full.cycles * 0.05) << what;  // the same use
        previous = s;
    }
}

}  // namespace
}  // namespace sim
