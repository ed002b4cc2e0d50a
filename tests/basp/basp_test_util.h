// Shared set-up of the aging-policy tests: the sample device on the manual clock, its "BASP"
// configuration, kernel records written to the aging-data node, and the persistent record
// decoded with its schema.
#pragma once

#include <stdlib.h>
#include <time.h>

#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>

#include "basp/basp_battery.h"
#include "basp/basp_nodes.h"
#include "basp_db.pb.h"
#include "core/soh_configure.h"
#include "core/soh_log.h"
#include "platform/host/soh_clock_test.h"
#include "tests/support/fake_device.h"

constexpr int64_t kSec = 1000000000LL;
constexpr uint32_t kT0 = 1700000000;  // s since the epoch
constexpr uint32_t kDay = 86400;

class BaspTest : public FakeDeviceTest {
protected:
    void SetUp() override {
        dev.CopyTree("examples/device");
        SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
        SohClockTest::SetManual(static_cast<int64_t>(kT0) * kSec);
        setenv("TZ", "UTC", 1);
        tzset();
    }

    static void SetTime(uint32_t seconds) {
        SohClockTest::SetWall(static_cast<int64_t>(seconds) * kSec);
    }

    // The sample device's "BASP" object (battery "QBT41", policy "2.0", four stages).
    static Json::Value Config() { return SOHConfigure::GetEstimatorsConfigure()["BASP"]; }
    static Json::Value& Entry(Json::Value& root) { return root["Battery"][0]; }

    static BaspBattery::BatteryAgingData Record(uint32_t cycles,
                                                std::initializer_list<uint32_t> fccs,
                                                uint32_t design = 4500) {
        BaspBattery::BatteryAgingData d{};
        d.designFcc = design;
        d.cycleCount = cycles;
        d.fccCount = static_cast<uint32_t>(fccs.size());
        uint32_t i = 0;
        for (uint32_t f : fccs) {
            d.fccs[i++] = f;
        }
        return d;
    }
    void WriteRecord(const BaspBattery::BatteryAgingData& d) {
        dev.Write(BaspNodes::kAgingData, std::string(reinterpret_cast<const char*>(&d), sizeof(d)));
    }

    // One kernel event as the estimator handles it: a battery built from `root`, updated with
    // the record, then dropped. Null when the battery could not be initialised.
    std::unique_ptr<BaspBattery> Event(const Json::Value& root,
                                       const BaspBattery::BatteryAgingData& d) {
        auto battery = std::make_unique<BaspBattery>(root["Battery"][0]["Name"].asString());
        if (battery->Init(root, root["Battery"][0]) != 0) {
            return nullptr;
        }
        battery->Update(d);
        return battery;
    }

    BaspBattery::BatteryAgingPolicy SentPolicy() const {
        BaspBattery::BatteryAgingPolicy p{};
        const std::string raw = dev.Read(BaspNodes::kPolicy);
        EXPECT_EQ(raw.size(), sizeof(p));
        memcpy(&p, raw.data(), std::min(raw.size(), sizeof(p)));
        return p;
    }

    static std::string DbPath(const std::string& name = "QBT41") {
        return std::string(BaspNodes::kDbPrefix) + name + BaspNodes::kDbSuffix;
    }
    BaspDb StoredDb(const std::string& name = "QBT41") const {
        BaspDb db;
        EXPECT_TRUE(db.ParseFromString(dev.Read(DbPath(name)))) << "undecodable record";
        return db;
    }
    void StoreDb(const BaspDb& db, const std::string& name = "QBT41") {
        dev.Write(DbPath(name), db.SerializeAsString());
    }
};
