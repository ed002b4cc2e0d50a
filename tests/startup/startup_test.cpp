// Start-up and supervision with scripted estimators: what is started, in which order, what
// supervision reports, and when the daemon stops itself.
#include <atomic>
#include <chrono>
#include <future>
#include <thread>

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
        ++starts;
        if (!CanStartMonitor(boardKey_)) {
            return;
        }
        RunMonitorThread([this] {
            std::unique_lock<std::mutex> lock(m_);
            cv_.wait(lock, [this] { return endsAtOnce_ || released_; });
            released_ = false;
            if (restart_) {
                restart_ = false;
                RestartOnExit();
            }
        });
    }
    void Release(bool restart = false) {
        std::lock_guard<std::mutex> lock(m_);
        released_ = true;
        restart_ = restart;
        cv_.notify_all();
    }
    std::atomic<int> starts{0};

private:
    std::string boardKey_;
    bool endsAtOnce_;
    std::mutex m_;
    std::condition_variable cv_;
    bool released_ = false;
    bool restart_ = false;
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
    // Registers a scripted estimator factory for `name`.
    void Declare(const std::string& name, const std::string& board, bool endsAtOnce) {
        declared_.emplace_back(name, board, endsAtOnce);
    }
    ScriptedEstimator* Get(const std::string& name) {
        return static_cast<ScriptedEstimator*>(EstimatorPool().GetObjectByName(name));
    }
    // Waits (bounded) until the log holds `n` lines equal to `text`.
    bool WaitForLog(const std::string& text, int n = 1) {
        for (int i = 0; i < 5000; ++i) {
            if (dev.CountLog(text) >= n) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return false;
    }

    // Runs SohMain with `args` on its own thread, with the declared scripted estimators.
    std::future<int> RunWith(std::vector<std::string> args) {
        args.insert(args.begin(), "quen");
        args_ = std::move(args);
        d_.declareEstimators = [this] {
            for (const auto& e : declared_) {
                std::string name = std::get<0>(e);
                std::string board = std::get<1>(e);
                bool once = std::get<2>(e);
                EstimatorPool().Register(name, [name, board, once](const char*) {
                    return new ScriptedEstimator(name, board, once);
                });
            }
        };
        d_.startService = [this] { serviceStarted = true; };
        return std::async(std::launch::async, [this] {
            std::vector<char*> argv;
            for (auto& a : args_) {
                argv.push_back(&a[0]);
            }
            argv.push_back(nullptr);
            return SohMain(static_cast<int>(argv.size() - 1), argv.data(), d_);
        });
    }

    std::atomic<bool> serviceStarted{false};

private:
    std::vector<std::tuple<std::string, std::string, bool>> declared_;
    std::vector<std::string> args_;
    SohDeclarations d_;
};

TEST_F(StartupTest, AppFirstOnceUnknownSkippedDisabledReportedUntilAppEnds) {
    Configure("\"APP\": {}, \"BOARDOFF\": {}, \"FOO\": {}, \"SHORT\": {}");
    Declare("APP", "app", false);
    Declare("BOARDOFF", "boardoff", false);
    Declare("SHORT", "short", true);
    std::future<int> daemon = RunWith({"-d"});

    ASSERT_TRUE(WaitForLog("Quen(SHORT) stop(stop)\n"));
    EXPECT_TRUE(dev.HasLog("can't find estimator: FOO\n"));
    EXPECT_EQ(Get("APP")->starts.load(), 1);
    EXPECT_EQ(Get("BOARDOFF")->starts.load(), 1);
    EXPECT_TRUE(dev.HasLog("BOARDOFF is disabled by the board configuration\n"));
    EXPECT_TRUE(dev.HasLog("Quen(BOARDOFF) stop(stop)\n"));
    EXPECT_TRUE(serviceStarted.load());
    EXPECT_EQ(dev.Property("ctl.stop"), "");  // APP still runs

    // "APP" started before every configured estimator.
    std::vector<std::string> starts;
    for (const auto& l : dev.Logs()) {
        if (l.text.rfind("estimator:", 0) == 0) {
            starts.push_back(l.text);
        }
    }
    EXPECT_EQ(starts,
              (std::vector<std::string>{"estimator:APP start\n", "estimator:BOARDOFF start\n",
                                        "estimator:SHORT start\n"}));

    Get("APP")->Release();
    ASSERT_EQ(daemon.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_EQ(daemon.get(), 0);
    EXPECT_EQ(dev.Property("ctl.stop"), "quen");
    EXPECT_EQ(dev.CountLog("Quen(BOARDOFF) stop(stop)\n"), 2);  // once per pass
    EXPECT_TRUE(dev.HasLog("Quen(APP) stop(stop)\n"));
}

TEST_F(StartupTest, RestartRequestStartsTheMonitorAgain) {
    Configure("\"APP\": {}");
    Declare("APP", "app", false);
    std::future<int> daemon = RunWith({"-d"});
    ASSERT_TRUE(WaitForLog("estimator:APP start\n"));
    while (Get("APP")->GetRunState() != "run") {
        std::this_thread::yield();
    }
    Get("APP")->Release(/*restart=*/true);
    ASSERT_TRUE(WaitForLog("Estimator:APP restart\n"));
    EXPECT_EQ(Get("APP")->starts.load(), 2);
    EXPECT_EQ(dev.Property("ctl.stop"), "");
    while (Get("APP")->GetRunState() != "run") {
        std::this_thread::yield();
    }
    Get("APP")->Release();
    ASSERT_EQ(daemon.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_EQ(dev.Property("ctl.stop"), "quen");
}

TEST_F(StartupTest, NothingStartableStopsAtOnceAndInfoNeedsOptionD) {
    Configure("\"FOO\": {}");
    std::future<int> daemon = RunWith({"-x"});
    ASSERT_EQ(daemon.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_EQ(daemon.get(), 0);
    EXPECT_EQ(dev.Property("ctl.stop"), "quen");
    EXPECT_TRUE(dev.HasLog("can't find estimator: APP\n"));
    EXPECT_TRUE(dev.HasLog("can't find estimator: FOO\n"));
    EXPECT_TRUE(serviceStarted.load());
    for (const auto& l : dev.Logs()) {
        EXPECT_EQ(l.prio, 6) << l.text;  // no -d: error lines only
    }
}

TEST_F(StartupTest, OptionDWithAttachedArgumentSwitchesInfoOn) {
    Configure("\"FOO\": {}, \"APP\": {\"Protectors\": [\"Nope\"]}");
    std::future<int> daemon = RunWith({"-dfoo"});
    ASSERT_EQ(daemon.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_TRUE(dev.HasLog("StartAllEstimator"));
    EXPECT_TRUE(dev.HasLog("protector:Nope\n"));
}

TEST_F(StartupTest, LogDirectoryThatIsAFileStopsTheServiceBeforeAnythingElse) {
    dev.Remove("/log/soh");
    dev.Write("/log/soh", "not a directory");
    Configure("\"APP\": {}");
    Declare("APP", "app", false);
    std::future<int> daemon = RunWith({"-d"});
    ASSERT_EQ(daemon.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_EQ(dev.Property("ctl.stop"), "quen");
    EXPECT_FALSE(dev.HasLog("StartAllEstimator"));
    EXPECT_FALSE(serviceStarted.load());
}

TEST_F(StartupTest, MissingLogDirectoryIsCreated) {
    dev.Remove("/log/soh");
    Configure("\"FOO\": {}");
    std::future<int> daemon = RunWith({});
    ASSERT_EQ(daemon.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_TRUE(dev.HasLog("open dir /log/soh failed: No such file or directory\n"));
    struct stat st {};
    ASSERT_EQ(stat(dev.HostPath("/log/soh").c_str(), &st), 0);
    EXPECT_TRUE(S_ISDIR(st.st_mode));
}

}  // namespace
