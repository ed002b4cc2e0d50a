// Start-up and supervision with scripted estimators: what is started, in which order, what
// supervision reports, and when the daemon stops itself.
#include <atomic>
#include <chrono>
#include <future>
#include <thread>
#include <utility>

#include "core/soh_estimator.h"
#include "core/soh_log.h"
#include "core/soh_startup.h"
#include "tests/support/fake_device.h"

namespace {

// An estimator whose monitor runs until released (or ends at once), guarded by a board key.
class ScriptedEstimator : public SOHEstimator {
public:
    ScriptedEstimator(const std::string& name, std::string boardKey, bool endsAtOnce)
        : SOHEstimator(name), boardKey_(std::move(boardKey)), endsAtOnce_(endsAtOnce) {}
    void StartMonitor() override {
        if (CanStartMonitor(boardKey_)) {
            RunMonitorThread([this] {
                while (!endsAtOnce_ && !released_.exchange(false)) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                }
                if (restart_.exchange(false)) {
                    RestartOnExit();
                }
            });
        }
    }
    // Ends the running monitor, asking for a new one when `restart` is true.
    void Release(bool restart = false) {
        restart_ = restart;
        released_ = true;
    }

private:
    std::string boardKey_;
    bool endsAtOnce_;
    std::atomic<bool> released_{false};
    std::atomic<bool> restart_{false};
};

class StartupTest : public FakeDeviceTest {
protected:
    void SetUp() override {
        dev.MakeDir("/log/soh");
        dev.Write("/sys/devices/platform/vorlan_batt_soh/quen_subsys", "app,short\n");
    }
    void Configure(const std::string& estimators) {
        dev.Write("/odm/etc/power/quen.json", "{\"Estimators\": {" + estimators + "}}");
    }
    void Declare(const std::string& name, const std::string& board, bool endsAtOnce) {
        EstimatorPool().Register(
            name, [=](const char*) { return new ScriptedEstimator(name, board, endsAtOnce); });
    }
    // Waits (bounded) until the log holds a line equal to `text`.
    bool WaitForLog(const std::string& text) {
        for (int i = 0; i < 5000 && !dev.HasLog(text); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return dev.HasLog(text);
    }
    // Runs SohMain with `args` on its own thread; Ended() is true once it returned 0.
    void Run(std::vector<std::string> args) {
        args.insert(args.begin(), "quen");
        daemon_ = std::async(std::launch::async, [this, args]() mutable {
            std::vector<char*> argv;
            for (auto& a : args) {
                argv.push_back(&a[0]);
            }
            argv.push_back(nullptr);
            SohDeclarations d;
            d.startService = [this] { serviceStarted = true; };
            return SohMain(static_cast<int>(args.size()), argv.data(), d);
        });
    }
    bool Ended() {
        return daemon_.wait_for(std::chrono::seconds(10)) == std::future_status::ready &&
               daemon_.get() == 0;
    }

    std::atomic<bool> serviceStarted{false};

private:
    std::future<int> daemon_;
};

TEST_F(StartupTest, AppFirstOnceUnknownSkippedDisabledReportedAndRestartsUntilAppEnds) {
    Configure("\"APP\": {}, \"BOARDOFF\": {}, \"FOO\": {}, \"SHORT\": {}");
    Declare("APP", "app", false);
    Declare("BOARDOFF", "boardoff", false);
    Declare("SHORT", "short", true);
    Run({"-d"});

    ASSERT_TRUE(WaitForLog("Quen(SHORT) stop(stop)\n"));
    auto* app = static_cast<ScriptedEstimator*>(EstimatorPool().GetObjectByName("APP"));
    EXPECT_TRUE(dev.HasLog("can't find estimator: FOO\n"));
    EXPECT_TRUE(dev.HasLog("BOARDOFF is disabled by the board configuration\n"));
    EXPECT_TRUE(dev.HasLog("Quen(BOARDOFF) stop(stop)\n"));
    EXPECT_TRUE(serviceStarted.load());
    EXPECT_EQ(dev.Property("ctl.stop"), "");  // APP still runs

    // "APP" started once, before every configured estimator.
    std::vector<std::string> starts;
    for (const auto& l : dev.Logs()) {
        if (l.text.rfind("estimator:", 0) == 0) {
            starts.push_back(l.text);
        }
    }
    EXPECT_EQ(starts,
              (std::vector<std::string>{"estimator:APP start\n", "estimator:BOARDOFF start\n",
                                        "estimator:SHORT start\n"}));

    // A monitor that asks for a restart is started again; the daemon ends with the last one.
    app->Release(/*restart=*/true);
    ASSERT_TRUE(WaitForLog("Estimator:APP restart\n"));
    EXPECT_EQ(dev.Property("ctl.stop"), "");
    app->Release();
    ASSERT_TRUE(Ended());
    EXPECT_EQ(dev.Property("ctl.stop"), "quen");
    EXPECT_EQ(dev.CountLog("Quen(BOARDOFF) stop(stop)\n"), 3);  // once per pass
    EXPECT_EQ(dev.CountLog("Quen(APP) stop(stop)\n"), 1);
}

TEST_F(StartupTest, NothingStartableStopsAtOnceAndAttachedOptionDSwitchesInfoOn) {
    Configure("\"FOO\": {}, \"APP\": {\"Protectors\": [\"Nope\"]}");
    testing::internal::CaptureStderr();
    Run({"-x", "-dfoo"});  // unknown options are ignored, with a warning
    const bool ended = Ended();
    const std::string err = testing::internal::GetCapturedStderr();
    ASSERT_TRUE(ended);
    EXPECT_NE(err.find("quen: ignoring option -x\n"), std::string::npos) << err;
    EXPECT_EQ(err.find("ignoring option -d"), std::string::npos) << err;
    EXPECT_EQ(dev.Property("ctl.stop"), "quen");
    EXPECT_TRUE(dev.HasLog("can't find estimator: APP\n"));
    EXPECT_TRUE(dev.HasLog("can't find estimator: FOO\n"));
    EXPECT_TRUE(serviceStarted.load());
    EXPECT_TRUE(dev.HasLog("StartAllEstimator"));
    EXPECT_TRUE(dev.HasLog("protector:Nope\n"));
}

TEST_F(StartupTest, LogDirectoryThatIsAFileStopsTheServiceBeforeAnythingElse) {
    dev.Remove("/log/soh");
    dev.Write("/log/soh", "not a directory");
    Run({"-d"});
    ASSERT_TRUE(Ended());
    EXPECT_EQ(dev.Property("ctl.stop"), "quen");
    EXPECT_FALSE(dev.HasLog("StartAllEstimator"));
    EXPECT_FALSE(serviceStarted.load());
}

}  // namespace
