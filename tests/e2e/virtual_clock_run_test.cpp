// quen-sim on the virtual clock: the same scenario gives the same bytes on every run, and a
// run ends cleanly however it is ended (Ctrl-C, the daemon killed under it).
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <regex>
#include <thread>

#include "sim/runner/arm.h"
#include "tests/e2e/quen_sim_fixture.h"

namespace {

class VirtualRunTest : public QuenSimTest {
protected:
    // The daemon's log without the process and thread ids of each line.
    std::string LogWithoutIds(const std::string& file) {
        static const std::regex ids(R"(^(\S+ \S+) \d+ \d+ )", std::regex::multiline);
        return std::regex_replace(dev.Read(file), ids, "$1 ");
    }
    pid_t StartInBackground(const std::string& scenario, const std::string& out) {
        pid_t pid = fork();
        if (pid == 0) {
            freopen(dev.HostPath("/run.txt").c_str(), "w", stderr);
            execl(QUEN_SIM_BINARY, QUEN_SIM_BINARY, scenario.c_str(), "--no-baseline", "--out",
                  dev.HostPath(out).c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        return pid;
    }
    // Waits (bounded) until the daemon's arm has written `rows` trace rows.
    void AwaitRows(const std::string& out, int rows) {
        const std::string csv = out + "/arms/default/trace.csv";
        for (int i = 0; i < 30000 && !(dev.Exists(csv) && Rows(csv) >= rows); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
};

// A month in the plain build, a few days under the sanitizers.
constexpr int kDays = QUEN_VCLOCK_TEST_DAYS;

TEST_F(VirtualRunTest, AMonthRunTwiceGivesTheSameBytes) {
    const std::string sc = Scenario("{\"name\": \"month\", \"device\": \"" + device +
                                    "\", \"days\": " + std::to_string(kDays) +
                                    ", \"sample_minutes\": 60,"
                                    " \"model\": {\"aging_scale\": 3, \"seed\": 11}}");
    ASSERT_EQ(Run(sc + " --daemon-log info --out " + dev.HostPath("/a")), 0) << Output();
    ASSERT_EQ(Run(sc + " --daemon-log info --out " + dev.HostPath("/b")), 0) << Output();
    for (const char* file : {"/report.html", "/arms/default/trace.csv",
                             "/arms/default/kernel-writes.log", "/arms/without-quen/trace.csv"}) {
        const std::string a = dev.Read(std::string("/a") + file);
        EXPECT_FALSE(a.empty()) << file;
        EXPECT_TRUE(a == dev.Read(std::string("/b") + file)) << file << " differs";
    }
    const std::string logA = LogWithoutIds("/a/arms/default/quen.log");
    EXPECT_GT(logA.size(), kDays * 10000u);
    EXPECT_TRUE(logA == LogWithoutIds("/b/arms/default/quen.log")) << "the daemon logs differ";
    // The month was lived through: every hourly sample, and the daemon's anti-swelling loop
    // woke every 30 simulated seconds.
    EXPECT_EQ(Rows("/a/arms/default/trace.csv"), kDays * 24 + 1);
    sim::RunSummary a, b;
    std::string error;
    ASSERT_TRUE(sim::ReadSummary(dev.HostPath("/a/arms/default"), a, error)) << error;
    ASSERT_TRUE(sim::ReadSummary(dev.HostPath("/b/arms/default"), b, error)) << error;
    EXPECT_EQ(a.turnsByRole, b.turnsByRole);
    EXPECT_NEAR(a.turnsByRole["ASW"], kDays * 2880, 10);
    EXPECT_FALSE(a.kernelWrites == 0);
}

TEST_F(VirtualRunTest, CtrlCEndsTheRunAndStillReports) {
    const std::string sc =
        Scenario("{\"device\": \"" + device + "\", \"days\": 3000, \"sample_minutes\": 60}");
    pid_t pid = StartInBackground(sc, "/out");
    AwaitRows("/out", 3);
    kill(pid, SIGINT);
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 130) << Output();
    EXPECT_NE(dev.Read("/out/report.html").find("interrupted"), std::string::npos);
    EXPECT_FALSE(dev.Exists("/out/arms/default/.vclock")) << "the clock page is removed";
}

TEST_F(VirtualRunTest, ADaemonKilledUnderTheRunFailsItsArmWithoutAHang) {
    const std::string sc =
        Scenario("{\"device\": \"" + device + "\", \"days\": 3000, \"sample_minutes\": 60}");
    pid_t pid = StartInBackground(sc, "/out");
    AwaitRows("/out", 3);
    // Every log line names the daemon's process.
    const std::string log = dev.Read("/out/arms/default/quen.log");
    std::smatch m;
    ASSERT_TRUE(std::regex_search(log, m, std::regex(R"(^\S+ \S+ (\d+) )"))) << log;
    kill(static_cast<pid_t>(std::stol(m[1])), SIGKILL);
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 1) << Output();
    EXPECT_NE(Output().find("the daemon killed by signal 9"), std::string::npos) << Output();
}

}  // namespace
