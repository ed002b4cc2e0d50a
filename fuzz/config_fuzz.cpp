// quen.json, the whole configuration: the input is the over-the-air configuration, announced
// by a version file that ranks it above the image's (the sample). The daemon's loading steps
// run as at start-up (candidates, order, the first that parses), and when the input is the
// one loaded every estimator section in it goes to its estimator's code.
#include "core/soh_configure.h"
#include "fuzz/fuzz_device.h"
#include "fuzz/fuzz_sections.h"

namespace {

const std::string kOtaDir = SohPaths::kOtaConfigDir;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool ready = [] {
        FuzzDevice::Setup();
        FuzzDevice::DeclareAll();
        FuzzSections::Setup();
        FuzzDevice::Write(kOtaDir + SohPaths::kVersionFileName,
                          "version=9.0.0.1\ntype=QUENJSONCONFIG\nsubtype=generic\n"
                          "compatibleVersion=1\n");
        return true;
    }();
    (void)ready;
    const std::string path = kOtaDir + SohPaths::kConfigFileName;
    FuzzDevice::Write(path, data, size);

    SOHConfigure::ConfigInfo candidates;
    if (SOHConfigure::GetConfigInfo(candidates) != 0) {
        return 0;
    }
    SOHConfigure::SortConfigInfo(candidates);
    Json::Value root;
    for (const auto& candidate : candidates) {
        if (SOHConfigure::ParseJsonFile(candidate.first, root) == 0) {
            if (candidate.first == path && root.isObject() && root.isMember("Estimators")) {
                FuzzSections::All(root["Estimators"]);
            }
            break;
        }
    }
    FuzzDevice::ForgetAppends();
    return 0;
}
