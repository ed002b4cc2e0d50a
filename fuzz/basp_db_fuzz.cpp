// basp_<battery>.dat, the aging policy's persistent record (run time per level, the ring of
// learned capacities, the graded decrement). The input is the record of the sample battery.
// It is loaded the way every aging event loads it (battery built from the sample
// configuration, one kernel record applied, policy and limits chosen), and then on its own
// the way the weekly report reads it, with the kernel's capacities equal to the ring, one
// newer and shifted by one.
#include "basp/basp_battery.h"
#include "basp/basp_herald.h"
#include "basp/basp_nodes.h"
#include "fuzz/fuzz_device.h"

namespace {

const std::string kDbFile = std::string(BaspNodes::kDbPrefix) + "QBT41" + BaspNodes::kDbSuffix;

void WriteHerald() {
    BaspHerald::battery_herald_data herald{};
    herald.batCap = 4500;
    herald.batCycle = 612;
    herald.qmax = 4480;
    snprintf(herald.batMan, sizeof(herald.batMan), "%s", "SUNW-QBT41");
    snprintf(herald.batParF, sizeof(herald.batParF), "%s", "QBT41-02");
    FuzzDevice::Write(BaspNodes::kHeraldData,
                      std::string(reinterpret_cast<const char*>(&herald), sizeof(herald)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Json::Value& basp = *[] {
        FuzzDevice::Setup();
        FuzzDevice::DeclareAll();
        WriteHerald();
        return &FuzzDevice::SampleSection("BASP");
    }();
    FuzzDevice::SetTime();
    FuzzDevice::Write(kDbFile, data, size);
    {
        BaspBattery battery("QBT41");
        if (battery.Init(basp, basp["Battery"][0]) == 0) {
            BaspBattery::BatteryAgingData record{4500, 900, 4, {4100, 4050, 4000, 3950, 0}};
            battery.Update(record);
            battery.GetPolicy();
        }
    }

    FuzzDevice::Write(kDbFile, data, size);
    BaspHerald herald("QBT41");
    herald.Init("2.0");
    PolicyRecType rec;
    herald.GetPolicyRec(rec);
    herald.ReportData();
    std::vector<uint32_t> fccs = herald.StoredFccs();
    herald.Update(herald.Db().level(), fccs);
    fccs.push_back(3900);
    herald.Update(2, fccs);
    if (fccs.size() > 1) {
        fccs.erase(fccs.begin());
        fccs.push_back(3850);
        herald.Update(3, fccs);
    }
    FuzzDevice::ForgetAppends();
    return 0;
}
