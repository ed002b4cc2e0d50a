// The estimator: the poll loop on the aging-data node, the battery list, and the limits and
// records that one kernel record leads to on the sample device.
#include <errno.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "basp/basp_estimator.h"
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
    int pending = 0;    // guarded by lock
    int waits = 0;      // guarded by lock
    int failErrno = 0;  // guarded by lock

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
