// sys_para.dat, the system parameter store (closed schemes, protect mark, the limits last
// written). The input is the stored file. Everything the daemon derives from it runs: the
// queries, the app bridge's restoration of the recorded limits at start (charger-mode boot,
// so that it starts no thread), and the changes that save the store again.
//
// The daemon loads the store once per process and keeps it in a private static. This target
// compiles the store's own source into itself (the library's copy is then not linked) so that
// every input is loaded afresh through that same code.
#include "core/soh_sys_para.cpp"  // NOLINT(bugprone-suspicious-include)
#include "fuzz/fuzz_device.h"
#include "service/app_estimator.h"

namespace {

// Forgets the loaded store, as a fresh process would have it.
void Unload() {
    SysParaState& s = State();
    std::lock_guard<std::mutex> lock(s.lock);
    s.loaded = false;
    s.dirty = false;
    s.para.Clear();
    s.smartCharging = 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static SOHEstimator* app = [] {
        FuzzDevice::Setup();
        FuzzDevice::DeclareAll();
        FuzzDevice::Write("/properties/ro.bootmode", "charger");
        return EstimatorPool().GetObjectByName("APP");
    }();
    Unload();
    FuzzDevice::Write(SohPaths::kSysParaFile, data, size);

    SOHConfigure::InitPara();
    for (const char* name : {"APP", "ASW", "BASP", "CVT", "EIS", "ISCD", "CFSD"}) {
        SOHConfigure::IsSchemeClosed(name);
    }
    SOHConfigure::GetProtectMark();
    for (const char* name : {"DcVoltLimitator", "NonDcVoltLimitator", "DcCurLimitator",
                             "NonDcCurLimitator", "SocLimitator", "StatusLimitator"}) {
        std::string src;
        std::string value;
        SOHConfigure::GetLimitRecord(name, src, value);
    }
    if (app != nullptr) {
        app->StartMonitor();
    }
    SOHConfigure::SetProtectMark(1);
    SOHConfigure::RefLimitRecord("DcCurLimitator", "APP", "90");
    SOHConfigure::CloseScheme("CFSD");
    SOHConfigure::SavePara();
    return 0;
}
