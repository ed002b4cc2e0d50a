// Anti-swelling value classes: mixed-kind JSON arithmetic, the bin table, and the accounting
// of one period on the manual clock (first update, steps, gaps, time speed, merges).
#include <cstdint>
#include <limits>

#include "asw/asw_common.h"
#include "asw/asw_data_object.h"
#include "asw/asw_table.h"
#include "asw/extra_j_value.h"
#include "platform/host/soh_clock_test.h"
#include "tests/support/fake_device.h"

namespace {

constexpr int64_t kSec = 1000000000LL;
constexpr int64_t kStart = 1700000000LL;

Json::Value I(int v) {
    return Json::Value(Json::Int(v));
}
Json::Value U(unsigned v) {
    return Json::Value(Json::UInt(v));
}
Json::Value R(double v) {
    return Json::Value(v);
}
bool Eq(const Json::Value& a, const Json::Value& b) {
    return ExtraJValue(a) == ExtraJValue(b);
}
bool Lt(const Json::Value& a, const Json::Value& b) {
    return ExtraJValue(a) < ExtraJValue(b);
}

// Voltage edges 3800/4200 mV, temperature edges 25/45 degC: a 3 x 3 table.
const Json::Value kVbat = ParseJson("[3800, 4200]");
const Json::Value kTemp = ParseJson("[25, 45]");

}  // namespace

TEST(ExtraJValueTest, ComparesAcrossKindsBySignOfDifference) {
    // jsoncpp alone orders by type first: an unsigned would never be below a signed.
    EXPECT_TRUE(Lt(U(5), I(7)));
    EXPECT_FALSE(Lt(I(7), U(5)));
    EXPECT_TRUE(Lt(R(2.5), U(3)));
    EXPECT_FALSE(Lt(U(3), R(3.0)));
    EXPECT_TRUE(Eq(I(3), U(3)));
    EXPECT_TRUE(Eq(I(3), R(3.0000001)));
    EXPECT_FALSE(Eq(I(3), R(3.00001)));
    // Same kind: jsoncpp's exact comparison, no tolerance.
    EXPECT_FALSE(Eq(R(3.0), R(3.0000001)));
    EXPECT_FALSE(Eq(Json::Value("3"), I(3)));
    EXPECT_FALSE(Eq(Json::Value(), I(0)));
}

TEST(ExtraJValueTest, IntegralResultsSaturateAndKeepSign) {
    Json::Value sum = ExtraJValue(U(4294967295u)) + ExtraJValue(U(1));
    EXPECT_EQ(sum.type(), Json::uintValue);
    EXPECT_EQ(sum.asUInt(), 4294967295u);

    Json::Value diff = ExtraJValue(I(2)) - ExtraJValue(U(5));
    EXPECT_EQ(diff.type(), Json::intValue);
    EXPECT_EQ(diff.asInt(), -3);
    // Far below the signed range still stays negative.
    EXPECT_LT((ExtraJValue(I(45)) - ExtraJValue(U(4294967295u))).asInt(), 0);

    // A real without fraction counts as integral; with one the result stays real.
    Json::Value product = ExtraJValue(R(2.0)) * ExtraJValue(I(3));
    EXPECT_EQ(product.type(), Json::uintValue);
    EXPECT_EQ(product.asUInt(), 6u);
    Json::Value half = ExtraJValue(R(1.5)) + ExtraJValue(I(1));
    EXPECT_EQ(half.type(), Json::realValue);
    EXPECT_DOUBLE_EQ(half.asDouble(), 2.5);
    EXPECT_EQ((ExtraJValue(I(3)) - ExtraJValue(I(3))).type(), Json::intValue);

    EXPECT_TRUE((ExtraJValue(Json::Value("1")) + ExtraJValue(I(1))).isNull());
    EXPECT_TRUE((ExtraJValue(Json::Value(Json::arrayValue)) * ExtraJValue(I(1))).isNull());
}

TEST(ExtraJValueTest, DivisionIsRealAndZeroForTinyDivisor) {
    Json::Value q = ExtraJValue(I(6)) / ExtraJValue(I(3));
    EXPECT_EQ(q.type(), Json::realValue);
    EXPECT_DOUBLE_EQ(q.asDouble(), 2.0);
    Json::Value tiny = ExtraJValue(I(1)) / ExtraJValue(R(1e-7));
    EXPECT_EQ(tiny.type(), Json::intValue);
    EXPECT_EQ(tiny.asInt(), 0);
    EXPECT_EQ((ExtraJValue(U(7)) / ExtraJValue(U(0))).asInt(), 0);
    EXPECT_TRUE((ExtraJValue(Json::Value()) / ExtraJValue(I(3))).isNull());
}

TEST(AswTableTest, BinsAreClosedOnTheRightWithExtraLastBin) {
    AswTable t(kVbat, kTemp);
    ASSERT_TRUE(t.IsLegal());
    struct Case {
        unsigned mv;
        unsigned c;
        int row;
        int col;
    } cases[] = {
        {3800, 25, 0, 0},
        {3801, 26, 1, 1},
        {4200, 45, 1, 1},
        {4201, 46, 2, 2},
        {0, 0, 0, 0},
        // -1 degC arrives as the largest unsigned number: the top row.
        {3900, static_cast<unsigned>(-1), 2, 1},
    };
    int mark = 1;
    for (const Case& c : cases) {
        t(U(c.mv), U(c.c)) = I(mark);
        EXPECT_EQ(t.Table()[c.row][c.col].asInt(), mark) << c.mv << " mV " << c.c << " C";
        ++mark;
    }
}

TEST(AswTableTest, IllegalTablesSendEverythingToFirstCell) {
    const Json::Value bad[] = {
        ParseJson("[[1,2,3],[4,5,6]]"),            // one row short
        ParseJson("[[1,2,3],[4,5],[7,8,9]]"),      // a short row
        ParseJson("\"text\""),                     // not an array
        ParseJson("[[1,2,3],{\"a\":1},[7,8,9]]"),  // a row that is an object
    };
    for (const Json::Value& table : bad) {
        AswTable t(kVbat, kTemp, table);
        EXPECT_FALSE(t.IsLegal());
        Json::Value& cell = t(U(4300), U(50));
        EXPECT_EQ(cell, I(0));
        cell = U(30);
        EXPECT_EQ(t.Table()[0][0], U(30));
        // Writing the first cell never makes the table legal: a new table of the same cells
        // agrees.
        EXPECT_FALSE(t.IsLegal());
        EXPECT_FALSE(AswTable(kVbat, kTemp, t.Table()).IsLegal());
    }
    // Nor does it on a table that starts out empty or with an empty first row.
    for (const char* text : {"[]", "[[],[1,2,3],[1,2,3]]"}) {
        AswTable t(kVbat, kTemp, ParseJson(text));
        t(U(0), U(0)) = U(1);
        EXPECT_FALSE(t.IsLegal()) << text;
        EXPECT_FALSE(AswTable(kVbat, kTemp, t.Table()).IsLegal()) << text;
    }
    // Empty axes: no table is built and none is legal.
    AswTable empty(Json::Value(Json::arrayValue), kTemp);
    EXPECT_FALSE(empty.IsLegal());
    EXPECT_TRUE(empty.Table().isNull());
    // An illegal operand leaves a sum unchanged; different axes give no product.
    AswTable good(kVbat, kTemp, ParseJson("[[1,1,1],[1,1,1],[1,1,1]]"));
    good += AswTable(kVbat, kTemp, ParseJson("[[1,1,1],[1,1,1]]"));
    EXPECT_EQ(good.Table()[0][0], I(1));
    EXPECT_TRUE((good * AswTable(ParseJson("[3800]"), kTemp)).isNull());
}

TEST(AswTableTest, ProductFollowsTheKindRulesCellByCell) {
    AswTable seconds(kVbat, kTemp, ParseJson("[[10,0,0],[0,20,0],[0,0,30]]"));
    // Real products without a fraction sum as integers; one with a fraction makes the sum real.
    Json::Value whole =
        seconds * AswTable(kVbat, kTemp, ParseJson("[[0.5,0,0],[0,0.25,0],[0,0,2.0]]"));
    EXPECT_EQ(whole.type(), Json::uintValue);
    EXPECT_EQ(whole, U(70));
    Json::Value real = seconds * AswTable(kVbat, kTemp, ParseJson("[[0.25,0,0],[0,0,0],[0,0,0]]"));
    EXPECT_EQ(real.type(), Json::realValue);
    EXPECT_DOUBLE_EQ(real.asDouble(), 2.5);
    // A missing cell or a non-number anywhere makes the whole product null.
    EXPECT_TRUE((seconds * AswTable(kVbat, kTemp, ParseJson("[[1,1,1],[1,1],[1,1,1]]"))).isNull());
    EXPECT_TRUE(
        (seconds * AswTable(kVbat, kTemp, ParseJson("[[1,1,1],[1,\"a\",1],[1,1,1]]"))).isNull());
}

TEST(AswTableTest, SumsProductsAndAccumulationsSkipBinZero) {
    AswTable t(kVbat, kTemp, ParseJson("[[1,2,3],[4,5,6],[7,8,9]]"));
    AswTable ones(kVbat, kTemp, ParseJson("[[1,1,1],[1,1,1],[1,1,1]]"));
    EXPECT_EQ(t * ones, U(45));
    t += ones;
    EXPECT_EQ(t.Table()[2][2], U(10));
    // t is now [[2,3,4],[5,6,7],[8,9,10]].
    EXPECT_EQ(t.AccumulateX(U(0)), U(3 + 4 + 6 + 7 + 9 + 10));  // below every edge
    EXPECT_EQ(t.AccumulateX(I(4000)), U(3 + 4 + 6 + 7 + 9 + 10));
    EXPECT_EQ(t.AccumulateX(U(4200)), U(4 + 7 + 10));
    EXPECT_EQ(t.AccumulateX(U(4294967295u)), U(4 + 7 + 10));
    EXPECT_EQ(t.AccumulateY(U(0)), U(5 + 6 + 7 + 8 + 9 + 10));
    EXPECT_EQ(t.AccumulateY(U(45)), U(8 + 9 + 10));
}

// A product reads numbers kept beside the JSON cells: every way a cell can change must show
// in the next product, as a product over the JSON table itself would give it.
TEST(AswTableTest, ProductSeesEveryChangeOfTheCells) {
    const AswTable rates(kVbat, kTemp, ParseJson("[[1,2,3],[4,5,6],[7,8,9]]"));
    AswTable seconds(kVbat, kTemp);
    EXPECT_EQ(rates * seconds, I(0));
    // The handed-out cell, changed after the numbers were built.
    seconds(U(3801), U(26)) = U(10);  // [1][1], rate 5
    EXPECT_EQ(rates * seconds, U(50));
    Json::Value& cell = seconds(U(3801), U(26));
    cell = ExtraJValue(cell) + ExtraJValue(U(2));
    EXPECT_EQ(rates * seconds, U(60));
    // Two cells changed between products: both count.
    seconds(U(3700), U(20)) = U(1);  // [0][0], rate 1
    seconds(U(4300), U(50)) = U(1);  // [2][2], rate 9
    EXPECT_EQ(rates * seconds, U(70));
    // A real cell turns the sum real; a text cell makes it null, and a number back restores it.
    seconds(U(4300), U(50)) = R(0.5);
    EXPECT_EQ((rates * seconds).type(), Json::realValue);
    EXPECT_DOUBLE_EQ((rates * seconds).asDouble(), 65.5);
    seconds(U(4300), U(50)) = Json::Value("x");
    EXPECT_TRUE((rates * seconds).isNull());
    seconds(U(4300), U(50)) = U(0);
    EXPECT_EQ(rates * seconds, U(61));
    // A merge and an assignment replace cells wholesale.
    seconds += AswTable(kVbat, kTemp, ParseJson("[[0,0,0],[0,0,0],[1,0,0]]"));  // [2][0], rate 7
    EXPECT_EQ(rates * seconds, U(68));
    AswTable copy = seconds;
    seconds = AswTable(kVbat, kTemp);
    EXPECT_EQ(rates * seconds, I(0));
    EXPECT_EQ(rates * copy, U(68));
    // The kept numbers of the left operand are refreshed too.
    AswTable left = copy;
    left(U(3801), U(26)) = U(0);
    EXPECT_EQ(left * rates, U(8));
    EXPECT_EQ(rates * copy, U(68));  // a copy's cells are its own
}

TEST(AswCommonTest, DeviceReadSentinelsAndStubMap) {
    FakeDevice dev;
    EXPECT_EQ(Asw::ReadDeviceStrToT<unsigned>("/sys/none"), 4294967295u);
    EXPECT_EQ(Asw::ReadDeviceStrToT<int>("/sys/none"), 2147483647);
    EXPECT_EQ(Asw::ReadDeviceStrToT<float>("/sys/none"), 3.4028235e38f);
    dev.Write(AswNodes::kBatteryTemp, "-55\n");
    EXPECT_EQ(Asw::ReadDeviceStrToT<int>(AswNodes::kBatteryTemp), -55);

    Asw::SetValue(AswNodes::kBatteryTemp, 321.9);
    Asw::SetStubMode(true);
    EXPECT_EQ(Asw::ReadDeviceStrToT<int>(AswNodes::kBatteryTemp), 321);
    EXPECT_FLOAT_EQ(Asw::ReadDeviceStrToT<float>(AswNodes::kBatteryTemp), 321.9f);
    EXPECT_EQ(Asw::ReadDeviceStrToT<unsigned>("/sys/none"), 0u);
    Asw::SetStubMode(false);
    EXPECT_EQ(Asw::ReadDeviceStrToT<int>(AswNodes::kBatteryTemp), -55);
}

TEST(AswCommonTest, TimeSpeedRunsInWholeSecondSteps) {
    SohClockTest::SetManual(kStart * kSec);
    EXPECT_EQ(Asw::ToSeconds(Asw::Now()), kStart);
    EXPECT_TRUE(Asw::SetTimeSpeed(60));
    EXPECT_FALSE(Asw::SetTimeSpeed(60));
    SohClockTest::Advance(kSec * 19 / 10);
    EXPECT_EQ(Asw::ToSeconds(Asw::Now()), kStart + 60);
    EXPECT_TRUE(Asw::SetTimeSpeed(0));  // 0 means 1
    EXPECT_EQ(Asw::GetTimeSpeed(), 1u);
}

class AswDataObjectTest : public FakeDeviceTest {
protected:
    void SetUp() override {
        SohClockTest::SetManual(kStart * kSec);
        dev.Write(AswNodes::kBatteryCycleCount, "12");
    }
    static AswDataObject Make(const std::string& data = "null") {
        return AswDataObject(AswTable(kVbat, kTemp), ParseJson(data));
    }
    // One update at 4000 mV, 30 degC, with the given charger and SIM state.
    static void Step(AswDataObject& o, int64_t seconds, bool usb, bool sim = false) {
        SohClockTest::Advance(seconds * kSec);
        o.Update(4000, 30, usb, sim, false, AswTable(kVbat, kTemp));
    }
};

TEST_F(AswDataObjectTest, PrepareStartsPeriodOrCreditsDownTimeAsChargerOut) {
    AswDataObject fresh = Make();
    fresh.Update(4000, 30, true, true, true, AswTable(kVbat, kTemp));
    EXPECT_EQ(fresh["Tstart"], U(kStart));
    EXPECT_EQ(fresh["Tend"], U(kStart));
    EXPECT_EQ(fresh["CycStart"], I(12));
    EXPECT_EQ(fresh["Tstat"], I(0));
    EXPECT_TRUE(fresh["Tusb_in"].isNull());  // the first update only prepares

    AswDataObject resumed = Make(R"({"Tstart": 1699990000, "Tend": 1699996400, "CycStart": 3,
                                    "Tusb_out": 100, "Tstat": 1000})");
    dev.Remove(AswNodes::kBatteryCycleCount);
    resumed.Prepare();
    EXPECT_EQ(resumed["Tstart"], I(1699990000));
    EXPECT_EQ(resumed["CycStart"], I(3));
    EXPECT_EQ(resumed["Tusb_out"], U(100 + 3600));
    EXPECT_EQ(resumed["Tstat"], U(1000 + 3600));
    EXPECT_EQ(resumed["CycEnd"], I(2147483647));  // failed read stored as such

    // An end in the future credits nothing.
    AswDataObject ahead = Make(R"({"Tstart": 1, "Tend": 1800000000, "Tstat": 5})");
    ahead.Prepare();
    EXPECT_EQ(ahead["Tstat"], I(5));
    EXPECT_EQ(ahead["Tend"], U(kStart));
}

TEST_F(AswDataObjectTest, StepsCountElapsedTimeButLongGapsAndBackwardsAsOneStep) {
    AswDataObject o = Make();
    Step(o, 0, false, true);  // prepares
    Step(o, 10, true, true);
    EXPECT_EQ(o["Tstat"], U(10));
    EXPECT_EQ(o["Tusb_in"], U(10));
    EXPECT_EQ(o["Tsim_in"], U(10));
    EXPECT_EQ(o["Tusb_out"], I(0));
    EXPECT_EQ(o["Taction"], I(0));
    Step(o, 17999, false);
    EXPECT_EQ(o["Tusb_out"], U(17999));
    Step(o, 18000, false);  // five hours: one default step
    EXPECT_EQ(o["Tusb_out"], U(17999 + 30));
    SohClockTest::SetWall((kStart + 100) * kSec);  // backwards
    o.Update(4000, 30, false, false, true, AswTable(kVbat, kTemp));
    EXPECT_EQ(o["Tstat"], U(10 + 17999 + 30 + 30));
    EXPECT_EQ(o["Taction"], U(30));
    EXPECT_EQ(o["Tend"], U(kStart + 100));
    EXPECT_EQ(o.GetTimeTable().Table()[1][1], U(10 + 17999 + 30 + 30));
    EXPECT_EQ(o.GetStatSeconds(), 10u + 17999 + 30 + 30);
}

TEST_F(AswDataObjectTest, TimeSpeedScalesStepsAndGapLimit) {
    AswDataObject o = Make();
    Step(o, 0, false);
    Asw::SetTimeSpeed(60);
    Step(o, 30, false);
    EXPECT_EQ(o["Tstat"], U(1800));
    Step(o, 18000, false);  // 1,080,000 accelerated seconds
    EXPECT_EQ(o["Tstat"], U(3600));
}

TEST_F(AswDataObjectTest, DerivedQuantitiesAndSwell) {
    AswDataObject o = Make();
    // One day of rate 0.5 at (4000 mV, 30 degC) and 2.0 above 4200 mV and 45 degC.
    AswTable rates(kVbat, kTemp, ParseJson("[[0,0,0],[0,0.5,0],[0,0,2.0]]"));
    o.Update(4000, 30, false, false, false, rates);
    EXPECT_TRUE(o["Pusb_in"].isNull());  // "Tstat" is 0
    EXPECT_TRUE(o["Psim_in"].isNull());
    for (int i = 0; i < 4; ++i) {  // 12 h with a charger
        SohClockTest::Advance(3 * 3600 * kSec);
        o.Update(4000, 30, true, false, false, rates);
    }
    for (int i = 0; i < 2; ++i) {  // 6 h hot and high, below 0 degC on the sensor
        SohClockTest::Advance(3 * 3600 * kSec);
        o.Update(4300, static_cast<unsigned>(-2), false, false, false, rates);
    }
    EXPECT_NEAR(o.GetSwellValue(), 0.5 * 0.5 + 2.0 * 0.25, 1e-9);
    EXPECT_NEAR(o["Pusb_in"].asDouble(), 100.0 * 12 / 18, 1e-9);
    EXPECT_EQ(o["Psim_in"], I(0));
    o.SetThreshold(4200, 45);
    EXPECT_NEAR(o["Pvbat_ov"].asDouble(), 100.0 * 6 / 18, 1e-9);
    EXPECT_NEAR(o["Ptbat_ot"].asDouble(), 100.0 * 6 / 18, 1e-9);
    o.SetThreshold(3000, 0);
    EXPECT_EQ(o["Pvbat_ov"], U(100));

    o.SetOldAswell(0.25);
    Asw::SetValue(Asw::kAswellAddKey, 1.0);
    Json::Value aswell = o["Aswell"];
    EXPECT_EQ(aswell.type(), Json::realValue);
    EXPECT_NEAR(aswell.asDouble(), 0.75 + 0.25 + 1.0, 1e-9);
    EXPECT_EQ(o["CycCurrent"], I(12));
    EXPECT_TRUE(o["NoSuchKey"].isNull());
}

TEST_F(AswDataObjectTest, MergeKeepsExtremesAndSimAndAddsCounters) {
    AswDataObject day = Make(R"({"Tstart": 2000, "Tend": 2500, "CycStart": 5, "CycEnd": 6,
                                "Tstat": 500, "Sim": 1, "OldAswell": 0.5})");
    AswDataObject other(AswTable(kVbat, kTemp, ParseJson("[[1,0,0],[0,0,0],[0,0,7]]")),
                        ParseJson(R"({"Tstart": 1000, "Tend": 3000, "CycStart": 4, "CycEnd": 9,
                                 "Tstat": 4294967295, "Sim": 0, "Tusb_in": 40})"));
    day += other;
    EXPECT_EQ(day["Tstart"], I(1000));
    EXPECT_EQ(day["Tend"], I(3000));
    EXPECT_EQ(day["CycStart"], I(4));
    EXPECT_EQ(day["CycEnd"], I(9));
    EXPECT_EQ(day["Tstat"], U(4294967295u));
    EXPECT_EQ(day["Sim"], I(1));
    EXPECT_EQ(day["Tusb_in"], I(40));
    EXPECT_EQ(day["OldAswell"], R(0.5));
    EXPECT_EQ(day.GetTimeTable().Table()[2][2], U(7));
    EXPECT_EQ(dev.CountLog("asw Sim value abnormal changed\n"), 1);

    // A copy keeps counters and table but prepares afresh at its first update.
    AswDataObject copy(day);
    EXPECT_EQ(copy["Tstat"], U(4294967295u));
    EXPECT_EQ(copy.GetTimeTable().Table()[0][0], U(1));
    copy.Update(4000, 30, false, false, false, AswTable(kVbat, kTemp));
    EXPECT_EQ(copy["Tstat"], U(4294967295u));
    EXPECT_EQ(copy["Tend"], U(kStart));
}

// The counters of the last update reach whatever reads the data next: the data itself, a copy
// and a merge, with no derived quantity read in between; a counter that is text stays text
// until a step adds to it, which makes it null, and the next step restarts it at 0.
TEST_F(AswDataObjectTest, LastUpdateReachesDataCopiesAndMerges) {
    AswDataObject o = Make(R"({"Tusb_in": "x", "Taction": "y"})");
    Step(o, 0, false);
    Step(o, 10, true);
    EXPECT_EQ(o.GetData()["Tstat"], U(10));
    EXPECT_EQ(o.GetData()["Tend"], U(kStart + 10));
    EXPECT_TRUE(o.GetData()["Tusb_in"].isNull());
    EXPECT_EQ(o.GetData()["Taction"], Json::Value("y"));
    Step(o, 20, true);
    AswDataObject copy(o);
    EXPECT_EQ(copy["Tstat"], U(30));
    EXPECT_EQ(copy["Tusb_in"], U(20));
    Step(o, 5, false);
    AswDataObject merged = Make(R"({"Tstat": 1})");
    merged += o;
    EXPECT_EQ(merged["Tstat"], U(36));
    EXPECT_EQ(merged["Tusb_out"], U(5));
    EXPECT_EQ(merged["Taction"], Json::Value("y"));
    EXPECT_EQ(o["Tend"], U(kStart + 35));
}
