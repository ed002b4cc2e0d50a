// The real daemon restarted on a stored anti-swelling record of a full week: the week read at
// start is not updated nor published (the aging policy sees no swell) until the first day
// closes, and a scene left at the first pass is saved and reported at once.
#include <json/json.h>

#include <string>

#include "tests/e2e/sim_fixture.h"

using namespace e2e;

namespace {

constexpr const char* kAswFile = "/log/soh/asw_QBT41.dat";
constexpr int64_t kMidnight = kStart + 4 * 3600;  // the first local midnight after kStart

// A stored day of `seconds` in the bin (25..35 degC, 4400..4450 mV], 20 % on the charger.
Json::Value Day(int64_t start, int64_t seconds) {
    Json::Value day(Json::objectValue);
    day["Tstart"] = Json::Int64(start);
    day["Tend"] = Json::Int64(start + seconds);
    day["Tstat"] = Json::Int64(seconds);
    day["Tusb_in"] = Json::Int64(seconds / 5);
    day["Sim"] = 1;
    for (int r = 0; r < 5; ++r) {
        Json::Value row(Json::arrayValue);
        for (int c = 0; c < 6; ++c) {
            row.append(Json::Int64(r == 1 && c == 4 ? seconds : 0));
        }
        day["SwellTimes"].append(row);
    }
    return day;
}

// Seven closed days and today (started an hour before kStart), in the scene of group 1 that a
// week mostly off the charger leaves.
std::string Record() {
    Json::Value root(Json::objectValue);
    root["AswPolicy"] = "3.1";
    for (int v : {4100, 4200, 4300, 4400, 4450}) {
        root["Vbat"].append(v);
    }
    for (int t : {25, 35, 40, 45}) {
        root["Temp"].append(t);
    }
    root["Scene"] = 1;
    root["ConditonGroupNo"] = 1;
    root["TReport"] = Json::Int64(kStart - 3600);
    root["Addup"]["Tstart"] = Json::Int64(kStart - 30 * 86400);
    const int64_t today = kStart - 3600;
    for (int i = 7; i > 0; --i) {
        root["Day"].append(Day(today - i * 86400, 86399));
    }
    root["Day"].append(Day(today, 0));
    return Json::FastWriter().write(root);
}

class AswExactTest : public SimTest {
protected:
    // The swell the aging policy took from the weekly value at its next event (x 1000), or -1.
    int SwellAtNextAgingEvent() {
        const std::string tag = "basp swell ";
        const int before = CountLog(tag);
        nodes.RaiseEvent(kAging);
        auto deadline = std::chrono::steady_clock::now() + seconds(20);
        while (CountLog(tag) <= before) {
            if (std::chrono::steady_clock::now() > deadline) {
                return -1;
            }
            std::this_thread::sleep_for(milliseconds(5));
        }
        const std::string log = dev.Read("/quen.log");
        return atoi(log.c_str() + log.rfind(tag) + tag.size());
    }
    Json::Value Saved() {
        Json::Value saved;
        Json::Reader().parse(dev.Read(kAswFile), saved);
        return saved;
    }
};

}  // namespace

TEST_F(AswExactTest, AWeekReadAtStartIsPublishedOnlyAtTheFirstDayClose) {
    dev.Write(kAswFile, Record());
    Start(1);
    size_t from = 0;
    ASSERT_TRUE(Written(kDmd, "asw 930100", from)) << Log();
    // The scene was left at the first pass, saved at once and reported with the stored week.
    auto deadline = std::chrono::steady_clock::now() + seconds(20);
    while (Saved()["Scene"].asUInt() != 0 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(milliseconds(5));
    }
    EXPECT_EQ(Saved()["Scene"].asUInt(), 0u) << Log();
    bool reported = false;
    for (const Json::Value& event : dev.BigData()) {
        if (event["id"].asUInt() == 930001006u) {
            reported = true;
            EXPECT_EQ(EventField(event, "SWELP").asDouble(), 0.0);
        }
    }
    EXPECT_TRUE(reported) << Log();
    // Before any day close the aging policy reads no weekly swell.
    ASSERT_TRUE(Written(kPolicy, "", from = 0)) << Log();  // the aging policy has started
    EXPECT_EQ(SwellAtNextAgingEvent(), 0) << Log();

    // Fast to the first day close: the week of the last seven days is published.
    daemon.Stop(SIGTERM, 2000);
    Launch(2000);
    auto closed = [&] {
        const Json::Value days = Saved()["Day"];
        return days.size() == 8 && days[7]["Tstart"].asInt64() >= kMidnight;
    };
    deadline = std::chrono::steady_clock::now() + seconds(60);
    while (!closed() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(milliseconds(5));
    }
    ASSERT_TRUE(closed()) << Log();
    // Six stored days at 0.012 a day, and the little the closed day added.
    EXPECT_GE(SwellAtNextAgingEvent(), 71) << Log();
}
