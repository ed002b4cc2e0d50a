// Environment probes: the cached battery name, the three policy matchers and their
// configuration forms, the battery-change and subsystem nodes, UTC text and the working
// directory.
#include <sys/stat.h>

#include <cstring>
#include <string>

#include "core/soh_enviroment.h"
#include "core/soh_file.h"
#include "core/soh_log.h"
#include "platform/host/soh_clock_test.h"
#include "tests/support/fake_device.h"

namespace {

using EnviromentTest = FakeDeviceTest;

TEST_F(EnviromentTest, BatteryNameEndsAtFirstNonAlnumAndIsCachedOnceRead) {
    SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);  // mismatches are informative
    std::string out = "pre:";
    EXPECT_FALSE(SOHEnviroment::GetBatteryType(out));
    EXPECT_EQ(out, "pre:");
    EXPECT_TRUE(dev.HasLog(std::string("Open file(") + kBatteryBrandNode + ") failed\n"));

    // A failed read is not cached: the next call reads the node.
    dev.Write(kBatteryBrandNode, "Sun0wd-01\n");
    EXPECT_TRUE(SOHEnviroment::GetBatteryType(out));
    EXPECT_EQ(out, "pre:Sun0wd");

    // Once read, the name is served from the cache with its case kept.
    dev.Write(kBatteryBrandNode, "Other\n");
    char buf[SOHEnviroment::kBatteryNameSize];
    memset(buf, 'z', sizeof(buf));
    EXPECT_TRUE(SOHEnviroment::GetBatteryType(buf, sizeof(buf)));
    EXPECT_STREQ(buf, "Sun0wd");

    // Matching ignores case and compares the end of the name.
    EXPECT_TRUE(SOHEnviroment::MatchBatteryModel("abc,0WD"));
    EXPECT_FALSE(SOHEnviroment::MatchBatteryModel("sun,xSun0wd"));
    EXPECT_TRUE(dev.HasLog("battery model mismatch SUN0WD:sun,xSun0wd\n"));
    // A stray comma adds no empty item (which would match every name).
    EXPECT_FALSE(SOHEnviroment::MatchBatteryModel("xyz,,"));
}

TEST_F(EnviromentTest, WildcardNeedsExactSpellingAndAFullLengthNameMatchesNoList) {
    SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
    EXPECT_TRUE(SOHEnviroment::MatchBatteryModel("ALL"));  // brand node missing
    EXPECT_TRUE(dev.HasLog("battery policy match all model\n"));
    EXPECT_FALSE(SOHEnviroment::MatchBatteryModel("All"));  // compared as a name
    EXPECT_EQ(dev.CountLog("read battery name error\n"), 1);
    EXPECT_TRUE(SOHEnviroment::MatchCountry("all"));
    EXPECT_TRUE(SOHEnviroment::MatchProduct(""));
    EXPECT_TRUE(dev.HasLog("battery policy match all product\n"));

    // A longer name is cut at 31 characters; those do not fit the matcher's 32-byte buffer.
    const std::string name31(31, 'A');
    dev.Write(kBatteryBrandNode, name31 + "BCDEF\n");
    std::string out;
    EXPECT_TRUE(SOHEnviroment::GetBatteryType(out));
    EXPECT_EQ(out, name31);
    char buf[SOHEnviroment::kBatteryNameSize] = {};
    EXPECT_FALSE(SOHEnviroment::GetBatteryType(buf, sizeof(buf)));
    EXPECT_FALSE(SOHEnviroment::MatchBatteryModel("AA"));
    EXPECT_EQ(dev.CountLog("read battery name error\n"), 2);
    EXPECT_TRUE(SOHEnviroment::MatchBatteryModel("all"));
}

TEST_F(EnviromentTest, CountryComparesWholeRegionAndProductComparesBoardPrefix) {
    SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
    dev.SetProperty("ro.product.locale.region", "cn");
    dev.SetProperty("ro.product.board", "kona2");
    EXPECT_TRUE(SOHEnviroment::MatchCountry("us,CN"));
    EXPECT_FALSE(SOHEnviroment::MatchCountry("C,CNN"));
    EXPECT_TRUE(dev.HasLog("battery country mismatch CN:C,CNN\n"));

    EXPECT_TRUE(SOHEnviroment::MatchProduct("abc,KON"));
    EXPECT_FALSE(SOHEnviroment::MatchProduct("ona2,kona22"));
    EXPECT_TRUE(dev.HasLog("battery policy of product mismatch KONA2:ona2,kona22\n"));

    // An unset board fails quietly; an unset region matches no item.
    dev.Remove("/properties/ro.product.board");
    dev.Remove("/properties/ro.product.locale.region");
    dev.ClearLogs();
    EXPECT_FALSE(SOHEnviroment::MatchProduct("KON"));
    EXPECT_TRUE(dev.Logs().empty());
    EXPECT_FALSE(SOHEnviroment::MatchCountry("CN"));
}

TEST_F(EnviromentTest, PolicyValuesApplyWhenAbsentOrMatchingStringsOnly) {
    SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
    dev.SetProperty("ro.product.locale.region", "DE");
    dev.SetProperty("ro.product.board", "board7");
    dev.Write(kBatteryBrandNode, "xyQ12\n");
    auto applies = [](const Json::Value& e) {
        return SOHEnviroment::MatchProductCfg(e["Product"]) &&
               SOHEnviroment::MatchCountryCfg(e["Country"]) &&
               SOHEnviroment::MatchBatteryModelCfg(e["Model"]);
    };
    Json::Value entry;
    entry["Product"] = "BOARD";
    entry["Model"] = "q12";
    EXPECT_TRUE(applies(entry));  // no "Country": every country
    EXPECT_TRUE(dev.HasLog("battery policy configure is applied to all model\n"));
    entry["Country"] = "fr,de";
    EXPECT_TRUE(applies(entry));
    entry["Country"] = "fr";
    EXPECT_FALSE(applies(entry));

    dev.ClearLogs();
    entry["Country"] = 49;
    EXPECT_FALSE(applies(entry));
    entry["Country"] = Json::Value(Json::arrayValue);
    entry["Country"].append("DE");
    EXPECT_FALSE(applies(entry));
    EXPECT_EQ(dev.CountLog("battery policy matchable type error\n"), 2);
    EXPECT_EQ(dev.Logs().back().prio, 6);
}

TEST_F(EnviromentTest, KernelNodesForBatteryChangeAndSubsystemSwitch) {
    EXPECT_FALSE(SOHEnviroment::IsBatteryChanged());  // node missing
    dev.Write(kBatteryRemovedNode, "0\n");
    EXPECT_FALSE(SOHEnviroment::IsBatteryChanged());
    dev.Write(kBatteryRemovedNode, "1\n");
    EXPECT_TRUE(SOHEnviroment::IsBatteryChanged());

    EXPECT_FALSE(SOHEnviroment::IsSohSubSysEnable("cfsd"));
    EXPECT_TRUE(dev.HasLog("read battery soh subsys node failed\n"));
    dev.Write(kSohSubSysNode, "cfsd,,basp,eis");
    EXPECT_TRUE(SOHEnviroment::IsSohSubSysEnable("basp"));
    EXPECT_TRUE(SOHEnviroment::IsSohSubSysEnable("eis"));
    EXPECT_FALSE(SOHEnviroment::IsSohSubSysEnable("bas"));
    EXPECT_TRUE(dev.HasLog("battery soh bas subsys driver is not in cfsd,,basp,eis\n"));
    EXPECT_FALSE(SOHEnviroment::IsSohSubSysEnable("CFSD"));
    dev.Write(kSohSubSysNode, "asw,cvt\n");  // the line end does not belong to the last key
    EXPECT_TRUE(SOHEnviroment::IsSohSubSysEnable("cvt"));
    dev.ClearLogs();
    EXPECT_FALSE(SOHEnviroment::IsSohSubSysEnable(""));
    EXPECT_TRUE(dev.Logs().empty());
}

TEST_F(EnviromentTest, UtcTextComesFromTheClockAndMustFit) {
    SohClockTest::SetManual(1700000000LL * 1000000000LL);
    char buf[32];
    ASSERT_TRUE(SOHEnviroment::GetGmtimeCstr(buf, sizeof(buf), "%Y-%m-%d %H:%M:%S"));
    EXPECT_STREQ(buf, "2023-11-14 22:13:20");
    EXPECT_FALSE(SOHEnviroment::GetGmtimeCstr(buf, 5, "%Y-%m-%d"));
    EXPECT_TRUE(dev.HasLog("get UTC time to cstr len:5 with format:%Y-%m-%d failed\n"));
}

TEST_F(EnviromentTest, WorkingDirectoryIsCreatedOrStartupGivesUp) {
    // No "/log" at all: every one of the 100 attempts fails to create the directory.
    EXPECT_FALSE(SOHEnviroment::Prepare());
    EXPECT_EQ(dev.CountLog("open dir /log/soh failed: No such file or directory\n"), 100);
    EXPECT_EQ(dev.CountLog("create dir /log/soh failed: No such file or directory\n"), 100);

    dev.MakeDir("/log");
    dev.ClearLogs();
    mode_t old = umask(0);
    EXPECT_TRUE(SOHEnviroment::Prepare());
    umask(old);
    struct stat st {};
    ASSERT_EQ(SohFile::Stat(kSohDir, st), 0);
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    EXPECT_EQ(st.st_mode & 0777, 0770u);
    EXPECT_TRUE(SOHEnviroment::CheckSohDir());  // present: nothing more logged
    EXPECT_EQ(dev.Logs().size(), 1u);

    // A file in the directory's place is not usable and is left alone.
    dev.Remove(kSohDir);
    dev.Write(kSohDir, "x");
    EXPECT_FALSE(SOHEnviroment::CheckSohDir());
    EXPECT_EQ(dev.Read(kSohDir), "x");
}

}  // namespace
