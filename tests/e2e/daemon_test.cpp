// The real quen binary against a copy of the sample device.
#include <stdlib.h>

#include "tests/support/fake_device.h"

namespace {

class DaemonTest : public FakeDeviceTest {
protected:
    void SetUp() override { dev.CopyTree("examples/device"); }

    // Runs the daemon (killed after `seconds`) with `args` and its log in /quen.log; the exit
    // status as system() reports it: 0 when the daemon returned 0 by itself, 137 << 8 when it
    // was still running and killed.
    int RunDaemon(const std::string& args, int seconds = 20) {
        std::string cmd = "QUEN_LOG_FILE='" + dev.HostPath("/quen.log") + "' timeout -s KILL " +
                          std::to_string(seconds) + " '" QUEN_BINARY "' " + args + " 2>/dev/null";
        return system(cmd.c_str());
    }
    bool Logged(const std::string& text) {
        return dev.Read("/quen.log").find(text) != std::string::npos;
    }
};

TEST_F(DaemonTest, SampleDeviceRunsWhileAppRunsAndReportsTheEstimatorsThatEnded) {
    ASSERT_EQ(RunDaemon("-d", 2), 137 << 8) << dev.Read("/quen.log");
    EXPECT_EQ(dev.Property("ctl.stop"), "");
    EXPECT_TRUE(Logged("I quen: estimator:APP start"));
    EXPECT_TRUE(Logged("E quen: parse json file /odm/etc/power/quen.json success"));
    EXPECT_TRUE(Logged("I quen: Register protector(StatusLimitator) for ISCD"));
    EXPECT_TRUE(Logged("I quen: estimator:CFSD start"));
    EXPECT_TRUE(Logged("I quen: estimator:ISCD start"));
    EXPECT_TRUE(Logged("I quen: protector:STOP_CHARGE"));
    EXPECT_TRUE(Logged("E quen: Quen(ISCD) stop(stop)"));
    EXPECT_FALSE(Logged(dev.Root())) << "host paths leaked into the log";
}

TEST_F(DaemonTest, WithoutOptionDOnlyErrorLinesAreWritten) {
    ASSERT_EQ(RunDaemon("", 2), 137 << 8);
    EXPECT_TRUE(Logged(" E quen: "));
    EXPECT_FALSE(Logged(" I quen: "));
}

TEST_F(DaemonTest, LogDirectoryThatCannotBeMadeStopsTheService) {
    dev.Remove("/log");
    dev.Write("/log", "a file where the directory should be");
    ASSERT_EQ(RunDaemon("-d"), 0);
    EXPECT_EQ(dev.Property("ctl.stop"), "quen");
    EXPECT_TRUE(Logged("open dir /log/soh failed: Not a directory"));
    EXPECT_TRUE(Logged("create dir /log/soh failed: Not a directory"));
    EXPECT_FALSE(Logged("StartAllEstimator"));
}

}  // namespace
