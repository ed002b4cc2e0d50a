// Environment probes: the cached battery name, the three policy matchers and their
// configuration forms, the battery-change and subsystem nodes, UTC text and the working
// directory.
#include <sys/stat.h>

#include <string>
#include <utility>

#include "core/soh_enviroment.h"
#include "core/soh_file.h"
#include "core/soh_log.h"
#include "platform/host/soh_clock_test.h"
#include "tests/support/fake_device.h"

namespace {

using EnviromentTest = FakeDeviceTest;
using Case = std::pair<const char*, bool>;  // a matcher's configuration and its result

TEST_F(EnviromentTest, BatteryNameEndsAtFirstNonAlnumAndIsCachedOnceRead) {
    SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);  // mismatches are informative
    std::string out = "pre:";
    EXPECT_FALSE(SOHEnviroment::GetBatteryType(out));
    EXPECT_EQ(out, "pre:");
    EXPECT_TRUE(dev.HasLog(std::string("Open file(") + kBatteryBrandNode + ") failed\n"));
    EXPECT_FALSE(SOHEnviroment::MatchBatteryModel("All"));  // no wildcard: a name to look for
    EXPECT_EQ(dev.CountLog("read battery name error\n"), 1);

    // A failed read is not cached: the next call reads the node.
    dev.Write(kBatteryBrandNode, "Sun0wd-01\n");
    EXPECT_TRUE(SOHEnviroment::GetBatteryType(out));
    EXPECT_EQ(out, "pre:Sun0wd");
    // Once read, the name is served from the cache with its case kept.
    dev.Write(kBatteryBrandNode, "Other\n");
    char buf[SOHEnviroment::kBatteryNameSize] = {};
    EXPECT_TRUE(SOHEnviroment::GetBatteryType(buf, sizeof(buf)));
    EXPECT_STREQ(buf, "Sun0wd");

    // Any item matching the end of the name, ignoring case; a stray comma is no empty item.
    for (const auto& [cfg, match] : {Case{"abc,0WD", true}, Case{"sun,xSun0wd", false},
                                     Case{"xyz,,", false}, Case{"all", true}}) {
        EXPECT_EQ(SOHEnviroment::MatchBatteryModel(cfg), match) << cfg;
    }
    EXPECT_TRUE(dev.HasLog("battery model mismatch SUN0WD:sun,xSun0wd\n"));
}

TEST_F(EnviromentTest, FullLengthBatteryNameMatchesNoList) {
    // A longer name is cut at 31 characters; those do not fit the matcher's 32-byte buffer.
    const std::string name31(31, 'A');
    dev.Write(kBatteryBrandNode, name31 + "BCDEF\n");
    std::string out;
    EXPECT_TRUE(SOHEnviroment::GetBatteryType(out));
    EXPECT_EQ(out, name31);
    char buf[SOHEnviroment::kBatteryNameSize] = {};
    EXPECT_FALSE(SOHEnviroment::GetBatteryType(buf, sizeof(buf)));
    EXPECT_FALSE(SOHEnviroment::MatchBatteryModel("AA"));
    EXPECT_EQ(dev.CountLog("read battery name error\n"), 1);
    EXPECT_TRUE(SOHEnviroment::MatchBatteryModel("ALL"));  // the wildcards need no name
}

TEST_F(EnviromentTest, CountryComparesWholeRegionAndProductComparesBoardPrefix) {
    EXPECT_FALSE(SOHEnviroment::MatchProduct("KON"));  // unset board: fails without an error
    EXPECT_FALSE(SOHEnviroment::MatchCountry("CN"));   // unset region: matches no item
    EXPECT_TRUE(dev.Logs().empty());
    SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
    dev.SetProperty("ro.product.locale.region", "cn");
    dev.SetProperty("ro.product.board", "kona2");
    for (const auto& [cfg, match] :
         {Case{"us,CN", true}, Case{"C,CNN", false}, Case{"all", true}, Case{"All", false}}) {
        EXPECT_EQ(SOHEnviroment::MatchCountry(cfg), match) << cfg;
    }
    EXPECT_TRUE(dev.HasLog("battery country mismatch CN:C,CNN\n"));
    for (const auto& [cfg, match] :
         {Case{"abc,KON", true}, Case{"ona2,kona22", false}, Case{"", true}, Case{"All", false}}) {
        EXPECT_EQ(SOHEnviroment::MatchProduct(cfg), match) << cfg;
    }
    EXPECT_TRUE(dev.HasLog("battery policy of product mismatch KONA2:ona2,kona22\n"));
    EXPECT_TRUE(dev.HasLog("battery policy match all product\n"));

    // Each configuration form reaches its own matcher; an absent value applies to all, a
    // value that is not a string to none.
    EXPECT_TRUE(SOHEnviroment::MatchProductCfg(Json::Value("KON")));
    EXPECT_FALSE(SOHEnviroment::MatchCountryCfg(Json::Value("KON")));
    EXPECT_TRUE(SOHEnviroment::MatchBatteryModelCfg(Json::Value("ALL")));
    EXPECT_TRUE(dev.HasLog("battery policy match all model\n"));
    EXPECT_TRUE(SOHEnviroment::MatchCountryCfg(Json::Value()));
    EXPECT_TRUE(dev.HasLog("battery policy configure is applied to all model\n"));
    EXPECT_FALSE(SOHEnviroment::MatchProductCfg(Json::Value(49)));
    EXPECT_TRUE(dev.HasLog("battery policy matchable type error\n"));
}

TEST_F(EnviromentTest, KernelNodesForBatteryChangeAndSubsystemSwitch) {
    EXPECT_FALSE(SOHEnviroment::IsBatteryChanged());  // node missing
    dev.Write(kBatteryRemovedNode, "0\n");
    EXPECT_FALSE(SOHEnviroment::IsBatteryChanged());
    dev.Write(kBatteryRemovedNode, "1\n");
    EXPECT_TRUE(SOHEnviroment::IsBatteryChanged());

    EXPECT_FALSE(SOHEnviroment::IsSohSubSysEnable("cfsd"));
    EXPECT_TRUE(dev.HasLog("read battery soh subsys node failed\n"));
    dev.Write(kSohSubSysNode, "cfsd,,basp,eis\n");  // the line end is not part of "eis"
    for (const auto& [key, on] : {Case{"basp", true}, Case{"eis", true}, Case{"bas", false},
                                  Case{"CFSD", false}, Case{"", false}}) {
        EXPECT_EQ(SOHEnviroment::IsSohSubSysEnable(key), on) << key;
    }
    EXPECT_TRUE(dev.HasLog("battery soh bas subsys driver is not in cfsd,,basp,eis\n"));
    EXPECT_EQ(dev.CountLogContaining("subsys driver is not in"), 2);  // none for the empty key
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
    mode_t old = umask(0);
    EXPECT_TRUE(SOHEnviroment::Prepare());
    umask(old);
    struct stat st {};
    ASSERT_EQ(SohFile::Stat(kSohDir, st), 0);
    EXPECT_EQ(st.st_mode, S_IFDIR | 0770u);
    EXPECT_TRUE(SOHEnviroment::CheckSohDir());  // present: nothing more logged
    EXPECT_EQ(dev.Logs().size(), 201u);

    // A file in the directory's place is not usable and is left alone.
    dev.Remove(kSohDir);
    dev.Write(kSohDir, "x");
    EXPECT_FALSE(SOHEnviroment::CheckSohDir());
    EXPECT_EQ(dev.Read(kSohDir), "x");
}

}  // namespace
