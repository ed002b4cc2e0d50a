// The quen-sim program as a user runs it: a short scenario from start to report, the errors
// that stop it before anything starts, and Ctrl-C.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <thread>

#include "sim/fakefs/fake_kernel.h"
#include "tests/support/fake_device.h"

namespace {

class QuenSimTest : public FakeDeviceTest {
protected:
    // Runs quen-sim with `args` (output in DIR/run.txt); returns its exit status.
    int Run(const std::string& args) {
        std::string cmd =
            std::string(QUEN_SIM_BINARY) + " " + args + " >'" + dev.HostPath("/run.txt") + "' 2>&1";
        int status = system(cmd.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::string Output() { return dev.Read("/run.txt"); }
    std::string Scenario(const std::string& body) {
        dev.Write("/scenario.json", body);
        return dev.HostPath("/scenario.json");
    }
    static bool Mounted(const std::string& dir) {
        std::ifstream mounts("/proc/mounts");
        std::string line;
        while (std::getline(mounts, line)) {
            if (line.find(" " + dir + " ") != std::string::npos) {
                return true;
            }
        }
        return false;
    }
    const std::string device = std::string(QUEN_SOURCE_DIR) + "/examples/device";
};

}  // namespace

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
    EXPECT_FALSE(dev.Exists("/out/root"));  // nothing was prepared
    EXPECT_EQ(Run("--days"), 2);
    EXPECT_EQ(Run("--speed 0"), 2);
}

TEST_F(QuenSimTest, AShortRunEndsWithATraceAndAReport) {
    std::string reason;
    if (!sim::FakeKernel::Available(reason)) {
        GTEST_SKIP() << "FUSE is not available here (" << reason << "): skipped";
    }
    const std::string sc = Scenario("{\"name\": \"short\", \"device\": \"" + device +
                                    "\", \"days\": 0.5, \"speed\": 20000, \"sample_minutes\": 30}");
    ASSERT_EQ(Run(sc + " --out " + dev.HostPath("/out")), 0) << Output();
    EXPECT_NE(Output().find("completed: 0.5 simulated days"), std::string::npos) << Output();
    EXPECT_FALSE(Mounted(dev.HostPath("/out/root/sys")));
    std::istringstream trace(dev.Read("/out/trace.csv"));
    std::string line;
    int rows = -1;  // the header
    while (std::getline(trace, line)) {
        ++rows;
    }
    EXPECT_GE(rows, 24);  // twelve hours every 30 minutes, and the last sample
    // The daemon wrote its first limits through the fake kernel, and they were traced.
    EXPECT_NE(
        dev.Read("/out/kernel-writes.log").find("/sys/class/vn_power/interface/vterm_dec 0 quen"),
        std::string::npos);
    EXPECT_NE(dev.Read("/out/quen.log").find("estimator:BASP start"), std::string::npos);
    const std::string report = dev.Read("/out/report.html");
    EXPECT_NE(report.find("completed"), std::string::npos);
    EXPECT_NE(report.find("<img src='capacity.svg'"), std::string::npos) << report;
    EXPECT_TRUE(dev.Exists("/out/capacity.svg"));
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
        execl(QUEN_SIM_BINARY, QUEN_SIM_BINARY, sc.c_str(), "--out", dev.HostPath("/out").c_str(),
              static_cast<char*>(nullptr));
        _exit(127);
    }
    for (int i = 0; i < 500 && !Mounted(dev.HostPath("/out/root/sys")); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    kill(pid, SIGINT);
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 130) << Output();
    EXPECT_FALSE(Mounted(dev.HostPath("/out/root/sys")));
    EXPECT_NE(dev.Read("/out/report.html").find("interrupted"), std::string::npos);
}
