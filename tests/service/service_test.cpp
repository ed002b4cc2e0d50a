// The control service through its real socket: routing, statuses, and many clients at once.
#include <atomic>
#include <thread>
#include <vector>

#include "core/soh_estimator.h"
#include "core/soh_log.h"
#include "daemon/soh_declare.h"
#include "platform/host/binder_client.h"
#include "service/soh_service.h"
#include "tests/support/fake_device.h"

namespace {

using android::Parcel;
using android::status_t;
using android::String8;

class ServiceTest : public FakeDeviceTest {
protected:
    void SetUp() override {
        dev.CopyTree("examples/device");
        SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
        DeclearEstimators();
        DeclearProtectors();
        ASSERT_NE(EstimatorPool().GetObjectByName("APP"), nullptr);
        SohService::Start();
    }
    std::string Socket() { return dev.HostPath("/dev/socket/soh.service"); }
    status_t Get(const std::string& name, std::string* value, BinderClient* client = nullptr) {
        Parcel data, reply;
        data.writeString8(String8(name.c_str()));
        BinderClient own(Socket());
        BinderClient& c = client != nullptr ? *client : own;
        if (client == nullptr && !own.Connect(nullptr)) {
            return android::DEAD_OBJECT;
        }
        status_t st = c.Transact(SohService::kCodeGetPara, data, &reply);
        if (value != nullptr) {
            reply.setDataPosition(0);
            *value = reply.dataSize() == 0 ? "<empty>" : reply.readString8().c_str();
        }
        return st;
    }
    status_t Set(const std::string& name, const std::string& value,
                 BinderClient* client = nullptr) {
        Parcel data, reply;
        data.writeString8(String8(name.c_str()));
        data.writeString8(String8(value.c_str()));
        BinderClient own(Socket());
        BinderClient& c = client != nullptr ? *client : own;
        if (client == nullptr && !own.Connect(nullptr)) {
            return android::DEAD_OBJECT;
        }
        return c.Transact(SohService::kCodeSetPara, data, &reply);
    }
};

TEST_F(ServiceTest, EveryNameIsRoutedToItsOwner) {
    EXPECT_EQ(dev.Property("vendor.soh_service"), "start");
    std::string v;
    EXPECT_EQ(Get("vnupd_config", &v), android::OK);
    EXPECT_EQ(v.rfind("type=QUENJSONCONFIG,", 0), 0u);
    EXPECT_EQ(Get("smart_charging", &v), android::OK);
    EXPECT_EQ(Get("smart_charge_enable", &v), android::OK);
    EXPECT_EQ(v, "0");
    // Owned by APP, which refuses them: the request reached APP and failed there.
    for (const char* name : {"smart_charge_feature", "soc_control", "vterm_dec", "ichg_limit",
                             "ichg_ratio", "close_scheme", "batt_status", "smart_charge_support"}) {
        EXPECT_EQ(Get(name, &v), android::BAD_VALUE) << name;
        EXPECT_EQ(v, "<empty>");
        EXPECT_TRUE(dev.HasLog(std::string("soh service obj APP get ") + name + " failed\n"));
    }
    EXPECT_EQ(Set("vnupd_config", "x"), android::BAD_VALUE);
    EXPECT_EQ(Set("ichg_limit", "all 1500"), android::OK);
    EXPECT_EQ(dev.Read("/sys/class/vn_power/interface/ichg_limit"), "quen all 1500");
    EXPECT_TRUE(dev.HasLog("soh service set APP:ichg_limit value all 1500\n"));
    // ASW owns its debug parameter; no ASW in this configuration.
    EXPECT_EQ(Set("dbg_asw_aswell_add", "1"), android::NAME_NOT_FOUND);
    EXPECT_TRUE(dev.HasLog("soh service obj is null of ASW\n"));
}

TEST_F(ServiceTest, UnknownNamesAndCodesGetTheirStatus) {
    std::string v;
    EXPECT_EQ(Get("SMART_CHARGING", &v), android::BAD_TYPE);
    EXPECT_TRUE(dev.HasLog("soh service obj name is null of SMART_CHARGING\n"));
    EXPECT_EQ(Set("", ""), android::BAD_TYPE);

    BinderClient client(Socket());
    ASSERT_TRUE(client.Connect(nullptr));
    Parcel data, reply;
    EXPECT_EQ(client.Transact(3, data, &reply), android::UNKNOWN_TRANSACTION);
    EXPECT_TRUE(dev.HasLog("soh service recv invalid code :3\n"));
    // A get without any name, and a name whose length runs past the data: refused, and the
    // same connection still serves.
    EXPECT_EQ(client.Transact(SohService::kCodeGetPara, data, &reply), android::BAD_TYPE);
    Parcel bad;
    bad.writeInt32(1000);
    bad.writeInt32(0x41414141);
    EXPECT_EQ(client.Transact(SohService::kCodeSetPara, bad, &reply), android::BAD_TYPE);
    EXPECT_EQ(Get("smart_charge_enable", &v, &client), android::OK);
}

TEST_F(ServiceTest, ConcurrentClientsGetTheirOwnReplies) {
    constexpr int kThreads = 6;
    constexpr int kRounds = 100;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            BinderClient client(Socket());
            if (!client.Connect(nullptr)) {
                ++wrong;
                return;
            }
            for (int i = 0; i < kRounds; ++i) {
                std::string v;
                if (t % 2 == 0) {
                    std::string limit = "all " + std::to_string(1000 + t * kRounds + i);
                    wrong += Set("ichg_limit", limit, &client) != android::OK;
                } else {
                    wrong += Get("smart_charge_enable", &v, &client) != android::OK || v != "0";
                    wrong += Get("nope", &v, &client) != android::BAD_TYPE;
                }
            }
        });
    }
    for (auto& t : threads) {
        t.join();
    }
    EXPECT_EQ(wrong.load(), 0);
    std::string line = dev.Read("/sys/class/vn_power/interface/ichg_limit");
    EXPECT_EQ(line.rfind("quen all ", 0), 0u);
}

}  // namespace
