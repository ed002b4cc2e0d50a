// /splash2/battery/cvtnew.data, the constant-voltage-time record (3240 bytes: magic, a ring
// of 200 results and its count). The input is the stored record. A battery configured to
// judge swelling loads it, judges and reports from it, then stores one more result, judges
// and reports again.
#include "cvt/cvt_battery.h"
#include "cvt/cvt_nodes.h"
#include "fuzz/fuzz_device.h"

namespace {

Json::Value Battery() {
    Json::Value battery;
    FuzzDevice::ParseAsConfig(R"({"Name": "QBT41", "ChargeCycleMax": 0, "ChargeSocMin": 100,
        "ChargeBeginSoc": 90, "ValidTempMin": -20, "ValidTempMax": 60, "ValidValueMin": 0,
        "ValidValueMax": 65535, "TempRecoup": {"Temp": [10, 25, 40], "Ratio": [115, 100, 90]},
        "JudgeEnable": 1, "PolicyEnable": 1, "CalculateCount": 10, "ErrorCount": 3,
        "ErrorValue": 2000, "ErrorCycle": 0, "FccRatio": 100})",
                              battery);
    return battery;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Json::Value battery = [] {
        FuzzDevice::Setup();
        return Battery();
    }();
    FuzzDevice::Write(CvtNodes::kCvtFile, data, size);
    CvtBattery cvt;
    if (cvt.Init(battery)) {
        cvt.Data().CvtSwellJudge(500, 4000, 4500);
        cvt.Data().CvtExportReport();
        cvt.HandleChargeTimeData(1800.0);
    }
    FuzzDevice::ForgetAppends();
    return 0;
}
