// Kernel nodes that misbehave for a long time under the running daemon: a node whose reads
// fail while it keeps signalling, a node that is empty when the daemon arms it, and a fake
// kernel whose server is killed (every node then answers with errors). The daemon must not
// spin: it logs a bounded number of lines, uses little CPU, keeps answering its control
// socket, and takes records again once the node works.
#include <fcntl.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "tests/e2e/sim_fixture.h"

namespace {

using namespace e2e;

constexpr const char* kAcrLog = "/log/soh/acr.dat";
constexpr uint64_t kAcrRecord = 212;

// CPU time (user + system) of process `pid` in clock ticks; -1 when it cannot be read.
long long CpuTicks(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string stat((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const size_t close = stat.rfind(')');
    if (close == std::string::npos) {
        return -1;
    }
    std::istringstream fields(stat.substr(close + 2));
    std::string field;
    long long utime = -1;
    long long stime = -1;
    // Fields after the name start at 3 (state); utime is 14, stime 15.
    for (int i = 3; i <= 15 && fields >> field; ++i) {
        if (i == 14) {
            utime = std::stoll(field);
        } else if (i == 15) {
            stime = std::stoll(field);
        }
    }
    return utime < 0 || stime < 0 ? -1 : utime + stime;
}

class NodeFaultTest : public SimTest {
protected:
    void TearDown() override {
        SimTest::TearDown();
        if (server_ > 0) {
            kill(server_, SIGKILL);
            waitpid(server_, nullptr, 0);
            server_ = -1;
        }
        if (deadMount_) {
            umount2(dev.HostPath("/sys").c_str(), MNT_DETACH);
        }
    }
    // The daemon's share of one core, in percent, over `window` of real time.
    double CpuPercent(milliseconds window) {
        const long long before = CpuTicks(daemon.Pid());
        const auto start = std::chrono::steady_clock::now();
        std::this_thread::sleep_for(window);
        const long long after = CpuTicks(daemon.Pid());
        const double real =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (before < 0 || after < 0) {
            ADD_FAILURE() << "cannot read the daemon's CPU time";
            return 100.0;
        }
        return 100.0 * static_cast<double>(after - before) /
               static_cast<double>(sysconf(_SC_CLK_TCK)) / real;
    }
    // Serves the fake kernel from a child process, so that the test can kill the server while
    // the mount stays: every request on it then fails with ENOTCONN.
    void MountInServer() {
        std::string error;
        ASSERT_TRUE(nodes.Load(dev.HostPath("/sys"), error)) << error;
        int ready[2];
        ASSERT_EQ(pipe(ready), 0);
        server_ = fork();
        ASSERT_GE(server_, 0);
        if (server_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);  // never outlives the test
            close(ready[0]);
            sim::FakeKernel served(nodes);
            char ok = served.Mount(dev.HostPath("/sys"), error) ? 1 : 0;
            (void)!write(ready[1], &ok, 1);
            for (;;) {
                pause();
            }
        }
        close(ready[1]);
        char ok = 0;
        ASSERT_EQ(read(ready[0], &ok, 1), 1);
        close(ready[0]);
        ASSERT_EQ(ok, 1) << "the fake kernel could not be mounted in its server";
        deadMount_ = true;
    }

    pid_t server_ = -1;
    bool deadMount_ = false;
};

}  // namespace

// The ACR node keeps signalling POLLPRI|POLLERR while every read fails (a driver that went
// away): the monitor logs the first failure, then counts, re-opens on its back-off, and takes
// the next record once reads work again.
TEST_F(NodeFaultTest, ASignallingNodeWhoseReadsFailIsRetriedOnABackOff) {
    Start(1000);
    ASSERT_TRUE(ServiceUp()) << Log();
    ASSERT_TRUE(Logged("poll start in acr")) << Log();
    kernel->SetFault(kAcr, {EIO, 0, 0, false});
    // The node keeps signalling (an event every 5 ms, 5 s of clock time) while reads fail:
    // each re-opened descriptor meets the next event. Eight failures take 1 + 2 + ... + 128 s
    // of clock time on the back-off.
    for (int i = 0; i < 12000 && CountLog("wake-up a brought no record (8 times)") == 0; ++i) {
        RaiseAcr(41000);
        std::this_thread::sleep_for(milliseconds(5));
    }
    ASSERT_TRUE(Logged("wake-up a brought no record (8 times)")) << Log();
    EXPECT_EQ(CountLog("get raw information size:"), 1) << Log();
    EXPECT_EQ(CountLog("brought no record"), 4);  // 1st, 2nd, 4th and 8th
    EXPECT_EQ(CountLog("acr_info in acr opened again after"), 1);
    const double busy = CpuPercent(milliseconds(1500));
    EXPECT_LT(busy, 15.0);
    EXPECT_TRUE(Alive());
    EXPECT_EQ(Size(kAcrLog), 0u);

    // Reads work again: a record raised after the next re-open is appended.
    kernel->ClearFaults();
    const auto lifted = std::chrono::steady_clock::now();
    for (int i = 0; i < 6000 && Size(kAcrLog) == 0; ++i) {
        RaiseAcr(42000);
        std::this_thread::sleep_for(milliseconds(10));
    }
    const double recovery =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - lifted).count();
    EXPECT_GE(Size(kAcrLog), kAcrRecord) << Log();
    EXPECT_EQ(Size(kAcrLog) % kAcrRecord, 0u);
    EXPECT_TRUE(Logged("gives records again after")) << Log();
    printf(
        "[ figures  ] failing node: daemon CPU %.1f %% of a core; first record %.3f s of real "
        "time (%.0f s of daemon clock at x1000) after the node returned\n",
        busy, recovery, recovery * 1000);
}

// An ACR node that is empty when the monitor arms it stays watched: the driver's first
// measurement is taken.
TEST_F(NodeFaultTest, ANodeEmptyAtStartIsWatchedAndItsFirstRecordTaken) {
    Start(1000, {{kAcr, ""}});
    ASSERT_TRUE(ServiceUp()) << Log();
    ASSERT_TRUE(
        Logged("fail read fd of /sys/devices/platform/vorlan_batt_soh/eis/acr_info in "
               "acr"))
        << Log();
    ASSERT_TRUE(Logged("poll start in acr")) << Log();
    RaiseAcr(41000);
    for (int i = 0; i < 2000 && Size(kAcrLog) < kAcrRecord; ++i) {
        std::this_thread::sleep_for(milliseconds(10));
    }
    EXPECT_EQ(Size(kAcrLog), kAcrRecord) << Log();
    EXPECT_EQ(CountLog("acr was going to be terminaled"), 0);
}

// The fake kernel's server dies under the running daemon: every node answers ENOTCONN. The
// daemon stays up, answers its control socket and stays well under 15 % of a core.
TEST_F(NodeFaultTest, TheDaemonSurvivesTheDeathOfTheKernelServer) {
    MountInServer();
    ASSERT_FALSE(HasFatalFailure());
    Launch(1000);
    ASSERT_TRUE(ServiceUp()) << Log();
    ASSERT_TRUE(Logged("poll start in acr")) << Log();
    const double before = CpuPercent(milliseconds(1500));

    kill(server_, SIGKILL);
    waitpid(server_, nullptr, 0);
    server_ = -1;
    // Every node now answers with an error.
    const int probe = open(dev.HostPath(std::string("/sys/") + kAcr).c_str(), O_RDONLY);
    EXPECT_LT(probe, 0);
    if (probe >= 0) {
        close(probe);
    }

    // Let the monitors meet the dead nodes, then measure.
    std::this_thread::sleep_for(milliseconds(500));
    const double dead = CpuPercent(milliseconds(2000));
    EXPECT_LT(dead, 15.0) << Log();
    EXPECT_TRUE(Alive()) << Log();
    // The control service answers: the state dump needs no node.
    EXPECT_EQ(Ctl("status"), 0) << Log();
    printf(
        "[ figures  ] daemon CPU %.1f %% of a core with a live fake kernel, %.1f %% after its "
        "server was killed (clock x1000)\n",
        before, dead);
}
