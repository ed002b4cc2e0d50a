// The simulated phone's physics, user and events: charging to the effective termination
// voltage, the SOC window, current limits, aging over a year, heating, time stepping, the
// local-time schedule and the event counts, and the parameter checks.
#include <gtest/gtest.h>
#include <json/json.h>

#include <cmath>
#include <cstdlib>
#include <ctime>
#include <memory>

#include "sim/model/phone_model.h"

namespace sim {
namespace {

constexpr double kNewYear = 1704067200.0;  // 2024-01-01 00:00 UTC

double At(int day, double hour) {
    return kNewYear + day * 86400.0 + hour * 3600.0;
}

void SetZone(const char* tz) {
    setenv("TZ", tz, 1);
    tzset();
}

// Parameters without day-to-day spread, so that instants are exact.
ModelParams Quiet(double startSoc = 20.0) {
    ModelParams p;
    p.schedule_jitter_min = 0;
    p.day_current_spread_pct = 0;
    p.start_soc_pct = startSoc;
    return p;
}

class SimModelTest : public ::testing::Test {
protected:
    void SetUp() override { SetZone("UTC"); }
};

Json::Value ParseJson(const char* text) {
    Json::Value v;
    std::string errors;
    std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    const std::string s(text);
    EXPECT_TRUE(reader->parse(s.data(), s.data() + s.size(), &v, &errors)) << text;
    return v;
}

TEST(SimModelParamsTest, DefaultsOverridesAndClearErrors) {
    ModelParams p;
    std::string error;
    ASSERT_TRUE(LoadModelParams(Json::Value(), p, error));
    ASSERT_TRUE(
        LoadModelParams(ParseJson(R"({"ambient_c": 35, "adapter": "dcp", "seed": 7})"), p, error));
    EXPECT_EQ(p.ambient_c, 35.0);
    EXPECT_FALSE(p.IsDirectAdapter());
    EXPECT_EQ(p.seed, 7u);

    const std::pair<const char*, const char*> cases[] = {
        {"[1]", "must be a JSON object"},
        {R"({"ambient_c": "hot"})", "\"ambient_c\" must be a number"},
        {R"({"ambient_c": true})", "\"ambient_c\" must be a number"},
        {R"({"ambient_c": 80})", "\"ambient_c\" is 80, must be within [-20, 60]"},
        {R"({"termination_voltage_mv": 4400.5})", "\"termination_voltage_mv\" must be an integer"},
        {R"({"seed": -1})", "\"seed\" is -1, must be within [0, 4294967295]"},
        {R"({"plug_hour": 24})", "must be within [0, 24)"},
        {R"({"adapter": "usb"})", "\"adapter\" is \"usb\", must be one of"},
        {R"({"charger_type_code": 5})", "means no charger"},
        {R"({"unplug_hour": 21, "plug_hour": 20})", "overnight"},
        {R"({"unplug_hour": 10, "plug_hour": 12, "schedule_jitter_min": 90})", "overnight"},
        {R"({"design_capcity_mah": 4000})", "\"design_capcity_mah\" is unknown"},
    };
    for (const auto& [json, message] : cases) {
        error.clear();
        EXPECT_FALSE(LoadModelParams(ParseJson(json), p, error)) << json;
        EXPECT_NE(error.find(message), std::string::npos) << json << " -> " << error;
    }
}

TEST_F(SimModelTest, ChargeEndsAtTheEffectiveTerminationVoltage) {
    for (int dec : {0, 50}) {
        PhoneModel m(Quiet(), At(0, 22));
        ChargerLimits limits;
        limits.vtermDecMv = dec;
        limits.policyVdecMv = dec / 2;  // the larger decrease applies
        m.SetLimits(limits);
        const double vterm = (4450 - dec) / 1000.0;
        double vmax = 0.0;
        for (double t = At(0, 22); t < At(0, 24); t += 30.0) {
            m.AdvanceTo(t);
            vmax = std::max(vmax, m.State().voltageV);
        }
        const CellState s = m.State();
        EXPECT_EQ(s.vtermMv, 4450 - dec);
        EXPECT_NEAR(vmax, vterm, 0.005) << dec;
        EXPECT_TRUE(s.chargeDone);
        EXPECT_FALSE(s.charging);
        EXPECT_EQ(s.currentA, 0.0);
        EXPECT_LT(s.ocvV, vterm);
        EXPECT_GT(s.ocvV, vterm - 0.03);  // ended by the taper, close to the voltage
        EXPECT_EQ(m.ShownSocPercent(), 100);
    }
    PhoneModel m(Quiet(), At(0, 22));
    ChargerLimits limits;
    limits.vtermDecMv = 10;
    limits.policyVdecMv = 40;
    m.SetLimits(limits);
    EXPECT_EQ(m.EffectiveVtermMv(), 4410);
}

TEST_F(SimModelTest, SocWindowHoldsAtHighResumesBelowLowAndStatusStopsCharging) {
    PhoneModel m(Quiet(), At(0, 22));
    ChargerLimits window;
    window.socWindow = true;
    window.socLowPct = 80;
    window.socHighPct = 90;
    m.SetLimits(window);
    m.AdvanceTo(At(1, 6));
    CellState s = m.State();
    EXPECT_TRUE(s.socHold);
    EXPECT_FALSE(s.charging);
    EXPECT_NEAR(s.shownSocPct, 90.0, 0.2);  // stopped at HIGH, and held there all night
    // Reaching HIGH ends the session like a charge done: an aging record with a learned FCC.
    EXPECT_EQ(m.AgingRecords(), 1u);
    EXPECT_EQ(m.LastAgingRecord().fccCount, 1u);

    // New bounds around the present SOC keep the hold; a LOW above it lets charging resume.
    const uint64_t starts = m.ChargeStarts();
    window.socLowPct = 85;
    window.socHighPct = 95;
    m.SetLimits(window);
    EXPECT_FALSE(m.State().charging);
    window.socLowPct = 92;
    m.SetLimits(window);
    EXPECT_TRUE(m.State().charging);
    EXPECT_EQ(m.ChargeStarts(), starts + 1);
    m.AdvanceTo(At(1, 6.5));
    EXPECT_NEAR(m.State().shownSocPct, 95.0, 0.2);
    // A 5 % top-up is recorded, but too short to learn the capacity from.
    EXPECT_EQ(m.AgingRecords(), 2u);
    EXPECT_EQ(m.LastAgingRecord().fccCount, 1u);

    // A day of use takes it below LOW: the evening charge runs up to HIGH again.
    window.socLowPct = 80;
    window.socHighPct = 90;
    m.SetLimits(window);
    m.AdvanceTo(At(1, 21.9));
    EXPECT_LT(m.State().shownSocPct, 80.0);
    m.AdvanceTo(At(2, 1));
    EXPECT_EQ(m.ChargeStarts(), starts + 2);
    EXPECT_NEAR(m.State().shownSocPct, 90.0, 0.2);

    // A status level of 1 or more stops charging; a lifted level (-1) lets it start again.
    PhoneModel n(Quiet(), At(0, 22));
    ChargerLimits status;
    status.statusLevel = 2;
    n.SetLimits(status);
    n.AdvanceTo(At(0, 23));
    EXPECT_FALSE(n.State().charging);
    EXPECT_NEAR(n.State().socPct, 20.0, 1e-9);
    status.statusLevel = -1;
    n.SetLimits(status);
    EXPECT_TRUE(n.State().charging);
    EXPECT_EQ(n.ChargeStarts(), 1u);
}

TEST_F(SimModelTest, CurrentLimitsSetTheChargeRate) {
    struct Case {
        const char* adapter;
        int buckLimit;
        int ratio;
        double amps;
    };
    const Case cases[] = {
        {"dcp", -1, -1, 2.0},                            // the buck charger's own maximum
        {"dcp", 1000, -1, 1.0}, {"dcp", 1000, 50, 1.0},  // the ratio is the direct charger's
        {"sc", -1, -1, 5.0},    {"sc", -1, 50, 2.5},
        {"sc", -1, 10, 2.0},  // below the buck's current the buck charger takes over
        {"sc", 1000, 10, 1.0},  {"sc", -1, 150, 5.0},  // never above the hardware maximum
    };
    for (const Case& c : cases) {
        ModelParams p = Quiet();
        p.adapter = c.adapter;
        PhoneModel m(p, At(0, 22));
        ChargerLimits limits;
        limits.buckLimitMa = c.buckLimit;
        limits.directRatioPct = c.ratio;
        m.SetLimits(limits);
        m.AdvanceTo(At(0, 22) + 300.0);
        const CellState s = m.State();
        const std::string what = std::string(c.adapter) + " " + std::to_string(c.buckLimit) + " " +
                                 std::to_string(c.ratio);
        EXPECT_EQ(s.currentLimitMa, std::lround(c.amps * 1000)) << what;
        EXPECT_NEAR(s.currentA, c.amps, 1e-9) << what;
        EXPECT_NEAR(s.socPct - 20.0, c.amps * 300.0 / 3600.0 / (s.fccMah / 1000.0) * 100.0, 1e-6)
            << what;
    }
}

CellState AfterAYear(double ambient, int socHigh) {
    ModelParams p;
    p.ambient_c = ambient;
    PhoneModel m(p, At(0, 0));
    if (socHigh < 100) {
        ChargerLimits limits;
        limits.socWindow = true;
        limits.socLowPct = socHigh - 5;
        limits.socHighPct = socHigh;
        m.SetLimits(limits);
    }
    m.AdvanceTo(At(365, 0));
    return m.State();
}

// The laws' published figures (storage at full: 20 % a year; 400 full cycles to 80 %) put a
// year of nightly full charges at 25 degC at a quarter to a third of the capacity.
TEST_F(SimModelTest, AYearOfNightlyFullChargesFadesAsTheLawsSayAndFasterWhenHotOrKeptFull) {
    const CellState typical = AfterAYear(25.0, 100);
    EXPECT_GE(typical.fadePct, 24.0);
    EXPECT_LE(typical.fadePct, 34.0);
    EXPECT_NEAR(typical.fccMah, 4500.0 * (1.0 - typical.fadePct / 100.0), 1e-6);
    EXPECT_GT(typical.cycles, 200.0);
    EXPECT_GT(typical.resistanceMohm, 60.0 * 1.15);  // grown with the fade (measured at ~25 degC)

    EXPECT_GT(AfterAYear(35.0, 100).fadePct, typical.fadePct + 2.0);
    EXPECT_LT(AfterAYear(25.0, 60).fadePct, typical.fadePct - 2.0);

    // Start cycles are aged in at once.
    ModelParams used;
    used.start_cycles = 500;
    const CellState old = PhoneModel(used, At(0, 0)).State();
    EXPECT_DOUBLE_EQ(old.cycles, 500.0);
    EXPECT_GT(old.fadePct, 5.0);
}

TEST_F(SimModelTest, ChargingWarmsTheCellAndItCoolsBackToAmbient) {
    ModelParams p = Quiet(10.0);
    p.ambient_c = 20.0;
    PhoneModel m(p, At(0, 22));
    m.AdvanceTo(At(0, 22.4));
    EXPECT_GT(m.State().tempC, 25.0);
    m.AdvanceTo(At(1, 3));
    EXPECT_FALSE(m.State().charging);
    EXPECT_NEAR(m.State().tempC, 20.0, 0.2);
}

TEST_F(SimModelTest, TimeNeverGoesBackAndTheStepPatternDoesNotMatter) {
    PhoneModel once(ModelParams{}, At(0, 0));
    PhoneModel often(ModelParams{}, At(0, 0));
    once.AdvanceTo(At(3, 0));
    for (double t = At(0, 0); t < At(3, 0); t += 7.3) {
        often.AdvanceTo(t);
    }
    often.AdvanceTo(At(3, 0));
    const CellState a = once.State();
    const CellState b = often.State();
    EXPECT_NEAR(a.socPct, b.socPct, 0.2);
    EXPECT_NEAR(a.cycles, b.cycles, 0.02);
    EXPECT_NEAR(a.fccMah, b.fccMah, 1.0);
    EXPECT_EQ(once.ChargeStarts(), often.ChargeStarts());
    EXPECT_EQ(once.AgingRecords(), often.AgingRecords());
    EXPECT_EQ(once.ImpedanceMeasurements(), often.ImpedanceMeasurements());

    once.AdvanceTo(At(2, 0));
    once.AdvanceTo(NAN);
    once.AdvanceTo(INFINITY);
    EXPECT_EQ(once.Now(), At(3, 0));
    EXPECT_EQ(once.State().socPct, a.socPct);
}

TEST_F(SimModelTest, EventsComeOncePerChargeAndPerLocalDay) {
    SetZone("JST-9");  // 22:00 local is 13:00 UTC, 03:00 local is 18:00 UTC
    PhoneModel m(Quiet(50.0), kNewYear + 12 * 3600.0);
    m.AdvanceTo(kNewYear + 13 * 3600.0 - 1.0);
    EXPECT_FALSE(m.State().plugged);
    EXPECT_EQ(m.ChargeStarts(), 0u);
    m.AdvanceTo(kNewYear + 13 * 3600.0);
    EXPECT_TRUE(m.State().plugged);
    EXPECT_EQ(m.ChargeStarts(), 1u);

    m.AdvanceTo(kNewYear + 18 * 3600.0 - 1.0);
    EXPECT_EQ(m.AgingRecords(), 1u);  // the charge ended at "done"
    EXPECT_EQ(m.ImpedanceMeasurements(), 0u);
    m.AdvanceTo(kNewYear + 18 * 3600.0);
    EXPECT_EQ(m.ImpedanceMeasurements(), 1u);
    const ImpedanceMeasurement& z = m.LastImpedance();
    EXPECT_NEAR(z.dcrUohm, m.State().resistanceMohm * 1000.0, 1.0);
    EXPECT_LT(z.acrUohm, z.dcrUohm);

    // Six nights: six charges, six records, six measurements; the ring keeps the last five.
    AgingRecord before;
    for (int morning = 0; morning < 6; ++morning) {  // 06:00 local, charged and idle
        before = m.LastAgingRecord();
        m.AdvanceTo(kNewYear + 21 * 3600.0 + morning * 86400.0);
    }
    EXPECT_EQ(m.ChargeStarts(), 6u);
    EXPECT_EQ(m.AgingRecords(), 6u);
    EXPECT_EQ(m.ImpedanceMeasurements(), 6u);
    const AgingRecord& rec = m.LastAgingRecord();
    EXPECT_EQ(rec.designFcc, 4500u);
    EXPECT_EQ(rec.fccCount, 5u);
    EXPECT_EQ(rec.cycleCount, static_cast<uint32_t>(m.State().cycles));
    for (uint32_t i = 0; i + 1 < AgingRecord::kMaxFccs; ++i) {
        EXPECT_EQ(rec.fccs[i], before.fccs[i + 1]);  // shifted, oldest first
    }
    EXPECT_NEAR(rec.fccs[4], m.State().fccMah, m.State().fccMah * 0.005);
}

TEST_F(SimModelTest, UserDaysSpreadBySeedAndFollowTheLocalCalendar) {
    ModelParams p;
    p.schedule_jitter_min = 30;
    int differing = 0;
    for (int d = 0; d < 10; ++d) {
        const UserDay day = MakeUserDay(At(d, 12), p);
        EXPECT_EQ(day.start, At(d, 0));
        EXPECT_LE(std::fabs(day.plugAt - At(d, 22)), 1800.0);
        EXPECT_LE(std::fabs(day.unplugAt - At(d, 7)), 1800.0);
        EXPECT_EQ(day.plugAt, MakeUserDay(At(d, 1), p).plugAt);  // the same day, the same draw
        ModelParams other = p;
        other.seed = 2;
        differing += MakeUserDay(At(d, 12), other).plugAt != day.plugAt;
    }
    EXPECT_GE(differing, 9);

    SetZone("CET-1CEST,M3.5.0,M10.5.0/3");  // 2024-03-31 has 23 hours
    const double march31 = 1711839600.0;    // its local midnight
    const UserDay day = MakeUserDay(march31 + 43200.0, Quiet());
    EXPECT_EQ(day.start, march31);
    EXPECT_EQ(day.end - day.start, 23 * 3600.0);
    EXPECT_EQ(day.plugAt - day.start, 21 * 3600.0);  // 22:00 summer time
}

}  // namespace
}  // namespace sim
