// The simulator's trace of one run, in the output folder:
//   trace.csv          one row per sample: the model's state, what the daemon asked, and the
//                      daemon's swell estimate (columns named in the header row)
//   kernel-writes.log  every write the daemon made to a kernel node: simulated time (epoch
//                      and days since the start), node, result (0 or -errno), bytes (text as is;
//                      other bytes as \xNN)
//
// Threads: AddWrite is called from the fake kernel's threads, AddRow from the runner's; one
// mutex guards both files and the counters.
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <mutex>
#include <string>

#include "sim/model/model_nodes.h"
#include "sim/runner/swell_probe.h"

namespace sim {

class Trace {
public:
    ~Trace();
    bool Open(const std::string& dir, double startEpoch, std::string& error);
    void AddRow(const ModelSample& s, const SwellEstimate& swell);
    void AddWrite(double t, const std::string& path, const std::string& data, int result);
    void Close();

    uint64_t Rows() const;
    uint64_t Writes() const;
    // Writes per node, for the report.
    std::map<std::string, uint64_t> WritesByNode() const;

private:
    mutable std::mutex lock_;
    FILE* csv_ = nullptr;
    FILE* writes_ = nullptr;
    double start_ = 0;
    uint64_t rows_ = 0;
    uint64_t writeCount_ = 0;
    std::map<std::string, uint64_t> byNode_;
};

}  // namespace sim
