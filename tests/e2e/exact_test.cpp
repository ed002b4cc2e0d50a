// The whole daemon on the fake kernel where its output must be exact: a restored SOC window
// that outlives the heartbeat period, a current demand of -1, and the policy version in the
// weekly aging report.
#include <chrono>
#include <string>
#include <thread>

#include "tests/e2e/sim_fixture.h"

using namespace e2e;

namespace {

constexpr const char* kSocControl = "class/vn_power/soc_control/control";
constexpr const char* kConfig = "/odm/etc/power/quen.json";

// Replaces every `from` in `text` by `to`.
std::string ReplaceAll(std::string text, const std::string& from, const std::string& to) {
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at)) {
        text.replace(at, from.size(), to);
        at += to.size();
    }
    return text;
}

using ExactTest = SimTest;

TEST_F(ExactTest, RestoredSocWindowOutlivesTheHeartbeatAndIsRestoredAgain) {
    Start(1000);  // 2460 s pass in under three real seconds
    ASSERT_TRUE(ServiceUp()) << Log();
    size_t from = 0;
    ASSERT_EQ(Ctl("set soc_control '2 80 60'"), 0);
    ASSERT_TRUE(Written(kSocControl, "quen 1 60 80", from)) << Log();
    ASSERT_EQ(Ctl("set ichg_limit 'all 1500'"), 0);  // restored with a heartbeat: a time mark
    ASSERT_TRUE(Written(kIchgLimit, "quen all 1500", from = 0)) << Log();
    daemon.Stop(SIGKILL, 0);

    from = nodes.History().size();
    Launch(1000);
    ASSERT_TRUE(Written(kSocControl, "quen 1 60 80", from)) << Log();
    // The restored current limit lapses 2460 s after the start; one more step after it the
    // SOC window would have lapsed too if it had a heartbeat.
    const std::string lapse = "heartbeat of NonDcCurLimitator timeout restore default value";
    ASSERT_TRUE(Logged(lapse, 2)) << Log();
    EXPECT_EQ(CountLog("heartbeat of SocLimitator timeout"), 0) << Log();
    daemon.Stop(SIGKILL, 0);

    from = nodes.History().size();
    Launch(1000);
    EXPECT_TRUE(Written(kSocControl, "quen 1 60 80", from)) << Log();
    EXPECT_EQ(CountLog("restore soc control from APP with value 2 60 80 1 0"), 2) << Log();
}

TEST_F(ExactTest, CurrentDemandOfMinusOneIsWrittenAndHeldByAHeartbeat) {
    Start(1);
    size_t from = 0;
    // The aging policy's limit is in force first; -1 is then the smallest demand.
    ASSERT_TRUE(Written(kIchgLimit, "quen all 4500", from)) << Log();
    ASSERT_TRUE(ServiceUp()) << Log();
    ASSERT_EQ(Ctl("set ichg_limit 'all -1'"), 0);
    EXPECT_TRUE(Written(kIchgLimit, "quen all -1", from)) << Log();
    EXPECT_TRUE(Logged("start heartbeat of NonDcCurLimitator", 1)) << Log();
}

TEST_F(ExactTest, WeeklyAgingReportCarriesTheDecimalPolicyVersion) {
    // The policy name is also its version: "2.01" must report 2010, not a binary product.
    std::string config = dev.Read(kConfig);
    ASSERT_NE(config.find("\"BaspPolicy\": \"2.0\""), std::string::npos);
    dev.Write(kConfig,
              ReplaceAll(ReplaceAll(config, "\"BaspPolicy\": \"2.0\"", "\"BaspPolicy\": \"2.01\""),
                         "\"2.0\": [", "\"2.01\": ["));
    Start(1);
    // The record in the tree is handled at start, and the first event reports at once.
    std::string chaIctp;
    auto deadline = std::chrono::steady_clock::now() + seconds(60);
    while (chaIctp.empty() && std::chrono::steady_clock::now() < deadline) {
        for (const Json::Value& event : dev.BigData()) {
            for (const Json::Value& field : event["fields"]) {
                if (event["id"].asUInt() == 930001007u && field["key"].asString() == "ChaICTp") {
                    chaIctp = std::to_string(field["value"].asInt64());
                }
            }
        }
        std::this_thread::sleep_for(milliseconds(10));
    }
    EXPECT_EQ(chaIctp, "2010") << Log();
}

}  // namespace
