// The raw records the kernel publishes. The first byte picks the node, the rest is its
// content:
//   0  aging data (32 bytes), handled as the aging monitor handles a POLLPRI event: the
//      sample battery updated from it, its policy sent and its limits demanded;
//   1  battery herald data (88 bytes), read for the weekly aging report;
//   2  ACR record (24 bytes) and 3  DCR record (20 bytes), handled as the impedance monitor
//      handles an event, once with the sample's record logs and once with a history.
#include <fcntl.h>
#include <unistd.h>

#include "basp/basp_estimator.h"
#include "basp/basp_herald.h"
#include "basp/basp_nodes.h"
#include "eis/eis_estimator.h"
#include "fuzz/fuzz_device.h"
#include "fuzz/fuzz_sections.h"

namespace {

constexpr const char* kAcrNode = "/sys/devices/platform/vorlan_batt_soh/eis/acr_info";
constexpr const char* kDcrNode = "/sys/devices/platform/vorlan_batt_soh/eis/dcr_info";
const std::string kDbFile = std::string(BaspNodes::kDbPrefix) + "QBT41" + BaspNodes::kDbSuffix;

struct Estimators {
    BaspEstimator* basp = nullptr;
    EISEstimator* eisLog = nullptr;      // the sample's: record format 0, logs
    EISEstimator* eisHistory = nullptr;  // record format 1001, history
};

Estimators Make() {
    FuzzDevice::Setup();
    FuzzDevice::DeclareAll();
    FuzzSections::Setup();
    Estimators e;
    e.basp = static_cast<BaspEstimator*>(EstimatorPool().GetObjectByName("BASP"));
    e.eisLog = static_cast<EISEstimator*>(EstimatorPool().GetObjectByName("EIS"));
    Json::Value paras;
    FuzzDevice::ParseAsConfig(R"({"Recorder": {"versionRecorder": 1001, "rawSizeRecorder": 64,
                                               "setSizeRecorder": 8}})",
                              paras);
    e.eisHistory = new EISEstimator("EIS_HIST");
    e.eisHistory->InitParas(paras);
    return e;
}

// Runs `use` on a read-only descriptor of `node`, as the monitors hold their nodes.
template <typename Use>
void WithNode(const char* node, Use use) {
    int fd = open(FuzzDevice::HostPath(node).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        use(fd);
        close(fd);
    }
}

void Measurement(EISEstimator* eis, const char* node, ProcessorType type, bool report) {
    WithNode(node, [&](int fd) {
        std::unique_ptr<EisInfo> info = EISEstimator::MakeInfo(type);
        eis->Processor(report, fd, *info);
    });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Estimators e = Make();
    FuzzInput in(data, size);
    const uint8_t which = in.Byte() % 4;
    const std::string record = in.Rest();
    FuzzDevice::SetTime();
    FuzzDevice::Remove(kDbFile);
    switch (which) {
        case 0:
            FuzzDevice::Write(BaspNodes::kAgingData, record);
            WithNode(BaspNodes::kAgingData, [&](int fd) { e.basp->ProcEvents(fd); });
            break;
        case 1: {
            FuzzDevice::Write(BaspNodes::kHeraldData, record);
            BaspHerald herald("QBT41");
            herald.Init("2.0");
            herald.Update(1, {4400, 4390});
            herald.ReportData();
            break;
        }
        case 2:
            FuzzDevice::Write(kAcrNode, record);
            Measurement(e.eisLog, kAcrNode, PROCESSOR_ACR, true);
            Measurement(e.eisHistory, kAcrNode, PROCESSOR_ACR, false);
            break;
        default:
            FuzzDevice::Write(kDcrNode, record);
            Measurement(e.eisLog, kDcrNode, PROCESSOR_DCR, true);
            Measurement(e.eisHistory, kDcrNode, PROCESSOR_DCR, false);
            break;
    }
    FuzzDevice::Remove(kDbFile);
    FuzzDevice::ForgetAppends();
    return 0;
}
