// The configuration check: a corpus of broken configurations, each with the path the report
// must name; the sample device's configuration checks clean; and the file is picked the way
// start-up picks it.
#include <algorithm>
#include <fstream>
#include <functional>
#include <map>

#include "check/config_check.h"
#include "sys_para.pb.h"
#include "tests/support/fake_device.h"

namespace {

const std::string kSample = std::string(QUEN_SOURCE_DIR) + "/examples/device";

Json::Value SampleConfig() {
    std::ifstream in(kSample + "/odm/etc/power/quen.json");
    Json::Value doc;
    EXPECT_TRUE(Json::Reader().parse(in, doc, false));
    return doc;
}

std::string Text(const Json::Value& doc) {
    return Json::StyledWriter().write(doc);
}

std::vector<std::string> Paths(const ConfigCheckReport& report) {
    std::vector<std::string> paths;
    for (const ConfigProblem& p : report.problems) {
        paths.push_back(p.path);
    }
    return paths;
}

class CheckTest : public FakeDeviceTest {
protected:
    int CheckFile(const std::string& text) {
        dev.Write("/work/quen.json", text);
        ConfigCheckOptions options;
        options.file = dev.HostPath("/work/quen.json");
        return RunConfigCheck(options, report);
    }
    int CheckRoot() {
        ConfigCheckOptions options;
        options.root = dev.Root();
        return RunConfigCheck(options, report);
    }
    ConfigCheckReport report;
};

struct Broken {
    const char* what;
    std::function<void(Json::Value& estimators)> breakIt;
    std::vector<std::string> paths;  // every problem the report must name, in order
};

// Each case starts from the sample configuration. The cases cover every estimator's parser
// and the three ways a value can be wrong: missing, of the wrong type, out of its rules.
const std::vector<Broken> kCorpus = {
    {"unknown estimator", [](Json::Value& e) { e["FOO"] = Json::objectValue; }, {"Estimators.FOO"}},
    {"unknown protector and a non-string one",
     [](Json::Value& e) {
         e["APP"]["Protectors"][1] = "NonDcCurLimiter";
         e["CVT"]["Protectors"].append(3);
     },
     {"Estimators.APP.Protectors[1]", "Estimators.CVT.Protectors[0]"}},
    {"ASW battery name of the wrong type, and no SimSupport in another entry",
     [](Json::Value& e) {
         Json::Value second = e["ASW"]["Battery"][0];
         e["ASW"]["Battery"][0]["Name"] = 12;
         second.removeMember("SimSupport");
         e["ASW"]["Battery"].append(second);
     },
     {"Estimators.ASW.Battery[0].Name", "Estimators.ASW.Battery[1].SimSupport"}},
    {"ASW swell table one row short",
     [](Json::Value& e) { e["ASW"]["SwellTable_QBT41"]["Table"].resize(4); },
     {"Estimators.ASW.SwellTable_QBT41"}},
    {"ASW policy version this build does not read",
     [](Json::Value& e) { e["ASW"]["Battery"][0]["AswPolicy"] = "4.0"; },
     {"Estimators.ASW.Battery[0].AswPolicy"}},
    {"ASW scene without DmdNo and a group with a text GroupNo",
     [](Json::Value& e) {
         e["ASW"]["3.1"][0].removeMember("DmdNo");
         e["ASW"]["3.1"][1]["Condtion"][0]["GroupNo"] = "1";
     },
     {"Estimators.ASW[\"3.1\"][0].DmdNo", "Estimators.ASW[\"3.1\"][1].Condtion[0].GroupNo"}},
    {"ASW exit conditions not an array",
     [](Json::Value& e) { e["ASW"]["3.1"][1]["Condtion"][0]["Exit"] = Json::objectValue; },
     {"Estimators.ASW[\"3.1\"][1].Condtion[0].Exit"}},
    {"ASW battery model of the wrong type",
     [](Json::Value& e) { e["ASW"]["Battery"][0]["Model"] = 41; },
     {"Estimators.ASW.Battery[0].Model"}},
    {"BASP battery without IChargerMax",
     [](Json::Value& e) { e["BASP"]["Battery"][0].removeMember("IChargerMax"); },
     {"Estimators.BASP.Battery[0].IChargerMax"}},
    {"BASP step not among the steps",
     [](Json::Value& e) { e["BASP"]["Battery"][0]["ndcDefautStep"] = 12; },
     {"Estimators.BASP.Battery[0].ndcVtermSteps"}},
    {"BASP policy naming no stage array",
     [](Json::Value& e) { e["BASP"]["Battery"][0]["BaspPolicy"] = "2.5"; },
     {"Estimators.BASP[\"2.5\"]"}},
    {"BASP stage with a short NonDcVoltDec and one without Level",
     [](Json::Value& e) {
         e["BASP"]["2.0"][1]["NonDcVoltDec"].resize(1);
         e["BASP"]["2.0"][3].removeMember("Level");
     },
     {"Estimators.BASP[\"2.0\"][1].NonDcVoltDec", "Estimators.BASP[\"2.0\"][3].Level"}},
    {"BASP battery list not an array",
     [](Json::Value& e) { e["BASP"]["Battery"] = "QBT41"; },
     {"Estimators.BASP.Battery"}},
    {"CVT integer given as text, and a recoup table of unequal lengths",
     [](Json::Value& e) {
         Json::Value second = e["CVT"]["Battery"][0];
         e["CVT"]["Battery"][0]["ChargeSocMin"] = "60";
         second["TempRecoup"]["Ratio"].resize(2);
         e["CVT"]["Battery"].append(second);
     },
     {"Estimators.CVT.Battery[0].ChargeSocMin", "Estimators.CVT.Battery[1]"}},
    {"CVT recoup temperatures not ascending",
     [](Json::Value& e) { e["CVT"]["Battery"][0]["TempRecoup"]["Temp"][2] = 20; },
     {"Estimators.CVT.Battery[0].TempRecoup.Temp"}},
    {"EIS monitor with an unknown processor, parameters not an object",
     [](Json::Value& e) {
         e["EIS"]["Monitors"]["acr"]["/sys/devices/platform/vorlan_batt_soh/eis/acr_info"] = 7;
         e["EIS"]["Parameters"] = Json::arrayValue;
     },
     {"Estimators.EIS.Monitors.acr[\"/sys/devices/platform/vorlan_batt_soh/eis/acr_info\"]",
      "Estimators.EIS.Parameters"}},
    {"section under Common is checked there",
     [](Json::Value& e) {
         Json::Value cvt = e["CVT"];
         cvt["Battery"][0].removeMember("ValidTempMax");
         e["CVT"] = Json::objectValue;
         e["CVT"]["Common"] = cvt;
     },
     {"Estimators.CVT.Common.Battery[0].ValidTempMax"}},
};

TEST_F(CheckTest, EveryBrokenConfigurationNamesItsPaths) {
    const Json::Value sample = SampleConfig();
    for (const Broken& c : kCorpus) {
        Json::Value doc = sample;
        c.breakIt(doc["Estimators"]);
        EXPECT_EQ(CheckFile(Text(doc)), 1) << c.what;
        EXPECT_EQ(Paths(report), c.paths) << c.what;
        for (const ConfigProblem& p : report.problems) {
            EXPECT_FALSE(p.expected.empty()) << c.what;
            EXPECT_FALSE(p.found.empty()) << c.what;
        }
    }
}

TEST_F(CheckTest, WrongTypeIsReportedWithWhatWasFound) {
    Json::Value doc = SampleConfig();
    doc["Estimators"]["ASW"]["Battery"][0]["Name"] = 12;
    doc["Estimators"]["BASP"]["Battery"][0].removeMember("IChargerMax");
    ASSERT_EQ(CheckFile(Text(doc)), 1);
    ASSERT_EQ(report.problems.size(), 2u);
    EXPECT_EQ(report.problems[0].found, "integer 12");
    EXPECT_EQ(report.problems[0].expected, "a string");
    EXPECT_EQ(report.problems[1].found, "nothing");
    EXPECT_EQ(report.problems[1].detail, "basp battery not config IChargerMax");
}

TEST_F(CheckTest, DocumentLevelFaults) {
    struct Case {
        const char* text;
        const char* path;
    };
    const Case cases[] = {
        {"{\"Estimators\": {\"APP\": {\"Protectors\": [\"StatusLimi", ""},  // truncated
        {"", ""},                                                           // empty
        {"[1, 2]", ""},
        {"{\"Estimator\": {}}", "Estimators"},
        {"{\"Estimators\": []}", "Estimators"},
        {"{\"Estimators\": {\"APP\": 1}}", "Estimators.APP"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(CheckFile(c.text), 1) << c.text;
        ASSERT_EQ(report.problems.size(), 1u) << c.text;
        EXPECT_EQ(report.problems[0].path, c.path) << c.text;
    }
    // The reader's position is part of what a truncated file reports.
    CheckFile("{\n\"Estimators\": {\n");
    EXPECT_NE(report.problems.at(0).found.find("Line 3"), std::string::npos)
        << report.problems[0].found;
}

TEST_F(CheckTest, UnreadableFileOrNoConfigurationIsNotChecked) {
    ConfigCheckOptions options;
    options.file = dev.HostPath("/missing.json");
    EXPECT_EQ(RunConfigCheck(options, report), 2);
    EXPECT_FALSE(report.fatal.empty());
    EXPECT_EQ(CheckRoot(), 2);  // an empty device root holds no configuration
}

TEST_F(CheckTest, SampleDeviceChecksCleanAndShowsWhatEachEstimatorUses) {
    dev.CopyTree("examples/device");
    ASSERT_EQ(CheckRoot(), 0) << (report.problems.empty() ? report.fatal : report.problems[0].path);
    EXPECT_EQ(report.file, "/odm/etc/power/quen.json");
    EXPECT_EQ(report.version, "1.10.20.100");
    std::map<std::string, EstimatorChoice> byName;
    for (const EstimatorChoice& c : report.device) {
        byName[c.estimator] = c;
    }
    EXPECT_EQ(byName["BASP"].batteryPath, "Estimators.BASP.Battery[0]");
    EXPECT_EQ(byName["ASW"].battery, "QBT41");
    EXPECT_NE(std::find(byName["ASW"].uses.begin(), byName["ASW"].uses.end(),
                        std::make_pair(std::string("SwellTabe"), std::string("SwellTable_QBT41"))),
              byName["ASW"].uses.end());
    // The check leaves the device as it found it.
    EXPECT_FALSE(dev.Exists("/log/soh/sys_para.dat"));
    EXPECT_FALSE(dev.Exists("/log/soh/basp_QBT41.dat"));

    // A battery this device does not have: the entry is valid, it just does not apply.
    Json::Value doc = SampleConfig();
    doc["Estimators"]["BASP"]["Battery"][0]["Model"] = "ZZ99";
    dev.Write("/odm/etc/power/quen.json", Text(doc));
    EXPECT_EQ(CheckRoot(), 0);
    for (const EstimatorChoice& c : report.device) {
        if (c.estimator == "BASP") {
            EXPECT_EQ(c.batteryPath, "");
        }
    }
}

TEST_F(CheckTest, PicksTheFileStartupWouldAndSaysWhy) {
    dev.CopyTree("examples/device");
    const std::string ota = "/data/vendor/cota/para/power/QUENJSONCONFIG/";
    Json::Value doc = SampleConfig();
    doc["Estimators"]["FOO"] = Json::objectValue;
    dev.Write(ota + "quen.json", Text(doc));
    dev.Write(ota + "version.txt",
              "version=1.10.21.0\ntype=QUENJSONCONFIG\nsubtype=generic\ncompatibleVersion=1\n");
    EXPECT_EQ(CheckRoot(), 1);  // the newer over-the-air file wins, and it is the broken one
    EXPECT_EQ(report.file, ota + "quen.json");
    EXPECT_EQ(report.version, "1.10.21.0");
    EXPECT_EQ(Paths(report), std::vector<std::string>{"Estimators.FOO"});

    // An over-the-air file without its version file is skipped, and the report says so.
    dev.Remove(ota + "version.txt");
    EXPECT_EQ(CheckRoot(), 0);
    EXPECT_EQ(report.file, "/odm/etc/power/quen.json");
    bool said = false;
    for (const std::string& line : report.why) {
        said = said || line.find("version file") != std::string::npos;
    }
    EXPECT_TRUE(said);

    // A newer candidate that does not parse: the next one is used, and the broken one is named.
    dev.Write(ota + "version.txt",
              "version=1.10.21.0\ntype=QUENJSONCONFIG\nsubtype=generic\ncompatibleVersion=1\n");
    dev.Write(ota + "quen.json", "{\"Estimators\": {");
    EXPECT_EQ(CheckRoot(), 1);
    EXPECT_EQ(report.file, "/odm/etc/power/quen.json");
    ASSERT_EQ(report.problems.size(), 1u);
    EXPECT_NE(report.problems[0].expected.find(ota), std::string::npos);
}

TEST_F(CheckTest, OverTheAirCandidateAloneLoadsNothing) {
    const std::string ota = "/data/vendor/cota/para/power/QUENJSONCONFIG/";
    dev.Write(ota + "quen.json", Text(SampleConfig()));
    dev.Write(ota + "version.txt",
              "version=1.10.21.0\ntype=QUENJSONCONFIG\nsubtype=generic\ncompatibleVersion=1\n");
    EXPECT_EQ(CheckRoot(), 2);
    EXPECT_NE(report.fatal.find("over-the-air"), std::string::npos);
}

TEST_F(CheckTest, JsonReportCarriesTheSameFindings) {
    Json::Value doc = SampleConfig();
    doc["Estimators"]["FOO"] = 1;
    const int status = CheckFile(Text(doc));
    Json::Value json;
    ASSERT_TRUE(Json::Reader().parse(ConfigReportJson(report, status), json));
    EXPECT_EQ(json["status"].asInt(), 1);
    ASSERT_EQ(json["problems"].size(), 1u);
    EXPECT_EQ(json["problems"][0]["path"].asString(), "Estimators.FOO");
    EXPECT_EQ(json["problems"][0]["found"].asString(), "integer 1");
}

TEST_F(CheckTest, ShowsTheLimitsAppRestoresAtStartAndLeavesTheRecordAlone) {
    dev.CopyTree("examples/device");
    SysPara para;
    para.set_version("1.0");
    SysPara::LimitRecord* record = para.add_records();
    record->set_name("NonDcCurLimitator");
    record->set_src("APP");
    record->set_value("1500");
    record = para.add_records();
    record->set_name("NotConfiguredForApp");
    record->set_src("APP");
    record->set_value("7");
    std::string bytes;
    ASSERT_TRUE(para.SerializeToString(&bytes));
    dev.Write("/log/soh/sys_para.dat", bytes);

    ASSERT_EQ(CheckRoot(), 0);
    std::vector<std::pair<std::string, std::string>> app;
    for (const EstimatorChoice& c : report.device) {
        if (c.estimator == "APP") {
            app = c.uses;
        }
    }
    EXPECT_EQ(app, (std::vector<std::pair<std::string, std::string>>{
                       {"restores NonDcCurLimitator", "1500 (set by APP)"}}));
    EXPECT_EQ(dev.Read("/log/soh/sys_para.dat"), bytes);
}

}  // namespace
