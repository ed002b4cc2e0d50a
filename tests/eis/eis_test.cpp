// The impedance estimator: reading exactly one record, the record logs, reports, the
// history's version and hash rules, and the monitor threads' start and end.
#include <fcntl.h>
#include <openssl/sha.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "core/soh_configure.h"
#include "core/soh_enviroment.h"
#include "core/soh_log.h"
#include "eis/eis_estimator.h"
#include "eis/eis_nodes.h"
#include "platform/host/soh_clock_test.h"
#include "tests/support/fake_device.h"

namespace {

constexpr const char* kAcrNode = "/sys/devices/platform/vorlan_batt_soh/eis/acr_info";
constexpr const char* kDcrNode = "/sys/devices/platform/vorlan_batt_soh/eis/dcr_info";

template <typename T>
std::string Bytes(const T& value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof(value));
}

class EisTest : public FakeDeviceTest {
protected:
    void SetUp() override {
        dev.CopyTree("examples/device");
        SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
        SohClockTest::SetManual(1700000000LL * 1000000000LL);  // 2023-11-14 22:13:20 UTC
        dev.Write("/odm/etc/power/quen.json", R"({"Estimators": {
            "EIS": {"Parameters": {"Unifier0": {"type": 3}},
                    "Monitors": {"acr": {"/sys/devices/platform/vorlan_batt_soh/eis/acr_info": 0}}},
            "EISHIST": {"Parameters": {
                "Recorder": {"versionRecorder": 2005, "rawSizeRecorder": 50, "setSizeRecorder": 9},
                "Unifier0": {"type": 0}, "Judge0": {"type": 0}}},
            "EISLIVE": {"Monitors": {
                "acr": {"/sys/devices/platform/vorlan_batt_soh/eis/acr_info": 0,
                        "/sys/devices/platform/vorlan_batt_soh/eis/gone": 0,
                        "/sys/devices/platform/vorlan_batt_soh/eis/dcr_info": 7},
                "dcr": {"/sys/devices/platform/vorlan_batt_soh/eis/dcr_info": 1},
                "none": {"/sys/devices/platform/vorlan_batt_soh/eis/gone": 1}}},
            "EISDEAD": {"Monitors": {
                "a": {"/sys/devices/platform/vorlan_batt_soh/eis/empty": 0},
                "b": {"/sys/devices/platform/vorlan_batt_soh/eis/empty": 1}}}}})");
    }
    // Processes what the node holds now with estimator `eis`.
    bool Process(EISEstimator& eis, const char* node, EisInfo& info, bool normal = false) {
        int fd = open(dev.HostPath(node).c_str(), O_RDONLY);
        EXPECT_GE(fd, 0);
        bool ok = eis.Processor(normal, fd, info);
        close(fd);
        return ok;
    }
    AcrRaw SampleAcr() { return AcrRaw{70, 321, 26, 41, 33, 3987}; }
    DcrRaw SampleDcr() { return DcrRaw{55, 120, 321, 27, 3950}; }
    std::string Stored(const Eis::HistoryData& hist) {
        std::string bytes;
        EXPECT_TRUE(hist.SerializeToString(&bytes));
        return bytes;
    }
    // A history sealed as stored files are.
    Eis::HistoryData Sealed(uint32_t version, const std::string& name = "QBT41") {
        Eis::HistoryData hist;
        hist.set_version(version);
        hist.set_name(name);
        Eis::RawDatum* raw = hist.add_raw();
        raw->set_cycles(10);
        raw->set_freq(1000);
        raw->set_temp(298150);
        std::string hash;
        EXPECT_TRUE(EISEstimator::HistHash(hist, hash));
        hist.set_hash(hash);
        return hist;
    }
};

TEST_F(EisTest, NodeMustHoldExactlyOneRecord) {
    EISEstimator eis("EIS");
    struct Case {
        int type;
        std::string bytes;
        bool ok;
    };
    std::string acr = Bytes(SampleAcr());
    std::string dcr = Bytes(SampleDcr());
    for (const Case& c :
         {Case{PROCESSOR_ACR, acr, true}, Case{PROCESSOR_ACR, acr + "x", false},
          Case{PROCESSOR_ACR, acr.substr(0, 23), false}, Case{PROCESSOR_DCR, dcr, true},
          Case{PROCESSOR_DCR, dcr + "x", false}, Case{PROCESSOR_DCR, acr, false}}) {
        dev.Write(kAcrNode, c.bytes);
        std::unique_ptr<EisInfo> info = EISEstimator::MakeInfo(c.type);
        EXPECT_EQ(Process(eis, kAcrNode, *info), c.ok) << c.type << " " << c.bytes.size();
    }
    EXPECT_TRUE(dev.HasLog("get raw information size:24, ex:1 failed\n"));
    EXPECT_TRUE(dev.HasLog("get raw information size:23, ex:0 failed\n"));
    EXPECT_TRUE(dev.HasLog("get raw information size:20, ex:1 failed\n"));
    EXPECT_EQ(dev.Read(EisNodes::kAcrLogFile).size(), sizeof(AcrRecord));
    EXPECT_EQ(dev.Read(EisNodes::kDcrLogFile).size(), sizeof(DcrRecord));
    EXPECT_TRUE(dev.HasLog("using default pbversion:0\n"));
}

// Each record is stored with the measured fields and zeros elsewhere; only a normal boot
// also reports it, and a failed report keeps the record.
TEST_F(EisTest, RecordsAreStoredAlwaysAndReportedInNormalMode) {
    EISEstimator eis("EIS");
    AcrInfo acr;
    DcrInfo dcr;
    auto both = [&](bool normal) {
        dev.Write(kAcrNode, Bytes(SampleAcr()));
        ASSERT_TRUE(Process(eis, kAcrNode, acr, normal));
        dev.Write(kAcrNode, Bytes(SampleDcr()));
        ASSERT_TRUE(Process(eis, kAcrNode, dcr, normal));
    };
    both(false);
    AcrRecord a{};
    memcpy(&a, dev.Read(EisNodes::kAcrLogFile).data(), sizeof(a));
    AcrRecord wantA{
        "2023-11-14 22:13:20", "QBT41", 0, 321, 26, {70}, {}, 0, 41, 33, 3987, {}, {}, 0};
    EXPECT_EQ(Bytes(a), Bytes(wantA));
    DcrRecord d{};
    memcpy(&d, dev.Read(EisNodes::kDcrLogFile).data(), sizeof(d));
    DcrRecord wantD{"2023-11-14 22:13:20", "QBT41", 0, 321, 27, 120, 0, 55, 0, {3950}, {}, 0, 0, 0};
    EXPECT_EQ(Bytes(d), Bytes(wantD));
    EXPECT_TRUE(dev.BigData().empty());  // not a normal boot: nothing reported

    both(true);
    std::vector<Json::Value> events = dev.BigData();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0]["id"].asUInt(), AcrInfo::kEventId);
    EXPECT_EQ(events[1]["id"].asUInt(), DcrInfo::kEventId);
    std::string keys;
    for (const Json::Value& f : events[0]["fields"]) {
        keys += f["key"].asString() + " ";
    }
    EXPECT_EQ(keys,
              "UPDTIME BATVENDOR ACRTYPE BATCYC BATTEMP ACRORGREAL ACRORGIMAG BATSOH ICTEMPMAX "
              "ICTEMPMIN BATVOL ACRCALREAL ACRCALIMAG ");
    EXPECT_EQ(events[0]["fields"][5]["value"][0].asInt(), 70);
    EXPECT_EQ(events[1]["fields"].size(), 12u);
    EXPECT_EQ(events[1]["fields"][5]["value"].asInt(), 120);  // DCRORG

    dev.Write("/bms/unavailable", "");  // the record is still kept
    ASSERT_TRUE(Process(eis, kAcrNode, dcr, true));
    EXPECT_TRUE(dev.HasLog("acr big data report failed in noraml mode\n"));
    EXPECT_EQ(dev.Read(EisNodes::kDcrLogFile).size(), 3 * sizeof(DcrRecord));
}

TEST_F(EisTest, DamagedLogIsNeverAppendedTo) {
    EISEstimator eis("EIS");
    dev.Write(EisNodes::kAcrLogFile, std::string(300, 'x'));
    dev.Write(kAcrNode, Bytes(SampleAcr()));
    AcrInfo acr;
    EXPECT_FALSE(Process(eis, kAcrNode, acr));
    EXPECT_TRUE(dev.HasLog("/log/soh/acr.dat size:300 incorrect\n"));
    EXPECT_TRUE(dev.HasLog("big data record failed\n"));
    EXPECT_EQ(dev.Read(EisNodes::kAcrLogFile), std::string(300, 'x'));
}

TEST_F(EisTest, ShortWriteIsTruncatedBack) {
    EISEstimator eis("EIS");
    dev.Write(EisNodes::kAcrLogFile, std::string(sizeof(AcrRecord), '\0'));
    dev.Write(kAcrNode, Bytes(SampleAcr()));
    signal(SIGXFSZ, SIG_IGN);
    struct rlimit old {};
    getrlimit(RLIMIT_FSIZE, &old);
    struct rlimit small = {sizeof(AcrRecord) + 100, old.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    AcrInfo acr;
    bool ok = Process(eis, kAcrNode, acr);
    setrlimit(RLIMIT_FSIZE, &old);
    EXPECT_FALSE(ok);
    EXPECT_TRUE(dev.HasLog("write /log/soh/acr.dat failed: 100@212\n"));
    EXPECT_EQ(dev.Read(EisNodes::kAcrLogFile).size(), sizeof(AcrRecord));
}

// A record log planted as a link is neither appended to nor cut: the file it names stays.
TEST_F(EisTest, ALogThatIsALinkIsNotFollowed) {
    dev.Write("/data/elsewhere", std::string(sizeof(AcrRecord) + 3, 'e'));
    ASSERT_EQ(symlink(dev.HostPath("/data/elsewhere").c_str(),
                      dev.HostPath(EisNodes::kAcrLogFile).c_str()),
              0);
    EXPECT_EQ(EisInfo::CutTornTail(EisNodes::kAcrLogFile, sizeof(AcrRecord)), -1);
    EISEstimator eis("EIS");
    dev.Write(kAcrNode, Bytes(SampleAcr()));
    AcrInfo acr;
    EXPECT_FALSE(Process(eis, kAcrNode, acr));
    EXPECT_EQ(dev.Read("/data/elsewhere"), std::string(sizeof(AcrRecord) + 3, 'e'));
}

// Appends from several monitor threads land as whole records, none lost or interleaved.
TEST_F(EisTest, ConcurrentAppendsStayWholeRecords) {
    struct Appender : AcrInfo {
        using EisInfo::RecordBigdata;
    };
    constexpr int kThreads = 8;
    constexpr int kEach = 50;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            Appender a;
            std::string record(sizeof(AcrRecord), static_cast<char>('a' + t));
            for (int i = 0; i < kEach; ++i) {
                EXPECT_TRUE(a.RecordBigdata(record.data(), record.size()));
            }
        });
    }
    for (std::thread& t : threads) {
        t.join();
    }
    const std::string log = dev.Read(EisNodes::kAcrLogFile);
    ASSERT_EQ(log.size(), sizeof(AcrRecord) * kThreads * kEach);
    int perThread[kThreads] = {};
    for (size_t at = 0; at < log.size(); at += sizeof(AcrRecord)) {
        const std::string record = log.substr(at, sizeof(AcrRecord));
        ASSERT_EQ(record, std::string(sizeof(AcrRecord), record[0])) << "torn at " << at;
        ++perThread[record[0] - 'a'];
    }
    for (int n : perThread) {
        EXPECT_EQ(n, kEach);
    }
}

// A record log left torn (a crash mid-write) is cut back to whole records when the monitors
// start, so that appends go on; whole or missing logs are left alone.
TEST_F(EisTest, ATornTailIsCutBackAtStart) {
    const std::string acr(2 * sizeof(AcrRecord), 'r');
    dev.Write(EisNodes::kAcrLogFile, acr + "torn");
    dev.Write(EisNodes::kDcrLogFile, std::string(sizeof(DcrRecord), 'd'));
    EstimatorPool().Register("EIS", [](const char* n) { return new EISEstimator(n); });
    auto* eis = static_cast<EISEstimator*>(EstimatorPool().GetObjectByName("EIS"));
    ASSERT_GT(eis->MonitorCount(), 0u);
    eis->StartMonitor();
    EXPECT_EQ(dev.Read(EisNodes::kAcrLogFile), acr);
    EXPECT_TRUE(dev.HasLog("/log/soh/acr.dat had a torn tail: cut from 428 to 424 bytes\n"));
    EXPECT_EQ(dev.Read(EisNodes::kDcrLogFile).size(), sizeof(DcrRecord));
    EXPECT_EQ(dev.CountLogContaining("torn tail"), 1);

    dev.Remove(EisNodes::kDcrLogFile);
    EXPECT_EQ(EisInfo::CutTornTail(EisNodes::kDcrLogFile, sizeof(DcrRecord)), 0);
    EXPECT_FALSE(dev.Exists(EisNodes::kDcrLogFile));
}

TEST_F(EisTest, HistoryVersionAndHashRules) {
    EISEstimator eis("EISHIST");
    EXPECT_EQ(eis.Version(), 2005u);
    Eis::HistoryData noHash = Sealed(2005);
    noHash.clear_hash();
    Eis::HistoryData badHash = Sealed(2005);
    badHash.set_name("other");  // changed after sealing
    struct Case {
        const char* what;
        std::string file;  // empty: no file
        bool ok;
        const char* log;
    };
    for (const Case& c : {
             Case{"older minor version", Stored(Sealed(2001)), true, nullptr},
             Case{"same version", Stored(Sealed(2005)), true, nullptr},
             Case{"other major version", Stored(Sealed(3001)), false,
                  "transform version 3001 -> 2005 failed\n"},
             Case{"no hash", Stored(noHash), false, "hash verified failed, no hash\n"},
             Case{"wrong hash", Stored(badHash), false, "hash unmatch\n"},
             Case{"garbage", "\x0a\xff\xff", false, "can't parse from /log/soh/eis\n"},
             Case{"missing", "", false, "can't open /log/soh/eis in GetHistData\n"},
         }) {
        if (c.file.empty()) {
            dev.Remove(EisNodes::kHistFile);
        } else {
            dev.Write(EisNodes::kHistFile, c.file);
        }
        Eis::HistoryData hist;
        EXPECT_EQ(eis.GetHistData(hist), c.ok) << c.what;
        EXPECT_EQ(hist.version(), 2005u) << c.what;
        EXPECT_EQ(hist.raw_size(), c.ok ? 1 : 0) << c.what;
        if (c.log != nullptr) {
            EXPECT_TRUE(dev.HasLog(c.log)) << c.what;
        }
    }
    dev.Write(EisNodes::kHistFile, Stored(Sealed(2005)));
    dev.Write(kBatteryRemovedNode, "1");
    Eis::HistoryData hist;
    EXPECT_FALSE(eis.GetHistData(hist));
    EXPECT_FALSE(dev.Exists(EisNodes::kHistFile));
    EXPECT_EQ(dev.Read(EisNodes::kHistBackFile), Stored(Sealed(2005)));
}

TEST_F(EisTest, DigestIsComparedUpToItsFirstZeroByte) {
    // Find a history whose digest has a zero byte among its first four.
    Eis::HistoryData hist;
    unsigned char digest[SHA256_DIGEST_LENGTH] = {};
    size_t zeroAt = SHA256_DIGEST_LENGTH;
    for (int i = 0; zeroAt >= 4 && i < 100000; ++i) {
        hist = Sealed(2005, "cell" + std::to_string(i));
        hist.clear_hash();
        std::string bytes = Stored(hist);
        SHA256(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), digest);
        zeroAt = std::find(digest, digest + 4, 0) - digest;
    }
    ASSERT_LT(zeroAt, 4u);
    EISEstimator eis("EISHIST");
    hist.set_hash(std::string(reinterpret_cast<char*>(digest), zeroAt));
    dev.Write(EisNodes::kHistFile, Stored(hist));
    Eis::HistoryData loaded;
    EXPECT_TRUE(eis.GetHistData(loaded));
    hist.set_hash(std::string(reinterpret_cast<char*>(digest), sizeof(digest)));
    dev.Write(EisNodes::kHistFile, Stored(hist));
    EXPECT_FALSE(eis.GetHistData(loaded));
    EXPECT_TRUE(dev.HasLog("hash unmatch\n"));
}

TEST_F(EisTest, HistoryPathEndsAtTheDefaultUnifier) {
    EISEstimator eis("EISHIST");
    dev.Write(EisNodes::kHistFile, Stored(Sealed(2005)));
    dev.Write(kAcrNode, Bytes(SampleAcr()));
    AcrInfo acr;
    EXPECT_FALSE(Process(eis, kAcrNode, acr));
    EXPECT_TRUE(dev.HasLog("Unifier0 unify and add raw datum failed\n"));
    EXPECT_TRUE(dev.HasLog("update unified data set failed in Processor\n"));
    dev.Write(kAcrNode, Bytes(SampleDcr()));
    DcrInfo dcr;
    EXPECT_FALSE(Process(eis, kAcrNode, dcr));
    EXPECT_TRUE(dev.HasLog("Unifier1 do not have type, new datum ignore to UnifySet\n"));
    EXPECT_FALSE(dev.Exists(EisNodes::kAcrLogFile));
    EXPECT_EQ(dev.Read(EisNodes::kHistFile), Stored(Sealed(2005)));  // never written

    Eis::RawDatum datum;
    acr.ToRawDatum(datum);
    EXPECT_EQ(datum.freq(), 1000);
    EXPECT_EQ(datum.temp(), 26u * 1000 + 273150);
    EXPECT_EQ(datum.magnitude(), 70u);
    EXPECT_TRUE(eis.JudgeStatus(PROCESSOR_DCR, Eis::HistoryData()));
    EXPECT_TRUE(dev.HasLog("Judge1 do not have type, no filter applied\n"));
}

// A node that cannot be armed (empty before the driver's first measurement) stays watched; a
// node that cannot be opened is retried on the back-off; only a closed scheme ends the
// monitors, and the run state stops with the last of them.
TEST_F(EisTest, MonitorsKeepUnarmedOrMissingNodesAndEndOnlyWhenClosed) {
    dev.Write("/sys/devices/platform/vorlan_batt_soh/eis/empty", "");
    for (const char* name : {"EISLIVE", "EISDEAD"}) {
        EstimatorPool().Register(name, [](const char* n) { return new EISEstimator(n); });
    }
    auto* live = static_cast<EISEstimator*>(EstimatorPool().GetObjectByName("EISLIVE"));
    EXPECT_EQ(live->MonitorCount(), 2u);  // "none" has no node that opens
    EXPECT_EQ(dev.CountLog("/sys/devices/platform/vorlan_batt_soh/eis/gone can't open\n"), 2);
    dev.Write(kDcrNode, "");  // the DCR monitor cannot arm its node
    live->StartMonitor();
    auto waitLog = [&](const std::string& line) {
        for (int i = 0; i < 5000 && !dev.HasLog(line); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return dev.HasLog(line);
    };
    EXPECT_TRUE(waitLog("poll start in dcr\n"));
    EXPECT_TRUE(waitLog("poll start in acr\n"));
    EXPECT_TRUE(dev.HasLog("fail read fd of " + std::string(kDcrNode) + " in dcr\n"));
    EXPECT_TRUE(dev.HasLog("1 byte read success form fd of " + std::string(kAcrNode) + "\n"));
    EXPECT_EQ(live->GetRunState(), "run");

    // Both nodes of EISDEAD vanish after start-up: each monitor retries its node on a timer.
    auto* dead = static_cast<EISEstimator*>(EstimatorPool().GetObjectByName("EISDEAD"));
    dev.Remove("/sys/devices/platform/vorlan_batt_soh/eis/empty");
    dead->StartMonitor();
    EXPECT_TRUE(waitLog("poll start in a\n"));
    EXPECT_TRUE(waitLog("poll start in b\n"));
    for (int i = 0; i < 3; ++i) {  // 1 + 2 + 4 s: three failed opens, two of them logged
        SohClockTest::Advance(4 * 1000000000LL);
    }
    EXPECT_TRUE(
        waitLog("/sys/devices/platform/vorlan_batt_soh/eis/empty in a cannot be opened: "
                "No such file or directory (2 times), retrying in 2 s\n"));
    EXPECT_EQ(dead->GetRunState(), "run");
    SOHConfigure::CloseScheme("EISDEAD");
    SohClockTest::Advance(16 * 1000000000LL);  // one step at most
    {
        std::unique_lock<std::mutex> l(EstimatorStateLock);  // as the supervisor waits
        EXPECT_TRUE(EstimatorStateChanged.wait_for(l, std::chrono::seconds(10),
                                                   [&] { return dead->GetRunState() == "stop"; }));
    }
    EXPECT_EQ(dead->GetRunState(), "stop");
    EXPECT_EQ(dev.CountLogContaining("was going to be terminaled"), 2);
    EXPECT_EQ(live->GetRunState(), "run");
}

}  // namespace
