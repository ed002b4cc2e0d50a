// The control service under load and abuse: concurrent clients mixing valid, refused and
// malformed requests; every request gets its answer, the daemon keeps a bounded number of
// threads and little memory, and its caps (connections, payload) hold.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <fstream>
#include <random>

#include "platform/host/binder_client.h"
#include "platform/host/binder_wire.h"
#include "tests/e2e/sim_fixture.h"

namespace {

using namespace e2e;
using android::Parcel;
using android::String8;

class LoadTest : public SimTest {
protected:
    std::string Socket() { return dev.HostPath("/dev/socket/soh.service"); }
    // A raw connection to the service, -1 on failure.
    int Raw() {
        int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        strncpy(addr.sun_path, Socket().c_str(), sizeof(addr.sun_path) - 1);
        if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
            close(fd);
            return -1;
        }
        timeval tv{10, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));
        return fd;
    }
    // The status of the reply to a raw request, or a note of what happened instead.
    static std::string RawReply(int fd) {
        int32_t status = 0;
        ssize_t n = recv(fd, &status, sizeof(status), MSG_WAITALL);
        return n == sizeof(status) ? std::to_string(status) : n == 0 ? "closed" : "error";
    }
    long Status(const std::string& key) {
        std::ifstream in("/proc/" + std::to_string(daemon.Pid()) + "/status");
        std::string line;
        while (std::getline(in, line)) {
            if (line.rfind(key + ":", 0) == 0) {
                return atol(line.c_str() + key.size() + 1);
            }
        }
        return -1;
    }
};

}  // namespace

TEST_F(LoadTest, ConcurrentClientsGetEveryAnswerWithinBoundedThreadsAndMemory) {
    Start(1);
    ASSERT_TRUE(ServiceUp()) << Log();
    const long threadsBefore = Status("Threads");

    constexpr int kClients = 12;
    constexpr auto kDuration = seconds(3);
    std::atomic<long> sent{0}, answered{0}, wrong{0}, abused{0};
    std::vector<std::vector<double>> latencies(kClients);
    std::vector<std::thread> clients;
    for (int c = 0; c < kClients; ++c) {
        clients.emplace_back([&, c] {
            std::mt19937 random(c);
            BinderClient client(Socket());
            if (!client.Connect(nullptr)) {
                ++wrong;
                return;
            }
            auto end = std::chrono::steady_clock::now() + kDuration;
            while (std::chrono::steady_clock::now() < end) {
                int kind = std::uniform_int_distribution<int>(0, 9)(random);
                if (kind == 9 && c < 2) {  // abuse on a connection of its own
                    int fd = Raw();
                    uint32_t header[4] = {BinderWire::kMagic ^ (random() & 1 ? 0u : 1u), 1, 0,
                                          random() & 1 ? 100u : BinderWire::kMaxPayload + 1};
                    send(fd, header, sizeof(header) - (random() % 8), MSG_NOSIGNAL);
                    close(fd);
                    ++abused;
                    continue;
                }
                Parcel data, reply;
                uint32_t code = 1;
                android::status_t expect = android::OK;
                if (kind < 4) {
                    data.writeString8(String8("smart_charging"));
                } else if (kind < 7) {
                    code = 2;
                    data.writeString8(String8("ichg_limit"));
                    data.writeString8(String8(("all " + std::to_string(1000 + kind)).c_str()));
                } else if (kind < 8) {
                    data.writeString8(String8("no_such_parameter"));
                    expect = android::BAD_TYPE;
                } else {
                    code = 2;
                    data.writeString8(String8("ichg_limit"));
                    data.writeString8(String8("lvc 60"));
                    expect = android::BAD_VALUE;
                }
                ++sent;
                auto t0 = std::chrono::steady_clock::now();
                android::status_t status = client.Transact(code, data, &reply);
                latencies[c].push_back(
                    std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - t0)
                        .count());
                ++(status == expect ? answered : wrong);
            }
        });
    }
    for (std::thread& t : clients) {
        t.join();
    }
    EXPECT_TRUE(Alive()) << Log();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(answered.load(), sent.load());
    EXPECT_GE(sent.load(), kClients);  // every client got going (no rate: machines differ)
    const long threadsAfter = Status("Threads");
    EXPECT_LE(threadsAfter, threadsBefore + BinderWire::kMaxConnections);
    std::vector<double> all;
    for (const auto& l : latencies) {
        all.insert(all.end(), l.begin(), l.end());
    }
    std::sort(all.begin(), all.end());
    auto pct = [&](double p) {
        return all.empty() ? 0.0 : all[static_cast<size_t>(p * (all.size() - 1))];
    };
    printf(
        "[ figures  ] %ld requests from %d clients in 3 s (%ld abusive connections): "
        "all answered; latency us p50 %.0f p90 %.0f p99 %.0f max %.0f; daemon threads %ld -> "
        "%ld, VmRSS %ld kB, VmHWM %ld kB\n",
        sent.load(), kClients, abused.load(), pct(0.5), pct(0.9), pct(0.99),
        all.empty() ? 0 : all.back(), threadsBefore, threadsAfter, Status("VmRSS"),
        Status("VmHWM"));
}

TEST_F(LoadTest, ConnectionAndPayloadCapsHold) {
    Start(1);
    ASSERT_TRUE(ServiceUp()) << Log();
    // Sixteen connections, each answered once, so that each holds its slot for sure.
    std::vector<int> idle;
    Parcel get;
    get.writeString8(String8("smart_charging"));
    for (int i = 0; i < BinderWire::kMaxConnections; ++i) {
        idle.push_back(Raw());
        ASSERT_GE(idle.back(), 0);
        uint32_t header[4] = {BinderWire::kMagic, 1, 0, static_cast<uint32_t>(get.dataSize())};
        send(idle.back(), header, sizeof(header), MSG_NOSIGNAL);
        send(idle.back(), get.data(), get.dataSize(), MSG_NOSIGNAL);
        ASSERT_EQ(RawReply(idle.back()), "0") << i;
    }
    int extra = Raw();
    ASSERT_GE(extra, 0);
    EXPECT_EQ(RawReply(extra), "closed") << Log();  // one more is accepted and closed at once
    close(extra);
    for (int fd : idle) {
        close(fd);
    }
    std::this_thread::sleep_for(milliseconds(100));

    int fd = Raw();
    uint32_t header[4] = {BinderWire::kMagic, 1, 0, BinderWire::kMaxPayload + 1};
    ASSERT_EQ(send(fd, header, sizeof(header), MSG_NOSIGNAL), static_cast<ssize_t>(sizeof(header)));
    EXPECT_EQ(RawReply(fd), std::to_string(android::BAD_VALUE));
    close(fd);
    EXPECT_EQ(Ctl("get smart_charging"), 0);  // still serving
}
