// quen-perf: the daemon's whole-process figures, measured against the simulated phone.
//
//   quen-perf [SCENARIO.json] [--quen PATH] [--days N] [--speed N] [--idle-seconds N]
//             [--idle-speed N] [--events N] [--keep] [--only busy,idle,latency]
//
// Prints CPU seconds per simulated day, resident memory, bytes written to storage per
// simulated day by file, idle wake-ups per hour per thread and the latency from an aging event
// to the last limit write, each beside its budget (see perf_runs.h for how each is measured).
// Exit status: 0 measured, 1 a run failed, 2 bad usage or a machine without FUSE.
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "sim/fakefs/fake_kernel.h"
#include "sim/perf/perf_runs.h"
#include "sim/runner/scenario.h"

namespace fs = std::filesystem;

namespace {

// Budgets: resident memory, idle wake-ups beyond the anti-swelling tick, event latency.
constexpr double kRssBudgetKb = 8 * 1024;
constexpr double kTickSeconds = 30;
constexpr double kLatencyBudgetUs = 1000;

int Usage(const char* why) {
    if (why != nullptr) {
        fprintf(stderr, "quen-perf: %s\n", why);
    }
    fprintf(stderr,
            "usage: quen-perf [SCENARIO.json] [--quen PATH] [--days N] [--speed N]\n"
            "                 [--idle-seconds N] [--idle-speed N] [--events N] [--keep]\n"
            "                 [--only busy,idle,latency]\n");
    return 2;
}

bool Positive(const char* text, double& out) {
    char* end = nullptr;
    out = strtod(text, &end);
    return end != text && *end == '\0' && std::isfinite(out) && out > 0;
}

double Percentile(std::vector<double> v, double p) {
    if (v.empty()) {
        return 0;
    }
    std::sort(v.begin(), v.end());
    size_t i = static_cast<size_t>(std::ceil(p / 100.0 * v.size()));
    return v[std::min(v.size() - 1, i == 0 ? 0 : i - 1)];
}

std::string WorkParent() {
    if (access("/dev/shm", W_OK) == 0) {
        return "/dev/shm";
    }
    const char* tmp = getenv("TMPDIR");
    return tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp";
}

void PrintBusy(const sim::BusyResult& r, double speed) {
    const double perDay = 1.0 / r.days;
    printf("\n== Busy phone: %.2f simulated days at speed %.0f (after half a day of start-up)\n",
           r.days, speed);
    const double due = 86400.0 / kTickSeconds;
    const double perPass = r.aswPasses > 0 ? r.aswRunSeconds / r.aswPasses : 0;
    printf("CPU        %.3f s per simulated day (utime + stime; %.3f s on CPU by schedstat)\n",
           r.cpuSeconds * perDay, r.runSeconds * perDay);
    printf(
        "           %.0f anti-swelling passes per simulated day, %.0f due (one per 30 s): at"
        " this speed a\n           pass's own time delays the next; its thread spends %.0f us"
        " per pass\n",
        r.aswPasses * perDay, due, perPass * 1e6);
    printf("           at one pass per 30 s: %.3f s per simulated day\n",
           (r.runSeconds + std::max(0.0, due * r.days - r.aswPasses) * perPass) * perDay);
    printf("           by thread, s per simulated day:");
    for (const auto& [label, run] : r.threadRunSeconds) {
        printf(" %s %.3f;", label.c_str(), run * perDay);
    }
    printf("\n");
    printf(
        "Memory     VmRSS %llu kB, VmHWM %llu kB (budget %.0f kB: %s by %.0f kB); Pss %llu kB,"
        " RssAnon %llu kB\n",
        static_cast<unsigned long long>(r.rssKb), static_cast<unsigned long long>(r.hwmKb),
        kRssBudgetKb, r.hwmKb <= kRssBudgetKb ? "within" : "over",
        std::fabs(kRssBudgetKb - static_cast<double>(r.hwmKb)),
        static_cast<unsigned long long>(r.pssKb), static_cast<unsigned long long>(r.anonKb));
    printf("Storage    bytes written per simulated day, by file\n");
    double total = 0;
    double replacements = 0;
    for (const auto& [path, f] : r.files) {
        printf("           %-36s %10.0f B  %6.1f replacements  %6.1f appends\n", path.c_str(),
               f.bytes * perDay, f.replacements * perDay, f.appends * perDay);
        total += static_cast<double>(f.bytes);
        replacements += static_cast<double>(f.replacements);
    }
    printf("           %-36s %10.0f B  %6.1f replacements (each with fdatasync)\n", "total",
           total * perDay, replacements * perDay);
    printf("Log        %.0f lines per simulated day\n", r.logLines * perDay);
    printf("Nodes      kernel-node accesses per simulated day (reads / writes)\n");
    std::vector<std::pair<double, std::string>> nodes;
    for (const auto& [path, reads] : r.nodeReads) {
        nodes.emplace_back(static_cast<double>(reads + r.nodeWrites.at(path)), path);
    }
    std::sort(nodes.rbegin(), nodes.rend());
    for (const auto& [n, path] : nodes) {
        printf("           %-56s %8.1f / %.1f\n", path.c_str(), r.nodeReads.at(path) * perDay,
               r.nodeWrites.at(path) * perDay);
    }
}

void PrintIdle(const sim::IdleResult& plain, const sim::IdleResult& fake, double speed) {
    const double tick = 3600.0 / kTickSeconds;
    printf("\n== Idle phone (noon, off the charger): %.2f simulated hours at speed %.0f\n",
           plain.hours, speed);
    printf("CPU        %.1f ms per simulated hour (%.3f s per day)\n",
           plain.cpuSeconds * 1e3 / plain.hours, plain.cpuSeconds * 24 / plain.hours);
    printf(
        "Wake-ups   context switches per hour, per thread: on a plain device tree (the figure:\n"
        "           wake-ups, i.e. voluntary switches, and beside them preemptions by other load);"
        "\n           on the fake kernel, with the node accesses it served\n");
    printf("           %-22s %10s %12s %12s %10s\n", "thread", "wake-ups", "preempted",
           "fake kernel", "accesses");
    double total = 0;
    for (const sim::IdleThread& t : plain.threads) {
        const double wakeups = t.switchesPerHour - t.involuntaryPerHour;
        total += wakeups;
        auto f = std::find_if(fake.threads.begin(), fake.threads.end(),
                              [&t](const sim::IdleThread& x) { return x.label == t.label; });
        const bool seen = f != fake.threads.end();
        printf("           %-22s %10.1f %12.1f %12.1f %10.1f\n", t.label.c_str(), wakeups,
               t.involuntaryPerHour, seen ? f->switchesPerHour : 0.0,
               seen ? f->accessesPerHour : 0.0);
    }
    // One wake-up per tick; a window may hold one tick more than an hour's 120.
    printf("           all threads %.1f wake-ups per hour; budget %.0f (one per 30-s tick): %s\n",
           total, tick, total <= tick + 1 ? "within" : "over");
}

void PrintLatency(const sim::LatencyResult& r) {
    printf("\n== Aging events: RaiseEvent to the last limit write, %d events per run\n", r.events);
    printf("           %-40s %9s %9s %9s %9s\n", "", "median", "p90", "p99", "max");
    auto row = [](const char* name, const std::vector<double>& v) {
        printf("           %-40s %6.0f us %6.0f us %6.0f us %6.0f us\n", name, Percentile(v, 50),
               Percentile(v, 90), Percentile(v, 99), Percentile(v, 100));
    };
    row("every node on the fake kernel: measured", r.allNodes.measuredUs);
    row("  the fake kernel's share", r.allNodes.shareUs);
    row("  measured - share", r.allNodes.ownUs);
    row("only the event node on it: measured", r.eventNode.measuredUs);
    row("  the fake kernel's share", r.eventNode.shareUs);
    row("  measured - share (the daemon's own)", r.eventNode.ownUs);
    printf(
        "           fake kernel: event to record read %.0f us, node read %.0f us, node write"
        " %.0f us\n",
        r.notifyUs, r.readUs, r.writeUs);
    printf(
        "           per event: %.1f node reads and %.1f node writes (every node on the fake"
        " kernel),\n           %.1f record replacements with fdatasync (tmpfs here); the"
        " daemon on CPU %.0f us\n",
        r.readsPerEvent, r.writesPerEvent, r.replacementsPerEvent, r.cpuUs);
    const double median = Percentile(r.eventNode.ownUs, 50);
    printf("           budget: median under %.0f us without the fake kernel: %s\n",
           kLatencyBudgetUs, median < kLatencyBudgetUs ? "within" : "over");
}

}  // namespace

int main(int argc, char** argv) {
    sim::PerfOptions opt;
    opt.quen = QUEN_BINARY;
    std::string scenarioPath = QUEN_SOURCE_DIR "/sim/scenarios/default.json";
    bool keep = false;
    std::string only = "busy,idle,latency";
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        const char* v = i + 1 < argc ? argv[i + 1] : nullptr;
        double n = 0;
        if (a == "-h" || a == "--help") {
            Usage(nullptr);
            return 0;
        } else if (a == "--keep") {
            keep = true;
        } else if (a == "--only" && v != nullptr) {
            only = argv[++i];
        } else if (a == "--quen" && v != nullptr) {
            opt.quen = argv[++i];
        } else if (a == "--days" && v != nullptr && Positive(v, n)) {
            opt.busyDays = n;
            ++i;
        } else if (a == "--speed" && v != nullptr && Positive(v, n) && n <= 1e6) {
            opt.busySpeed = n;
            ++i;
        } else if (a == "--idle-seconds" && v != nullptr && Positive(v, n)) {
            opt.idleSeconds = n;
            ++i;
        } else if (a == "--idle-speed" && v != nullptr && Positive(v, n) && n <= 1e6) {
            opt.idleSpeed = n;
            ++i;
        } else if (a == "--events" && v != nullptr && Positive(v, n) && n <= 100000) {
            opt.events = static_cast<int>(n);
            ++i;
        } else if (!a.empty() && a[0] != '-') {
            scenarioPath = a;
        } else {
            return Usage(("bad option " + a).c_str());
        }
    }
    std::string error;
    sim::Scenario sc;
    if (!sim::LoadScenario(scenarioPath, sc, error)) {
        fprintf(stderr, "quen-perf: scenario %s\n", error.c_str());
        return 2;
    }
    if (!sim::FakeKernel::Available(error)) {
        fprintf(stderr, "quen-perf: the fake kernel needs FUSE: %s\n", error.c_str());
        return 2;
    }
    if (access(opt.quen.c_str(), X_OK) != 0) {
        fprintf(stderr, "quen-perf: the daemon %s cannot be run\n", opt.quen.c_str());
        return 2;
    }
    std::string work = WorkParent() + "/quen-perf-XXXXXX";
    if (mkdtemp(work.data()) == nullptr) {
        fprintf(stderr, "quen-perf: cannot create a work folder under %s\n", WorkParent().c_str());
        return 2;
    }
    opt.workDir = work;
    setenv("TZ", sc.timezone.c_str(), 1);
    tzset();
    double load[1] = {0};
    getloadavg(load, 1);
    printf("quen-perf: daemon %s, scenario %s, work folder %s, load average %.2f\n",
           opt.quen.c_str(), sc.name.c_str(), work.c_str(), load[0]);
    fflush(stdout);

    auto wanted = [&only](const char* phase) {
        return ("," + only + ",").find(std::string(",") + phase + ",") != std::string::npos;
    };
    auto failed = [&error](const char* run) {
        fprintf(stderr, "quen-perf: %s run: %s\n", run, error.c_str());
        return 1;
    };
    int status = 0;
    if (wanted("busy")) {
        sim::BusyResult busy;
        if (sim::RunBusy(opt, sc, busy, error)) {
            PrintBusy(busy, opt.busySpeed);
        } else {
            status = failed("busy");
        }
        fflush(stdout);
    }
    if (wanted("idle")) {
        sim::IdleResult plain;
        sim::IdleResult fake;
        if (sim::RunIdle(opt, sc, false, plain, error) &&
            sim::RunIdle(opt, sc, true, fake, error)) {
            PrintIdle(plain, fake, opt.idleSpeed);
        } else {
            status = failed("idle");
        }
        fflush(stdout);
    }
    if (wanted("latency")) {
        sim::LatencyResult latency;
        if (sim::RunLatency(opt, sc, latency, error)) {
            PrintLatency(latency);
        } else {
            status = failed("latency");
        }
    }
    if (!keep) {
        std::error_code ec;
        fs::remove_all(work, ec);
    } else {
        printf("\nquen-perf: the runs' roots and logs are kept in %s\n", work.c_str());
    }
    return status;
}
