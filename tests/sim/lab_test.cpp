// The policy lab's and the fleet's parts: figures from a trace, the SVG plots, profiles,
// fleet draws, shards and their merge.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <set>

#include "sim/fleet/fleet_plan.h"
#include "sim/fleet/fleet_results.h"
#include "sim/lab/arm_figures.h"
#include "sim/lab/profile.h"
#include "sim/lab/svg_plot.h"
#include "sim/runner/arm.h"
#include "sim/runner/scenario.h"

namespace fs = std::filesystem;

namespace {

const std::string kProfiles = QUEN_SOURCE_DIR "/sim/scenarios/profiles";

class TempDir {
public:
    TempDir() {
        char tmpl[] = "/tmp/quen-lab-test-XXXXXX";
        path_ = mkdtemp(tmpl);
    }
    ~TempDir() {
        std::error_code ec;
        fs::remove_all(path_, ec);
    }
    std::string File(const std::string& name, const std::string& text) const {
        std::ofstream(path_ + "/" + name) << text;
        return path_ + "/" + name;
    }
    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

// A series of `rows` samples one hour apart, every row alike; tests change single fields.
sim::ArmSeries Hourly(size_t rows) {
    sim::ArmSeries s;
    for (size_t i = 0; i < rows; ++i) {
        s.day.push_back(static_cast<double>(i) / 24.0);
        s.fccMah.push_back(4000);
        s.voltageV.push_back(3.9);
        s.tempC.push_back(25);
        s.charging.push_back(0);
        s.vtermMv.push_back(4450);
        s.currentLimitMa.push_back(5000);
        s.socCapPct.push_back(100);
        s.status.push_back(0);
        s.baspLevel.push_back(0);
        s.aswScene.push_back(0);
        s.swellTotal.push_back(0);
    }
    return s;
}

}  // namespace

TEST(ArmFiguresTest, ExposureBandsCountEachRowUntilTheNext) {
    // Each row holds for one hour; the last row ends the run and counts for nothing.
    struct Case {
        double volt, temp;
        int vband, tband;  // -1: below the table
    } cases[] = {
        {4.19, 50, -1, 0},   {4.20, 20, 0, 0},   {4.30, 34.9, 1, 0}, {4.30, 35.0, 1, 1},
        {4.399, 44.9, 1, 1}, {4.40, 45.0, 2, 2}, {4.45, 60, 2, 2},
    };
    for (const Case& c : cases) {
        sim::ArmSeries s = Hourly(3);
        s.voltageV = {c.volt, c.volt, c.volt};
        s.tempC = {c.temp, c.temp, c.temp};
        const sim::ArmFigures f = sim::ComputeFigures(s, true);
        double total = 0;
        for (auto& row : f.exposureHours) {
            for (double h : row)
                total += h;
        }
        if (c.vband < 0) {
            EXPECT_EQ(total, 0) << c.volt;
            continue;
        }
        EXPECT_NEAR(f.exposureHours[c.vband][c.tband], 2.0, 1e-9) << c.volt << " " << c.temp;
        EXPECT_NEAR(total, 2.0, 1e-9) << c.volt << " " << c.temp;
        EXPECT_NEAR(f.hoursHighVoltage, c.volt >= 4.30 ? 2.0 : 0.0, 1e-9) << c.volt;
        EXPECT_NEAR(f.hoursHighVoltageHot, c.volt >= 4.30 && c.temp >= 35 ? 2.0 : 0.0, 1e-9);
    }
}

TEST(ArmFiguresTest, CapacityAtAYearOnlyWhenTheRunGotThere) {
    sim::ArmSeries s = Hourly(401);
    for (size_t d = 0; d <= 400; ++d) {
        s.day[d] = static_cast<double>(d);
        s.fccMah[d] = 4000.0 - static_cast<double>(d);  // one mAh a day
        s.swellTotal[d] = static_cast<double>(d) * 0.001;
    }
    sim::ArmFigures f = sim::ComputeFigures(s, true);
    EXPECT_NEAR(f.capacity1yPct, 100.0 * 3635 / 4000, 1e-9);
    EXPECT_TRUE(std::isnan(f.capacity2yPct));
    EXPECT_NEAR(f.capacityEndPct, 100.0 * 3600 / 4000, 1e-9);
    EXPECT_NEAR(f.swellEnd, 0.4, 1e-9);
    EXPECT_TRUE(std::isnan(sim::ComputeFigures(s, false).swellEnd));  // nobody estimated it
    EXPECT_TRUE(std::isnan(sim::ComputeFigures(sim::ArmSeries{}, true).capacityEndPct));
}

TEST(ArmFiguresTest, LimitChangesChargingTimeAndFirstDays) {
    sim::ArmSeries s = Hourly(48);
    for (size_t i = 0; i < 48; ++i) {
        s.charging[i] = i % 8 == 0 ? 1 : 0;  // one hour in eight
    }
    // A voltage step and back (2), a current step (1), a SOC cap (1), a stop while the
    // status stays >= 1 (1: 1 -> 2 is no new stop).
    s.vtermMv[10] = 4400;
    s.currentLimitMa[20] = s.currentLimitMa[21] = 2000;
    for (size_t i = 30; i < 48; ++i)
        s.socCapPct[i] = 80;
    s.status[40] = 1;
    s.status[41] = 2;
    s.status[42] = 2;
    for (size_t i = 25; i < 48; ++i)
        s.baspLevel[i] = i < 35 ? 1 : 2;
    s.aswScene[33] = 1;
    const sim::ArmFigures f = sim::ComputeFigures(s, true);
    EXPECT_EQ(f.limitChanges, 2 + 2 + 1 + 2);  // current and stop count on and off
    EXPECT_NEAR(f.chargingHoursPerDay, 6.0 / (47.0 / 24.0), 1e-9);
    ASSERT_EQ(f.baspLevelDay.size(), 2u);
    EXPECT_NEAR(f.baspLevelDay.at(1), 25 / 24.0, 1e-9);
    EXPECT_NEAR(f.baspLevelDay.at(2), 35 / 24.0, 1e-9);
    EXPECT_NEAR(f.aswSceneDay.at(1), 33 / 24.0, 1e-9);
}

TEST(ArmFiguresTest, TraceColumnsAreFoundByNameAndBadRowsRefused) {
    TempDir dir;
    const std::string header =
        "epoch,day,voltage_v,temp_c,charging,vterm_mv,current_limit_ma,soc_window,soc_high,"
        "status,basp_level,asw_scene,swell_total,fcc_mah,extra\n";
    sim::ArmSeries s;
    std::string error;
    ASSERT_TRUE(sim::ReadTrace(
        dir.File("ok.csv", header + "1,0,4.1,30,1,4450,5000,1,80,0,0,0,0,4000,x\n"
                                    "2,0.5,4.2,31,0,4400,5000,0,80,0,1,0,0.1,3990,y\n"),
        s, error))
        << error;
    ASSERT_EQ(s.Size(), 2u);
    EXPECT_EQ(s.socCapPct[0], 80);   // window on: its upper bound
    EXPECT_EQ(s.socCapPct[1], 100);  // window off: no cap, whatever soc_high says
    EXPECT_EQ(s.fccMah[1], 3990);

    EXPECT_FALSE(sim::ReadTrace(dir.File("short.csv", "epoch,day\n1,0\n"), s, error));
    EXPECT_NE(error.find("no column"), std::string::npos) << error;
    EXPECT_FALSE(sim::ReadTrace(
        dir.File("bad.csv", header + "1,0,4.1,30,1,4450,5000,1,80,0,0,0,0,4000,x\n1,0,4.1\n"), s,
        error));
    EXPECT_NE(error.find("line 3"), std::string::npos) << error;
    EXPECT_FALSE(sim::ReadTrace(dir.Path() + "/none.csv", s, error));
}

TEST(ArmSummaryTest, SummaryRoundTripsThroughItsFile) {
    TempDir dir;
    sim::RunSummary s;
    s.arm = "gamer.default";
    s.withDaemon = false;
    s.outcome = "the daemon exited with 3";
    s.ok = false;
    s.samples = 1234567890123ull;
    s.writesByNode["class/x"] = 7;
    s.baspLevels = {{1.5, 1}, {9.25, 3}};
    s.aswScenes = {{2, 2}};
    s.fccEndMah = 3999.5;
    std::string error;
    ASSERT_TRUE(sim::WriteSummary(dir.Path(), s, error)) << error;
    sim::RunSummary r;
    ASSERT_TRUE(sim::ReadSummary(dir.Path(), r, error)) << error;
    EXPECT_EQ(r.arm, s.arm);
    EXPECT_EQ(r.withDaemon, false);
    EXPECT_EQ(r.ok, false);
    EXPECT_EQ(r.outcome, s.outcome);
    EXPECT_EQ(r.samples, s.samples);
    EXPECT_EQ(r.writesByNode, s.writesByNode);
    EXPECT_EQ(r.baspLevels, s.baspLevels);
    EXPECT_EQ(r.aswScenes, s.aswScenes);
    EXPECT_EQ(r.fccEndMah, 3999.5);
    dir.File("summary.json", "{\"basp_levels\": [[1]]}");
    EXPECT_FALSE(sim::ReadSummary(dir.Path(), r, error));
}

TEST(SvgPlotTest, PathsStayInsideTheFrameThinnedBrokenAtGapsAndEscaped) {
    sim::PlotSpec plot{"p", "A <title>", "days", "mAh", {}};
    sim::PlotSeries big{"arm <1>", {}, {}, false};
    for (int i = 0; i < 10000; ++i) {
        big.x.push_back(i);
        big.y.push_back(i == 4998 ? NAN : std::sin(i * 0.01));
    }
    plot.series.push_back(big);
    plot.series.push_back({"flat", {0, 1, 2}, {7, 7, 7}, true});
    plot.series.push_back({"empty", {}, {}, false});
    const std::string svg = sim::RenderSvgPlot(plot);
    EXPECT_EQ(svg.find("<1>"), std::string::npos);
    EXPECT_NE(svg.find("arm &lt;1&gt;"), std::string::npos);
    EXPECT_EQ(svg.find("nan"), std::string::npos);
    EXPECT_EQ(svg.find("inf"), std::string::npos);
    // Two data paths (the empty series draws none), the first broken once at the gap.
    size_t paths = 0, pos = 0;
    while ((pos = svg.find("<path class='series'", pos)) != std::string::npos) {
        ++paths;
        ++pos;
    }
    EXPECT_EQ(paths, 2u);
    const size_t d = svg.find(" d='");
    const std::string first = svg.substr(d + 4, svg.find('\'', d + 4) - d - 4);
    // 10000 points thin to every 7th; the NaN at 4998 = 7 * 714 is a kept point.
    EXPECT_EQ(std::count(first.begin(), first.end(), 'M'), 2);
    const size_t points = std::count(first.begin(), first.end(), 'L') + 1;
    EXPECT_LE(points, sim::kMaxPoints + 1);
    EXPECT_GE(points, sim::kMaxPoints / 2);
    // The last point is kept: the path ends at the frame's right edge.
    const size_t rect = svg.find("<rect x='");
    ASSERT_NE(rect, std::string::npos);
    const double left = atof(svg.c_str() + rect + 9);
    const double width = atof(svg.c_str() + svg.find("width='", rect) + 7);
    char edge[32];
    snprintf(edge, sizeof(edge), "L%.1f ", left + width);
    EXPECT_NE(first.find(edge), std::string::npos)
        << edge << " " << first.substr(first.size() - 40);
}

TEST(SvgPlotTest, NiceTicksCoverTheRangeInRoundSteps) {
    struct Case {
        double lo, hi;
        double step;
    } cases[] = {{0, 42, 10}, {3.7, 4.46, 0.1}, {0, 730, 100}, {-1, 1, 0.5}};  // at most 8
    for (const Case& c : cases) {
        const std::vector<double> t = sim::NiceTicks(c.lo, c.hi, 8);
        ASSERT_GE(t.size(), 2u) << c.hi;
        EXPECT_GE(t.front(), c.lo - 1e-9);
        EXPECT_LE(t.back(), c.hi + 1e-9);
        EXPECT_NEAR(t[1] - t[0], c.step, 1e-9) << c.lo << ".." << c.hi;
        EXPECT_LE(t.size(), 9u);
    }
    EXPECT_TRUE(sim::NiceTicks(1, 1, 5).empty());
    EXPECT_TRUE(sim::NiceTicks(0, NAN, 5).empty());
}

TEST(ProfileTest, ShippedProfilesFitTheDefaultScenario) {
    sim::Scenario sc;
    std::string error;
    ASSERT_TRUE(sim::LoadScenario(QUEN_SOURCE_DIR "/sim/scenarios/default.json", sc, error))
        << error;
    const std::vector<std::string> names = sim::ListProfiles(kProfiles);
    EXPECT_GE(names.size(), 4u);
    std::set<double> ambient;
    for (const std::string& name : names) {
        sim::UserProfile p;
        Json::Value model;
        ASSERT_TRUE(sim::LoadProfile(name, kProfiles, p, error)) << error;
        ASSERT_TRUE(sim::ApplyProfile(sc.model, p, model, error)) << error;
        EXPECT_FALSE(p.description.empty()) << name;
        // The profile's keys win; the scenario's other keys stay.
        EXPECT_EQ(model["plug_hour"], p.model["plug_hour"]) << name;
        EXPECT_EQ(model["aging_scale"], sc.model["aging_scale"]) << name;
        ambient.insert(model["ambient_c"].asDouble());
    }
    EXPECT_GE(ambient.size(), 3u);  // the users differ in where the phone lives
}

TEST(ProfileTest, BadProfilesAreRefusedWithTheFileNamed) {
    TempDir dir;
    struct Case {
        std::string body, message;
    } cases[] = {
        {"{\"description\": \"x\", \"model\": {\"plug_hour\": 25}}", "plug_hour"},
        {"{\"description\": \"x\", \"model\": {}, \"modle\": {}}", "unknown key \"modle\""},
        {"{\"model\": {}}", "needs \"description\""},
        {"[1]", "not a JSON object"},
        {"{\"description\": \"x\", \"model\": {\"plug_hour\": 6, \"unplug_hour\": 8}}",
         "overnight"},
    };
    int n = 0;
    for (const Case& c : cases) {
        const std::string file = dir.File("p" + std::to_string(n++) + ".json", c.body);
        sim::UserProfile p;
        std::string error;
        EXPECT_FALSE(sim::LoadProfile(file, kProfiles, p, error)) << c.body;
        EXPECT_NE(error.find(c.message), std::string::npos) << error;
        EXPECT_NE(error.find(file), std::string::npos) << error;
    }
    sim::UserProfile p;
    std::string error;
    EXPECT_FALSE(sim::LoadProfile("no-such-profile", kProfiles, p, error));
    // Valid alone, but not over a scenario whose schedule it breaks.
    ASSERT_TRUE(sim::LoadProfile(
        dir.File("late.json", "{\"description\": \"x\", \"model\": {\"unplug_hour\": 20}}"),
        kProfiles, p, error))
        << error;
    Json::Value scenario, out;
    scenario["plug_hour"] = 18;
    EXPECT_FALSE(sim::ApplyProfile(scenario, p, out, error));
}

TEST(FleetPlanTest, ShardsPartitionTheFleetAndEachPhoneKeepsItsDraw) {
    const std::vector<std::string> profiles = {"a", "b", "c"};
    const std::vector<sim::FleetPhone> all = sim::DrawPhones(42, 300, profiles, 0, 1);
    ASSERT_EQ(all.size(), 300u);
    std::map<std::string, int> perProfile;
    for (const sim::FleetPhone& p : all)
        ++perProfile[p.profile];
    for (const std::string& p : profiles)
        EXPECT_GT(perProfile[p], 60) << p;
    for (int shards : {2, 7, 300, 1000}) {
        std::vector<int> seen(300, 0);
        for (int shard = 0; shard < shards; ++shard) {
            for (const sim::FleetPhone& p : sim::DrawPhones(42, 300, profiles, shard, shards)) {
                ++seen[p.index];
                EXPECT_EQ(p.profile, all[p.index].profile);
                EXPECT_EQ(p.seed, all[p.index].seed);
            }
        }
        EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), 300) << shards << " shards";
    }
    EXPECT_NE(sim::DrawPhones(43, 300, profiles, 0, 1)[0].seed, all[0].seed);
    EXPECT_TRUE(sim::DrawPhones(42, 10, profiles, 3, 3).empty());
    EXPECT_TRUE(sim::DrawPhones(42, 10, {}, 0, 1).empty());
}

TEST(FleetPlanTest, ShardArgumentsAndPercentiles) {
    struct Case {
        const char* text;
        bool ok;
        int i, n;
    } cases[] = {{"0/1", true, 0, 1},  {"3/4", true, 3, 4},   {"4/4", false, 0, 0},
                 {"1/0", false, 0, 0}, {"-1/4", false, 0, 0}, {"1/", false, 0, 0},
                 {"/4", false, 0, 0},  {"1/4x", false, 0, 0}, {"99999999/100000000", false, 0, 0}};
    for (const Case& c : cases) {
        int i = -7, n = -7;
        EXPECT_EQ(sim::ParseShard(c.text, i, n), c.ok) << c.text;
        if (c.ok) {
            EXPECT_EQ(i, c.i);
            EXPECT_EQ(n, c.n);
        }
    }
    std::vector<double> v = {5, NAN, 1, 4, 2, 3};
    EXPECT_DOUBLE_EQ(sim::Percentile(v, 50), 3);
    EXPECT_DOUBLE_EQ(sim::Percentile(v, 5), 1.2);
    EXPECT_DOUBLE_EQ(sim::Percentile(v, 95), 4.8);
    EXPECT_DOUBLE_EQ(sim::Percentile(v, 100), 5);
    std::vector<double> one = {7};
    EXPECT_DOUBLE_EQ(sim::Percentile(one, 5), 7);
    std::vector<double> none = {NAN};
    EXPECT_TRUE(std::isnan(sim::Percentile(none, 50)));
}

TEST(FleetResultsTest, ShardsMergeIntoOneFleetAndMismatchesAreRefused) {
    TempDir dir;
    sim::FleetKey key{"default", "default", 9, 4, 30, {"a", "b"}};
    auto result = [](int i, bool ok, double cap) {
        sim::FleetPhoneResult r;
        r.index = i;
        r.profile = i % 2 == 0 ? "a" : "b";
        r.ok = ok;
        r.outcome = ok ? "completed" : "the daemon exited with 1";
        r.figures = {{"capacity_end_pct", cap}, {"swell_end", NAN}};
        return r;
    };
    sim::FleetShard s0{key, 0, 2, {result(0, true, 90), result(2, false, 50)}};
    sim::FleetShard s1{key, 1, 2, {result(1, true, 80)}};
    sim::FleetShard rerun{key, 0, 2, {result(2, true, 70)}};  // phone 2 again, now completed
    std::string error;
    ASSERT_TRUE(sim::WriteShard(dir.Path() + "/s0.json", s0, error)) << error;
    sim::FleetShard back;
    ASSERT_TRUE(sim::ReadShard(dir.Path() + "/s0.json", back, error)) << error;
    EXPECT_TRUE(back.key == key);
    ASSERT_EQ(back.results.size(), 2u);
    EXPECT_TRUE(std::isnan(back.results[0].figures.at("swell_end")));
    EXPECT_EQ(back.results[1].ok, false);

    sim::FleetMerged m;
    ASSERT_TRUE(sim::MergeShards({back, s1, rerun}, m, error)) << error;
    ASSERT_EQ(m.results.size(), 3u);
    EXPECT_EQ(m.missing, std::vector<int>{3});  // no shard ran phone 3
    EXPECT_TRUE(m.results[2].ok);
    ASSERT_TRUE(sim::WriteFleetReport(dir.Path(), m, error)) << error;
    Json::Value v;
    std::ifstream in(dir.Path() + "/fleet.json");
    Json::CharReaderBuilder b;
    ASSERT_TRUE(Json::parseFromStream(b, in, &v, &error)) << error;
    const Json::Value& cap = v["percentiles"]["all"]["capacity_end_pct"];
    EXPECT_DOUBLE_EQ(cap["p50"].asDouble(), 80);
    EXPECT_EQ(cap["n"].asInt(), 3);
    EXPECT_DOUBLE_EQ(v["percentiles"]["a"]["capacity_end_pct"]["p95"].asDouble(), 89);
    EXPECT_TRUE(v["percentiles"]["all"]["swell_end"]["p50"].isNull());

    sim::FleetShard other = s1;
    other.key.seed = 10;
    EXPECT_FALSE(sim::MergeShards({s0, other}, m, error));
    EXPECT_FALSE(sim::MergeShards({}, m, error));
    dir.File("bad.json", "{\"fleet\": {}, \"results\": []}");
    EXPECT_FALSE(sim::ReadShard(dir.Path() + "/bad.json", back, error));
    sim::FleetShard outOfRange{key, 0, 1, {result(4, true, 1)}};
    ASSERT_TRUE(sim::WriteShard(dir.Path() + "/oor.json", outOfRange, error));
    EXPECT_FALSE(sim::ReadShard(dir.Path() + "/oor.json", back, error));
}
