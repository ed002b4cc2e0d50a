// The real quen binary against a copy of the sample device.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "tests/support/fake_device.h"

namespace {

class DaemonTest : public FakeDeviceTest {
protected:
    void SetUp() override { dev.CopyTree("examples/device"); }

    // Runs the daemon with `args`; true when it exited by itself within the bound.
    bool RunDaemon(const std::vector<std::string>& args, int& status) {
        std::string logFile = dev.HostPath("/quen.log");
        pid_t pid = fork();
        if (pid == 0) {
            setenv("QUEN_LOG_FILE", logFile.c_str(), 1);
            std::vector<char*> argv;
            std::string bin = QUEN_BINARY;
            argv.push_back(&bin[0]);
            std::vector<std::string> copy = args;
            for (auto& a : copy) {
                argv.push_back(&a[0]);
            }
            argv.push_back(nullptr);
            freopen("/dev/null", "w", stderr);
            execv(bin.c_str(), argv.data());
            _exit(127);
        }
        for (int i = 0; i < 2000; ++i) {  // up to 20 s
            if (waitpid(pid, &status, WNOHANG) == pid) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
        return false;
    }
    std::string Log() { return dev.Read("/quen.log"); }
};

TEST_F(DaemonTest, SampleDeviceStartsConfiguredEstimatorsAndStopsWhenNoneRuns) {
    int status = 0;
    ASSERT_TRUE(RunDaemon({"-d"}, status)) << Log();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(dev.Property("ctl.stop"), "quen");
    std::string log = Log();
    EXPECT_NE(log.find("E quen: parse json file /odm/etc/power/quen.json success"),
              std::string::npos);
    EXPECT_NE(log.find("I quen: Register protector(StatusLimitator) for ISCD"), std::string::npos);
    EXPECT_NE(log.find("I quen: estimator:CFSD start"), std::string::npos);
    EXPECT_NE(log.find("I quen: estimator:ISCD start"), std::string::npos);
    EXPECT_NE(log.find("I quen: protector:STOP_CHARGE"), std::string::npos);
    EXPECT_NE(log.find("E quen: Quen(ISCD) stop(stop)"), std::string::npos);
    EXPECT_EQ(log.find(dev.Root()), std::string::npos) << "host paths leaked into the log";
}

TEST_F(DaemonTest, WithoutOptionDOnlyErrorLinesAreWritten) {
    int status = 0;
    ASSERT_TRUE(RunDaemon({}, status));
    std::string log = Log();
    EXPECT_NE(log.find(" E quen: "), std::string::npos);
    EXPECT_EQ(log.find(" I quen: "), std::string::npos);
}

TEST_F(DaemonTest, LogDirectoryThatCannotBeMadeStopsTheService) {
    dev.Remove("/log");
    dev.Write("/log", "a file where the directory should be");
    int status = 0;
    ASSERT_TRUE(RunDaemon({"-d"}, status));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(dev.Property("ctl.stop"), "quen");
    std::string log = Log();
    EXPECT_NE(log.find("open dir /log/soh failed: Not a directory"), std::string::npos);
    EXPECT_NE(log.find("create dir /log/soh failed: Not a directory"), std::string::npos);
    EXPECT_EQ(log.find("StartAllEstimator"), std::string::npos);
}

}  // namespace
