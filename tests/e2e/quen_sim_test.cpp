// The quen-sim program as a user runs it: a short scenario from start to report beside its
// baseline, the errors that stop it before anything starts, Ctrl-C, the policy lab, fleet
// shards and their merge, and the report as a browser draws it.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <thread>

#include <json/json.h>

#include "sim/fakefs/fake_kernel.h"
#include "sim/runner/arm.h"
#include "tests/e2e/quen_sim_fixture.h"

TEST_F(QuenSimTest, BadScenariosAreRefusedBeforeAnythingStarts) {
    EXPECT_EQ(Run(dev.HostPath("/none.json")), 2);
    EXPECT_NE(Output().find("none.json: cannot be read"), std::string::npos) << Output();
    struct Case {
        std::string body;
        std::string message;
    } cases[] = {
        {"{\"device\": \"" + device + "\", \"days\": 1", "not valid JSON"},
        {"{\"days\": 1}", "\"device\" (the device tree to start from) is missing"},
        {"{\"device\": \"/tmp\", \"days\": 1}", "is not a device tree"},
        {"{\"device\": \"" + device + "\"}", "\"days\" (how long to simulate) is missing"},
        {"{\"device\": \"" + device + "\", \"days\": -2}", "\"days\" must be a number"},
        {"{\"device\": \"" + device + "\", \"days\": 1, \"sped\": 5}", "unknown key \"sped\""},
        {"{\"device\": \"" + device + "\", \"days\": 1, \"start\": \"2017-01-01 00:00:00\"}",
         "after 2019-01-01"},
        {"{\"device\": \"" + device + "\", \"days\": 1, \"model\": {\"plug_hour\": \"x\"}}",
         "\"model\": "},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Run(Scenario(c.body) + " --out " + dev.HostPath("/out")), 2) << c.body;
        EXPECT_NE(Output().find(c.message), std::string::npos) << c.body << "\n" << Output();
    }
    EXPECT_FALSE(dev.Exists("/out/arms"));  // nothing was prepared
    const std::string good = Scenario("{\"device\": \"" + device + "\", \"days\": 1}");
    const std::string out = " --out " + dev.HostPath("/out");
    struct Usage {
        std::string args, message;
    } usages[] = {
        {"--days", "--days needs"},
        {"--speed 0", "--speed needs"},
        {"--days 4000", "--days needs"},
        {"lab " + good + " --config default=" + good, "the name default is taken"},
        {"lab " + good + " --config a=" + dev.HostPath("/none.json"), "cannot read"},
        {"lab " + good + " --config a", "NAME=FILE"},
        {"lab " + good + " --profile no-such-user", "no-such-user.json: cannot read"},
        {"lab " + good + " --profile light --profile light", "given twice"},
        {"lab " + good + " --no-baseline --no-default", "no arm to run"},
        {"lab " + good + " --jobs 1.5", "--jobs needs"},
        {"fleet " + good, "--phones is needed"},
        {"fleet " + good + " --phones 3 --shard 3/3", "--shard needs"},
        {"fleet " + good + " --phones 3 --without-quen --config " + good, "exclude each other"},
        {"fleet merge " + dev.HostPath("/"), "no shard-*.json"},
    };
    for (const Usage& u : usages) {
        EXPECT_EQ(Run(u.args + out), 2) << u.args;
        EXPECT_NE(Output().find(u.message), std::string::npos) << u.args << "\n" << Output();
    }
    EXPECT_FALSE(dev.Exists("/out/arms"));
}

TEST_F(QuenSimTest, AShortRunEndsWithATraceAndAReport) {
    const std::string sc = Scenario("{\"name\": \"short\", \"device\": \"" + device +
                                    "\", \"days\": 0.5, \"speed\": 20000, \"sample_minutes\": 30}");
    ASSERT_EQ(Run(sc + " --daemon-log info --out " + dev.HostPath("/out")), 0) << Output();
    EXPECT_NE(Output().find("arm default: completed"), std::string::npos) << Output();
    EXPECT_NE(Output().find("arm without-quen: completed"), std::string::npos) << Output();
    EXPECT_FALSE(Mounted(dev.HostPath("/out/arms/default/root/sys")));
    // Both arms sample every 30 simulated minutes and at the end: on the virtual clock the
    // daemon's arm misses no sample however loaded the machine is.
    EXPECT_EQ(Rows("/out/arms/without-quen/trace.csv"), 25);
    EXPECT_EQ(Rows("/out/arms/default/trace.csv"), 25);
    sim::RunSummary summary;
    std::string error;
    ASSERT_TRUE(sim::ReadSummary(dev.HostPath("/out/arms/default"), summary, error)) << error;
    EXPECT_GE(summary.simulatedDays, 0.5);
    // The daemon wrote its first limits to the kernel's nodes, and they were traced; the
    // baseline wrote nothing.
    // Each of the writes to one node in a row is taken on its own, first to last.
    const std::string writes = dev.Read("/out/arms/default/kernel-writes.log");
    const size_t first = writes.find("/sys/class/vn_power/interface/vterm_dec 0 quen lvc 0\n");
    const size_t last = writes.find("/sys/class/vn_power/interface/vterm_dec 0 quen wl 0\n");
    EXPECT_NE(first, std::string::npos) << writes;
    EXPECT_NE(last, std::string::npos) << writes;
    EXPECT_LT(first, last);
    EXPECT_EQ(dev.Read("/out/arms/without-quen/kernel-writes.log"), "");
    EXPECT_NE(dev.Read("/out/arms/default/quen.log").find("estimator:BASP start"),
              std::string::npos);
    const std::string report = dev.Read("/out/report.html");
    EXPECT_NE(report.find("<td>default</td>"), std::string::npos) << report;
    EXPECT_NE(report.find("<td>without-quen</td>"), std::string::npos) << report;
    EXPECT_NE(report.find("<svg id='swelling'"), std::string::npos);
    EXPECT_EQ(report.find("src="), std::string::npos) << "the report loads no other file";
}

TEST_F(QuenSimTest, CtrlCStopsTheDaemonUnmountsAndStillReports) {
    std::string reason;
    if (!sim::FakeKernel::Available(reason)) {
        GTEST_SKIP() << "FUSE is not available here (" << reason << "): skipped";
    }
    const std::string sc =
        Scenario("{\"device\": \"" + device + "\", \"days\": 30, \"speed\": 20000}");
    pid_t pid = fork();
    if (pid == 0) {
        freopen(dev.HostPath("/run.txt").c_str(), "w", stderr);
        // On the accelerated clock, which mounts the FUSE fake kernel.
        execl(QUEN_SIM_BINARY, QUEN_SIM_BINARY, sc.c_str(), "--no-baseline", "--speed", "20000",
              "--out", dev.HostPath("/out").c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    // Interrupt once the run is under way: mounted and sampling.
    const std::string root = dev.HostPath("/out/arms/default/root/sys");
    for (int i = 0; i < 3000 && !(Mounted(root) && dev.Exists("/out/arms/default/trace.csv") &&
                                  Rows("/out/arms/default/trace.csv") >= 2);
         ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    kill(pid, SIGINT);
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 130) << Output();
    EXPECT_FALSE(Mounted(root));
    EXPECT_FALSE(dev.Exists("/out/arms/without-quen"));
    EXPECT_NE(dev.Read("/out/report.html").find("interrupted"), std::string::npos);
    EXPECT_NE(dev.Read("/out/arms/default/summary.json").find("\"interrupted\""),
              std::string::npos);
}

TEST_F(QuenSimTest, LabPutsProfilesAndConfigurationsSideBySide) {
    const std::string sc = Scenario("{\"name\": \"lab\", \"device\": \"" + device +
                                    "\", \"days\": 20, \"sample_minutes\": 20}");
    // Without the daemon only: cheap, and the users alone must make the difference.
    ASSERT_EQ(Run("lab " + sc +
                  " --no-default --profile overnight --profile always-plugged --jobs 2 --out " +
                  dev.HostPath("/lab")),
              0)
        << Output();
    sim::RunSummary overnight, plugged;
    std::string error;
    ASSERT_TRUE(
        sim::ReadSummary(dev.HostPath("/lab/arms/overnight.without-quen"), overnight, error))
        << error;
    ASSERT_TRUE(
        sim::ReadSummary(dev.HostPath("/lab/arms/always-plugged.without-quen"), plugged, error))
        << error;
    EXPECT_EQ(overnight.outcome, "completed");
    EXPECT_NEAR(overnight.simulatedDays, 20, 1e-6);
    EXPECT_EQ(Rows("/lab/arms/overnight.without-quen/trace.csv"), 20 * 72 + 1);
    // A phone that runs from the charger all day cycles its battery far less.
    EXPECT_LT(plugged.cyclesEnd * 2, overnight.cyclesEnd);
    const std::string report = dev.Read("/lab/report.html");
    EXPECT_NE(report.find("<td>overnight.without-quen</td>"), std::string::npos);
    EXPECT_NE(report.find("<td>always-plugged.without-quen</td>"), std::string::npos);
    EXPECT_NE(report.find("<svg id='capacity'"), std::string::npos);
    EXPECT_EQ(report.find("<svg id='swelling'"), std::string::npos);  // nobody estimated it
    EXPECT_NE(report.find("stays plugged in"), std::string::npos);    // the profile, shown

    // A second lab in the same folder replaces the first one's arms.
    if (!HaveFuse()) {
        GTEST_SKIP() << "FUSE is not available here: the arms with the daemon are skipped";
    }
    std::ifstream defaultConfig(device + "/odm/etc/power/quen.json");
    std::stringstream config;
    config << defaultConfig.rdbuf();
    dev.Write("/capped.json", "// a named configuration\n" + config.str());
    ASSERT_EQ(
        Run("lab " + sc +
            " --days 0.3 --speed 20000 --daemon-log info --no-baseline --profile light --config "
            "capped=" +
            dev.HostPath("/capped.json") + " --out " + dev.HostPath("/lab")),
        0)
        << Output();
    EXPECT_FALSE(dev.Exists("/lab/arms/overnight.without-quen"));
    EXPECT_EQ(dev.Read("/lab/arms/light.capped/root/odm/etc/power/quen.json"),
              dev.Read("/capped.json"));
    EXPECT_NE(dev.Read("/lab/arms/light.default/root/odm/etc/power/quen.json"),
              dev.Read("/capped.json"));
    EXPECT_NE(dev.Read("/lab/arms/light.capped/quen.log").find("estimator:BASP start"),
              std::string::npos);
    EXPECT_NE(dev.Read("/lab/report.html").find("a named configuration"), std::string::npos);
}

TEST_F(QuenSimTest, FleetShardsMergeToTheFiguresOfOneRun) {
    const std::string sc = Scenario("{\"name\": \"fleet\", \"device\": \"" + device +
                                    "\", \"days\": 6, \"sample_minutes\": 30}");
    const std::string fleet = " --without-quen --phones 7 --seed 5 --days 6 --jobs 2";
    ASSERT_EQ(Run("fleet " + sc + fleet + " --out " + dev.HostPath("/whole")), 0) << Output();
    EXPECT_NE(Output().find("7/7"), std::string::npos) << Output();  // the progress bar's end
    ASSERT_EQ(RunIn("fleet " + sc + fleet + " --shard 0/2 --out " + dev.HostPath("/s0"), "/s0.txt"),
              0);
    ASSERT_EQ(RunIn("fleet " + sc + fleet + " --shard 1/2 --out " + dev.HostPath("/s1"), "/s1.txt"),
              0);
    EXPECT_FALSE(dev.Exists("/s0/fleet.json"));  // a shard alone is partial
    // One shard is not the fleet: the merge says which phones are missing.
    EXPECT_EQ(Run("fleet merge --out " + dev.HostPath("/part") + " " + dev.HostPath("/s0")), 1);
    EXPECT_NE(dev.Read("/part/fleet.html").find("3 missing or failed"), std::string::npos);
    ASSERT_EQ(Run("fleet merge --out " + dev.HostPath("/merged") + " " + dev.HostPath("/s0") + " " +
                  dev.HostPath("/s1/shard-1-of-2.json")),
              0)
        << Output();
    auto percentiles = [&](const std::string& file) {
        Json::Value v;
        std::istringstream in(dev.Read(file));
        Json::CharReaderBuilder b;
        std::string error;
        EXPECT_TRUE(Json::parseFromStream(b, in, &v, &error)) << file << ": " << error;
        return v["percentiles"];
    };
    const Json::Value whole = percentiles("/whole/fleet.json");
    EXPECT_EQ(whole, percentiles("/merged/fleet.json"));
    const Json::Value& cap = whole["all"]["capacity_end_pct"];
    EXPECT_EQ(cap["n"].asInt(), 7);
    EXPECT_LT(cap["p5"].asDouble(), cap["p50"].asDouble());  // the users differ
    EXPECT_LE(cap["p50"].asDouble(), cap["p95"].asDouble());
    EXPECT_LT(cap["p95"].asDouble(), 100.0);
    // Shards of another fleet do not merge.
    ASSERT_EQ(RunIn("fleet " + sc +
                        " --without-quen --phones 7 --seed 6 --days 6 --shard 1/2 "
                        "--out " +
                        dev.HostPath("/other"),
                    "/other.txt"),
              0);
    EXPECT_EQ(Run("fleet merge --out " + dev.HostPath("/bad") + " " + dev.HostPath("/s0") + " " +
                  dev.HostPath("/other")),
              2);
    EXPECT_NE(Output().find("different fleets"), std::string::npos) << Output();

    // With the daemon, each phone carries its swelling estimate (zero so early, off the
    // charger) into the percentiles.
    if (!HaveFuse()) {
        GTEST_SKIP() << "FUSE is not available here: the fleet with the daemon is skipped";
    }
    ASSERT_EQ(Run("fleet " + sc +
                  " --phones 2 --profiles light,commuter --days 0.3 --speed 20000 "
                  "--out " +
                  dev.HostPath("/quen")),
              0)
        << Output();
    const Json::Value withQuen = percentiles("/quen/fleet.json");
    EXPECT_EQ(withQuen["all"]["swell_end"]["n"].asInt(), 2);
    EXPECT_EQ(whole["all"]["swell_end"]["n"].asInt(), 0);  // nothing estimates it without quen
}

TEST_F(QuenSimTest, TheReportIsDrawnByABrowserWithoutErrors) {
    if (system("command -v chromium >/dev/null 2>&1") != 0) {
        GTEST_SKIP() << "chromium is not installed (Debian package chromium): skipped";
    }
    // With the daemon where FUSE allows, so that its plots are drawn too.
    const bool fuse = HaveFuse();
    const std::string sc = Scenario("{\"name\": \"browser\", \"device\": \"" + device +
                                    "\", \"days\": 0.5, \"speed\": 20000, \"sample_minutes\": 30}");
    ASSERT_EQ(Run("lab " + sc + " --profile light --profile gamer-hot-car" +
                  (fuse ? "" : " --no-default") + " --out " + dev.HostPath("/lab")),
              0)
        << Output();
    const std::string page = "file://" + dev.HostPath("/lab/report.html");
    const std::string chromium =
        "timeout 120 chromium --headless --no-sandbox --disable-gpu "
        "--enable-logging=stderr --v=0 --user-data-dir='" +
        dev.HostPath("/chromium") + "' ";
    ASSERT_EQ(system((chromium + "--dump-dom '" + page + "' >'" + dev.HostPath("/dom.html") +
                      "' 2>'" + dev.HostPath("/dom.log") + "'")
                         .c_str()),
              0)
        << dev.Read("/dom.log");
    ASSERT_EQ(
        system((chromium + "--window-size=1280,3000 --screenshot='" + dev.HostPath("/shot.png") +
                "' '" + page + "' >/dev/null 2>'" + dev.HostPath("/shot.log") + "'")
                   .c_str()),
        0)
        << dev.Read("/shot.log");
    // Every plot the browser built holds a drawn series for each arm it shows.
    const std::string dom = dev.Read("/dom.html");
    size_t plots = 0;
    for (size_t at = dom.find("<svg"); at != std::string::npos; at = dom.find("<svg", at + 1)) {
        const std::string svg = dom.substr(at, dom.find("</svg>", at) - at);
        const std::string id = svg.substr(0, svg.find('>'));
        EXPECT_NE(svg.find("<path class=\"series\""), std::string::npos) << id;
        EXPECT_EQ(svg.find("NaN"), std::string::npos) << id;
        ++plots;
    }
    EXPECT_EQ(plots, fuse ? 7u : 4u);
    // No message from the page (it has no script, so any would be an error).
    for (const char* log : {"/dom.log", "/shot.log"}) {
        EXPECT_EQ(dev.Read(log).find(":CONSOLE"), std::string::npos) << dev.Read(log);
    }
    // A PNG of the window's size, and far from blank: a blank page of this size takes about
    // 20 kB, the report's plots and tables several times that.
    const std::string png = dev.Read("/shot.png");
    ASSERT_GT(png.size(), 24u);
    EXPECT_EQ(png.substr(1, 3), "PNG");
    auto be32 = [&](size_t at) {
        return (static_cast<uint32_t>(static_cast<unsigned char>(png[at])) << 24) |
               (static_cast<uint32_t>(static_cast<unsigned char>(png[at + 1])) << 16) |
               (static_cast<uint32_t>(static_cast<unsigned char>(png[at + 2])) << 8) |
               static_cast<uint32_t>(static_cast<unsigned char>(png[at + 3]));
    };
    EXPECT_EQ(be32(16), 1280u);
    EXPECT_EQ(be32(20), 3000u);
    EXPECT_GT(png.size(), 80000u);
}
