#include "sim/fleet/fleet_command.h"

#include <signal.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <sstream>

#include "sim/fakefs/fake_kernel.h"
#include "sim/fleet/fleet_plan.h"
#include "sim/fleet/fleet_results.h"
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

const char kUsage[] =
    "usage: quen-sim fleet [SCENARIO.json] --phones N [--seed S] [--profiles P,Q,...]\n"
    "                      [--shard I/N] [--without-quen | --config FILE] [--jobs J]\n"
    "                      [--days D] [--speed X] [--out DIR] [--quen PATH]\n"
    "       quen-sim fleet merge [--out DIR] SHARD_FILE_OR_DIR...\n";

int Usage(const char* why) {
    if (why != nullptr)
        fprintf(stderr, "quen-sim fleet: %s\n", why);
    fputs(kUsage, stderr);
    return 2;
}

std::vector<std::string> SplitComma(const std::string& text) {
    std::vector<std::string> out;
    std::stringstream ss(text);
    std::string item;
    while (std::getline(ss, item, ','))
        out.push_back(item);
    return out;
}

class Bar {
public:
    explicit Bar(size_t total) : total_(total), tty_(isatty(STDERR_FILENO) != 0) {}
    void Show(size_t done, size_t failed) {
        const int width = 30;
        const size_t filled = total_ == 0 ? width : width * done / total_;
        fprintf(stderr, "%s  phones [%s%s] %zu/%zu%s%s", tty_ ? "\r" : "",
                std::string(filled, '#').c_str(), std::string(width - filled, '-').c_str(), done,
                total_, failed > 0 ? (", " + std::to_string(failed) + " failed").c_str() : "",
                tty_ && done < total_ ? "" : "\n");
        fflush(stderr);
    }

private:
    size_t total_;
    bool tty_;
};

int Merge(int argc, char** argv) {
    std::string out;
    std::vector<std::string> files;
    std::error_code ec;
    for (int i = 2; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--out") {
            if (i + 1 >= argc)
                return Usage("--out needs a folder");
            out = argv[++i];
        } else if (a == "-h" || a == "--help") {
            fputs(kUsage, stderr);
            return 0;
        } else if (!a.empty() && a[0] == '-') {
            return Usage(("unknown option " + a).c_str());
        } else if (fs::is_directory(a)) {
            if (out.empty())
                out = a;
            std::vector<std::string> found;
            for (const auto& e : fs::directory_iterator(a)) {
                const std::string name = e.path().filename().string();
                if (name.rfind("shard-", 0) == 0 && e.path().extension() == ".json") {
                    found.push_back(e.path().string());
                }
            }
            if (found.empty())
                return Usage(("no shard-*.json in " + a).c_str());
            std::sort(found.begin(), found.end());
            files.insert(files.end(), found.begin(), found.end());
        } else {
            files.push_back(a);
        }
    }
    if (files.empty())
        return Usage("merge needs shard files or folders");
    if (out.empty())
        out = fs::path(files[0]).parent_path().string();
    if (out.empty())
        out = ".";
    std::vector<FleetShard> shards;
    std::string error;
    for (const std::string& f : files) {
        FleetShard s;
        if (!ReadShard(f, s, error)) {
            fprintf(stderr, "quen-sim fleet: %s\n", error.c_str());
            return 2;
        }
        shards.push_back(std::move(s));
    }
    FleetMerged merged;
    fs::create_directories(out, ec);
    if (!MergeShards(shards, merged, error) || !WriteFleetReport(out, merged, error)) {
        fprintf(stderr, "quen-sim fleet: %s\n", error.c_str());
        return 2;
    }
    fprintf(stderr, "quen-sim fleet: %zu shard file%s, %d phones, %zu missing or failed; %s\n",
            files.size(), files.size() == 1 ? "" : "s", merged.key.phones, merged.missing.size(),
            (fs::path(out) / "fleet.html").c_str());
    return merged.missing.empty() ? 0 : 1;
}

}  // namespace

int FleetMain(int argc, char** argv, const SimDefaults& defaults) {
    if (argc >= 2 && strcmp(argv[1], "merge") == 0) {
        return Merge(argc, argv);
    }
    std::string scenarioPath = defaults.scenario, out, quen = defaults.quen, configFile;
    double days = 0, speed = 0, seed = 1;
    int phones = 0, jobs = 0, shard = 0, shards = 1;
    bool withoutQuen = false, haveScenario = false;
    std::vector<std::string> profileNames;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        std::string v;
        auto value = [&]() {
            if (i + 1 >= argc)
                return false;
            v = argv[++i];
            return true;
        };
        double n = 0;
        if (a == "-h" || a == "--help") {
            fputs(kUsage, stderr);
            return 0;
        } else if (a == "--phones") {
            if (!value() || !ParsePositive(v.c_str(), n) || n != std::floor(n) || n > 100000)
                return Usage("--phones needs a whole number in [1, 100000]");
            phones = static_cast<int>(n);
        } else if (a == "--seed") {
            if (!value() || !ParsePositive(v.c_str(), seed) || seed != std::floor(seed) ||
                seed > 4294967295.0)
                return Usage("--seed needs a whole number in [1, 2^32)");
        } else if (a == "--profiles") {
            if (!value())
                return Usage("--profiles needs names");
            profileNames = SplitComma(v);
        } else if (a == "--shard") {
            if (!value() || !ParseShard(v, shard, shards))
                return Usage("--shard needs I/N with 0 <= I < N");
        } else if (a == "--without-quen") {
            withoutQuen = true;
        } else if (a == "--config") {
            if (!value())
                return Usage("--config needs a file");
            configFile = v;
        } else if (a == "--jobs") {
            if (!value() || !ParsePositive(v.c_str(), n) || n != std::floor(n) || n > 256)
                return Usage("--jobs needs a whole number in [1, 256]");
            jobs = static_cast<int>(n);
        } else if (a == "--days") {
            if (!value() || !ParsePositive(v.c_str(), days) || days > 3650)
                return Usage("--days needs a number in (0, 3650]");
        } else if (a == "--speed") {
            if (!value() || !ParsePositive(v.c_str(), speed) || speed > 1e6)
                return Usage("--speed needs a number in (0, 1e6]");
        } else if (a == "--out") {
            if (!value())
                return Usage("--out needs a folder");
            out = v;
        } else if (a == "--quen") {
            if (!value())
                return Usage("--quen needs the daemon's path");
            quen = v;
        } else if (!a.empty() && a[0] == '-') {
            return Usage(("unknown option " + a).c_str());
        } else if (haveScenario) {
            return Usage("only one scenario at a time");
        } else {
            scenarioPath = a;
            haveScenario = true;
        }
    }
    if (phones == 0)
        return Usage("--phones is needed");
    if (withoutQuen && !configFile.empty())
        return Usage("--without-quen and --config exclude each other");
    if (profileNames.empty())
        profileNames = ListProfiles(defaults.profileDir);

    std::string error;
    Scenario sc;
    if (!LoadScenario(scenarioPath, sc, error)) {
        fprintf(stderr, "quen-sim fleet: scenario %s\n", error.c_str());
        return 2;
    }
    if (days > 0)
        sc.days = days;
    if (speed > 0)
        sc.speed = std::max(1.0, std::round(speed));
    std::map<std::string, UserProfile> profiles;
    for (const std::string& p : profileNames) {
        UserProfile profile;
        Json::Value model;
        if (!LoadProfile(p, defaults.profileDir, profile, error) ||
            !ApplyProfile(sc.model, profile, model, error)) {
            fprintf(stderr, "quen-sim fleet: %s\n", error.c_str());
            return 2;
        }
        profiles[p] = profile;
    }
    if (profiles.empty())
        return Usage("no profile to draw from");
    if (!configFile.empty() && access(configFile.c_str(), R_OK) != 0) {
        fprintf(stderr, "quen-sim fleet: cannot read the configuration %s\n", configFile.c_str());
        return 2;
    }
    if (!withoutQuen) {
        if (speed > 0 && !FakeKernel::Available(error)) {
            fprintf(stderr, "quen-sim fleet: the fake kernel needs FUSE: %s\n", error.c_str());
            return 2;
        }
        if (access(quen.c_str(), X_OK) != 0) {
            fprintf(stderr, "quen-sim fleet: the daemon %s cannot be run\n", quen.c_str());
            return 2;
        }
    }

    fs::path outDir = out.empty() ? fs::path("out/fleet") / sc.name : fs::path(out);
    std::error_code ec;
    fs::create_directories(outDir / "phones", ec);
    if (ec) {
        fprintf(stderr, "quen-sim fleet: cannot create %s\n", outDir.c_str());
        return 2;
    }
    outDir = fs::canonical(outDir, ec);

    FleetShard result;
    result.key.scenario = sc.name;
    result.key.config = withoutQuen          ? "without-quen"
                        : configFile.empty() ? "default"
                                             : fs::path(configFile).filename().string();
    result.key.seed = static_cast<uint32_t>(seed);
    result.key.phones = phones;
    result.key.days = sc.days;
    result.key.profiles = profileNames;
    result.shard = shard;
    result.shards = shards;

    std::vector<LabArm> arms;
    const std::vector<FleetPhone> drawn =
        DrawPhones(result.key.seed, phones, profileNames, shard, shards);
    for (const FleetPhone& p : drawn) {
        LabArm arm;
        char name[32];
        snprintf(name, sizeof(name), "%05d", p.index);
        arm.plan.name = std::string("phone-") + name;
        arm.plan.profile = p.profile;
        arm.plan.config = result.key.config;
        arm.plan.scenario = sc;
        ApplyProfile(sc.model, profiles[p.profile], arm.plan.scenario.model, error);
        arm.plan.scenario.model["seed"] = p.seed;
        arm.plan.withDaemon = !withoutQuen;
        arm.plan.accelerated = speed > 0;
        arm.plan.quen = quen;
        arm.plan.configFile = configFile.empty() ? "" : fs::absolute(configFile).string();
        arm.plan.outDir = (outDir / "phones" / name).string();
        fs::create_directories(arm.plan.outDir, ec);
        arms.push_back(arm);
    }

    setenv("TZ", sc.timezone.c_str(), 1);
    tzset();
    struct sigaction sa {};
    sa.sa_handler = OnSignal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGHUP, &sa, nullptr);
    fprintf(stderr, "quen-sim fleet: %s, shard %d/%d: %zu of %d phones, %.1f days, %s\n",
            sc.name.c_str(), shard, shards, arms.size(), phones, sc.days,
            result.key.config.c_str());
    Bar bar(arms.size());
    size_t failed = 0;
    RunArmsInParallel(arms, jobs > 0 ? jobs : DefaultJobs(), &g_stop,
                      [&](const LabArm& a, size_t done, size_t) {
                          failed += a.exitCode == 0 ? 0 : 1;
                          bar.Show(done, failed);
                      });
    LoadArmResults(arms);
    bool allOk = true;
    for (size_t i = 0; i < arms.size(); ++i) {
        const LabArm& a = arms[i];
        FleetPhoneResult r;
        r.index = drawn[i].index;
        r.profile = drawn[i].profile;
        r.seed = drawn[i].seed;
        r.ok = a.exitCode == 0 && a.haveTrace;
        r.outcome = a.haveTrace ? a.summary.outcome : a.exitCode < 0 ? "not run" : a.error;
        if (a.haveTrace) {
            for (const NamedFigure& f : SummaryFigures(a.figures))
                r.figures[f.key] = f.value;
        }
        allOk = allOk && r.ok;
        result.results.push_back(r);
    }
    const fs::path shardFile =
        outDir / ("shard-" + std::to_string(shard) + "-of-" + std::to_string(shards) + ".json");
    if (!WriteShard(shardFile.string(), result, error)) {
        fprintf(stderr, "quen-sim fleet: %s\n", error.c_str());
        return 1;
    }
    if (shards == 1) {
        FleetMerged merged;
        if (!MergeShards({result}, merged, error) ||
            !WriteFleetReport(outDir.string(), merged, error)) {
            fprintf(stderr, "quen-sim fleet: %s\n", error.c_str());
            return 1;
        }
        fprintf(stderr, "quen-sim fleet: report: %s\n", (outDir / "fleet.html").c_str());
    } else {
        fprintf(stderr, "quen-sim fleet: partial results: %s (merge with: quen-sim fleet merge)\n",
                shardFile.c_str());
    }
    if (g_stop)
        return 130;
    return allOk ? 0 : 1;
}

}  // namespace sim
