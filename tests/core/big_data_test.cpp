// The big-data builder: fields reach the reporter in order with their kinds, and a reporter
// that cannot create events leaves a harmless, empty builder.
#include <string>

#include "core/soh_big_data.h"
#include "tests/support/fake_device.h"

namespace {

using BigDataTest = FakeDeviceTest;

TEST_F(BigDataTest, FieldsAreSentInOrderWithTheirKinds) {
    {
        SOHBigData unsent(930001001u);
        ASSERT_TRUE(unsent.Available());
        EXPECT_EQ(unsent.Set("Dropped", 1), 0);
    }  // destroyed without Send: nothing reported
    EXPECT_TRUE(dev.BigData().empty());

    const int levels[3] = {4, -5, 6};
    {
        SOHBigData event(930001007u);
        ASSERT_TRUE(event.Available());
        EXPECT_EQ(event.Set("Model", "ABC12"), 0);
        EXPECT_EQ(event.Set("Cycles", -3), 0);
        EXPECT_EQ(event.Set("ActDays", 5000000000L), 0);
        EXPECT_EQ(event.Set("Fcc", 0.5f), 0);
        EXPECT_EQ(event.Set("Levels", levels, 3u), 0);
        EXPECT_EQ(event.Send(), 0);
    }
    std::vector<Json::Value> events = dev.BigData();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0]["id"].asUInt(), 930001007u);
    const Json::Value& f = events[0]["fields"];
    ASSERT_EQ(f.size(), 5u);
    const char* keys[] = {"Model", "Cycles", "ActDays", "Fcc", "Levels"};
    const char* types[] = {"string", "int", "long", "float", "int[]"};
    for (Json::ArrayIndex i = 0; i < 5; ++i) {
        EXPECT_EQ(f[i]["key"].asString(), keys[i]);
        EXPECT_EQ(f[i]["type"].asString(), types[i]);
    }
    EXPECT_EQ(f[0]["value"].asString(), "ABC12");
    EXPECT_EQ(f[1]["value"].asInt(), -3);
    EXPECT_EQ(f[2]["value"].asInt64(), 5000000000LL);
    EXPECT_DOUBLE_EQ(f[3]["value"].asDouble(), 0.5);
    ASSERT_EQ(f[4]["value"].size(), 3u);
    EXPECT_EQ(f[4]["value"][1].asInt(), -5);
}

TEST_F(BigDataTest, UnavailableReporterGivesAnEmptyBuilderThatPassesFailuresOn) {
    dev.Write("/bms/unavailable", "");
    {
        SOHBigData event(930001007u);
        EXPECT_FALSE(event.Available());
        // Nothing is checked by the builder: the reporter's failure comes back unchanged.
        EXPECT_EQ(event.Set("Model", "x"), -1);
        EXPECT_EQ(event.Set("Cycles", 1), -1);
        EXPECT_EQ(event.Send(), -1);
    }  // and the destructor has nothing to destroy
    EXPECT_TRUE(dev.BigData().empty());
    EXPECT_TRUE(dev.Logs().empty());

    dev.Remove("/bms/unavailable");
    SOHBigData later(930001007u);
    EXPECT_TRUE(later.Available());
    EXPECT_EQ(later.Send(), 0);
    EXPECT_EQ(dev.BigData().size(), 1u);
}

}  // namespace
