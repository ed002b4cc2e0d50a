// The estimator: the poll loop on the aging-data node, the battery list, and the limits and
// records that one kernel record leads to on the sample device.
#include <errno.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "basp/basp_estimator.h"
#include "platform/host/soh_clock_test.h"
#include "protectors/dc_cur_limitator.h"
#include "protectors/dc_volt_limitator.h"
#include "protectors/limit_nodes.h"
#include "protectors/non_dc_cur_limitator.h"
#include "protectors/non_dc_vol_limitator.h"
#include "tests/basp/basp_test_util.h"
#include "tests/protectors/limitator_test_util.h"

namespace {

// Stands in for the driver's POLLPRI: each Signal() lets one wait return with POLLPRI set;
// Fail() makes the waits fail with an errno. Counts the waits entered, so that a test knows
// when the record before a wait has been handled.
struct Kernel {
    std::mutex lock;
    std::condition_variable changed;
    int pending = 0;     // guarded by lock
    int waits = 0;       // guarded by lock
    int failErrno = 0;   // guarded by lock
    short wakeWith = 0;  // guarded by lock; when set, every wait returns at once with it

    void Signal() {
        std::lock_guard<std::mutex> l(lock);
        ++pending;
        changed.notify_all();
    }
    void Fail(int err) {
        std::lock_guard<std::mutex> l(lock);
        failErrno = err;
        changed.notify_all();
    }
    bool WaitForWaits(int n) {
        std::unique_lock<std::mutex> l(lock);
        return changed.wait_for(l, std::chrono::seconds(10), [&] { return waits >= n; });
    }
};

Kernel& TheKernel() {
    static Kernel k;
    return k;
}

class SignalledBasp : public BaspEstimator {
public:
    using BaspEstimator::BaspEstimator;

protected:
    int WaitEvent(struct pollfd& pfd) override {
        Kernel& k = TheKernel();
        std::unique_lock<std::mutex> l(k.lock);
        ++k.waits;
        k.changed.notify_all();
        if (k.wakeWith != 0 && k.failErrno == 0) {
            pfd.revents = k.wakeWith;
            return 1;
        }
        if (!k.changed.wait_for(l, std::chrono::seconds(10),
                                [&] { return k.pending > 0 || k.failErrno != 0; })) {
            errno = ETIMEDOUT;
            return -1;
        }
        if (k.failErrno != 0) {
            errno = k.failErrno;
            return -1;
        }
        --k.pending;
        pfd.revents = POLLPRI;
        return 1;
    }
};

class EstimatorTest : public BaspTest {
protected:
    template <typename T>
    static void Offer(const char* name) {
        ProtectorPool().Register(name, [](const char* n) -> SOHProtector* { return new T(n); });
    }
    BaspEstimator* Basp() {
        Offer<DcVoltLimitator>("DcVoltLimitator");
        Offer<NonDcVolLimitator>("NonDcVoltLimitator");
        Offer<DcCurLimitator>("DcCurLimitator");
        Offer<NonDcCurLimitator>("NonDcCurLimitator");
        EstimatorPool().Register(
            "BASP", [](const char* n) -> SOHEstimator* { return new SignalledBasp(n); });
        return static_cast<BaspEstimator*>(EstimatorPool().GetObjectByName("BASP"));
    }
    // Clears the limit nodes so that the next writes can be read alone.
    void ClearLimits() {
        for (const char* node :
             {LimitNodes::kIchgRatio, LimitNodes::kIchgLimit, LimitNodes::kBaspCoulVdec}) {
            dev.Write(node, "");
        }
    }
    std::string Limits() const {
        return dev.Read(LimitNodes::kIchgRatio) + "|" + dev.Read(LimitNodes::kIchgLimit) + "|" +
               dev.Read(LimitNodes::kBaspCoulVdec);
    }
};

TEST_F(EstimatorTest, KernelRecordsBecomePolicyLimitsAndRecordUntilTheSchemeIsClosed) {
    NodeTap vterm(dev, LimitNodes::kVtermDec);
    ClearLimits();
    BaspEstimator* basp = Basp();
    basp->StartMonitor();
    ASSERT_TRUE(TheKernel().WaitForWaits(1));  // the record present at start is handled first
    EXPECT_EQ(basp->GetRunState(), "run");

    BaspBattery::BatteryAgingPolicy p = SentPolicy();
    EXPECT_EQ(std::vector<uint32_t>({p.level, p.learnFcc, p.ndcVdec, p.errNo}),
              std::vector<uint32_t>({1, 4050, 10, 1}));
    // Stage 1: ratio 90 % of the kernel's 5000 mA for the buck charger; 10 mV both ways.
    EXPECT_EQ(Limits(), "quen all 90|quen all 4500|10");
    EXPECT_EQ(vterm.Take(),
              "quen lvc 10quen sc 10quen wl_sc 10quen dcp 10quen fcp 10quen pd 10quen wl 10");
    BaspDb db = StoredDb();
    EXPECT_EQ(db.version() + " " + std::to_string(db.level()) + " " + std::to_string(db.mnum()),
              "2.0 1 5");
    ASSERT_EQ(db.records_size(), 3);
    EXPECT_EQ(db.records(2).fcc(), 4000u);
    ASSERT_EQ(db.realpolicyrecs_size(), 1);
    EXPECT_EQ(db.realpolicyrecs(0).ndcvdecuv(), 10000u);
    EXPECT_EQ(dev.BigData().size(), 1u);

    // The next record ages the battery to stage 2; the decrement waits for its first day.
    ClearLimits();
    WriteRecord(Record(900, {4100, 4050, 4000}));
    SetTime(kT0 + 600);
    TheKernel().Signal();
    ASSERT_TRUE(TheKernel().WaitForWaits(2));
    p = SentPolicy();
    EXPECT_EQ(std::vector<uint32_t>({p.level, p.learnFcc, p.ndcVdec, p.errNo}),
              std::vector<uint32_t>({2, 4050, 10, 2}));
    EXPECT_EQ(Limits(), "quen all 80|quen all 4000|");
    EXPECT_EQ(vterm.Take(), "quen lvc 20quen sc 20quen wl_sc 20");
    EXPECT_EQ(StoredDb().stages(0).seconds(), 600u);

    // Closed by the app: noticed at the next event; the limits go back to neutral.
    ClearLimits();
    SOHConfigure::CloseScheme("BASP");
    TheKernel().Signal();
    {
        // As the supervisor waits: under the state lock, so the thread is done with it after.
        std::unique_lock<std::mutex> l(EstimatorStateLock);
        EXPECT_TRUE(EstimatorStateChanged.wait_for(l, std::chrono::seconds(10),
                                                   [&] { return basp->GetRunState() == "stop"; }));
    }
    EXPECT_TRUE(dev.HasLog("basp has closed by app\n"));
    EXPECT_EQ(Limits(), "quen all 100|quen all 2147483647|0");
    EXPECT_EQ(dev.CountLog("refresh basp policy now\n"), 2);
}

TEST_F(EstimatorTest, LoopEndsOnAMissingNodeOrAPollErrorAndDropsShortRecords) {
    BaspEstimator* basp = Basp();
    const std::string record = dev.Read(BaspNodes::kAgingData);
    dev.Remove(BaspNodes::kAgingData);
    EXPECT_EQ(basp->Select(), -1);
    EXPECT_TRUE(dev.HasLog(
        "open aging data file /sys/devices/platform/vorlan_batt_soh/basp/basp_data failed\n"));

    dev.Write(BaspNodes::kAgingData, record.substr(0, 31));
    TheKernel().Fail(EBADF);
    EXPECT_EQ(basp->Select(), -1);
    EXPECT_TRUE(dev.HasLog("read aging data failed and size is 31\n"));
    EXPECT_TRUE(dev.HasLog("poll fds Bad file descriptor in select\n"));
    EXPECT_EQ(dev.Read(BaspNodes::kPolicy), "");
    EXPECT_FALSE(dev.Exists(DbPath()));
}

TEST_F(EstimatorTest, FirstBatteryThatInitialisesIsTheOnlyOneUsed) {
    Json::Value root;
    ASSERT_TRUE(Json::Reader().parse(dev.Read("/odm/etc/power/quen.json"), root));
    Json::Value& basp = root["Estimators"]["BASP"];
    Json::Value good = basp["Battery"][0];
    Json::Value broken = good;
    broken["Name"] = "BROKEN";
    broken["2.0"] = 0;
    broken["BaspPolicy"] = Json::arrayValue;
    Json::Value first = good;
    first["Name"] = "FIRST";
    Json::Value second = good;
    second["Name"] = "SECOND";
    basp["Battery"] = Json::arrayValue;
    basp["Battery"].append(Json::objectValue);  // no name
    basp["Battery"].append(broken);
    basp["Battery"].append(first);
    basp["Battery"].append(second);
    dev.Write("/odm/etc/power/quen.json", Json::StyledWriter().write(root));

    std::vector<std::unique_ptr<BaspBattery>> batterys;
    ASSERT_EQ(Basp()->InitBatterys(batterys), 1);
    EXPECT_EQ(batterys[0]->Name(), "FIRST");
    EXPECT_TRUE(dev.HasLog("battery not config policy name\n"));
    EXPECT_TRUE(dev.HasLog("battery policy config error\n"));
    EXPECT_EQ(dev.CountLog("basp battery init failed\n"), 1);

    std::vector<std::unique_ptr<BaspBattery>> none;
    EXPECT_EQ(SignalledBasp("UNCONFIGURED").InitBatterys(none), -1);
    EXPECT_TRUE(dev.HasLog("basp configure is empty\n"));
}

}  // namespace

namespace {

// Waits (real time, bounded) until the loop under test sleeps on the manual clock.
bool Asleep() {
    for (int i = 0; i < 10000; ++i) {
        if (SohClockTest::Sleepers() > 0) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

int Waits() {
    std::lock_guard<std::mutex> l(TheKernel().lock);
    return TheKernel().waits;
}

}  // namespace

// A node that keeps waking the loop without a record (hung up, error, invalid descriptor, or
// POLLPRI with a read that comes short) must not spin: one wait per back-off step, a log
// line at the 1st and 2nd failure only, and the record is taken as soon as the node answers.
TEST_F(EstimatorTest, AWakeUpWithoutARecordBacksOffAndRecoversWhenTheNodeAnswers) {
    const std::string record = dev.Read(BaspNodes::kAgingData);
    const struct {
        short revents;
        const char* text;
    } cases[] = {{POLLHUP, "wake-up 10 brought"},
                 {POLLERR, "wake-up 8 brought"},
                 {POLLNVAL, "wake-up 20 brought"},
                 {POLLPRI | POLLERR, "wake-up a brought"}};
    Basp();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        SignalledBasp basp("BASP");
        dev.Write(BaspNodes::kAgingData, record.substr(0, 31));
        {
            std::lock_guard<std::mutex> l(TheKernel().lock);
            TheKernel().waits = 0;
            TheKernel().failErrno = 0;
            TheKernel().wakeWith = c.revents;
        }
        std::thread loop([&] { EXPECT_EQ(basp.Select(), -1); });
        ASSERT_TRUE(Asleep());
        EXPECT_EQ(Waits(), 1);  // a spinning loop has waited thousands of times by now
        // Steps of 1 s, then 2 s: one more wait after each.
        SohClockTest::Advance(kSec);
        ASSERT_TRUE(TheKernel().WaitForWaits(2));
        ASSERT_TRUE(Asleep());
        SohClockTest::Advance(kSec);  // half of the 2 s step: no new wait
        SohClockTest::Advance(kSec);
        ASSERT_TRUE(TheKernel().WaitForWaits(3));
        ASSERT_TRUE(Asleep());
        EXPECT_EQ(Waits(), 3);
        EXPECT_EQ(dev.CountLogContaining(c.text), 2);  // the 1st and 2nd failure, not the 3rd

        // The node answers again: the record found on re-opening is applied.
        dev.Write(BaspNodes::kPolicy, "");
        dev.Write(BaspNodes::kAgingData, record);
        {
            std::lock_guard<std::mutex> l(TheKernel().lock);
            TheKernel().wakeWith = 0;
        }
        SohClockTest::Advance(4 * kSec);
        ASSERT_TRUE(TheKernel().WaitForWaits(4));
        EXPECT_EQ(dev.Read(BaspNodes::kPolicy).size(), sizeof(BaspBattery::BatteryAgingPolicy));
        TheKernel().Fail(EBADF);
        loop.join();
    }
    EXPECT_EQ(dev.CountLog("basp: aging records readable again after 3 failures\n"), 4);
    // One at each start, one at the first POLLPRI wake-up of the last case.
    EXPECT_EQ(dev.CountLog("read aging data failed and size is 31\n"), 4 + 1);
}

TEST_F(EstimatorTest, AClosedSchemeEndsTheBackOffWithinOneStep) {
    Basp();
    SignalledBasp basp("BASP");
    {
        std::lock_guard<std::mutex> l(TheKernel().lock);
        TheKernel().wakeWith = POLLHUP;
    }
    std::thread loop([&] { EXPECT_EQ(basp.Select(), 0); });
    ASSERT_TRUE(Asleep());
    SOHConfigure::CloseScheme("BASP");
    SohClockTest::Advance(kSec);
    loop.join();
    EXPECT_TRUE(dev.HasLog("basp has closed by app\n"));
    EXPECT_EQ(Waits(), 1);
}
