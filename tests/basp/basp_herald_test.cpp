// The persistent record: loading, level run time, the FCC ring, and the weekly report.
#include <cstdio>
#include <utility>
#include <vector>

#include "basp/basp_herald.h"
#include "tests/basp/basp_test_util.h"

namespace {

using Fccs = std::vector<uint32_t>;

class HeraldTest : public BaspTest {
protected:
    // A herald loaded as the estimator loads it for every event.
    BaspHerald Loaded(const std::string& version = "2.0") {
        BaspHerald h("QBT41");
        h.Init(version);
        return h;
    }
    static Fccs Stamps(const BaspHerald& h) {
        Fccs out;
        for (const auto& r : h.Db().records()) {
            out.push_back(r.timestamp());
        }
        return out;
    }
};

TEST_F(HeraldTest, FccRingFollowsTheKernelSamples) {
    BaspHerald h = Loaded();
    EXPECT_FALSE(h.RefFccs({}));  // nothing stored, nothing given
    EXPECT_TRUE(h.RefFccs({1, 2}));
    SetTime(kT0 + 10);
    EXPECT_FALSE(h.RefFccs({1, 2}));
    EXPECT_TRUE(h.RefFccs({1, 2, 3}));  // one more: appended
    EXPECT_EQ(Stamps(h), (Fccs{kT0, kT0, kT0 + 10}));
    EXPECT_TRUE(dev.HasLog("herald: push new record\n"));
    EXPECT_TRUE(h.RefFccs({1, 2, 3, 4}));
    EXPECT_TRUE(h.RefFccs({1, 2, 3, 4, 5}));
    EXPECT_EQ(h.Db().pos(), 0u);

    SetTime(kT0 + 20);
    EXPECT_TRUE(h.RefFccs({2, 3, 4, 5, 6}));  // shifted by one: 6 replaces the oldest
    EXPECT_EQ(h.StoredFccs(), (Fccs{2, 3, 4, 5, 6}));
    EXPECT_EQ(h.Db().records(0).fcc(), 6u);
    EXPECT_EQ(h.Db().pos(), 1u);
    EXPECT_TRUE(dev.HasLog("herald: cover old record\n"));
    EXPECT_TRUE(h.RefFccs({3, 4, 5, 6, 7}));
    EXPECT_EQ(h.Db().pos(), 2u);

    SetTime(kT0 + 30);
    EXPECT_TRUE(h.RefFccs({9, 4, 5, 6, 7}));  // not a shift: all replaced, stamped now
    EXPECT_EQ(h.StoredFccs(), (Fccs{9, 4, 5, 6, 7}));
    EXPECT_EQ(Stamps(h), Fccs(5, kT0 + 30));
    EXPECT_TRUE(dev.HasLog("herald: records is full but fcc is not same\n"));

    EXPECT_TRUE(h.RefFccs({9, 4, 5}));  // two fewer
    EXPECT_TRUE(dev.HasLog("herald: size is wrong 3 5\n"));
    EXPECT_TRUE(h.RefFccs({9, 4, 8}));
    EXPECT_TRUE(dev.HasLog("herald: size is 3 but value is not same\n"));
    EXPECT_TRUE(h.RefFccs({1, 4, 8, 2}));
    EXPECT_TRUE(dev.HasLog("herald: size is 4 but fcc is disaccord\n"));
    EXPECT_EQ(h.StoredFccs(), (Fccs{1, 4, 8, 2}));
    EXPECT_FALSE(h.RefFccs({}));  // cleared, but only saved with the next change
    EXPECT_EQ(h.Db().records_size(), 0);
}

TEST_F(HeraldTest, RunTimeIsBookedToThePreviousLevel) {
    BaspHerald h = Loaded();
    EXPECT_FALSE(h.RefLevelRunTime(0));
    EXPECT_TRUE(h.RefLevelRunTime(2));  // only stamps the time
    EXPECT_EQ(h.Db().stages_size(), 0);
    SetTime(kT0 + 500);
    EXPECT_TRUE(h.RefLevelRunTime(3));
    SetTime(kT0 + 800);
    EXPECT_TRUE(h.RefLevelRunTime(2));
    SetTime(kT0 + 1000);
    EXPECT_TRUE(h.RefLevelRunTime(2));
    ASSERT_EQ(h.Db().stages_size(), 2);
    EXPECT_EQ(h.Db().stages(0).level(), 2u);
    EXPECT_EQ(h.Db().stages(0).seconds(), 700u);
    EXPECT_EQ(h.Db().stages(1).seconds(), 300u);
    SetTime(kT0);  // the clock went back: nothing booked
    EXPECT_TRUE(h.RefLevelRunTime(2));
    EXPECT_EQ(h.Db().stages(0).seconds(), 700u);
    EXPECT_EQ(h.Db().timestamp(), kT0);
    EXPECT_TRUE(dev.HasLog("herald: last 1700001000 > now 1700000000, just refresh timestamp\n"));
}

TEST_F(HeraldTest, LoadKeepsOnlyARecordOfTheSameVersionAndBattery) {
    BaspHerald saved = Loaded();
    saved.RefFccs({1, 2, 3});
    saved.RefLevelRunTime(1);
    saved.SavePolicyRec({kT0, 20000, 10});
    saved.SaveDb();
    PolicyRecType rec;
    Loaded().GetPolicyRec(rec);
    EXPECT_EQ(rec.ndcVdecUV, 20000u);
    EXPECT_EQ(Loaded().StoredFccs(), (Fccs{1, 2, 3}));

    EXPECT_EQ(Loaded("2.1").Db().records_size(), 0);
    EXPECT_TRUE(dev.HasLog("herald: basp version change 2.0:2.1\n"));

    const std::string good = dev.Read(DbPath());
    for (const std::string& bad : {good.substr(0, good.size() - 3), std::string("garbage\xff")}) {
        dev.Write(DbPath(), bad);
        BaspHerald h = Loaded();
        EXPECT_EQ(h.Db().version(), "2.0");
        EXPECT_EQ(h.Db().records_size(), 0);
        EXPECT_EQ(h.Db().realpolicyrecs_size(), 0);
    }
    EXPECT_EQ(dev.CountLog("herald: parse basp data from file failed\n"), 2);
    // A well-formed record beyond 64 KiB is not ours either: it is not read into memory.
    BaspDb huge;
    huge.set_version("2.0");
    for (uint32_t level = 0; huge.ByteSizeLong() <= 64 * 1024; ++level) {
        huge.add_stages()->set_level(level);
    }
    StoreDb(huge);
    EXPECT_EQ(Loaded().Db().stages_size(), 0);
    EXPECT_EQ(dev.CountLog("herald: parse basp data from file failed\n"), 3);

    dev.Write(DbPath(), good);
    BaspDb small = StoredDb();  // well formed, but a ring of three
    small.set_mnum(3);
    StoreDb(small);
    BaspHerald h = Loaded();
    EXPECT_EQ(h.Db().mnum(), 5u);
    EXPECT_EQ(h.Db().records_size(), 0);
    EXPECT_EQ(h.Db().stages_size(), 0);  // level 1 has not been booked yet
    EXPECT_EQ(h.Db().level(), 1u);
    EXPECT_TRUE(dev.HasLog("herald: max records change mnum:3, size:3\n"));
    // A ring of the right capacity whose position does not fit its records is not read in a
    // wrong age order either: it starts afresh too.
    BaspDb skewed = small;
    skewed.set_mnum(5);
    skewed.set_pos(7);
    StoreDb(skewed);
    EXPECT_EQ(Loaded().Db().records_size(), 0);
    EXPECT_TRUE(dev.HasLog("herald: max records change mnum:5, size:3\n"));

    dev.Write("/sys/devices/platform/vorlan_batt_soh/quen_battery_removed", "1");
    EXPECT_EQ(Loaded().Db().level(), 0u);
    EXPECT_FALSE(dev.Exists(DbPath()));
    EXPECT_TRUE(dev.HasLog("herald: battery moved clear basp db file(0)\n"));
}

TEST_F(HeraldTest, WeeklyReportCarriesTheKernelRecordAndTheNewestCapacities) {
    BaspHerald h = Loaded("2.5");
    h.Update(0, {4100, 4050});
    SetTime(kT0 + 3600);
    h.Update(2, {4100, 4050, 4000});
    ASSERT_EQ(dev.BigData().size(), 1u);  // the first event reports at once, then weekly
    SetTime(kT0 + BaspHerald::kReportPeriod - 1);
    h.Update(2, {4100, 4050, 4000});
    EXPECT_EQ(dev.BigData().size(), 1u);
    SetTime(kT0 + BaspHerald::kReportPeriod);
    h.Update(3, {4100, 4050, 4000});
    const std::vector<Json::Value> events = dev.BigData();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[1]["id"].asUInt(), BaspHerald::kReportEventId);
    const char* expected[][2] = {
        {"ActDays", "0"},
        {"BatCap", "4500"},
        {"BatTVSet", "4450"},
        {"BatCyc", "520"},
        {"BaspLv", "3"},
        {"Basp1Days", "0"},
        {"Basp2Days", "6"},
        {"Basp3Days", "0"},
        {"Basp4Days", "0"},
        {"Qmax", "4600"},
        {"FGFcc1", "4000"},
        {"FGFcc2", "4050"},
        {"FGFcc3", "4100"},
        {"BatMan", "KELDR-041"},
        {"BatMod", "041"},
        {"BatParF", "QBT41-02"},
        {"ChaICTp", "2500"},
        {"HTime1", "2023-11-14 23:13:20"},
        {"HTime2", "2023-11-14 22:13:20"},
        {"HTime3", "2023-11-14 22:13:20"},
    };
    const Json::Value& fields = events[1]["fields"];
    ASSERT_EQ(fields.size(), sizeof(expected) / sizeof(expected[0]));
    for (Json::ArrayIndex i = 0; i < fields.size(); ++i) {
        EXPECT_EQ(fields[i]["key"].asString(), expected[i][0]);
        const Json::Value& v = fields[i]["value"];
        EXPECT_EQ(v.isString() ? v.asString() : std::to_string(v.asInt64()), expected[i][1])
            << expected[i][0];
    }
    EXPECT_EQ(fields[0]["type"].asString(), "long");
}

TEST_F(HeraldTest, FailedReportIsRetriedAtTheNextEvent) {
    const std::string herald = dev.Read(BaspNodes::kHeraldData);
    dev.Remove(BaspNodes::kHeraldData);
    dev.Remove(BaspNodes::kHeraldInterval);
    BaspHerald h = Loaded();
    EXPECT_TRUE(dev.HasLog("herald: used default interval 604800\n"));
    h.Update(1, {});
    EXPECT_TRUE(dev.HasLog("herald: read basp herald file failed\n"));
    dev.Write("/bms/unavailable", "");
    dev.Write(BaspNodes::kHeraldData, herald);
    h.Update(1, {});
    EXPECT_TRUE(dev.HasLog("herald: big data reporter is not available\n"));
    dev.Remove("/bms/unavailable");
    SetTime(kT0 + 1);
    h.Update(1, {});
    EXPECT_EQ(dev.BigData().size(), 1u);
}

TEST_F(HeraldTest, PolicyVersionIsReportedAsExactThousandths) {
    for (int i = 0; i < 1000; ++i) {  // every version with up to three decimals
        char version[16];
        snprintf(version, sizeof(version), "2.%03d", i);
        ASSERT_EQ(BaspHerald::VersionThousandths(version), 2000 + i) << version;
        if (i % 10 == 0) {
            snprintf(version, sizeof(version), "2.%02d", i / 10);
            ASSERT_EQ(BaspHerald::VersionThousandths(version), 2000 + i) << version;
        }
    }
    const std::pair<const char*, int> cases[] = {
        {"2", 2000},
        {"2.0abc", 2000},
        {"2.0009", 2000},
        {" 2.5", 2500},
        {"2.5e", 2500},
        {"2e9", 0},
        {"2.5e400", 0},
        {"2E-3", 0},
        {"abc", 0},
        {"", 0},
        {"-2", 0},
        {"2147483.647", 2147483647},
        {"2147484", 2147483647},
        {"99999999999999999999999", 2147483647},
    };
    for (const auto& [version, expected] : cases) {
        EXPECT_EQ(BaspHerald::VersionThousandths(version), expected) << version;
    }
    EXPECT_TRUE(dev.HasLog("herald: version 2e9 is not a plain decimal number, ChaICTp 0\n"));
    EXPECT_TRUE(dev.HasLog("herald: version 2147484 is too large, ChaICTp 2147483647\n"));
}

}  // namespace
