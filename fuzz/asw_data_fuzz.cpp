// The anti-swelling estimator's own files: its data file (JSON: the history, the closed days
// and today, the scene in force) and the 416-byte legacy swell log of earlier software, read
// when there is no data file yet. The first byte picks the file (even: data file, odd: legacy
// log); the rest is its content. The sample battery is initialised from it and runs two
// passes across midnight, so that a day closes (week, scene selection, reports, save).
#include "asw/asw_battery.h"
#include "asw/asw_common.h"
#include "fuzz/fuzz_device.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Json::Value& asw = *[] {
        FuzzDevice::Setup();
        return &FuzzDevice::SampleSection("ASW");
    }();
    static const std::string dataFile = Asw::GetDataFile("QBT41");
    FuzzInput in(data, size);
    const bool legacy = (in.Byte() & 1) != 0;
    FuzzDevice::Remove(dataFile);
    FuzzDevice::Remove(AswNodes::kOldLog);
    FuzzDevice::Write(legacy ? std::string(AswNodes::kOldLog) : dataFile, in.Rest());
    FuzzDevice::SetTime();

    AswBattery battery(asw, asw["Battery"][0]);
    if (battery.Init(true) == 0) {
        battery.Update();
        FuzzDevice::SetTime(120);
        battery.Update();
        battery.GetDcVoltDec();
        battery.GetNoDcVoltDec();
        battery.GetCutoffSoc();
        battery.GetRestoreSoc();
        battery.GetSceneProtectEnable();
    }
    FuzzDevice::SetTime();
    FuzzDevice::ForgetAppends();
    return 0;
}
