// EISEstimator ("EIS"): collects the battery's AC and DC resistance measurements.
//
// Configuration (the "EIS" section):
//   "Monitors": {"<monitor>": {"<node path>": <processor type>, ...}, ...}; type 0 = ACR,
//     1 = DCR; other values are skipped, nodes that cannot be opened at construction are
//     skipped ("<node> can't open"), monitors left without nodes are dropped.
//   "Parameters": algorithm-parameter groups. Group "Recorder" holds "versionRecorder" (record
//     format version), "rawSizeRecorder" and "setSizeRecorder" (kept for the strategies);
//     when any is missing all three are 0. Groups "Unifier<t>" and "Judge<t>" (t the processor
//     type) name their strategy with an integer "type".
//
// Each measurement is read from its node (exactly one raw record), reported as a big-data
// event when the device booted normally, and then kept: version 0 appends it to acr.dat or
// dcr.dat; any other version adds it to the history /log/soh/eis (loaded and verified
// afresh for every measurement; a history that fails to load is started anew) and runs the
// unifier and the judge of its type. The default unifier refuses every datum, so on this
// build the history path ends with "update unified data set failed in Processor".
//
// History verification: a stored version with the same thousands as the configured one is
// taken over with the configured version (the digest covers the record as it was stored);
// the hash is SHA-256 over the record serialised without field 7, compared as the text
// before the digest's first zero byte (the stored form; HistHash makes it).
//
// Start: nothing when the scheme is closed or no monitor is left (the state stays "stop").
//
// Threads: constructed on the main thread; one detached thread per monitor. monitors_ and
// the recorder settings are fixed after construction; paras_ locks itself; histLock_ (shared)
// is held while the history file is read and parsed; liveLock_ guards live_, the number of
// monitor threads not yet ended: the last one to end sets the run state "stop".
#pragma once

#include <json/json.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <utility>
#include <vector>

#include "core/soh_algo_para.h"
#include "core/soh_backoff.h"
#include "core/soh_estimator.h"
#include "eis/eis_info.h"
#include "eisdata.pb.h"

class EISEstimator : public SOHEstimator {
public:
    static constexpr const char* kRecorderGroup = "Recorder";

    explicit EISEstimator(const std::string& name);

    void StartMonitor() override;
    void InitMonitors(const Json::Value& monitors);
    void InitParas(const Json::Value& paras);

    // Body of the thread of monitor `index`: arms its nodes and handles their events until
    // the scheme is closed. A node whose arming read fails stays watched. A node that cannot
    // be opened, or whose wake-up brings no record (POLLHUP/POLLERR/POLLNVAL without POLLPRI,
    // a read that fails or comes short), is closed and opened again after a back-off step
    // (1 s doubling to 5 min, per node, through the clock seam); the first failure is logged,
    // then counts at the 2nd, 4th, 8th... and the recovery once.
    void Monitor(size_t index);
    // Handles one measurement on `fd`; `mode` (normal boot) allows the report.
    bool Processor(bool mode, int fd, EisInfo& info);
    // Loads and verifies the history; on failure `hist` is an empty history of the
    // configured version.
    bool GetHistData(Eis::HistoryData& hist);
    bool Add2UnifySet(ProcessorType type, Eis::RawDatum datum, Eis::HistoryData& hist);
    bool JudgeStatus(ProcessorType type, const Eis::HistoryData& hist);

    // A new measurement object for processor type `type`; null for an unknown type.
    static std::unique_ptr<EisInfo> MakeInfo(int type);
    // The hash of `hist` in its stored form (see above); false when it cannot be serialised.
    static bool HistHash(const Eis::HistoryData& hist, std::string& hash);

    size_t MonitorCount() const { return monitors_.size(); }
    uint32_t Version() const { return version_; }

private:
    // Handles one wake-up of node `path` (processor `type`) on `fd`: true when it brought a
    // record (processed or not), false when the node is at fault. Logs quietly while
    // `backoff` counts failures, and ends the run of failures on success.
    bool HandleWakeUp(const std::string& path, int type, int fd, short revents, bool normalMode,
                      SohBackoff& backoff);

    struct EisMonitor {
        std::string name;
        std::vector<std::pair<std::string, int>> nodes;  // device path, processor type
    };
    void MonitorEnded();

    std::vector<EisMonitor> monitors_;
    SohAlgoPara paras_;
    uint32_t version_ = 0;
    uint32_t rawSize_ = 0;
    uint32_t setSize_ = 0;
    std::shared_mutex histLock_;
    std::mutex liveLock_;
    int live_ = 0;
};
