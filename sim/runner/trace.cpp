#include "sim/runner/trace.h"

#include <cerrno>
#include <cstring>

namespace sim {

Trace::~Trace() {
    Close();
}

bool Trace::Open(const std::string& dir, double startEpoch, std::string& error) {
    std::lock_guard<std::mutex> guard(lock_);
    start_ = startEpoch;
    csv_ = fopen((dir + "/trace.csv").c_str(), "w");
    writes_ = fopen((dir + "/kernel-writes.log").c_str(), "w");
    if (csv_ == nullptr || writes_ == nullptr) {
        error = "cannot write the trace in " + dir + ": " + strerror(errno);
        return false;
    }
    fprintf(csv_,
            "epoch,day,soc,shown_soc,ocv_v,voltage_v,current_a,temp_c,cycles,fcc_mah,fade_pct,"
            "resistance_mohm,plugged,charging,vterm_mv,current_limit_ma,soc_window,soc_low,"
            "soc_high,status,basp_level,basp_vdec_mv,asw_event,asw_scene,swell_total,"
            "swell_week\n");
    return true;
}

void Trace::AddRow(const ModelSample& s, const SwellEstimate& swell) {
    std::lock_guard<std::mutex> guard(lock_);
    if (csv_ == nullptr) {
        return;
    }
    const CellState& c = s.cell;
    fprintf(csv_,
            "%.0f,%.5f,%.2f,%.2f,%.4f,%.4f,%.3f,%.2f,%.2f,%.1f,%.3f,%.1f,%d,%d,%d,%d,%d,%d,%d,%d,"
            "%u,%u,%u,%u,%.5f,%.5f\n",
            c.time, (c.time - start_) / 86400.0, c.socPct, c.shownSocPct, c.ocvV, c.voltageV,
            c.currentA, c.tempC, c.cycles, c.fccMah, c.fadePct, c.resistanceMohm, c.plugged ? 1 : 0,
            c.charging ? 1 : 0, c.vtermMv, c.currentLimitMa, s.socWindow ? 1 : 0, s.socLowPct,
            s.socHighPct, s.statusLevel, s.baspLevel, s.baspNdcVdecMv, s.aswScene, swell.scene,
            swell.total, swell.week);
    ++rows_;
}

void Trace::AddWrite(double t, const std::string& path, const std::string& data, int result) {
    std::string shown;
    for (unsigned char ch : data) {
        if (ch >= 0x20 && ch < 0x7f && ch != '\\') {
            shown += static_cast<char>(ch);
        } else {
            char hex[8];
            snprintf(hex, sizeof(hex), "\\x%02x", ch);
            shown += hex;
        }
    }
    std::lock_guard<std::mutex> guard(lock_);
    if (writes_ == nullptr) {
        return;
    }
    fprintf(writes_, "%.0f %.5f /sys/%s %d %s\n", t, (t - start_) / 86400.0, path.c_str(), result,
            shown.c_str());
    ++writeCount_;
    ++byNode_[path];
}

void Trace::Close() {
    std::lock_guard<std::mutex> guard(lock_);
    if (csv_ != nullptr) {
        fclose(csv_);
        csv_ = nullptr;
    }
    if (writes_ != nullptr) {
        fclose(writes_);
        writes_ = nullptr;
    }
}

uint64_t Trace::Rows() const {
    std::lock_guard<std::mutex> guard(lock_);
    return rows_;
}

uint64_t Trace::Writes() const {
    std::lock_guard<std::mutex> guard(lock_);
    return writeCount_;
}

std::map<std::string, uint64_t> Trace::WritesByNode() const {
    std::lock_guard<std::mutex> guard(lock_);
    return byNode_;
}

}  // namespace sim
