// The daemon steered with quenctl through its control socket, and its limits restored after
// it was killed and started again.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include "tests/support/fake_device.h"

namespace {

constexpr const char* kIchgLimit = "/sys/class/vn_power/interface/ichg_limit";

class ControlTest : public FakeDeviceTest {
protected:
    void SetUp() override { dev.CopyTree("examples/device"); }
    void TearDown() override { Kill(); }

    // Starts the daemon and waits until its service is announced.
    void Start() {
        dev.Remove("/properties/vendor.soh_service");
        std::string log = dev.HostPath("/quen.log");
        pid_ = fork();
        if (pid_ == 0) {
            setenv("QUEN_LOG_FILE", log.c_str(), 1);
            freopen("/dev/null", "w", stderr);
            execl(QUEN_BINARY, QUEN_BINARY, "-d", static_cast<char*>(nullptr));
            _exit(127);
        }
        for (int i = 0; i < 1000 && dev.Property("vendor.soh_service") != "start"; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        ASSERT_EQ(dev.Property("vendor.soh_service"), "start") << dev.Read("/quen.log");
    }
    void Kill() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
            pid_ = -1;
        }
    }
    // Runs quenctl with `args`; returns its exit status, with its output in out/err.
    int Ctl(const std::string& args, std::string* out = nullptr, std::string* err = nullptr) {
        std::string o = dev.HostPath("/ctl.out"), e = dev.HostPath("/ctl.err");
        std::string cmd = std::string(QUENCTL_BINARY) + " --root '" + dev.Root() + "' " + args +
                          " >'" + o + "' 2>'" + e + "'";
        int status = system(cmd.c_str());
        if (out != nullptr) {
            *out = dev.Read("/ctl.out");
        }
        if (err != nullptr) {
            *err = dev.Read("/ctl.err");
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    pid_t pid_ = -1;
};

TEST_F(ControlTest, QuenctlSetsGetsAndReportsStatuses) {
    std::string out, err;
    EXPECT_EQ(Ctl("get smart_charging", &out, &err), 2);  // no daemon yet
    EXPECT_NE(err.find("cannot connect"), std::string::npos);
    Start();
    struct stat st {};
    ASSERT_EQ(stat(dev.HostPath("/dev/socket/soh.service").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0660u);

    EXPECT_EQ(Ctl("set ichg_limit 'all 1500'"), 0);
    EXPECT_EQ(dev.Read(kIchgLimit), "quen all 1500");
    EXPECT_EQ(Ctl("get smart_charging", &out), 0);
    EXPECT_EQ(out, "0\n");
    EXPECT_EQ(Ctl("get SMART_CHARGING", &out, &err), 1);
    EXPECT_EQ(err, "BAD_TYPE (-2147483647)\n");
    EXPECT_EQ(Ctl("set ichg_limit 'lvc 60'", nullptr, &err), 1);
    EXPECT_EQ(err, "BAD_VALUE (-22)\n");
    EXPECT_EQ(Ctl("call 2 --s8 batt_status --s8 1"), 0);
    EXPECT_EQ(dev.Read("/sys/devices/platform/vorlan_batt_soh/iscd/iscd_status"), "1");
    EXPECT_EQ(Ctl("call 1 --s8 vnupd_config", &out), 0);
    EXPECT_EQ(out.rfind("type=QUENJSONCONFIG,", 0), 0u);
    EXPECT_EQ(Ctl("frobnicate"), 2);
    EXPECT_EQ(Ctl("call x"), 2);
    EXPECT_EQ(Ctl("--help", &out), 0);
    EXPECT_NE(out.find("usage: quenctl"), std::string::npos);
}

TEST_F(ControlTest, LimitsAreRestoredAfterTheDaemonIsKilled) {
    Start();
    ASSERT_EQ(Ctl("set ichg_limit 'all 1500'"), 0);
    ASSERT_EQ(Ctl("set soc_control '2 80 60'"), 0);
    Kill();
    dev.Write(kIchgLimit, "");
    dev.Write("/sys/class/vn_power/soc_control/control", "");
    Start();
    EXPECT_EQ(dev.Read(kIchgLimit), "quen all 1500");
    EXPECT_EQ(dev.Read("/sys/class/vn_power/soc_control/control"), "quen 1 60 80");
    std::string log = dev.Read("/quen.log");
    EXPECT_NE(log.find("restore NonDcCurLimitator limit from APP with value 1500"),
              std::string::npos);
    EXPECT_NE(log.find("restore soc control from APP with value 2 60 80 1 0"), std::string::npos);
}

}  // namespace
