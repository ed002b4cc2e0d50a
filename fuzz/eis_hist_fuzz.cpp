// /log/soh/eis, the impedance history (a protobuf record sealed by a SHA-256 digest). The
// input is the stored history. An estimator configured for record format 1001 loads and
// verifies it (version rules, digest) and then takes one ACR measurement, which loads it again
// on its way to the strategies.
#include <fcntl.h>
#include <unistd.h>

#include "eis/eis_estimator.h"
#include "eis/eis_nodes.h"
#include "fuzz/fuzz_device.h"
#include "fuzz/fuzz_sections.h"

namespace {

constexpr const char* kAcrNode = "/sys/devices/platform/vorlan_batt_soh/eis/acr_info";

EISEstimator* MakeEstimator() {
    FuzzDevice::Setup();
    FuzzSections::Setup();
    Json::Value paras;
    FuzzDevice::ParseAsConfig(R"({"Recorder": {"versionRecorder": 1001, "rawSizeRecorder": 64,
                                               "setSizeRecorder": 8},
                                  "Unifier0": {"type": 1}, "Judge0": {"type": 1}})",
                              paras);
    // No section of its own in the sample: the parameters above are the only ones it has.
    EISEstimator* eis = new EISEstimator("EIS_HIST");
    eis->InitParas(paras);
    return eis;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static EISEstimator* eis = MakeEstimator();
    FuzzDevice::Write(EisNodes::kHistFile, data, size);

    Eis::HistoryData hist;
    eis->GetHistData(hist);
    std::string hash;
    EISEstimator::HistHash(hist, hash);

    int fd = open(FuzzDevice::HostPath(kAcrNode).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        AcrInfo info;
        eis->Processor(false, fd, info);
        close(fd);
    }
    FuzzDevice::ForgetAppends();
    return 0;
}
