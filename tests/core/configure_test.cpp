// Finding, version-checking, ordering and parsing the configuration.
#include "core/soh_configure.h"
#include "core/soh_log.h"
#include "tests/support/fake_device.h"

namespace {

const std::string kOta = "/data/vendor/cota/para/power/QUENJSONCONFIG/";
const std::string kOdm = "/odm/etc/power/";
const std::string kVendor = "/vendor/etc/power/";

// A configuration naming one estimator, `marker`, with a comment the reader must skip.
std::string Config(const std::string& marker) {
    return "{\n  // written by a test\n  \"Estimators\": {\"" + marker +
           "\": {\"Protectors\": [\"DcCurLimitator\"]}}\n}\n";
}

std::string VersionFile(const std::string& version) {
    return "version=" + version + "\r\ntype=QUENJSONCONFIG\nsubtype=generic\ncompatibleVersion=1\n";
}

using ConfigureTest = FakeDeviceTest;

TEST_F(ConfigureTest, VersionFileLinesTagRulesAndOrder) {
    dev.Write("/v.txt", "version=1.2.3.4\r\n=ignored\nnoequals\na=b=c\ntype = x\n");
    SOHConfigure::VerInfo info{{"stale", "1"}};
    SOHConfigure::GetFileVerInfo(info, "/v.txt");
    EXPECT_EQ(info, (SOHConfigure::VerInfo{{"version", "1.2.3.4"}, {"a=b", "c"}, {"type ", " x"}}));
    SOHConfigure::VerInfo untouched{{"keep", "1"}};
    SOHConfigure::GetFileVerInfo(untouched, "/missing.txt");
    EXPECT_EQ(untouched.size(), 1u);

    // Four dot-separated parts of digits; empty parts pass as they stand.
    SOHConfigure::VerInfo good;
    SOHConfigure::GetDefaultVerInfo(good);
    const std::pair<const char*, int> versions[] = {
        {"1.10.20.100", 0}, {"...", 0},       {"1.10.20", -1},  {"1.10.20.1a", -1},
        {"", -1},           {"1..2.3.4", -1}, {"1.2.3.4.5", -1}};
    for (const auto& [version, rc] : versions) {
        good["version"] = version;
        EXPECT_EQ(SOHConfigure::CheckVerInfo(good), rc) << version;
    }

    // Each wrong tag costs one; the version is checked only when the tags are right.
    SOHConfigure::VerInfo bad = good;
    bad["type"] = "OTHER";
    bad["subtype"] = "x";
    EXPECT_EQ(SOHConfigure::CheckVerInfo(bad), -2);
    EXPECT_TRUE(dev.HasLog("tag type value OTHER is not expected\n"));
    EXPECT_TRUE(dev.HasLog("tag subtype value x is not expected\n"));
    bad.erase("compatibleVersion");
    EXPECT_EQ(SOHConfigure::CheckVerInfo(bad), -3);
    EXPECT_TRUE(dev.HasLog("tag compatibleVersion value  is not expected\n"));
    good.erase("version");
    EXPECT_EQ(SOHConfigure::CheckVerInfo(good), -1);
    EXPECT_TRUE(dev.HasLog("version is not configure\n"));

    // Candidates sort highest version first, comparing the parts as numbers.
    SOHConfigure::ConfigInfo c = {{"a", {{"version", "1.10.20.100"}}},
                                  {"b", {{"version", "1.10.21.0"}}},
                                  {"c", {{"version", "1.9.99.999"}}},
                                  {"d", {{"version", "2.0.0.0"}}}};
    SOHConfigure::SortConfigInfo(c);
    EXPECT_EQ(c[0].first + c[1].first + c[2].first + c[3].first, "dbac");
}

TEST_F(ConfigureTest, VendorFileWithoutVersionUsesBuiltInVersion) {
    SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
    dev.Write(kVendor + "quen.json", Config("VENDOR"));
    EXPECT_EQ(SOHConfigure::GetEstimators(), std::vector<std::string>{"VENDOR"});
    EXPECT_EQ(SOHConfigure::GetConfigVersion(), "1.10.20.100");
    EXPECT_EQ(SOHConfigure::GetConfigPath(), "/vendor/etc/power/quen.json");
    EXPECT_TRUE(dev.HasLog("json file " + kOta + "quen.json is not exist\n"));
    EXPECT_TRUE(dev.HasLog("json file /odm/etc/power/quen.json is not exist\n"));
    EXPECT_TRUE(
        dev.HasLog("json file is /vendor/etc/power/quen.json and version is 1.10.20.100\n"));
}

TEST_F(ConfigureTest, HigherOverTheAirVersionWinsAndVendorIsNotExamined) {
    dev.Write(kOta + "quen.json", Config("OTA"));
    dev.Write(kOta + "version.txt", VersionFile("1.10.21.0"));
    dev.Write(kOdm + "quen.json", Config("ODM"));
    dev.Write(kVendor + "quen.json", Config("VENDOR"));
    EXPECT_EQ(SOHConfigure::GetEstimators(), std::vector<std::string>{"OTA"});
    EXPECT_EQ(SOHConfigure::GetConfigVersion(), "1.10.21.0");
    EXPECT_EQ(dev.CountLogContaining("/vendor/etc"), 0);
}

TEST_F(ConfigureTest, UnparsableCandidateFallsBackToTheNext) {
    dev.Write(kOta + "quen.json", "{ \"Estimators\": { broken");
    dev.Write(kOta + "version.txt", VersionFile("9.0.0.0"));
    dev.Write(kOdm + "quen.json", Config("ODM"));
    EXPECT_EQ(SOHConfigure::GetEstimators(), std::vector<std::string>{"ODM"});
    EXPECT_TRUE(dev.HasLog("parse configure file " + kOta + "quen.json failed\n"));
    EXPECT_TRUE(dev.HasLog("parse json file /odm/etc/power/quen.json success\n"));
    EXPECT_EQ(SOHConfigure::GetConfigVersion(), "1.10.20.100");
}

TEST_F(ConfigureTest, ValidOverTheAirAloneLoadsNothingWhenImageHasNoConfiguration) {
    dev.Write(kOta + "quen.json", Config("OTA"));
    dev.Write(kOta + "version.txt", VersionFile("1.10.21.0"));
    EXPECT_TRUE(SOHConfigure::GetRootConfigure().isNull());
    EXPECT_TRUE(SOHConfigure::GetEstimators().empty());
    EXPECT_TRUE(dev.HasLog("root configure not have key(Estimators)\n"));
    EXPECT_TRUE(dev.HasLog("Can't find any estimator member\n"));
}

TEST_F(ConfigureTest, BadDocumentsNeverCrashTheGetters) {
    // Null documents are refused; documents of the wrong shape load but yield nothing.
    dev.Write(kOta + "quen.json", "null");
    dev.Write(kOta + "version.txt", VersionFile("3.0.0.0"));
    dev.Write(kOdm + "quen.json",
              "{\"Estimators\": {\"A\": 5, \"B\": {\"Protectors\": \"x\"},"
              " \"C\": {\"Protectors\": [1, {\"o\": 1}, \"SocLimitator\"]}}}");
    EXPECT_EQ(SOHConfigure::GetEstimators(), (std::vector<std::string>{"A", "B", "C"}));
    EXPECT_TRUE(dev.HasLog("soh configure of " + kOta + "quen.json is empty\n"));
    for (const char* empty : {"A", "B", "nobody"}) {
        EXPECT_TRUE(SOHConfigure::GetProtectorsOfEstimator(empty).empty()) << empty;
    }
    EXPECT_EQ(SOHConfigure::GetProtectorsOfEstimator("C"),
              std::vector<std::string>{"SocLimitator"});
    EXPECT_EQ(SOHConfigure::GetProtectors(), std::set<std::string>{"SocLimitator"});
}

TEST_F(ConfigureTest, OverTheAirWithoutVersionIsSkippedAndRootThatIsNoObjectHasNoEstimators) {
    dev.Write(kOta + "quen.json", Config("OTA"));
    dev.Write(kOdm + "quen.json", "[1, 2, 3]");
    EXPECT_TRUE(SOHConfigure::GetRootConfigure().isArray());
    EXPECT_TRUE(dev.HasLog("version file " + kOta + "version.txt is not exist\n"));
    EXPECT_TRUE(dev.HasLog("json file " + kOta + " parse fail\n"));
    EXPECT_TRUE(SOHConfigure::GetEstimators().empty());
    EXPECT_TRUE(dev.HasLog("root configure not have key(Estimators)\n"));
}

}  // namespace
