// quenctl status and quenctl inspect against the real daemon on the sample device.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <sstream>
#include <thread>

#include "tests/support/fake_device.h"

namespace {

class DiagE2eTest : public FakeDeviceTest {
protected:
    void SetUp() override { dev.CopyTree("examples/device"); }
    void TearDown() override {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    void Start() {
        pid_ = fork();
        if (pid_ == 0) {
            setenv("QUEN_LOG_FILE", dev.HostPath("/quen.log").c_str(), 1);
            freopen("/dev/null", "w", stderr);
            execl(QUEN_BINARY, QUEN_BINARY, "-d", static_cast<char*>(nullptr));
            _exit(127);
        }
        for (int i = 0; i < 1000 && dev.Property("vendor.soh_service") != "start"; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        ASSERT_EQ(dev.Property("vendor.soh_service"), "start");
    }
    // Runs quenctl with `args` (and `env` before it); its exit status, output in out/err.
    int Ctl(const std::string& args, std::string* out = nullptr, std::string* err = nullptr,
            const std::string& env = "") {
        std::string cmd = env + " " + QUENCTL_BINARY + " --root '" + dev.Root() + "' " + args +
                          " >'" + dev.HostPath("/ctl.out") + "' 2>'" + dev.HostPath("/ctl.err") +
                          "'";
        int status = system(cmd.c_str());
        if (out != nullptr) {
            *out = dev.Read("/ctl.out");
        }
        if (err != nullptr) {
            *err = dev.Read("/ctl.err");
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    static Json::Value Parse(const std::string& text) {
        Json::Value root;
        std::istringstream in(text);
        std::string errors;
        EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), in, &root, &errors)) << text;
        return root;
    }

    pid_t pid_ = -1;
};

TEST_F(DiagE2eTest, StatusNamesTheLimitItsSourceAndItsDemands) {
    std::string out, err;
    EXPECT_EQ(Ctl("status", &out, &err), 2);  // no daemon yet
    EXPECT_NE(err.find("cannot connect"), std::string::npos);
    Start();
    ASSERT_EQ(Ctl("set ichg_limit 'all 1500'"), 0);
    // BASP's first aging event comes in the daemon's first moments and hands its four limits
    // over one after another; wait for its current demand.
    for (int i = 0; i < 500; ++i) {
        ASSERT_EQ(Ctl("status", &out, &err), 0) << err;
        if (out.find("    BASP  4500\n") != std::string::npos) {
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_NE(out.find("  NonDcCurLimitator   1500  from APP  since "), std::string::npos) << out;
    EXPECT_NE(out.find("    APP   1500  <- in force\n    BASP  4500\n"), std::string::npos) << out;
    EXPECT_NE(out.find("  NonDcCurLimitator  0 s  (default in 2460 s)"), std::string::npos);

    ASSERT_EQ(Ctl("status --json", &out, &err), 0) << err;
    Json::Value dump = Parse(out);
    bool found = false;
    for (const Json::Value& p : dump["protectors"]) {
        if (p["name"].asString() == "NonDcCurLimitator") {
            found = true;
            EXPECT_EQ(p["winner"].asString(), "APP");
            EXPECT_EQ(p["demands"]["BASP"].asDouble(), 4500);
            EXPECT_TRUE(p["changed_at"].isInt64());
        }
    }
    EXPECT_TRUE(found) << out;
    EXPECT_EQ(Ctl("status --yaml"), 2);
}

TEST_F(DiagE2eTest, InspectShowsTheSampleDevicesRecords) {
    Start();
    ASSERT_EQ(Ctl("set soc_control '2 80 60'"), 0);
    for (int i = 0; i < 500 && !dev.Exists("/log/soh/basp_QBT41.dat"); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::string out, err;
    ASSERT_EQ(Ctl("inspect", &out, &err), 0) << err;
    EXPECT_NE(out.find("== /log/soh/sys_para.dat  (system parameters)\n"), std::string::npos)
        << out;
    EXPECT_NE(out.find("     SocLimitator        2 60 80 1 0     from APP\n"), std::string::npos)
        << out;
    EXPECT_NE(out.find("== /log/soh/basp_QBT41.dat  (aging-policy record)\n   battery QBT41, "
                       "policy 2.0, level 1"),
              std::string::npos)
        << out;
    EXPECT_EQ(out.find("ERROR"), std::string::npos) << out;

    ASSERT_EQ(Ctl("inspect --json", &out, &err), 0) << err;
    Json::Value report = Parse(out);
    EXPECT_GE(report["records"].size(), 3u);  // sys_para, basp, the fresh cvt record
    for (const Json::Value& r : report["records"]) {
        EXPECT_TRUE(r["ok"].asBool()) << r;
    }

    ASSERT_EQ(Ctl("inspect --plot '" + dev.HostPath("/plots") + "'", &out, &err), 0) << err;
    EXPECT_NE(out.find("plots in "), std::string::npos);
    EXPECT_NE(dev.Read("/plots/basp_QBT41.svg").find("<svg"), std::string::npos);
    EXPECT_EQ(Ctl("inspect --plot '" + dev.HostPath("/plots2") + "'", &out, &err,
                  "PATH='" + dev.HostPath("/nowhere") + "'"),
              2);
    EXPECT_NE(err.find("--plot needs gnuplot, which is not installed"), std::string::npos) << err;
    EXPECT_FALSE(dev.Exists("/plots2"));

    EXPECT_EQ(Ctl("inspect --frobnicate"), 2);
    EXPECT_EQ(Ctl("--root '" + dev.HostPath("/missing") + "' inspect", &out, &err), 2);
    EXPECT_NE(err.find("is not a readable directory"), std::string::npos) << err;
}

}  // namespace
