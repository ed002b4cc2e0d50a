// The service's state dump: which limit, from whom, since when, in text and JSON; the dump
// transaction's path through the service; and many dumps at once while demands change.
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <sstream>
#include <thread>
#include <vector>

#include "core/soh_estimator.h"
#include "core/soh_log.h"
#include "daemon/soh_declare.h"
#include "platform/host/binder_client.h"
#include "platform/host/soh_clock_test.h"
#include "service/soh_dump.h"
#include "service/soh_dump_format.h"
#include "service/soh_service.h"
#include "tests/support/fake_device.h"

namespace {

using android::Parcel;
using android::status_t;

constexpr int64_t kSec = 1000000000LL;
constexpr int64_t kT0 = 1700000000;  // 2023-11-14 22:13:20 UTC

class DiagDumpTest : public FakeDeviceTest {
protected:
    void SetUp() override {
        setenv("TZ", "UTC", 1);
        tzset();
        dev.CopyTree("examples/device");
        SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
    }
    void StartService() {
        DeclearEstimators();
        DeclearProtectors();
        for (const char* name : {"APP", "BASP", "ASW"}) {
            ASSERT_NE(EstimatorPool().GetObjectByName(name), nullptr) << name;
        }
        SohService::Start();
    }
    SOHEstimator* Est(const char* name) { return EstimatorPool().FindObject(name); }
    // Runs the dump transaction with `args` on `client` (a new connection when null) and
    // returns what the service wrote into the descriptor.
    std::string Dump(const std::vector<std::string>& args, status_t* status,
                     BinderClient* client = nullptr, int fd = -1) {
        BinderClient own(dev.HostPath("/dev/socket/soh.service"));
        if (client == nullptr) {
            client = &own;
            if (!own.Connect(nullptr)) {
                *status = android::DEAD_OBJECT;
                return "";
            }
        }
        Parcel data, reply;
        data.writeInt32(static_cast<int32_t>(args.size()));
        for (const std::string& a : args) {
            data.writeString16(android::String16(a.c_str()));
        }
        FILE* out = tmpfile();
        *status = client->Transact(android::IBinder::DUMP_TRANSACTION, data, &reply, 0,
                                   fd >= 0 ? fd : fileno(out));
        std::string text;
        rewind(out);
        char buf[4096];
        for (size_t n; (n = fread(buf, 1, sizeof(buf), out)) > 0;) {
            text.append(buf, n);
        }
        fclose(out);
        return text;
    }
    static Json::Value Parse(const std::string& text) {
        Json::Value root;
        std::istringstream in(text);
        std::string errors;
        EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), in, &root, &errors))
            << errors << text;
        return root;
    }
    static Json::Value ProtectorOf(const Json::Value& dump, const std::string& name) {
        for (const Json::Value& p : dump["protectors"]) {
            if (p["name"].asString() == name) {
                return p;
            }
        }
        ADD_FAILURE() << "no protector " << name;
        return Json::Value();
    }
};

TEST_F(DiagDumpTest, AnswersWhichLimitFromWhomSinceWhen) {
    SohClockTest::SetManual(kT0 * kSec);
    StartService();
    SOHEstimator* app = Est("APP");
    SOHEstimator* basp = Est("BASP");
    ASSERT_EQ(app->SetPara("ichg_limit", "all 1500"), 0);
    basp->NotifyOne("NonDcCurLimitator", 2000);
    SohClockTest::Advance(90 * kSec);
    basp->NotifyOne("NonDcCurLimitator", 1500);  // a tie: the earlier name keeps it, no change
    ASSERT_EQ(app->SetPara("soc_control", "2 80 60"), 0);

    status_t st = android::UNKNOWN_ERROR;
    std::string text = Dump({}, &st);
    ASSERT_EQ(st, android::OK);
    EXPECT_NE(text.find("quen state at 2023-11-14 22:14:50 +0000\n"), std::string::npos) << text;
    EXPECT_NE(text.find("configuration: /odm/etc/power/quen.json, version "), std::string::npos);
    EXPECT_NE(text.find("  NonDcCurLimitator   1500  from APP  since 2023-11-14 22:13:20 +0000 "
                        "(90 s ago)\n    APP   1500  <- in force\n    BASP  1500\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("  SocLimitator        SOC 60..80 %, type 2  from APP  since "
                        "2023-11-14 22:14:50 +0000 (0 s ago)\n    APP  Type 2 Enable 1 LowSoc 60 "
                        "HighSoc 80 SmartChgSign 1 ShutDownSign 0 Force 0 Iin 0  <- in force\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("  STOP_CHARGE         no demand yet\n"), std::string::npos);
    EXPECT_NE(text.find("  NonDcCurLimitator  0 s  (default in 2460 s)\n"), std::string::npos);
    // The dump code goes through the service's own routing first, as before.
    EXPECT_TRUE(dev.HasLog("soh service recv invalid code :" +
                           std::to_string(android::IBinder::DUMP_TRANSACTION) + "\n"));

    // APP lets go: BASP's equal demand takes over without a new value; "since" moves.
    SohClockTest::Advance(60 * kSec);
    ASSERT_EQ(app->SetPara("ichg_limit", "all 3000"), 0);
    Json::Value dump = Parse(Dump({"--json"}, &st));
    ASSERT_EQ(st, android::OK);
    EXPECT_EQ(dump["time"].asInt64(), kT0 + 150);
    Json::Value cur = ProtectorOf(dump, "NonDcCurLimitator");
    EXPECT_EQ(cur["winner"].asString(), "BASP");
    EXPECT_EQ(cur["value"].asDouble(), 1500);
    EXPECT_EQ(cur["changed_at"].asInt64(), kT0 + 150);
    EXPECT_EQ(cur["demands"]["APP"].asDouble(), 3000);
    EXPECT_EQ(cur["demands"]["BASP"].asDouble(), 1500);
    Json::Value soc = ProtectorOf(dump, "SocLimitator");
    EXPECT_EQ(soc["winner"].asString(), "APP");
    EXPECT_EQ(soc["strategies"]["APP"]["HighSoc"].asDouble(), 80);
    EXPECT_TRUE(ProtectorOf(dump, "STOP_CHARGE")["changed_at"].isNull());
    EXPECT_EQ(dump["configuration"]["path"].asString(), "/odm/etc/power/quen.json");
    EXPECT_EQ(dump["estimators"].size(), 3u);  // the three looked up so far
    EXPECT_EQ(dump["heartbeats"].size(), 2u);  // NonDcCurLimitator and SocLimitator
    EXPECT_EQ(dump["heartbeats"][0]["limitator"].asString(), "NonDcCurLimitator");
}

TEST_F(DiagDumpTest, ClosedReaderAndMissingDescriptorAreStatusesNotCrashes) {
    StartService();
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    close(fds[0]);  // nobody will read: the write fails with EPIPE, no SIGPIPE kills us
    status_t st = android::OK;
    Dump({}, &st, nullptr, fds[1]);
    close(fds[1]);
    EXPECT_EQ(st, -EPIPE);

    BinderClient client(dev.HostPath("/dev/socket/soh.service"));
    ASSERT_TRUE(client.Connect(nullptr));
    Parcel data, reply;
    data.writeInt32(0);
    EXPECT_EQ(client.Transact(android::IBinder::DUMP_TRANSACTION, data, &reply),
              android::BAD_VALUE);  // no descriptor came with it
    // Unknown arguments are ignored; the same connection still serves.
    std::string text = Dump({"--verbose"}, &st, &client);
    EXPECT_EQ(st, android::OK);
    EXPECT_EQ(text.rfind("quen state at ", 0), 0u);
}

TEST_F(DiagDumpTest, ConcurrentDumpsWhileDemandsChange) {
    StartService();
    SOHEstimator* basp = Est("BASP");
    SOHEstimator* asw = Est("ASW");
    SOHEstimator* app = Est("APP");
    std::atomic<bool> stop{false};
    std::atomic<int> bad{0};
    std::vector<std::thread> writers;
    writers.emplace_back([&] {
        for (int i = 0; !stop; ++i) {
            basp->NotifyOne("NonDcCurLimitator", 1000 + i % 50);
            basp->NotifyOne("DcVoltLimitator", i % 30);
        }
    });
    writers.emplace_back([&] {
        for (int i = 0; !stop; ++i) {
            asw->NotifySocStrategy(1, 70 + i % 20, 60, i % 2 == 0);
            asw->NotifyOne("NonDcVoltLimitator", i % 40);
        }
    });
    writers.emplace_back([&] {
        for (int i = 0; !stop; ++i) {  // through the pool's call lock, as a client would
            std::lock_guard<std::mutex> lock(EstimatorPool().CallLock());
            bad += app->SetPara("ichg_limit", "all " + std::to_string(1000 + i % 200)) != 0;
        }
    });
    std::vector<std::thread> readers;
    for (int t = 0; t < 4; ++t) {
        readers.emplace_back([&, t] {
            BinderClient client(dev.HostPath("/dev/socket/soh.service"));
            if (!client.Connect(nullptr)) {
                ++bad;
                return;
            }
            for (int i = 0; i < 25; ++i) {
                status_t st = android::UNKNOWN_ERROR;
                bool json = (i + t) % 2 == 0;
                std::string out =
                    Dump(json ? std::vector<std::string>{"--json"} : std::vector<std::string>{},
                         &st, &client);
                bad += st != android::OK;
                if (json) {
                    bad += Parse(out)["protectors"].size() != 7;
                } else {
                    bad += out.find("NonDcCurLimitator") == std::string::npos;
                }
            }
        });
    }
    readers.emplace_back([&] {  // in-process readers take the same locks
        for (int i = 0; i < 200; ++i) {
            bad += CollectDumpState().protectors.size() != 7;
        }
    });
    for (auto& r : readers) {
        r.join();
    }
    stop = true;
    for (auto& w : writers) {
        w.join();
    }
    EXPECT_EQ(bad.load(), 0);
    // The dump agrees with the node once things are quiet (four-digit demands only: the node
    // is written from its start and never truncated).
    status_t st = android::UNKNOWN_ERROR;
    Json::Value dump = Parse(Dump({"--json"}, &st));
    ASSERT_EQ(st, android::OK);
    Json::Value cur = ProtectorOf(dump, "NonDcCurLimitator");
    EXPECT_EQ(dev.Read("/sys/class/vn_power/interface/ichg_limit"),
              "quen all " + std::to_string(static_cast<int>(cur["value"].asDouble())));
}

TEST(DiagDumpFormatTest, RareStatesReadPlainly) {
    setenv("TZ", "UTC", 1);
    tzset();
    SohDumpState s;
    s.nowNs = kT0 * kSec;
    s.estimators.push_back({"CVT", "stop", true});
    ProtectorSnapshot stop;
    stop.name = "STOP_CHARGE";
    stop.value = 0.0;
    stop.winner = "ISCD";
    stop.changedAtNs = (kT0 - 3 * 86400 - 7200) * kSec;
    stop.demands = {{"ISCD", 0.0}, {"APP", -1.0}};
    ProtectorSnapshot soc;
    soc.name = "SocLimitator";
    soc.changedAtNs = (kT0 - 600) * kSec;
    soc.strategies["ASW"] = {{"Type", 1}, {"Enable", 0}, {"LowSoc", 100}, {"HighSoc", 100}};
    ProtectorSnapshot cur;
    cur.name = "DcCurLimitator";
    cur.value = 80.5;
    cur.winner = "BASP";
    cur.demands = {{"BASP", 80.5}};
    s.protectors = {stop, soc, cur};
    s.heartbeats = {{"DcCurLimitator", 2470}};
    s.heartbeatTimeout = 2460;

    std::string text = FormatDumpText(s);
    EXPECT_NE(text.find("configuration: none loaded\n"), std::string::npos);
    EXPECT_NE(text.find("  CVT  stop  (scheme closed)\n"), std::string::npos) << text;
    EXPECT_NE(text.find("  STOP_CHARGE     0 (charging allowed)  from ISCD  since 2023-11-11 "
                        "20:13:20 +0000 (3 d 2 h ago)\n    APP   -1\n    ISCD  0  <- in force\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("  SocLimitator    no SOC window in force  since 2023-11-14 22:03:20 "
                        "+0000 (10 min ago)\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("  DcCurLimitator  80.500  from BASP\n"), std::string::npos) << text;
    EXPECT_NE(text.find("DcCurLimitator  2470 s  timed out"), std::string::npos) << text;
    EXPECT_TRUE(DumpWantsJson({"-a", "--json"}));
    EXPECT_FALSE(DumpWantsJson({"json"}));
}

}  // namespace
