#include "sim/lab/lab_command.h"

#include <signal.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>

#include "sim/fakefs/fake_kernel.h"
#include "sim/lab/arm_pool.h"
#include "sim/lab/profile.h"
#include "sim/model/model_params.h"

namespace fs = std::filesystem;

namespace sim {
namespace {

volatile sig_atomic_t g_stop = 0;

void OnSignal(int) {
    g_stop = 1;
}

void InstallStopHandlers() {
    struct sigaction sa {};
    sa.sa_handler = OnSignal;
    sigemptyset(&sa.sa_mask);  // no SA_RESTART: a wait returns EINTR and the flag is seen
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGHUP, &sa, nullptr);
}

struct LabOptions {
    bool lab = false;
    std::string scenario;
    std::string out;
    std::string quen;
    double days = 0;
    double speed = 0;
    bool accelerated = false;  // --speed: the wall clock sped up, with the FUSE fake kernel
    bool daemonInfoLog = false;
    bool baseline = true;
    bool defaultConfig = true;
    int jobs = 0;
    std::vector<std::string> profiles;
    std::vector<std::pair<std::string, std::string>> configs;  // name, file
};

const char kPlainUsage[] =
    "usage: quen-sim [SCENARIO.json] [--out DIR] [--quen PATH] [--days N]\n"
    "                [--accelerated] [--speed N] [--daemon-log info|error] [--no-baseline]\n"
    "       quen-sim lab [SCENARIO.json] [--profile P]... [--config NAME=FILE]...\n"
    "                [--no-baseline] [--no-default] [--jobs N] [--out DIR] [--quen PATH]\n"
    "                [--days N] [--accelerated] [--speed N] [--daemon-log info|error]\n"
    "       quen-sim fleet ...   (quen-sim fleet --help)\n"
    "  runs the daemon against a simulated phone, and the phone without it as the baseline;\n"
    "  writes DIR/report.html (default DIR: out/sim/<scenario name>, or out/sim/<name>-lab)\n"
    "  The daemon runs on a virtual clock (reproducible, as fast as the machine allows);\n"
    "  --accelerated runs it instead on the wall clock sped up by the scenario's \"speed\"\n"
    "  (--speed N: N times), on the FUSE fake kernel. The daemon logs its error lines only,\n"
    "  as on a phone; --daemon-log info adds its informative lines (quen -d).\n";

int Usage(const char* why) {
    if (why != nullptr) {
        fprintf(stderr, "quen-sim: %s\n", why);
    }
    fputs(kPlainUsage, stderr);
    return 2;
}

bool IsLabel(const std::string& s) {
    return !s.empty() && s.size() <= 40 && std::all_of(s.begin(), s.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-';
    });
}

// 0: parsed; 1: --help shown; 2: bad usage (message shown).
int Parse(int argc, char** argv, bool lab, LabOptions& opt) {
    opt.lab = lab;
    bool haveScenario = false;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        std::string v;
        auto value = [&](std::string& out) {
            if (i + 1 >= argc) {
                return false;
            }
            out = argv[++i];
            return true;
        };
        if (a == "-h" || a == "--help") {
            fputs(kPlainUsage, stderr);
            return 1;
        } else if (a == "--out") {
            if (!value(opt.out))
                return Usage("--out needs a folder");
        } else if (a == "--quen") {
            if (!value(opt.quen))
                return Usage("--quen needs the daemon's path");
        } else if (a == "--days") {
            if (!value(v) || !ParsePositive(v.c_str(), opt.days) || opt.days > 3650)
                return Usage("--days needs a number in (0, 3650]");
        } else if (a == "--speed") {
            if (!value(v) || !ParsePositive(v.c_str(), opt.speed) || opt.speed > 1e6)
                return Usage("--speed needs a number in (0, 1e6]");
            opt.accelerated = true;
        } else if (a == "--daemon-log") {
            if (!value(v) || (v != "info" && v != "error"))
                return Usage("--daemon-log needs info or error");
            opt.daemonInfoLog = v == "info";
        } else if (a == "--accelerated") {
            opt.accelerated = true;
        } else if (a == "--no-baseline") {
            opt.baseline = false;
        } else if (lab && a == "--no-default") {
            opt.defaultConfig = false;
        } else if (lab && a == "--jobs") {
            double jobs = 0;
            if (!value(v) || !ParsePositive(v.c_str(), jobs) || jobs != std::floor(jobs) ||
                jobs > 256)
                return Usage("--jobs needs a whole number in [1, 256]");
            opt.jobs = static_cast<int>(jobs);
        } else if (lab && a == "--profile") {
            if (!value(v))
                return Usage("--profile needs a name or a file");
            opt.profiles.push_back(v);
        } else if (lab && a == "--config") {
            const size_t eq = value(v) ? v.find('=') : std::string::npos;
            if (eq == std::string::npos || !IsLabel(v.substr(0, eq)) || eq + 1 == v.size())
                return Usage("--config needs NAME=FILE (NAME of letters, digits, _ and -)");
            const std::string name = v.substr(0, eq);
            if (name == "default" || name == "without-quen")
                return Usage(("--config: the name " + name + " is taken").c_str());
            for (const auto& c : opt.configs) {
                if (c.first == name)
                    return Usage(("--config " + name + " given twice").c_str());
            }
            opt.configs.emplace_back(name, v.substr(eq + 1));
        } else if (!a.empty() && a[0] == '-') {
            return Usage(("unknown option " + a).c_str());
        } else if (haveScenario) {
            return Usage("only one scenario at a time");
        } else {
            opt.scenario = a;
            haveScenario = true;
        }
    }
    return 0;
}

// Builds the arms and checks everything that can be checked before any starts.
bool PlanArms(const LabOptions& opt, const Scenario& sc, const SimDefaults& defaults,
              const fs::path& out, std::vector<LabArm>& arms, std::string& error) {
    std::vector<UserProfile> profiles;
    for (const std::string& p : opt.profiles) {
        UserProfile profile;
        if (!LoadProfile(p, defaults.profileDir, profile, error)) {
            return false;
        }
        for (const UserProfile& q : profiles) {
            if (q.name == profile.name) {
                error = "profile " + profile.name + " given twice";
                return false;
            }
        }
        profiles.push_back(profile);
    }
    if (profiles.empty()) {
        profiles.push_back(UserProfile{});  // the scenario's own user
    }
    struct Config {
        std::string name;
        std::string file;
        bool daemon;
    };
    std::vector<Config> configs;
    if (opt.baseline)
        configs.push_back({"without-quen", "", false});
    if (opt.defaultConfig)
        configs.push_back({"default", "", true});
    for (const auto& c : opt.configs) {
        std::error_code ec;
        if (!fs::is_regular_file(c.second, ec) || access(c.second.c_str(), R_OK) != 0) {
            error = "configuration " + c.first + ": cannot read " + c.second;
            return false;
        }
        configs.push_back({c.first, fs::absolute(c.second).string(), true});
    }
    if (configs.empty()) {
        error = "no arm to run (--no-baseline and --no-default without --config)";
        return false;
    }
    bool needDaemon = false;
    for (const UserProfile& p : profiles) {
        Json::Value model = sc.model;
        if (!p.name.empty() && !ApplyProfile(sc.model, p, model, error)) {
            return false;
        }
        ModelParams check;
        if (!LoadModelParams(model, check, error)) {
            error = "scenario " + sc.file + ": \"model\": " + error;
            return false;
        }
        Json::StreamWriterBuilder w;
        w["indentation"] = "  ";
        for (const Config& c : configs) {
            LabArm arm;
            arm.plan.profile = p.name;
            arm.plan.config = c.name;
            arm.plan.name = p.name.empty() ? c.name : p.name + "." + c.name;
            arm.plan.scenario = sc;
            arm.plan.scenario.model = model;
            arm.plan.withDaemon = c.daemon;
            arm.plan.accelerated = opt.accelerated;
            arm.plan.daemonInfoLog = opt.daemonInfoLog;
            arm.plan.quen = opt.quen;
            arm.plan.configFile = c.file;
            arm.plan.outDir = (out / "arms" / arm.plan.name).string();
            arm.profileText = p.name.empty()
                                  ? "the scenario's user:\n" + Json::writeString(w, sc.model)
                                  : p.description + "\n" + Json::writeString(w, p.model);
            needDaemon = needDaemon || c.daemon;
            arms.push_back(arm);
        }
    }
    if (needDaemon) {
        if (opt.accelerated && !FakeKernel::Available(error)) {
            error = "the fake kernel needs FUSE: " + error;
            return false;
        }
        if (access(opt.quen.c_str(), X_OK) != 0) {
            error = "the daemon " + opt.quen + " cannot be run (build it, or pass --quen)";
            return false;
        }
    }
    return true;
}

int Run(LabOptions& opt, const SimDefaults& defaults) {
    if (opt.scenario.empty())
        opt.scenario = defaults.scenario;
    if (opt.quen.empty())
        opt.quen = defaults.quen;
    std::string error;
    Scenario sc;
    if (!LoadScenario(opt.scenario, sc, error)) {
        fprintf(stderr, "quen-sim: scenario %s\n", error.c_str());
        return 2;
    }
    if (opt.days > 0)
        sc.days = opt.days;
    if (opt.speed > 0)
        sc.speed = std::max(1.0, std::round(opt.speed));

    fs::path out = opt.out.empty() ? fs::path("out/sim") / (sc.name + (opt.lab ? "-lab" : ""))
                                   : fs::path(opt.out);
    std::vector<LabArm> arms;
    if (!PlanArms(opt, sc, defaults, fs::absolute(out), arms, error)) {
        fprintf(stderr, "quen-sim: %s\n", error.c_str());
        return 2;
    }
    std::error_code ec;
    fs::create_directories(out, ec);
    if (ec) {
        fprintf(stderr, "quen-sim: cannot create %s: %s\n", out.c_str(), ec.message().c_str());
        return 2;
    }
    out = fs::canonical(out, ec);
    fs::remove(out / "report.html", ec);
    // Arms left over from an earlier run with other arms would not be in this report; a
    // mount left by a run that was killed is detached first, so that nothing is deleted
    // through it.
    for (const auto& e : fs::directory_iterator(out / "arms", ec)) {
        umount2((e.path() / "root" / "sys").c_str(), MNT_DETACH);
    }
    fs::remove_all(out / "arms", ec);
    for (LabArm& a : arms) {
        a.plan.outDir = (out / "arms" / a.plan.name).string();
        fs::create_directories(a.plan.outDir, ec);
        a.plan.progress = a.plan.withDaemon && (!opt.lab || isatty(STDERR_FILENO) == 0);
    }

    setenv("TZ", sc.timezone.c_str(), 1);
    tzset();
    InstallStopHandlers();
    const int jobs = opt.jobs > 0 ? opt.jobs : DefaultJobs();
    fprintf(stderr, "quen-sim: scenario %s, %.1f days %s, %zu arm%s (%d at once) in %s\n",
            sc.name.c_str(), sc.days,
            opt.accelerated ? ("at speed " + std::to_string(static_cast<long>(sc.speed))).c_str()
                            : "on the virtual clock",
            arms.size(), arms.size() == 1 ? "" : "s",
            std::min<int>(jobs, static_cast<int>(arms.size())), out.c_str());
    const int64_t t0 = MonotonicNs();
    RunArmsInParallel(arms, jobs, &g_stop, [](const LabArm& a, size_t done, size_t total) {
        fprintf(stderr, "quen-sim: arm %s: %s (%zu/%zu)\n", a.plan.name.c_str(),
                a.exitCode == 0     ? "completed"
                : a.exitCode == 130 ? "interrupted"
                : a.exitCode == 1   ? "FAILED"
                                    : ("could not run: " + a.error).c_str(),
                done, total);
    });
    LoadArmResults(arms);
    for (const LabArm& a : arms) {
        const RunSummary& r = a.summary;
        if (a.plan.withDaemon && !a.plan.accelerated && r.simulatedDays > 0 && r.realSeconds > 0) {
            uint64_t turns = 0;
            for (const auto& kv : r.turnsByRole) {
                turns += kv.second;
            }
            fprintf(stderr,
                    "quen-sim: arm %s: %.1f simulated days in %.1f s (%.2f days/s); daemon CPU "
                    "%.3f s per simulated day, %.0f wake-ups per simulated day\n",
                    a.plan.name.c_str(), r.simulatedDays, r.realSeconds,
                    r.simulatedDays / r.realSeconds, r.daemonCpuSeconds / r.simulatedDays,
                    static_cast<double>(turns) / r.simulatedDays);
        }
    }
    const std::string title = std::string(opt.lab ? "quen-sim lab: " : "quen-sim: ") + sc.name +
                              ", " + std::to_string(static_cast<int>(std::round(sc.days))) +
                              " days";
    const bool reported = WriteLabReport((out / "report.html").string(), title, arms, error);
    if (!reported) {
        fprintf(stderr, "quen-sim: %s\n", error.c_str());
    }
    bool allOk = true, interrupted = g_stop != 0;
    for (const LabArm& a : arms) {
        allOk = allOk && a.exitCode == 0;
        interrupted = interrupted || a.exitCode == 130;
    }
    fprintf(stderr, "quen-sim: %s in %.1f s; report: %s\n",
            interrupted ? "interrupted"
            : allOk     ? "completed"
                        : "FAILED",
            (MonotonicNs() - t0) * 1e-9, (out / "report.html").c_str());
    if (interrupted) {
        return 130;
    }
    return allOk && reported ? 0 : 1;
}

}  // namespace

bool ParsePositive(const char* text, double& out) {
    char* end = nullptr;
    out = strtod(text, &end);
    return end != text && *end == '\0' && std::isfinite(out) && out > 0;
}

int PlainRunMain(int argc, char** argv, const SimDefaults& defaults) {
    LabOptions opt;
    const int rc = Parse(argc, argv, false, opt);
    return rc == 0 ? Run(opt, defaults) : rc == 1 ? 0 : 2;
}

int LabMain(int argc, char** argv, const SimDefaults& defaults) {
    LabOptions opt;
    const int rc = Parse(argc, argv, true, opt);
    return rc == 0 ? Run(opt, defaults) : rc == 1 ? 0 : 2;
}

}  // namespace sim
