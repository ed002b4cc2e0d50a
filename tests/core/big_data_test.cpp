// The big-data builder: fields reach the reporter in order with their kinds, and a reporter
// that cannot create events leaves a harmless, empty builder.
#include <sstream>
#include <string>

#include "core/soh_big_data.h"
#include "tests/support/fake_device.h"

namespace {

using BigDataTest = FakeDeviceTest;

TEST_F(BigDataTest, FieldsAreSentInOrderWithTheirKindsAndOnlyWhenSent) {
    {
        SOHBigData unsent(930001001u);
        EXPECT_EQ(unsent.Set("Dropped", 1), 0);
    }  // destroyed without Send: nothing reported
    EXPECT_TRUE(dev.BigData().empty());

    const int levels[3] = {4, -5, 6};
    SOHBigData event(930001007u);
    ASSERT_TRUE(event.Available());
    EXPECT_EQ(event.Set("Model", "ABC12"), 0);
    EXPECT_EQ(event.Set("Cycles", -3), 0);
    EXPECT_EQ(event.Set("ActDays", 5000000000L), 0);
    EXPECT_EQ(event.Set("Fcc", 0.5f), 0);
    EXPECT_EQ(event.Set("Levels", levels, 3u), 0);
    EXPECT_EQ(event.Send(), 0);
    Json::Value expected;
    std::istringstream(R"({"id": 930001007, "fields": [
        {"key": "Model", "type": "string", "value": "ABC12"},
        {"key": "Cycles", "type": "int", "value": -3},
        {"key": "ActDays", "type": "long", "value": 5000000000},
        {"key": "Fcc", "type": "float", "value": 0.5},
        {"key": "Levels", "type": "int[]", "value": [4, -5, 6]}]})") >>
        expected;
    EXPECT_EQ(dev.BigData(), std::vector<Json::Value>{expected});

    // A reporter that cannot create events leaves an empty builder; its failures pass on.
    dev.Write("/bms/unavailable", "");
    SOHBigData none(930001007u);
    EXPECT_FALSE(none.Available());
    EXPECT_EQ(none.Set("Cycles", 1), -1);
    EXPECT_EQ(none.Send(), -1);
    EXPECT_EQ(dev.BigData().size(), 1u);
}

}  // namespace
