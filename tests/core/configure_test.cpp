// Finding, version-checking, ordering and parsing the configuration.
#include "core/soh_configure.h"
#include "core/soh_log.h"
#include "tests/support/fake_device.h"

namespace {

constexpr const char* kOta = "/data/vendor/cota/para/power/QUENJSONCONFIG/";
constexpr const char* kOdm = "/odm/etc/power/";
constexpr const char* kVendor = "/vendor/etc/power/";

std::string VersionFile(const std::string& version, const std::string& type = "QUENJSONCONFIG",
                        const std::string& subtype = "generic") {
    return "version=" + version + "\r\ntype=" + type + "\nsubtype=" + subtype +
           "\ncompatibleVersion=1\n";
}

std::string Config(const std::string& marker) {
    return "{\n  // written by a test\n  \"Estimators\": {\"" + marker +
           "\": {\"Protectors\": [\"DcCurLimitator\"]}}\n}\n";
}

using ConfigureTest = FakeDeviceTest;

TEST_F(ConfigureTest, VersionFileLinesAndTagRules) {
    dev.Write("/v.txt", "version=1.2.3.4\r\n=ignored\nnoequals\na=b=c\ntype = x\n");
    SOHConfigure::VerInfo info{{"stale", "1"}};
    SOHConfigure::GetFileVerInfo(info, "/v.txt");
    EXPECT_EQ(info, (SOHConfigure::VerInfo{{"version", "1.2.3.4"}, {"a=b", "c"}, {"type ", " x"}}));
    SOHConfigure::VerInfo untouched{{"keep", "1"}};
    SOHConfigure::GetFileVerInfo(untouched, "/missing.txt");
    EXPECT_EQ(untouched.size(), 1u);

    SOHConfigure::VerInfo good;
    SOHConfigure::GetDefaultVerInfo(good);
    EXPECT_EQ(good["version"], "1.10.20.100");
    EXPECT_EQ(SOHConfigure::CheckVerInfo(good), 0);

    SOHConfigure::VerInfo bad = good;
    bad["type"] = "OTHER";
    bad["subtype"] = "x";
    EXPECT_EQ(SOHConfigure::CheckVerInfo(bad), -2);
    EXPECT_TRUE(dev.HasLog("tag type value OTHER is not expected\n"));
    EXPECT_TRUE(dev.HasLog("tag subtype value x is not expected\n"));
    bad.erase("compatibleVersion");
    EXPECT_EQ(SOHConfigure::CheckVerInfo(bad), -3);
    EXPECT_TRUE(dev.HasLog("tag compatibleVersion value  is not expected\n"));

    for (const char* v : {"1.10.20", "1.10.20.1a", "", "1..2.3.4", "1.2.3.4.5"}) {
        SOHConfigure::VerInfo info2 = good;
        info2["version"] = v;
        EXPECT_EQ(SOHConfigure::CheckVerInfo(info2), -1) << v;
    }
    SOHConfigure::VerInfo empties = good;
    empties["version"] = "...";  // three dots, digits-and-dots only: accepted as it stands
    EXPECT_EQ(SOHConfigure::CheckVerInfo(empties), 0);
    good.erase("version");
    EXPECT_EQ(SOHConfigure::CheckVerInfo(good), -1);
    EXPECT_TRUE(dev.HasLog("version is not configure\n"));
}

TEST_F(ConfigureTest, SortPutsHighestVersionFirstComponentByComponent) {
    SOHConfigure::ConfigInfo c = {{"a", {{"version", "1.10.20.100"}}},
                                  {"b", {{"version", "1.10.21.0"}}},
                                  {"c", {{"version", "1.9.99.999"}}},
                                  {"d", {{"version", "2.0.0.0"}}}};
    SOHConfigure::SortConfigInfo(c);
    EXPECT_EQ(c[0].first, "d");
    EXPECT_EQ(c[1].first, "b");
    EXPECT_EQ(c[2].first, "a");
    EXPECT_EQ(c[3].first, "c");
}

TEST_F(ConfigureTest, VendorFileWithoutVersionUsesBuiltInVersion) {
    SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
    dev.Write(std::string(kVendor) + "quen.json", Config("VENDOR"));
    EXPECT_TRUE(SOHConfigure::GetRootConfigure()["Estimators"].isMember("VENDOR"));
    EXPECT_EQ(SOHConfigure::GetConfigVersion(), "1.10.20.100");
    EXPECT_EQ(SOHConfigure::GetConfigPath(), "/vendor/etc/power/quen.json");
    EXPECT_TRUE(
        dev.HasLog("json file /data/vendor/cota/para/power/QUENJSONCONFIG/quen.json is not "
                   "exist\n"));
    EXPECT_TRUE(dev.HasLog("json file /odm/etc/power/quen.json is not exist\n"));
    EXPECT_TRUE(
        dev.HasLog("json file is /vendor/etc/power/quen.json and version is 1.10.20.100\n"));
    EXPECT_TRUE(dev.HasLog("parse json file /vendor/etc/power/quen.json success\n"));
    EXPECT_EQ(SOHConfigure::GetEstimators(), std::vector<std::string>{"VENDOR"});
}

TEST_F(ConfigureTest, HigherOverTheAirVersionWinsAndVendorIsNotExamined) {
    dev.Write(std::string(kOta) + "quen.json", Config("OTA"));
    dev.Write(std::string(kOta) + "version.txt", VersionFile("1.10.21.0"));
    dev.Write(std::string(kOdm) + "quen.json", Config("ODM"));
    dev.Write(std::string(kVendor) + "quen.json", Config("VENDOR"));
    EXPECT_EQ(SOHConfigure::GetEstimators(), std::vector<std::string>{"OTA"});
    EXPECT_EQ(SOHConfigure::GetConfigVersion(), "1.10.21.0");
    EXPECT_EQ(dev.CountLogContaining("/vendor/etc"), 0);
}

TEST_F(ConfigureTest, UnparsableCandidateFallsBackToTheNext) {
    dev.Write(std::string(kOta) + "quen.json", "{ \"Estimators\": { broken");
    dev.Write(std::string(kOta) + "version.txt", VersionFile("9.0.0.0"));
    dev.Write(std::string(kOdm) + "quen.json", Config("ODM"));
    EXPECT_EQ(SOHConfigure::GetEstimators(), std::vector<std::string>{"ODM"});
    EXPECT_TRUE(dev.HasLog(
        "parse configure file /data/vendor/cota/para/power/QUENJSONCONFIG/quen.json failed\n"));
    EXPECT_EQ(SOHConfigure::GetConfigVersion(), "1.10.20.100");
}

TEST_F(ConfigureTest, OverTheAirWithoutVersionFileIsSkipped) {
    dev.Write(std::string(kOta) + "quen.json", Config("OTA"));
    dev.Write(std::string(kOdm) + "quen.json", Config("ODM"));
    EXPECT_EQ(SOHConfigure::GetEstimators(), std::vector<std::string>{"ODM"});
    EXPECT_TRUE(dev.HasLog(
        "version file /data/vendor/cota/para/power/QUENJSONCONFIG/version.txt is not exist\n"));
    EXPECT_TRUE(dev.HasLog("json file /data/vendor/cota/para/power/QUENJSONCONFIG/ parse fail\n"));
}

TEST_F(ConfigureTest, ValidOverTheAirAloneLoadsNothingWhenImageHasNoConfiguration) {
    dev.Write(std::string(kOta) + "quen.json", Config("OTA"));
    dev.Write(std::string(kOta) + "version.txt", VersionFile("1.10.21.0"));
    EXPECT_TRUE(SOHConfigure::GetRootConfigure().isNull());
    EXPECT_TRUE(SOHConfigure::GetEstimators().empty());
    EXPECT_TRUE(dev.HasLog("root configure not have key(Estimators)\n"));
    EXPECT_TRUE(dev.HasLog("Can't find any estimator member\n"));
    EXPECT_TRUE(SOHConfigure::GetProtectors().empty());
}

TEST_F(ConfigureTest, BadDocumentsNeverCrashTheGetters) {
    // Null documents are refused; documents of the wrong shape load but yield nothing.
    dev.Write(std::string(kOta) + "quen.json", "null");
    dev.Write(std::string(kOta) + "version.txt", VersionFile("3.0.0.0"));
    dev.Write(std::string(kOdm) + "quen.json",
              "{\"Estimators\": {\"A\": 5, \"B\": {\"Protectors\": \"x\"},"
              " \"C\": {\"Protectors\": [1, {\"o\": 1}, \"SocLimitator\"]}}}");
    EXPECT_EQ(SOHConfigure::GetEstimators(), (std::vector<std::string>{"A", "B", "C"}));
    EXPECT_TRUE(dev.HasLog(
        "soh configure of /data/vendor/cota/para/power/QUENJSONCONFIG/quen.json is empty\n"));
    EXPECT_TRUE(SOHConfigure::GetProtectorsOfEstimator("A").empty());
    EXPECT_TRUE(SOHConfigure::GetProtectorsOfEstimator("B").empty());
    EXPECT_TRUE(SOHConfigure::GetProtectorsOfEstimator("nobody").empty());
    EXPECT_EQ(SOHConfigure::GetProtectorsOfEstimator("C"),
              std::vector<std::string>{"SocLimitator"});
    EXPECT_EQ(SOHConfigure::GetProtectors(), std::set<std::string>{"SocLimitator"});
}

TEST_F(ConfigureTest, RootThatIsNotAnObjectHasNoEstimators) {
    dev.Write(std::string(kOdm) + "quen.json", "[1, 2, 3]");
    EXPECT_TRUE(SOHConfigure::GetRootConfigure().isArray());
    EXPECT_TRUE(SOHConfigure::GetEstimators().empty());
    EXPECT_TRUE(dev.HasLog("root configure not have key(Estimators)\n"));
}

}  // namespace
