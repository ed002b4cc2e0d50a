// version.txt: the key=value file that qualifies a configuration. The input is the version
// file of the over-the-air directory, whose configuration competes with the image's (the
// sample): the daemon reads and checks both and orders the valid ones by version.
#include "core/soh_configure.h"
#include "fuzz/fuzz_device.h"

namespace {

const std::string kOtaDir = SohPaths::kOtaConfigDir;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool ready = [] {
        FuzzDevice::Setup();
        FuzzDevice::Write(kOtaDir + SohPaths::kConfigFileName, "{\"Estimators\": {}}");
        return true;
    }();
    (void)ready;
    const std::string path = kOtaDir + SohPaths::kVersionFileName;
    FuzzDevice::Write(path, data, size);

    SOHConfigure::VerInfo info;
    SOHConfigure::GetFileVerInfo(info, path);
    SOHConfigure::CheckVerInfo(info);

    SOHConfigure::ConfigInfo candidates;
    if (SOHConfigure::GetConfigInfo(candidates) == 0 && candidates.size() >= 2) {
        SOHConfigure::SortConfigInfo(candidates);
    }
    return 0;
}
