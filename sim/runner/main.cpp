// quen-sim: runs the real daemon against a simulated phone for days or months of simulated
// time and writes a trace and a report with plots.
//
//   quen-sim [SCENARIO.json] [--out DIR] [--quen PATH] [--days N] [--speed N]
//
// The phone's kernel nodes are served by a FUSE fake kernel over ROOT/sys; the rest of the
// device tree is a plain copy under ROOT. The daemon and the simulator share one accelerated
// clock. Exit status: 0 run completed, 1 the daemon died or the report failed, 2 bad usage or
// scenario, or the machine cannot run the simulator, 130 interrupted (the report is still
// written).
#include <signal.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "sim/fakefs/fake_kernel.h"
#include "sim/model/model_nodes.h"
#include "sim/model/model_params.h"
#include "sim/runner/daemon_process.h"
#include "sim/runner/report.h"
#include "sim/runner/scenario.h"
#include "sim/runner/sim_clock.h"
#include "sim/runner/swell_probe.h"
#include "sim/runner/trace.h"

namespace fs = std::filesystem;

namespace {

volatile sig_atomic_t g_stop = 0;

void OnSignal(int) {
    g_stop = 1;
}

struct Options {
    std::string scenario = QUEN_SOURCE_DIR "/sim/scenarios/default.json";
    std::string out;
    std::string quen = QUEN_BINARY;
    double days = 0;   // 0: the scenario's
    double speed = 0;  // 0: the scenario's
};

int Usage(const char* why) {
    if (why != nullptr) {
        fprintf(stderr, "quen-sim: %s\n", why);
    }
    fprintf(stderr,
            "usage: quen-sim [SCENARIO.json] [--out DIR] [--quen PATH] [--days N] [--speed N]\n"
            "  runs the daemon against a simulated phone; writes DIR/report.html\n"
            "  (default DIR: out/sim/<scenario name>)\n");
    return 2;
}

bool ParsePositive(const char* text, double& out) {
    char* end = nullptr;
    out = strtod(text, &end);
    return end != text && *end == '\0' && std::isfinite(out) && out > 0;
}

int CountErrorLines(const fs::path& log) {
    std::ifstream in(log);
    std::string line;
    int n = 0;
    while (std::getline(in, line)) {
        n += line.find(" E quen: ") != std::string::npos ? 1 : 0;
    }
    return n;
}

std::string Tail(const fs::path& log, int lines) {
    std::ifstream in(log);
    std::vector<std::string> all;
    std::string line;
    while (std::getline(in, line)) {
        all.push_back(line);
    }
    std::string out;
    for (size_t i = all.size() > static_cast<size_t>(lines) ? all.size() - lines : 0;
         i < all.size(); ++i) {
        out += "  " + all[i] + "\n";
    }
    return out;
}

class Progress {
public:
    Progress(double days) : days_(days), tty_(isatty(STDERR_FILENO) != 0) {}
    void Show(double day, double realSeconds, bool last = false) {
        int tenth = static_cast<int>(10 * day / days_);
        if (!tty_ && !last && tenth == lastTenth_) {
            return;
        }
        lastTenth_ = tenth;
        const int width = 30;
        int filled = static_cast<int>(width * std::min(1.0, day / days_));
        std::string bar(filled, '#');
        bar += std::string(width - filled, '-');
        fprintf(stderr, "%s  day %6.1f / %.1f [%s] %3.0f%%  %.1f days/s%s", tty_ ? "\r" : "", day,
                days_, bar.c_str(), 100 * std::min(1.0, day / days_),
                realSeconds > 0 ? day / realSeconds : 0.0, tty_ && !last ? "" : "\n");
        fflush(stderr);
    }

private:
    double days_;
    bool tty_;
    int lastTenth_ = -1;
};

}  // namespace

int main(int argc, char** argv) {
    Options opt;
    bool haveScenario = false;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        auto value = [&](std::string& out) {
            if (i + 1 >= argc) {
                return false;
            }
            out = argv[++i];
            return true;
        };
        std::string v;
        if (a == "-h" || a == "--help") {
            Usage(nullptr);
            return 0;
        } else if (a == "--out") {
            if (!value(opt.out))
                return Usage("--out needs a folder");
        } else if (a == "--quen") {
            if (!value(opt.quen))
                return Usage("--quen needs the daemon's path");
        } else if (a == "--days") {
            if (!value(v) || !ParsePositive(v.c_str(), opt.days))
                return Usage("--days needs a positive number");
        } else if (a == "--speed") {
            if (!value(v) || !ParsePositive(v.c_str(), opt.speed) || opt.speed > 1e6)
                return Usage("--speed needs a number in (0, 1e6]");
        } else if (!a.empty() && a[0] == '-') {
            return Usage(("unknown option " + a).c_str());
        } else if (haveScenario) {
            return Usage("only one scenario at a time");
        } else {
            opt.scenario = a;
            haveScenario = true;
        }
    }

    std::string error;
    sim::Scenario sc;
    if (!sim::LoadScenario(opt.scenario, sc, error)) {
        fprintf(stderr, "quen-sim: scenario %s\n", error.c_str());
        return 2;
    }
    if (opt.days > 0)
        sc.days = opt.days;
    if (opt.speed > 0)
        sc.speed = std::max(1.0, std::round(opt.speed));
    sim::ModelParams params;
    if (!sim::LoadModelParams(sc.model, params, error)) {
        fprintf(stderr, "quen-sim: scenario %s: \"model\": %s\n", opt.scenario.c_str(),
                error.c_str());
        return 2;
    }
    if (!sim::FakeKernel::Available(error)) {
        fprintf(stderr, "quen-sim: the fake kernel needs FUSE: %s\n", error.c_str());
        return 2;
    }
    if (access(opt.quen.c_str(), X_OK) != 0) {
        fprintf(stderr, "quen-sim: the daemon %s cannot be run (build it, or pass --quen)\n",
                opt.quen.c_str());
        return 2;
    }

    fs::path out = opt.out.empty() ? fs::path("out/sim") / sc.name : fs::path(opt.out);
    std::error_code ec;
    fs::create_directories(out, ec);
    out = fs::canonical(out, ec);
    fs::path root = out / "root";
    if (ec || !sim::PrepareRoot(sc, root.string(), error)) {
        fprintf(stderr, "quen-sim: %s\n",
                ec ? ("cannot create " + out.string()).c_str() : error.c_str());
        return 2;
    }
    for (const char* old : {"quen.log", "trace.csv", "kernel-writes.log", "report.html"}) {
        fs::remove(out / old, ec);
    }

    setenv("TZ", sc.timezone.c_str(), 1);
    tzset();
    struct sigaction sa {};
    sa.sa_handler = OnSignal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGHUP, &sa, nullptr);

    const sim::SimClock clock =
        sim::SimClock::StartNow(sc.startEpoch, static_cast<int64_t>(sc.speed));
    std::unique_ptr<sim::ModelNodes> nodes = sim::ModelNodes::Create(
        sim::PhoneModel(params, static_cast<double>(sc.startEpoch)), (root / "sys").string(),
        [&clock] { return clock.Now(); }, error);
    if (nodes == nullptr) {
        fprintf(stderr, "quen-sim: %s\n", error.c_str());
        return 2;
    }
    sim::Trace trace;
    if (!trace.Open(out.string(), static_cast<double>(sc.startEpoch), error)) {
        fprintf(stderr, "quen-sim: %s\n", error.c_str());
        return 2;
    }
    nodes->SetWriteListener([&trace](double t, const std::string& path, const std::string& data,
                                     int result) { trace.AddWrite(t, path, data, result); });
    sim::SwellProbe swellProbe;
    bool haveSwell = swellProbe.Init(root.string(), error);
    if (!haveSwell) {
        fprintf(stderr, "quen-sim: no swelling estimate in the trace: %s\n", error.c_str());
    }

    sim::FakeKernel kernel(*nodes);
    if (!kernel.Mount((root / "sys").string(), error)) {
        fprintf(stderr, "quen-sim: %s\n", error.c_str());
        return 2;
    }
    fprintf(stderr, "quen-sim: scenario %s, %.1f days at speed %.0f, root %s\n", sc.name.c_str(),
            sc.days, sc.speed, root.c_str());

    sim::DaemonProcess daemon;
    const fs::path log = out / "quen.log";
    std::map<std::string, std::string> env = {
        {"QUEN_ROOT", root.string()},
        {"QUEN_CLOCK_SPEED", std::to_string(clock.speed)},
        {"QUEN_CLOCK_START", std::to_string(clock.startEpoch)},
        {"QUEN_CLOCK_ANCHOR", std::to_string(clock.anchorNs)},
        {"TZ", sc.timezone},
    };
    env.erase("QUEN_LOG_FILE");
    unsetenv("QUEN_LOG_FILE");  // its standard error already goes to quen.log
    const int64_t realStart = sim::SimClock::MonoNs();
    if (!daemon.Start(opt.quen, {"-d"}, env, log.string(), error)) {
        kernel.Unmount();
        fprintf(stderr, "quen-sim: %s\n", error.c_str());
        return 2;
    }

    sim::RunSummary summary;
    summary.scenario = sc.name;
    summary.speed = sc.speed;
    summary.outcome = "completed";
    Progress progress(sc.days);
    const double end = static_cast<double>(sc.startEpoch) + sc.days * 86400.0;
    double nextSample = static_cast<double>(sc.startEpoch);
    double nextSwell = nextSample;
    sim::SwellEstimate swell;
    unsigned lastLevel = 0;
    unsigned lastScene = 0;
    int64_t lastShown = 0;
    auto sampleNow = [&] {
        sim::ModelSample s = nodes->Sample();
        if (haveSwell && s.cell.time >= nextSwell) {
            swellProbe.Read(swell);
            nextSwell = s.cell.time + 3600.0;
        }
        if (summary.samples == 0) {
            summary.fccStartMah = s.cell.fccMah;
        }
        double day = (s.cell.time - sc.startEpoch) / 86400.0;
        if (s.baspLevel != lastLevel) {
            summary.baspLevels.emplace_back(day, s.baspLevel);
            lastLevel = s.baspLevel;
        }
        if (swell.scene != lastScene) {
            summary.aswScenes.emplace_back(day, swell.scene);
            lastScene = swell.scene;
        }
        summary.fccEndMah = s.cell.fccMah;
        summary.cyclesEnd = s.cell.cycles;
        summary.swellEnd = swell.total;
        ++summary.samples;
        trace.AddRow(s, swell);
        return day;
    };
    int status = 0;
    double day = 0;
    for (;;) {
        if (g_stop) {
            summary.ok = false;
            summary.outcome = "interrupted";
            break;
        }
        if (!daemon.Running(status)) {
            summary.ok = false;
            summary.outcome = "the daemon " + sim::DaemonProcess::Describe(status);
            break;
        }
        double now = clock.Now();
        if (now >= end) {
            break;
        }
        nodes->Tick();
        if (now >= nextSample) {
            day = sampleNow();
            nextSample +=
                sc.sampleSeconds * std::max(1.0, std::floor((now - nextSample) / sc.sampleSeconds));
        }
        int64_t real = sim::SimClock::MonoNs();
        if (real - lastShown > 200000000LL) {
            progress.Show(day, (real - realStart) * 1e-9);
            lastShown = real;
        }
        // Wake for the next sample, or at least every 5 ms so events are raised on time.
        double wait = std::min(0.005, std::max(0.0005, clock.RealUntil(nextSample)));
        struct timespec ts {
            0, static_cast<long>(wait * 1e9)
        };
        nanosleep(&ts, nullptr);
    }
    daemon.Stop(SIGTERM, 3000);  // before the unmount: its open nodes would hold the mount
    day = sampleNow();
    summary.realSeconds = (sim::SimClock::MonoNs() - realStart) * 1e-9;
    summary.simulatedDays = day;
    progress.Show(day, summary.realSeconds, true);
    kernel.Unmount();
    trace.Close();
    summary.kernelWrites = trace.Writes();
    summary.writesByNode = trace.WritesByNode();
    summary.logErrors = CountErrorLines(log);

    if (!summary.ok && summary.outcome != "interrupted") {
        fprintf(stderr, "quen-sim: FAILED: %s; the end of its log (%s):\n%s",
                summary.outcome.c_str(), log.c_str(), Tail(log, 20).c_str());
    }
    bool reported = sim::WriteReport(out.string(), summary, error);
    if (!reported) {
        fprintf(stderr, "quen-sim: %s\n", error.c_str());
    }
    fprintf(stderr, "quen-sim: %s: %.1f simulated days in %.1f s (%.1f days/s); report: %s\n",
            summary.outcome.c_str(), summary.simulatedDays, summary.realSeconds,
            summary.simulatedDays / std::max(1e-9, summary.realSeconds),
            (out / "report.html").c_str());
    if (summary.outcome == "interrupted") {
        return 130;
    }
    return summary.ok && reported ? 0 : 1;
}
