// Running one arm, and its summary.json.
#include "sim/runner/arm.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "sim/runner/arm_internal.h"

namespace fs = std::filesystem;

namespace sim {

int64_t MonotonicNs() {
    struct timespec ts {};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000LL + ts.tv_nsec;
}

double ArmSampler::Add(const ModelSample& s, const SwellEstimate& swell) {
    if (summary_.samples == 0) {
        summary_.fccStartMah = s.cell.fccMah;
    }
    const double day = (s.cell.time - start_) / 86400.0;
    if (s.baspLevel != lastLevel_) {
        summary_.baspLevels.emplace_back(day, s.baspLevel);
        lastLevel_ = s.baspLevel;
    }
    if (swell.scene != lastScene_) {
        summary_.aswScenes.emplace_back(day, swell.scene);
        lastScene_ = swell.scene;
    }
    summary_.fccEndMah = s.cell.fccMah;
    summary_.cyclesEnd = s.cell.cycles;
    summary_.swellEnd = swell.total;
    ++summary_.samples;
    trace_.AddRow(s, swell);
    return day;
}

double DaemonArmSampler::Sample() {
    const ModelSample s = nodes_.Sample();
    if (probe_ != nullptr && s.cell.time >= nextSwell_) {
        probe_->Read(swell_);
        nextSwell_ = s.cell.time + 3600.0;
    }
    return sampler_.Add(s, swell_);
}

ArmProgress::ArmProgress(std::string label, double days, bool enabled)
    : label_(std::move(label)), days_(days), enabled_(enabled), tty_(isatty(STDERR_FILENO) != 0) {}

void ArmProgress::Show(double day, double realSeconds, bool last) {
    if (!enabled_) {
        return;
    }
    const int tenth = static_cast<int>(10 * day / days_);
    const int64_t now = MonotonicNs();
    if (!last && (tty_ ? now - lastShownNs_ < 200000000LL : tenth == lastTenth_)) {
        return;
    }
    lastTenth_ = tenth;
    lastShownNs_ = now;
    const int width = 30;
    const double part = std::min(1.0, day / days_);
    std::string bar(static_cast<size_t>(width * part), '#');
    bar += std::string(width - bar.size(), '-');
    fprintf(stderr, "%s  %s: day %6.1f / %.1f [%s] %3.0f%%  %.1f days/s%s", tty_ ? "\r" : "",
            label_.c_str(), day, days_, bar.c_str(), 100 * part,
            realSeconds > 0 ? day / realSeconds : 0.0, tty_ && !last ? "" : "\n");
    fflush(stderr);
}

int RunArm(const ArmPlan& plan, const volatile sig_atomic_t* stop, RunSummary& summary,
           std::string& error) {
    std::error_code ec;
    fs::create_directories(plan.outDir, ec);
    if (ec) {
        error = "cannot create " + plan.outDir + ": " + ec.message();
        return 2;
    }
    for (const char* old : {"quen.log", "trace.csv", "kernel-writes.log", "summary.json"}) {
        fs::remove(fs::path(plan.outDir) / old, ec);
    }
    summary = RunSummary{};
    summary.arm = plan.name;
    summary.profile = plan.profile;
    summary.config = plan.config;
    summary.scenario = plan.scenario.name;
    summary.withDaemon = plan.withDaemon;
    summary.outcome = "completed";
    const int rc = plan.withDaemon ? RunDaemonArm(plan, stop, summary, error)
                                   : RunModelArm(plan, stop, summary, error);
    if (rc == 2) {
        return rc;
    }
    std::string why;
    if (!WriteSummary(plan.outDir, summary, why)) {
        fprintf(stderr, "quen-sim: %s\n", why.c_str());
    }
    return rc;
}

namespace {

Json::Value Changes(const std::vector<std::pair<double, unsigned>>& changes) {
    Json::Value out(Json::arrayValue);
    for (const auto& c : changes) {
        Json::Value pair(Json::arrayValue);
        pair.append(c.first);
        pair.append(c.second);
        out.append(pair);
    }
    return out;
}

bool ReadChanges(const Json::Value& v, std::vector<std::pair<double, unsigned>>& out) {
    if (!v.isArray()) {
        return false;
    }
    for (const Json::Value& c : v) {
        if (!c.isArray() || c.size() != 2 || !c[0].isNumeric() || !c[1].isUInt()) {
            return false;
        }
        out.emplace_back(c[0].asDouble(), c[1].asUInt());
    }
    return true;
}

}  // namespace

bool WriteSummary(const std::string& dir, const RunSummary& s, std::string& error) {
    Json::Value v;
    v["arm"] = s.arm;
    v["profile"] = s.profile;
    v["config"] = s.config;
    v["scenario"] = s.scenario;
    v["with_daemon"] = s.withDaemon;
    v["simulated_days"] = s.simulatedDays;
    v["real_seconds"] = s.realSeconds;
    v["ok"] = s.ok;
    v["outcome"] = s.outcome;
    v["samples"] = Json::UInt64(s.samples);
    v["kernel_writes"] = Json::UInt64(s.kernelWrites);
    for (const auto& kv : s.writesByNode) {
        v["writes_by_node"][kv.first] = Json::UInt64(kv.second);
    }
    v["fcc_start_mah"] = s.fccStartMah;
    v["fcc_end_mah"] = s.fccEndMah;
    v["cycles_end"] = s.cyclesEnd;
    v["swell_end"] = s.swellEnd;
    v["basp_levels"] = Changes(s.baspLevels);
    v["asw_scenes"] = Changes(s.aswScenes);
    v["log_errors"] = s.logErrors;
    v["daemon_cpu_seconds"] = s.daemonCpuSeconds;
    for (const auto& kv : s.turnsByRole) {
        v["turns_by_role"][kv.first] = Json::UInt64(kv.second);
    }
    Json::StreamWriterBuilder b;
    b["indentation"] = "  ";
    const fs::path file = fs::path(dir) / "summary.json";
    const fs::path tmp = fs::path(dir) / ".summary.json.tmp";
    {
        std::ofstream f(tmp);
        f << Json::writeString(b, v) << "\n";
        if (!f.flush()) {
            error = "cannot write " + tmp.string();
            return false;
        }
    }
    std::error_code ec;
    fs::rename(tmp, file, ec);
    if (ec) {
        error = "cannot write " + file.string() + ": " + ec.message();
        return false;
    }
    return true;
}

bool ReadSummary(const std::string& dir, RunSummary& s, std::string& error) {
    const std::string file = dir + "/summary.json";
    std::ifstream f(file);
    Json::Value v;
    Json::CharReaderBuilder b;
    std::string why;
    if (!f || !Json::parseFromStream(b, f, &v, &why) || !v.isObject()) {
        error = file + ": " + (f ? why : std::string("cannot read"));
        return false;
    }
    auto num = [&](const char* key) { return v[key].isNumeric() ? v[key].asDouble() : 0.0; };
    s = RunSummary{};
    s.arm = v["arm"].asString();
    s.profile = v["profile"].asString();
    s.config = v["config"].asString();
    s.scenario = v["scenario"].asString();
    s.withDaemon = v["with_daemon"].asBool();
    s.simulatedDays = num("simulated_days");
    s.realSeconds = num("real_seconds");
    s.ok = v["ok"].asBool();
    s.outcome = v["outcome"].asString();
    s.samples = static_cast<uint64_t>(num("samples"));
    s.kernelWrites = static_cast<uint64_t>(num("kernel_writes"));
    for (const std::string& k : v["writes_by_node"].getMemberNames()) {
        s.writesByNode[k] = v["writes_by_node"][k].asUInt64();
    }
    s.fccStartMah = num("fcc_start_mah");
    s.fccEndMah = num("fcc_end_mah");
    s.cyclesEnd = num("cycles_end");
    s.swellEnd = num("swell_end");
    s.logErrors = static_cast<int>(num("log_errors"));
    s.daemonCpuSeconds = num("daemon_cpu_seconds");
    for (const std::string& k : v["turns_by_role"].getMemberNames()) {
        s.turnsByRole[k] = v["turns_by_role"][k].asUInt64();
    }
    if (!ReadChanges(v["basp_levels"], s.baspLevels) ||
        !ReadChanges(v["asw_scenes"], s.aswScenes)) {
        error = file + ": bad level or scene changes";
        return false;
    }
    return true;
}

}  // namespace sim
