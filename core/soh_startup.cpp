#include "core/soh_startup.h"

#include <bms_interface.h>
#include <cutils/properties.h>
#include <getopt.h>
#include <stdio.h>

#include <system_error>

#include "core/soh_configure.h"
#include "core/soh_enviroment.h"
#include "core/soh_estimator.h"
#include "core/soh_log.h"
#include "platform/soh_clock.h"

namespace {

constexpr const char* kServiceName = "quen";
constexpr unsigned kChargerModeDelaySeconds = 15;

void StopService() {
    property_set("ctl.stop", kServiceName);
}

void ParseOptions(int argc, char** argv) {
    opterr = 0;  // other options are ignored, with a warning of our own
    optind = 1;
    int c;
    while ((c = getopt(argc, argv, "d::")) != -1) {
        if (c == 'd') {
            SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
        } else {
            fprintf(stderr, "quen: ignoring option -%c\n", optopt);
        }
    }
}

// One pass over every estimator created so far: restarts those that ask for it and counts
// the live ones. The caller holds EstimatorStateLock.
int SupervisionPass() {
    int live = 0;
    for (const auto& entry : EstimatorPool().Objects()) {
        SOHEstimator* estimator = entry.second;
        if (estimator == nullptr) {
            continue;
        }
        std::string state = estimator->GetRunState();
        if (state == "run") {
            ++live;
        } else if (state == "restart") {
            try {
                estimator->StartMonitor();
            } catch (const std::system_error& e) {
                SOH_LOGE("restart %s failed: %s\n", estimator->GetName().c_str(), e.what());
                continue;
            }
            ++live;
            SOH_LOGI("Estimator:%s restart\n", estimator->GetName().c_str());
        } else {
            SOH_LOGE("Quen(%s) stop(%s)\n", estimator->GetName().c_str(), state.c_str());
        }
    }
    return live;
}

}  // namespace

int StartEstimator(const std::string& name) {
    SOHEstimator* estimator = EstimatorPool().GetObjectByName(name);
    if (estimator == nullptr) {
        SOH_LOGE("can't find estimator: %s\n", name.c_str());
        return -1;
    }
    try {
        estimator->StartMonitor();
    } catch (const std::system_error& e) {
        // Out of threads: the estimator stays stopped; the others still start.
        SOH_LOGE("start %s failed: %s\n", estimator->GetName().c_str(), e.what());
    }
    SOH_LOGI("estimator:%s start\n", estimator->GetName().c_str());
    return 0;
}

int SohMain(int argc, char** argv, const SohDeclarations& declarations) {
    if (!SOHEnviroment::Prepare()) {
        StopService();
        return 0;
    }
    ParseOptions(argc, argv);
    if (BmsPropertyIsChargerMode()) {
        SohClock::Sleep(kChargerModeDelaySeconds);
    }
    if (declarations.declareEstimators) {
        declarations.declareEstimators();
    }
    if (declarations.declareProtectors) {
        declarations.declareProtectors();
    }
    SOH_LOGI("%s", "StartAllEstimator");

    const std::vector<std::string>& estimators = SOHConfigure::GetEstimators();
    const std::set<std::string>& protectors = SOHConfigure::GetProtectors();
    int started = (StartEstimator("APP") == 0) ? 1 : 0;
    for (const std::string& name : estimators) {
        if (name == "APP") {
            continue;
        }
        started += (StartEstimator(name) == 0) ? 1 : 0;
    }
    for (const std::string& name : protectors) {
        SOH_LOGI("protector:%s\n", name.c_str());
    }
    if (declarations.startService) {
        declarations.startService();
    }
    if (started == 0) {
        StopService();
        return 0;
    }

    uint64_t seen = 0;
    int live = 0;
    do {
        std::unique_lock<std::mutex> lock(EstimatorStateLock);
        // Counting changes instead of waiting blindly: a monitor that ended before this wait
        // began is not missed.
        SohClock::Wait(EstimatorStateChanged, lock, [&] { return EstimatorStateEvents != seen; });
        seen = EstimatorStateEvents;
        live = SupervisionPass();
    } while (live > 0);

    StopService();
    return 0;
}
