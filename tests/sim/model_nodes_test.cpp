// The simulated phone's nodes against the daemon's own readers and records: text nodes read by
// the daemon's probes, the raw records read through its structs, the limit lines it writes
// (and malformed ones refused), and the events raised once per charge and per day.
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <map>
#include <thread>
#include <tuple>

#include "asw/asw_common.h"
#include "basp/basp_battery.h"
#include "basp/basp_herald.h"
#include "basp/basp_nodes.h"
#include "core/device_stream.h"
#include "core/soh_enviroment.h"
#include "cvt/cvt_battery.h"
#include "cvt/cvt_nodes.h"
#include "eis/eis_info.h"
#include "protectors/limit_nodes.h"
#include "sim/model/model_nodes.h"
#include "tests/support/fake_device.h"

namespace sim {
namespace {

// The kernel's records as the model writes them have the daemon's layouts.
#define SAME_FIELD(A, B, f) static_assert(offsetof(A, f) == offsetof(B, f), #f)
SAME_FIELD(AgingRecord, BaspBattery::BatteryAgingData, designFcc);
SAME_FIELD(AgingRecord, BaspBattery::BatteryAgingData, cycleCount);
SAME_FIELD(AgingRecord, BaspBattery::BatteryAgingData, fccCount);
SAME_FIELD(AgingRecord, BaspBattery::BatteryAgingData, fccs);
SAME_FIELD(kernel::AgingPolicy, BaspBattery::BatteryAgingPolicy, level);
SAME_FIELD(kernel::AgingPolicy, BaspBattery::BatteryAgingPolicy, ndcVdec);
SAME_FIELD(kernel::AcrInfo, AcrRaw, acrValue);
SAME_FIELD(kernel::AcrInfo, AcrRaw, batTemp);
SAME_FIELD(kernel::AcrInfo, AcrRaw, batVolt);
SAME_FIELD(kernel::DcrInfo, DcrRaw, batR0);
SAME_FIELD(kernel::DcrInfo, DcrRaw, dcrValue);
SAME_FIELD(kernel::DcrInfo, DcrRaw, batVolt);
SAME_FIELD(kernel::HeraldData, BaspHerald::battery_herald_data, qmax);
SAME_FIELD(kernel::HeraldData, BaspHerald::battery_herald_data, batMan);
static_assert(sizeof(kernel::HeraldData) == sizeof(BaspHerald::battery_herald_data), "herald");

constexpr double kNewYear = 1704067200.0;  // 2024-01-01 00:00 UTC

double At(int day, double hour) {
    return kNewYear + day * 86400.0 + hour * 3600.0;
}

// A node path of a device path.
std::string N(const char* devicePath) {
    return std::string(devicePath).substr(5);
}

const std::string kAcr = "devices/platform/vorlan_batt_soh/eis/acr_info";
const std::string kDcr = "devices/platform/vorlan_batt_soh/eis/dcr_info";

class SimModelNodesTest : public FakeDeviceTest {
protected:
    void SetUp() override {
        setenv("TZ", "UTC", 1);
        tzset();
    }

    std::unique_ptr<ModelNodes> Make(ModelParams p = ModelParams()) {
        p.schedule_jitter_min = 0;
        std::string error;
        auto nodes = ModelNodes::Create(
            PhoneModel(p, now), QUEN_SOURCE_DIR "/examples/device/sys", [this] { return now; },
            error);
        EXPECT_TRUE(nodes != nullptr) << error;
        return nodes;
    }
    static std::string Get(ModelNodes& nodes, const std::string& path) {
        std::string out;
        EXPECT_EQ(nodes.Read(path, out), 0) << path;
        return out;
    }
    // Copies every node to the fake device, where the daemon's readers find it.
    void Mirror(ModelNodes& nodes) {
        for (const std::string& path : nodes.List()) {
            dev.Write("/sys/" + path, Get(nodes, path));
        }
    }

    double now = At(0, 22);
};

TEST_F(SimModelNodesTest, TheDaemonsProbesReadTheModelsState) {
    ModelParams p;
    p.battery_name = "QBT41-07";
    p.start_soc_pct = 30;
    auto nodes = Make(p);
    now += 600;
    Mirror(*nodes);
    ModelSample s = nodes->Sample();
    ASSERT_TRUE(s.cell.charging);

    CvtBattery cvt;
    int ma = 0;
    int mv = 0;
    ASSERT_TRUE(cvt.GetAverageCurVol(ma, mv));
    EXPECT_NEAR(ma, s.cell.currentA * 1000.0, 1.0);
    EXPECT_NEAR(mv, s.cell.voltageV * 1000.0, 1.0);
    EXPECT_EQ(cvt.GetBatterySoc(), static_cast<unsigned>(std::lround(s.cell.shownSocPct)));
    EXPECT_EQ(cvt.GetBatteryTemp(), static_cast<int>(std::lround(s.cell.tempC * 10.0)) / 10);
    EXPECT_EQ(cvt.GetChargerType(), 10u);  // the direct adaptor is detected
    EXPECT_EQ(cvt.GetChargerStatus(), 1u);
    EXPECT_FALSE(cvt.IsBatteryFull());
    EXPECT_EQ(Asw::ReadDeviceStrToT<unsigned>(AswNodes::kBatteryVoltageNow) / 1000,
              static_cast<unsigned>(s.cell.voltageV * 1000.0));
    std::string name;
    EXPECT_TRUE(SOHEnviroment::GetBatteryType(name));
    EXPECT_EQ(name, "QBT41");
    EXPECT_EQ(dev.Read(AswNodes::kTimeSpeed), "1");
    EXPECT_EQ(dev.Read(CvtNodes::kBatteryFccDesign), "4500000\n");
    EXPECT_EQ(dev.Read(BaspNodes::kChargeTermVolt), "4450\n");

    now = At(1, 6);  // charged, still on the charger
    Mirror(*nodes);
    EXPECT_TRUE(cvt.IsBatteryFull());
    EXPECT_EQ(cvt.GetBatterySoc(), 100u);
    EXPECT_EQ(dev.Read("/sys/class/power_supply/Battery/status"), "Full\n");

    now = At(1, 8);  // in use
    Mirror(*nodes);
    s = nodes->Sample();
    EXPECT_EQ(cvt.GetChargerType(), 5u);
    EXPECT_EQ(cvt.GetChargerStatus(), 0u);
    ASSERT_TRUE(cvt.GetAverageCurVol(ma, mv));
    EXPECT_LT(ma, -100);
    EXPECT_EQ(dev.Read(CvtNodes::kBatteryCycleCount),
              std::to_string(static_cast<int>(s.cell.cycles)) + "\n");
    EXPECT_EQ(dev.Read(CvtNodes::kBatteryFcc),
              std::to_string(std::llround(s.cell.fccMah * 1000)) + "\n");
}

TEST_F(SimModelNodesTest, RawRecordsRoundTripThroughTheDaemonsStructs) {
    auto nodes = Make();
    now = At(1, 3.5);  // one charge done, one impedance measurement
    Mirror(*nodes);
    const ModelSample s = nodes->Sample();

    BaspBattery::BatteryAgingData aging{};
    ASSERT_EQ(DeviceReader(BaspNodes::kAgingData).Read(aging), 0);
    EXPECT_EQ(aging.designFcc, 4500u);
    EXPECT_EQ(aging.fccCount, 1u);
    EXPECT_NEAR(aging.fccs[0], s.cell.fccMah, 25.0);
    EXPECT_EQ(aging.cycleCount, static_cast<uint32_t>(s.cell.cycles));
    uint32_t ichgMax = 0;
    ASSERT_EQ(DeviceReader(BaspNodes::kIChgMax).Read(ichgMax), 0);
    EXPECT_EQ(ichgMax, 5000u);
    BaspHerald::battery_herald_data herald{};
    ASSERT_EQ(DeviceReader(BaspNodes::kHeraldData).Read(herald), 0);
    EXPECT_EQ(herald.batCap, 4500u);
    EXPECT_EQ(herald.qmax, static_cast<uint32_t>(std::lround(s.cell.fccMah)));
    EXPECT_STREQ(herald.batMan, "KELDR-041");  // the tree's text is kept

    // The impedance nodes hold exactly one record each, as the daemon demands.
    AcrInfo acr;
    DcrInfo dcr;
    const int acrFd = open(dev.HostPath("/sys/" + kAcr).c_str(), O_RDONLY);
    const int dcrFd = open(dev.HostPath("/sys/" + kDcr).c_str(), O_RDONLY);
    ASSERT_TRUE(acr.GetInfo(acrFd) && acr.Info2Bigdata());
    ASSERT_TRUE(dcr.GetInfo(dcrFd) && dcr.Info2Bigdata());
    close(acrFd);
    close(dcrFd);
    const double uohm = s.cell.resistanceMohm * 1000.0;
    EXPECT_NEAR(dcr.Record().dcrOrg, uohm, uohm * 0.02);  // measured at 03:00, cooler since
    EXPECT_LT(dcr.Record().batR0, dcr.Record().dcrOrg);
    EXPECT_LT(acr.Record().acrOrgReal[0], dcr.Record().dcrOrg);
    EXPECT_EQ(acr.Record().batCyc, static_cast<uint32_t>(s.cell.cycles));
    EXPECT_EQ(acr.Record().batTemp, 25u);
    EXPECT_NEAR(dcr.Record().batVol[0], s.cell.ocvV * 1000.0, 1.0);

    // The daemon's policy is decoded; its decrease lowers the termination voltage.
    const BaspBattery::BatteryAgingPolicy policy{3, 4100, 48, 3};
    const std::string bytes(reinterpret_cast<const char*>(&policy), sizeof(policy));
    EXPECT_EQ(nodes->Write(N(BaspNodes::kPolicy), bytes), 0);
    EXPECT_EQ(nodes->Write(N(BaspNodes::kPolicy), bytes.substr(1)), -EINVAL);
    const ModelSample after = nodes->Sample();
    EXPECT_EQ(after.baspLevel, 3u);
    EXPECT_EQ(after.baspNdcVdecMv, 48u);
    EXPECT_EQ(after.cell.vtermMv, 4450 - 48);
    EXPECT_EQ(Get(*nodes, N(BaspNodes::kChargeTermVolt)), "4402\n");
}

TEST_F(SimModelNodesTest, LimitLinesAreAppliedAndMalformedOnesChangeNothing) {
    auto nodes = Make();
    std::vector<std::tuple<double, std::string, int>> trace;
    nodes->SetWriteListener([&](double t, const std::string& path, const std::string&, int rc) {
        trace.emplace_back(t, path, rc);
    });
    const std::string vterm = N(LimitNodes::kVtermDec);
    const std::string control = N(LimitNodes::kSocControl);
    const std::string iscd = N(LimitNodes::kIscdStatus);
    const std::string dmd = N(AswNodes::kDmdReport);

    EXPECT_EQ(nodes->Write(vterm, "quen dcp 80"), 0);  // another charger type than the adapter's
    EXPECT_EQ(nodes->Sample().cell.vtermMv, 4450);
    EXPECT_EQ(nodes->Write(vterm, "quen sc 40\n"), 0);
    EXPECT_EQ(nodes->Write(N(LimitNodes::kIchgRatio), "quen all 50"), 0);
    EXPECT_EQ(nodes->Write(N(LimitNodes::kIchgLimit), "quen all 2147483647"), 0);
    EXPECT_EQ(nodes->Write(control, "quen 1 85 90"), 0);
    EXPECT_EQ(nodes->Write(N(LimitNodes::kSocStrategy), "quen 2"), 0);
    EXPECT_EQ(nodes->Write(N(LimitNodes::kBaspCoulVdec), "-1"), 0);
    EXPECT_EQ(nodes->Write(iscd, "2"), 0);
    EXPECT_EQ(nodes->Write(N(LimitNodes::kIscdLimitSupport), std::string("1", 2)), 0);
    EXPECT_EQ(nodes->Write(dmd, "asw 930101"), 0);
    const ModelSample s = nodes->Sample();
    EXPECT_EQ(s.cell.vtermMv, 4410);
    EXPECT_EQ(s.cell.currentLimitMa, 2500);
    EXPECT_TRUE(s.socWindow);
    EXPECT_EQ(s.socLowPct, 85);
    EXPECT_EQ(s.socHighPct, 90);
    EXPECT_EQ(s.statusLevel, 2);
    EXPECT_FALSE(s.cell.charging);
    EXPECT_EQ(s.aswScene, 930101u);
    EXPECT_EQ(std::tie(s.socStrategy, s.coulVdecMv), std::make_tuple(2, -1));
    EXPECT_EQ(Get(*nodes, N(LimitNodes::kIscdLimitSupport)), std::string("1", 2));

    const std::pair<std::string, std::string> refused[] = {
        {vterm, "quen sc"},
        {vterm, "quen sc 50 1"},
        {vterm, "quen  sc 50"},
        {vterm, "quen usb 50"},
        {vterm, "quem sc 50"},
        {vterm, "quen sc 5O"},
        {vterm, "quen sc 1001"},
        {vterm, "quen sc -2"},
        {vterm, "quen sc 50\n\n"},
        {vterm, "quen sc 50\t"},
        {vterm, ""},
        {control, "quen 1 90 85"},
        {control, "quen 1 85 101"},
        {control, "quen -1 85 90"},
        {control, "quen 1 85"},
        {iscd, "1 2"},
        {iscd, "x"},
        {dmd, "asw x"},
        {N(LimitNodes::kIchgRatio), "quen all"},
        {N(LimitNodes::kBaspCoulVdec), "5mV"},
        {N(BaspNodes::kPolicy), std::string(15, '\0')},
    };
    for (const auto& [path, line] : refused) {
        const std::string before = Get(*nodes, path);
        EXPECT_EQ(nodes->Write(path, line), -EINVAL) << path << " \"" << line << "\"";
        EXPECT_EQ(Get(*nodes, path), before) << path;
    }
    const ModelSample same = nodes->Sample();
    EXPECT_EQ(same.cell.vtermMv, s.cell.vtermMv);
    EXPECT_EQ(same.cell.currentLimitMa, s.cell.currentLimitMa);
    EXPECT_EQ(std::tie(same.socLowPct, same.socHighPct, same.statusLevel, same.aswScene),
              std::tie(s.socLowPct, s.socHighPct, s.statusLevel, s.aswScene));

    EXPECT_EQ(nodes->Write(N(CvtNodes::kBatteryCapacity), "50"), -EACCES);
    EXPECT_EQ(nodes->Write("class/none", "1"), -ENOENT);
    std::string out;
    EXPECT_EQ(nodes->Read("class/none", out), -ENOENT);
    EXPECT_EQ(nodes->Write(N(kSohSubSysNode), "basp"), 0);  // not interpreted: kept
    EXPECT_EQ(Get(*nodes, N(kSohSubSysNode)), "basp");

    const size_t writes = 10 + std::size(refused) + 3;
    ASSERT_EQ(trace.size(), writes);  // the listener sees the refused and wrong writes too
    EXPECT_EQ(trace[0], std::make_tuple(now, vterm, 0));
    EXPECT_EQ(std::get<2>(trace[10]), -EINVAL);
    EXPECT_EQ(std::get<2>(trace[writes - 3]), -EACCES);
}

TEST_F(SimModelNodesTest, EventsRaiseTheirNodesOncePerChargeAndPerDay) {
    now = At(0, 21);
    auto nodes = Make();
    std::map<std::string, int> raised;
    nodes->SetEventSink([&](const std::string& path) {
        ++raised[path];
        EXPECT_EQ(nodes->Events(path), static_cast<uint64_t>(raised[path]));  // lock released
    });
    const std::string start = N(CvtNodes::kChargeStartEvent);
    const std::string aging = N(BaspNodes::kAgingData);
    EXPECT_EQ(nodes->Events(start), 0u);

    now = At(0, 22);
    nodes->Tick();
    nodes->Tick();
    EXPECT_EQ(nodes->Events(start), 1u);
    EXPECT_EQ(Get(*nodes, start), "1\n");
    now = At(1, 2.9);
    nodes->Tick();
    EXPECT_EQ(nodes->Events(aging), 1u);
    EXPECT_EQ(nodes->Events(kAcr), 0u);
    now = At(1, 3);
    nodes->Tick();
    EXPECT_EQ(nodes->Events(kAcr), 1u);
    EXPECT_EQ(nodes->Events(kDcr), 1u);
    EXPECT_EQ(Get(*nodes, kAcr).size(), 24u);
    EXPECT_EQ(Get(*nodes, kDcr).size(), 20u);

    now = At(2, 3.5);  // a read advances the model as well
    Get(*nodes, N(CvtNodes::kBatteryCapacity));
    const std::map<std::string, int> twice = {{start, 2}, {aging, 2}, {kAcr, 2}, {kDcr, 2}};
    EXPECT_EQ(raised, twice);
}

TEST_F(SimModelNodesTest, FileSystemThreadsAndTheRunnerShareTheNodes) {
    std::atomic<double> clock{At(0, 21)};
    std::string error;
    auto nodes = ModelNodes::Create(
        PhoneModel(ModelParams(), clock.load()), QUEN_SOURCE_DIR "/examples/device/sys",
        [&clock] { return clock.load(); }, error);
    ASSERT_TRUE(nodes != nullptr) << error;
    std::atomic<uint64_t> raised{0};
    nodes->SetEventSink([&](const std::string&) { ++raised; });
    const std::string vterm = N(LimitNodes::kVtermDec);
    std::thread runner([&] {
        for (int i = 0; i < 3000; ++i) {  // about three days
            clock.store(clock.load() + 90.0);
            nodes->Tick();
        }
    });
    std::thread writer([&] {
        for (int i = 0; i < 3000; ++i) {
            EXPECT_EQ(nodes->Write(vterm, i % 2 ? "quen sc 50" : "quen sc -1"), 0);
        }
    });
    std::thread reader([&] {
        for (int i = 0; i < 3000; ++i) {
            EXPECT_EQ(Get(*nodes, N(BaspNodes::kAgingData)).size(), 32u);
            nodes->Sample();
        }
    });
    runner.join();
    writer.join();
    reader.join();
    uint64_t events = 0;
    for (const std::string& path :
         {N(CvtNodes::kChargeStartEvent), N(BaspNodes::kAgingData), kAcr, kDcr}) {
        EXPECT_GE(nodes->Events(path), 2u) << path;
        events += nodes->Events(path);
    }
    EXPECT_GE(events, raised.load());  // every raise follows at least one new event
}

TEST_F(SimModelNodesTest, TheTreeDecidesWhichNodesExist) {
    std::string error;
    EXPECT_EQ(
        ModelNodes::Create(
            PhoneModel(ModelParams(), now), "/nonexistent/sys", [this] { return now; }, error),
        nullptr);
    EXPECT_NE(error.find("/nonexistent/sys"), std::string::npos);

    auto nodes = Make();
    const std::vector<std::string> list = nodes->List();
    EXPECT_EQ(list.size(), 37u);  // every file of the sample tree, nothing added
    std::string out;
    EXPECT_EQ(nodes->Read(N(CvtNodes::kDirectChargerScDetect), out), -ENOENT);
    // Without a battery name the brand nodes keep the tree's content.
    EXPECT_EQ(Get(*nodes, N(kBatteryBrandNode)), "QBT41-02\n");
}

}  // namespace
}  // namespace sim
