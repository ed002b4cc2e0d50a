// Typed parameter tables: which JSON members become which entries, group bookkeeping and
// concurrent lookups.
#include <atomic>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "core/soh_algo_para.h"
#include "core/soh_log.h"
#include "tests/support/fake_device.h"

namespace {

using AlgoParaTest = FakeDeviceTest;

Json::Value Parse(const std::string& text) {
    Json::CharReaderBuilder builder;
    Json::Value v;
    std::string errs;
    std::istringstream in(text);
    EXPECT_TRUE(Json::parseFromStream(builder, in, &v, &errs)) << errs;
    return v;
}

TEST_F(AlgoParaTest, EntriesKeepTheNarrowestNumericTypeAndOnlyIntsAreLookedUp) {
    SohMetaPara table(Parse(R"({
        "Count": 7, "Whole": 3.0, "Half": 3.5, "Big": 5000000000, "Neg": -2,
        "Name": "x", "On": true, "List": [1], "Sub": {"A": 1}, "Nothing": null})"));
    EXPECT_EQ(table.size(), 5u);  // strings, booleans, arrays, objects and null are left out

    int v = 99;
    EXPECT_TRUE(table.GetPara("Count", v));
    EXPECT_EQ(v, 7);
    EXPECT_TRUE(table.GetPara("Whole", v));  // the reader reports an integral 3.0 as an int
    EXPECT_EQ(v, 3);
    v = 99;
    EXPECT_FALSE(table.GetPara("Half", v));  // double
    EXPECT_FALSE(table.GetPara("Big", v));   // long long
    EXPECT_FALSE(table.GetPara("Missing", v));
    EXPECT_EQ(v, 99);

    SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
    table.Print2Log("grp", "  ");
    EXPECT_TRUE(dev.HasLog("  Count: 7\n"));
    EXPECT_TRUE(dev.HasLog("  Big: 5000000000\n"));
    EXPECT_TRUE(dev.HasLog("  Half: 3.500000\n"));
    EXPECT_EQ(dev.Logs().size(), 5u);

    EXPECT_EQ(SohMetaPara(Parse("[1, 2]")).size(), 0u);
    EXPECT_EQ(SohMetaPara(Json::Value()).size(), 0u);
}

TEST_F(AlgoParaTest, GroupsWithoutNumbersAreSkippedAndTheFirstDefinitionWins) {
    SohAlgoPara para;
    para.AddConfig(Parse(R"({"Limits": {"Max": 10, "Min": -1}, "Names": {"A": "x", "B": "y"},
                            "Flat": 5, "Empty": {}})"),
                   "BASP");
    para.AddConfig(Parse(R"({"Limits": {"Max": 20, "Extra": 1}, "Late": {"K": 4}})"), "BASP");

    int v = 0;
    EXPECT_TRUE(para.GetPara("Limits", "Max", v));
    EXPECT_EQ(v, 10);
    EXPECT_FALSE(para.GetPara("Limits", "Extra", v));
    EXPECT_TRUE(para.GetPara("Late", "K", v));
    EXPECT_EQ(v, 4);
    EXPECT_FALSE(para.GetPara("Flat", "Flat", v));
    EXPECT_EQ(para.GetOutParas("Names")->size(), 0u);  // never added
    EXPECT_EQ(para.GetOutParas("Empty")->size(), 0u);

    para.AddConfig(Parse("[1]"), "BASP");
    EXPECT_EQ(dev.CountLog("not a valid value for AddObject"), 1);
    EXPECT_EQ(dev.Logs().back().prio, 6);

    // The unsigned form refuses negatives that the int form returns.
    EXPECT_TRUE(para.GetPara("Limits", "Min", v));
    EXPECT_EQ(v, -1);
    unsigned u = 77;
    EXPECT_FALSE(para.GetPara("Limits", "Min", u));
    EXPECT_EQ(u, 77u);
    EXPECT_TRUE(para.GetPara("Limits", "Max", u));
    EXPECT_EQ(u, 10u);
}

TEST_F(AlgoParaTest, HandedOutAndClearedGroupsAreGone) {
    SohAlgoPara para;
    para.AddConfig(Parse(R"({"A": {"X": 1, "Y": 2.5}, "B": {"Z": 3}})"), "EIS");

    std::unique_ptr<SohMetaPara> a = para.GetOutParas("A");
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->size(), 2u);
    int v = 0;
    EXPECT_TRUE(a->GetPara("X", v));
    EXPECT_FALSE(para.GetPara("A", "X", v));
    EXPECT_EQ(para.GetOutParas("A")->size(), 0u);  // absent now: an empty table

    // A group removed can be added afresh by a later configuration.
    para.AddConfig(Parse(R"({"A": {"X": 9}})"), "EIS");
    EXPECT_TRUE(para.GetPara("A", "X", v));
    EXPECT_EQ(v, 9);

    para.Clear("B");
    para.Clear("Absent");
    EXPECT_FALSE(para.GetPara("B", "Z", v));

    SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
    para.Print2Log("A", "-");
    para.Print2Log("B", "-");
    ASSERT_EQ(dev.Logs().size(), 2u);
    EXPECT_EQ(dev.Logs()[0].text, "A:\n");
    EXPECT_EQ(dev.Logs()[1].text, "-X: 9\n");
}

TEST_F(AlgoParaTest, LookupsRunWhileGroupsAreAddedAndRemoved) {
    SohAlgoPara para;
    para.AddConfig(Parse(R"({"Fixed": {"V": 5}})"), "ASW");
    std::atomic<int> wrong{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&] {
            for (int n = 0; n < 2000; ++n) {
                int v = 0;
                if (!para.GetPara("Fixed", "V", v) || v != 5) {
                    ++wrong;
                }
                unsigned u = 0;
                para.GetPara("Moving", "V", u);
            }
        });
    }
    Json::Value moving = Parse(R"({"Moving": {"V": 1}})");
    for (int i = 0; i < 500; ++i) {
        para.AddConfig(moving, "ASW");
        if (i % 2 == 0) {
            para.Clear("Moving");
        } else {
            para.GetOutParas("Moving");
        }
    }
    for (auto& t : readers) {
        t.join();
    }
    EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
