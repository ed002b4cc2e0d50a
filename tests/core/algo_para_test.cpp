// Typed parameter tables: which JSON members become which entries, group bookkeeping and
// concurrent lookups.
#include <atomic>
#include <sstream>
#include <string>
#include <thread>

#include "core/soh_algo_para.h"
#include "core/soh_log.h"
#include "tests/support/fake_device.h"

namespace {

using AlgoParaTest = FakeDeviceTest;

TEST_F(AlgoParaTest, EntriesKeepTheNarrowestNumericTypeAndOnlyIntsAreLookedUp) {
    SohMetaPara table(ParseJson(R"({"Count": 7, "Half": 3.5, "Big": 5000000000,
        "Name": "x", "On": true, "List": [1], "Sub": {"A": 1}, "Nothing": null})"));
    int v = 99;
    EXPECT_FALSE(table.GetPara("Half", v));  // double
    EXPECT_FALSE(table.GetPara("Big", v));   // long long
    EXPECT_FALSE(table.GetPara("Name", v));
    EXPECT_EQ(v, 99);
    EXPECT_TRUE(table.GetPara("Count", v));
    EXPECT_EQ(v, 7);
    EXPECT_EQ(SohMetaPara(ParseJson("[1, 2]")).size(), 0u);

    // Only the three numeric entries are logged, each in its own type's form.
    SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
    table.Print2Log("grp", "  ");
    EXPECT_TRUE(dev.HasLog("  Count: 7\n"));
    EXPECT_TRUE(dev.HasLog("  Big: 5000000000\n"));
    EXPECT_TRUE(dev.HasLog("  Half: 3.500000\n"));
    EXPECT_EQ(dev.Logs().size(), 3u);
}

TEST_F(AlgoParaTest, FirstNumericDefinitionOfAGroupWinsUntilTheGroupIsRemoved) {
    SohAlgoPara para;
    para.AddConfig(ParseJson(R"({"Limits": {"Max": 10, "Min": -1}, "Names": {"A": "x"},
                            "Flat": 5, "Gone": {"X": 1, "Y": 2.5}, "Cleared": {"Z": 3}})"),
                   "BASP");
    EXPECT_EQ(para.GetOutParas("Gone")->size(), 2u);
    EXPECT_EQ(para.GetOutParas("Gone")->size(), 0u);  // absent now: an empty table, not null
    para.Clear("Cleared");
    para.Clear("Absent");
    // Groups that held no number, or were removed, take these later definitions.
    para.AddConfig(ParseJson(R"({"Limits": {"Max": 20, "Extra": 1}, "Names": {"A": 4},
                            "Gone": {"X": 9}, "Cleared": {"Z": 8}})"),
                   "BASP");
    int v = 0;
    EXPECT_FALSE(para.GetPara("Limits", "Extra", v) || para.GetPara("Flat", "Flat", v));
    EXPECT_TRUE(para.GetPara("Names", "A", v) && para.GetPara("Cleared", "Z", v));
    EXPECT_EQ(v, 8);
    para.AddConfig(ParseJson("[1]"), "BASP");
    EXPECT_EQ(dev.CountLog("not a valid value for AddObject"), 1);

    // The unsigned form refuses negatives that the int form returns.
    unsigned u = 77;
    EXPECT_FALSE(para.GetPara("Limits", "Min", u));
    EXPECT_EQ(u, 77u);
    EXPECT_TRUE(para.GetPara("Limits", "Min", v));
    EXPECT_TRUE(para.GetPara("Limits", "Max", u));
    EXPECT_EQ(u, 10u);  // the first definition's

    SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
    para.Print2Log("Gone", "-");    // the new definition, under its header
    para.Print2Log("Absent", "-");  // nothing, not even the header
    EXPECT_TRUE(dev.HasLog("Gone:\n") && dev.HasLog("-X: 9\n"));
    EXPECT_EQ(dev.Logs().size(), 3u);  // with the error above
}

TEST_F(AlgoParaTest, LookupsRunWhileGroupsAreAddedAndRemoved) {
    SohAlgoPara para;
    para.AddConfig(ParseJson(R"({"Fixed": {"V": 5}})"), "ASW");
    std::atomic<bool> done{false};
    std::atomic<int> reads{0};
    std::atomic<int> wrong{0};
    std::thread reader([&] {
        for (int v = 0; !done; ++reads) {
            wrong += (!para.GetPara("Fixed", "V", v) || v != 5) ? 1 : 0;
            para.GetPara("Moving", "V", v);
        }
    });
    Json::Value moving = ParseJson(R"({"Moving": {"V": 1}})");
    // Groups change until 2000 lookups have run meanwhile.
    for (const int start = reads.load(); reads < start + 2000;) {
        para.AddConfig(moving, "ASW");
        para.Clear("Moving");
        para.AddConfig(moving, "ASW");
        para.GetOutParas("Moving");
    }
    done = true;
    reader.join();
    EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
