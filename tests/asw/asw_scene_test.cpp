// Anti-swelling scenes: configuration checks and their messages, condition items, entry and
// exit through condition groups, and the scene selection at a day's close.
#include <memory>
#include <string>

#include "asw/asw_data_object.h"
#include "asw/asw_policy_factory.h"
#include "asw/asw_scene.h"
#include "core/soh_log.h"
#include "platform/host/soh_clock_test.h"
#include "tests/support/fake_device.h"

namespace {

// A data object holding the given stored quantities and a small zero table.
std::unique_ptr<AswDataObject> Data(const std::string& data) {
    return AswPolicyFactory::CreateDataInstance("Data", ParseJson("[4200]"), ParseJson("[45]"),
                                                ParseJson(data));
}

// A scene "S" numbered 1 with the given "Condtion" array text.
std::string Scene(const std::string& groups, const std::string& extra = "") {
    return R"({"Name": "S", "No": 1, "DmdNo": 11, )" + extra + R"("Condtion": )" + groups + "}";
}

constexpr unsigned kSixDays = 6 * 86400;

class AswSceneTest : public FakeDeviceTest {
protected:
    void SetUp() override {
        SohClockTest::SetManual(1700000000LL * 1000000000LL);
        SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
    }
    // Init's result for a configuration text.
    static uint32_t InitOf(const std::string& text) {
        Json::Value config = ParseJson(text);
        AswScene scene(config);
        return scene.Init(config);
    }
};

}  // namespace

TEST_F(AswSceneTest, ConfigurationFaultsFailInitWithTheirMessages) {
    struct Case {
        std::string config;
        std::string message;
    } cases[] = {
        {R"({"No": 1, "Condtion": []})", "asw scene DmdNo configure error\n"},
        {R"({"No": [1], "DmdNo": 1, "Condtion": []})", "asw scene No configure error\n"},
        {R"({"No": -1, "DmdNo": 1, "Condtion": []})", "asw scene No configure error\n"},
        {Scene("{}"), "asw scene conditions is not array\n"},
        {Scene("[[]]"), "asw scene condition group type is 6\n"},
        {Scene(R"([{"EntryObjType": 0, "ExitObjType": 0, "Entry": {}}])"),
         "asw scene condition group no configure error\n"},
        {Scene(R"([{"GroupNo": 1, "EntryObjType": "0", "ExitObjType": 0, "Entry": {}}])"),
         "asw scene condition group entry obj type error\n"},
        {Scene(R"([{"GroupNo": 1, "EntryObjType": 0, "Entry": {}}])"),
         "asw scene condition group exit obj type error\n"},
        {Scene(R"([{"GroupNo": 1, "EntryObjType": 0, "ExitObjType": 0}])"),
         "asw scene condition type is 0\n"},
        {Scene(R"([{"GroupNo": 1, "EntryObjType": 0, "ExitObjType": 0,
                    "Entry": {"Aswell": [1, 2, 3]}}])"),
         "asw scene condition item type is 6\n"},
        {Scene(R"([{"GroupNo": 1, "EntryObjType": 0, "ExitObjType": 0,
                    "Entry": {"Aswell": [1, "2"]}}])"),
         "asw scene condition item list type is 4\n"},
        {Scene(R"([{"GroupNo": 1, "EntryObjType": 0, "ExitObjType": 0,
                    "Entry": {"Aswell": [5, 2]}}])"),
         "asw scene condition item value configure error\n"},
        {Scene(R"([{"GroupNo": 1, "EntryObjType": 0, "ExitObjType": 0,
                    "Entry": {"Aswell": true}}])"),
         "asw scene condition item type is 5\n"},
        {Scene(R"([{"GroupNo": 1, "EntryObjType": 0, "ExitObjType": 0, "Entry": {},
                    "Exit": {}}])"),
         "asw scene condition exit group type error\n"},
        {Scene(R"([{"GroupNo": 1, "EntryObjType": 0, "ExitObjType": 0, "Entry": {},
                    "Exit": [{}, {"Pusb_in": {}}]}])"),
         "asw scene condition item type is 7\n"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(InitOf(c.config), 4294967295u) << c.config;
        EXPECT_TRUE(dev.HasLog(c.message)) << c.message;
    }
    EXPECT_EQ(dev.CountLog("asw scene condition entry group configure error\n"), 5);
    EXPECT_EQ(dev.CountLog("asw scene condition exit group configure error\n"), 2);
    EXPECT_EQ(dev.CountLog("asw scene conditions configure error\n"), 11);
    EXPECT_EQ(InitOf("[]"), 4294967295u);
}

TEST_F(AswSceneTest, OptionalKeysTakeDefaultsAndEmptyConditionsAreValid) {
    Json::Value config = ParseJson(Scene("[]", R"("CutoffSoc": 80, "DcVoltDec": "x", )"));
    std::unique_ptr<AswScene> scene = AswPolicyFactory::CreateSceneInstance("S", config);
    ASSERT_EQ(scene->Init(config), 0u);
    EXPECT_EQ(scene->GetNo(), 1u);
    EXPECT_EQ(scene->GetDmdNo(), 11u);
    EXPECT_EQ(scene->GetCutoffSoc(), 80u);
    EXPECT_EQ(scene->GetRestoreSoc(), 100u);
    EXPECT_EQ(scene->GetDcVoltDec(), 0u);
    EXPECT_EQ(scene->GetVbatLlimit(), 4294967295u);
    EXPECT_TRUE(dev.HasLog("asw scene RestoreSoc configure is not exist\n"));
    EXPECT_TRUE(dev.HasLog("asw scene DcVoltDec configure is not exist\n"));
    EXPECT_FALSE(dev.HasLog("asw scene CutoffSoc configure is not exist\n"));
    // No group: nothing to enter, and no group 0 to protect.
    auto week = Data("{}");
    EXPECT_FALSE(scene->Entry(*week, *week));
    EXPECT_FALSE(scene->GetProtectEnable());
}

TEST_F(AswSceneTest, RangeItemsAreOpenBelowExceptAtZeroAndPointsTolerateTinyDifferences) {
    struct Case {
        std::string item;
        std::string value;
        bool match;
    } cases[] = {
        {"[0, 50]", "0", true},   {"[0, 50]", "-1", false},    {"[10, 50]", "10", false},
        {"[10, 50]", "50", true}, {"[10, 50]", "50.5", false}, {"[10, 50]", "10.5", true},
        {"3", "3", true},         {"3", "4294967295", false},  {"3", "3.0000001", true},
        {"3", "3.001", false},    {"3", "\"3\"", false},       {"[0, 50]", "null", false},
    };
    for (const Case& c : cases) {
        Json::Value config = ParseJson(Scene(R"([{"GroupNo": 2, "EntryObjType": 0,
            "ExitObjType": 0, "Entry": {"V": )" +
                                             c.item + "}}]"));
        AswScene scene(config);
        ASSERT_EQ(scene.Init(config), 0u);
        auto week = Data(R"({"V": )" + c.value + "}");
        auto addup = Data("{}");
        EXPECT_EQ(scene.Entry(*week, *addup), c.match) << c.item << " at " << c.value;
        EXPECT_EQ(scene.GetEffectConditon(), c.match ? 2u : 0u);
    }
    // A point item against an unsigned and a signed 3.
    Json::Value config = ParseJson(Scene(R"([{"GroupNo": 2, "EntryObjType": 1, "ExitObjType": 0,
        "Entry": {"U": 3, "S": 3}}])"));
    AswScene scene(config);
    ASSERT_EQ(scene.Init(config), 0u);
    auto week = Data("{}");
    auto addup = Data(R"({"U": 3, "S": -3})");
    EXPECT_FALSE(scene.Entry(*week, *addup));
    Json::Value both(Json::objectValue);
    both["U"] = Json::Value(Json::UInt(3));
    both["S"] = Json::Value(Json::Int(3));
    auto withBoth = AswPolicyFactory::CreateDataInstance(
        "Data", AswTable(ParseJson("[4200]"), ParseJson("[45]")), std::move(both));
    EXPECT_TRUE(scene.Entry(*week, *withBoth));
    EXPECT_TRUE(dev.HasLog("asw value is null\n"));
    EXPECT_TRUE(dev.HasLog("asw scene S condition 3.000000 value 3.000000\n"));
}

TEST_F(AswSceneTest, EntryExitAndEffectGroup) {
    // Group 1 enters on a null percentage (never); group 4 enters on the week's swell and is
    // left when the history's charger time drops; group 7 has no exit.
    Json::Value config = ParseJson(Scene(R"([
        {"GroupNo": 1, "EntryObjType": 0, "ExitObjType": 0, "Entry": {"Pusb_in": [0, 100]}},
        {"GroupNo": 4, "EntryObjType": 0, "ExitObjType": 1, "ProtectEnable": 1,
         "Entry": {"OldAswell": [0.5, 2], "Tstat": [0, 1000]},
         "Exit": [{"Tusb_in": [10, 20], "Tstat": 9}, {"Tusb_in": [0, 10]}]},
        {"GroupNo": 7, "EntryObjType": 1, "ExitObjType": 0, "Entry": {"Tstat": 0}}])",
                                         R"("VbatLlimit": 4200, )"));
    AswScene scene(config);
    ASSERT_EQ(scene.Init(config), 0u);
    auto week = Data(R"({"Tstat": 0, "OldAswell": 1.0})");
    auto addup = Data(R"({"Tstat": 5, "Tusb_in": 15})");
    ASSERT_TRUE(scene.Entry(*week, *addup));
    EXPECT_EQ(scene.GetEffectConditon(), 4u);
    EXPECT_TRUE(scene.GetProtectEnable());
    EXPECT_FALSE(scene.Exit(*week, *addup));  // 15 s is neither [10,20] with 9 nor [0,10]
    auto left = Data(R"({"Tstat": 5, "Tusb_in": 10})");
    EXPECT_TRUE(scene.Exit(*week, *left));
    EXPECT_EQ(scene.GetEffectConditon(), 0u);
    EXPECT_FALSE(scene.GetProtectEnable());

    // Entered through group 7, which has no exit: never left.
    auto cool = Data(R"({"OldAswell": 0.1, "Tstat": 0})");
    ASSERT_TRUE(scene.Entry(*cool, *cool));
    EXPECT_EQ(scene.GetEffectConditon(), 7u);
    EXPECT_FALSE(scene.GetProtectEnable());
    EXPECT_FALSE(scene.Exit(*left, *left));

    EXPECT_EQ(scene.SetEffectConditon(3), 4294967295u);
    EXPECT_EQ(scene.GetEffectConditon(), 7u);
    EXPECT_EQ(scene.SetEffectConditon(4), 0u);
    EXPECT_TRUE(scene.GetProtectEnable());
    EXPECT_EQ(dev.CountLog("asw value is null\n"), 2);
}

TEST_F(AswSceneTest, ThresholdsReachTheDataObjects) {
    Json::Value config = ParseJson(Scene(R"([{"GroupNo": 1, "EntryObjType": 0, "ExitObjType": 0,
        "Entry": {"Pvbat_ov": [50, 100], "Ptbat_ot": [0, 10]}}])",
                                         R"("VbatLlimit": 4000, "TbatLlimit": 45, )"));
    AswScene scene(config);
    ASSERT_EQ(scene.Init(config), 0u);
    // Every second above 4200 mV at 30 degC.
    auto week = AswPolicyFactory::CreateDataInstance(
        "Data", AswTable(ParseJson("[4200]"), ParseJson("[45]"), ParseJson("[[0, 100], [0, 0]]")),
        ParseJson(R"({"Tstat": 100})"));
    auto addup = Data("{}");
    EXPECT_TRUE(scene.Entry(*week, *addup));
    EXPECT_EQ((*week)["Pvbat_ov"], Json::Value(Json::UInt(100)));
    EXPECT_EQ((*week)["Ptbat_ot"], Json::Value(Json::Int(0)));
}

TEST_F(AswSceneTest, SelectionNeedsSixDaysAndSkipsScenesThatAlsoExit) {
    // Scene 1 enters and exits at once; scene 2 enters and stays.
    Json::Value scenes = ParseJson(R"([
        {"Name": "A", "No": 1, "DmdNo": 11, "Condtion": [{"GroupNo": 1, "EntryObjType": 0,
         "ExitObjType": 0, "Entry": {}, "Exit": [{}]}]},
        {"Name": "B", "No": 2, "DmdNo": 12, "Condtion": [{"GroupNo": 3, "EntryObjType": 1,
         "ExitObjType": 1, "Entry": {"Sim": 1}, "Exit": [{"Sim": 0}]}]}])");
    auto addup = Data(R"({"Sim": 1})");

    auto shortWeek = Data(R"({"Tstat": )" + std::to_string(kSixDays - 1) + "}");
    EXPECT_EQ(AswPolicyFactory::SelectScene(scenes, *shortWeek, *addup), nullptr);
    EXPECT_FALSE(dev.HasLog("asw scene 1 meet the entry and exit conditions\n"));

    auto week = Data(R"({"Tstat": )" + std::to_string(kSixDays) + "}");
    std::unique_ptr<AswScene> chosen = AswPolicyFactory::SelectScene(scenes, *week, *addup);
    ASSERT_NE(chosen, nullptr);
    EXPECT_EQ(chosen->GetNo(), 2u);
    EXPECT_EQ(chosen->GetEffectConditon(), 3u);
    EXPECT_EQ(dev.CountLog("asw scene 1 meet the entry and exit conditions\n"), 1);

    auto noSim = Data(R"({"Sim": 0})");
    EXPECT_EQ(AswPolicyFactory::SelectScene(scenes, *week, *noSim), nullptr);

    // One bad scene abandons the whole selection.
    scenes.append(ParseJson(R"({"No": 3, "Condtion": []})"));
    EXPECT_EQ(AswPolicyFactory::SelectScene(scenes, *week, *addup), nullptr);
    EXPECT_TRUE(dev.HasLog("scene instance init failed\n"));
}
