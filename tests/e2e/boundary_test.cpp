// Hostile clients and a hostile process environment at the daemon's control socket: a flood
// of mixed requests, clients that stop half-way or never read, names and values made of
// format directives and path separators, and a daemon that runs out of descriptors. The
// daemon answers every well-formed request, keeps its memory and threads, treats text as
// data, and recovers as soon as the fault ends.
#include <dirent.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include "platform/host/binder_client.h"
#include "platform/host/binder_wire.h"
#include "tests/e2e/sim_fixture.h"

namespace {

using namespace e2e;
using android::Parcel;
using android::status_t;
using android::String8;

class BoundaryTest : public SimTest {
protected:
    std::string Socket() { return dev.HostPath("/dev/socket/soh.service"); }
    // A connected raw socket, -1 on failure.
    int Raw() {
        int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        strncpy(addr.sun_path, Socket().c_str(), sizeof(addr.sun_path) - 1);
        if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
            close(fd);
            return -1;
        }
        return fd;
    }
    static std::vector<uint8_t> Request(uint32_t code, const std::vector<std::string>& args) {
        Parcel p;
        for (const std::string& a : args) {
            p.writeString8(String8(a.data(), a.size()));
        }
        BinderWire::RequestHeader h{BinderWire::kMagic, code, 0,
                                    static_cast<uint32_t>(p.dataSize())};
        std::vector<uint8_t> out(sizeof(h) + p.dataSize());
        memcpy(out.data(), &h, sizeof(h));
        memcpy(out.data() + sizeof(h), p.data(), p.dataSize());
        return out;
    }
    static status_t Call(BinderClient& client, uint32_t code,
                         const std::vector<std::string>& args) {
        Parcel data, reply;
        for (const std::string& a : args) {
            data.writeString8(String8(a.data(), a.size()));
        }
        return client.Transact(code, data, &reply);
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
    // CPU time of the daemon so far, in clock ticks (user + system).
    long CpuTicks() {
        std::ifstream in("/proc/" + std::to_string(daemon.Pid()) + "/stat");
        std::string stat((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        size_t end = stat.rfind(')');
        if (end == std::string::npos) {
            return -1;
        }
        std::istringstream fields(stat.substr(end + 2));
        std::string f;
        long utime = 0, stime = 0;
        for (int i = 3; i <= 15 && fields >> f; ++i) {
            if (i == 14) {
                utime = atol(f.c_str());
            } else if (i == 15) {
                stime = atol(f.c_str());
            }
        }
        return utime + stime;
    }
    bool WaitFor(const std::function<bool()>& done, seconds timeout = seconds(30)) {
        auto deadline = std::chrono::steady_clock::now() + timeout;
        while (!done()) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            std::this_thread::sleep_for(milliseconds(5));
        }
        return true;
    }
    // True once the server has closed `fd` (whatever it sent before is drained).
    static bool ClosedByServer(int fd, seconds timeout) {
        auto deadline = std::chrono::steady_clock::now() + timeout;
        char buf[4096];
        while (std::chrono::steady_clock::now() < deadline) {
            struct pollfd pfd = {fd, POLLIN, 0};
            if (poll(&pfd, 1, 100) <= 0) {
                continue;
            }
            ssize_t n = recv(fd, buf, sizeof(buf), MSG_DONTWAIT);
            if (n == 0 || (n < 0 && errno == ECONNRESET)) {
                return true;
            }
        }
        return false;
    }
};

// One client's share of the flood: the mix of a phone's users plus refused and odd requests,
// some on fresh connections. Returns how many replies carried the expected status.
long Flood(const std::string& socket, int client, int requests, std::string* wrong) {
    BinderClient steady(socket);
    if (!steady.Connect(nullptr)) {
        return 0;
    }
    long right = 0;
    for (int i = 0; i < requests; ++i) {
        int kind = (i * 7 + client) % 10;
        Parcel data, reply;
        uint32_t code = 1;
        status_t expect = android::OK;
        if (kind < 4) {
            data.writeString8(String8("smart_charging"));
        } else if (kind < 5) {
            code = 2;
            data.writeString8(String8("ichg_limit"));
            data.writeString8(String8(i % 2 ? "all 1500" : "all 1400"));
        } else if (kind < 6) {
            data.writeString8(String8("no_such_parameter"));
            expect = android::BAD_TYPE;
        } else if (kind < 7) {
            data.writeString8(String8("%s%n%x%n"));
            expect = android::BAD_TYPE;
        } else if (kind < 8) {
            code = 2;
            data.writeString8(String8("vterm_dec"));
            data.writeString8(String8("%s%n"));
            expect = android::BAD_VALUE;
        } else {
            data.writeString8(String8("smart_charge_enable"));
        }
        status_t status;
        if (kind == 9) {  // a connection of its own
            BinderClient once(socket);
            status = once.Connect(nullptr) ? once.Transact(code, data, &reply) : -1;
        } else {
            status = steady.Transact(code, data, &reply);
        }
        if (status == expect) {
            ++right;
        } else if (wrong->size() < 200) {
            *wrong += "kind " + std::to_string(kind) + ": " + std::to_string(status) + "; ";
        }
    }
    return right;
}

}  // namespace

TEST_F(BoundaryTest, AFloodOfMixedRequestsIsAnsweredWholeWithFlatMemory) {
    Start(1);
    ASSERT_TRUE(ServiceUp()) << Log();
    constexpr int kClients = 8;
    constexpr int kPerClient = 1250;           // 10 000 requests in all
    std::vector<std::string> wrong(kClients);  // per client: what came back unexpected
    auto run = [&](int perClient) {
        std::atomic<long> right{0};
        std::vector<std::thread> clients;
        for (int c = 0; c < kClients; ++c) {
            clients.emplace_back([&, c] { right += Flood(Socket(), c, perClient, &wrong[c]); });
        }
        for (std::thread& t : clients) {
            t.join();
        }
        return right.load();
    };
    // A first round lets the allocator and thread stacks reach their working size.
    ASSERT_EQ(run(kPerClient / 10), kClients * (kPerClient / 10)) << Log();
    const long rssBefore = Status("VmRSS");
    const long threadsBefore = Status("Threads");
    auto t0 = std::chrono::steady_clock::now();
    const long right = run(kPerClient);
    const double secs =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    ASSERT_TRUE(WaitFor([&] { return Status("Threads") <= threadsBefore; }, seconds(60)));
    const long rssAfter = Status("VmRSS");
    EXPECT_TRUE(Alive()) << Log();
    EXPECT_EQ(right, kClients * kPerClient) << ::testing::PrintToString(wrong);
    // Under a sanitizer the daemon's freed memory sits in quarantine or shadow pages, so only
    // the plain build's resident size says whether the flood leaked.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    constexpr bool kPlainBuild = false;
#else
    constexpr bool kPlainBuild = true;
#endif
    if (kPlainBuild) {
        EXPECT_LE(rssAfter, rssBefore + 1024) << "kB";
    }
    printf(
        "[ figures  ] flood: %d requests from %d clients in %.1f s, %ld answered as "
        "expected; VmRSS %ld kB -> %ld kB; threads %ld\n",
        kClients * kPerClient, kClients, secs, right, rssBefore, rssAfter, threadsBefore);
}

TEST_F(BoundaryTest, ClientsThatStopHalfWayOrNeverReadHoldUpNoOne) {
    Start(1);
    ASSERT_TRUE(ServiceUp()) << Log();
    const long threadsBefore = Status("Threads");
    std::vector<int> hostile;
    const std::vector<uint8_t> get = Request(1, {"smart_charging"});
    for (int i = 0; i < 3; ++i) {  // half a header; half a payload; a header and no payload
        int fd = Raw();
        ASSERT_GE(fd, 0);
        size_t cut = i == 0 ? 7 : i == 1 ? get.size() - 3 : sizeof(BinderWire::RequestHeader);
        ASSERT_EQ(send(fd, get.data(), cut, MSG_NOSIGNAL), static_cast<ssize_t>(cut));
        hostile.push_back(fd);
    }
    // Three clients pipeline requests and never read a reply, until the server gives up on
    // them: their send then fails (bounded by a send time-out should it never do so).
    std::vector<std::thread> neverReaders;
    std::atomic<int> droppedByServer{0};
    for (int i = 0; i < 3; ++i) {
        int fd = Raw();
        ASSERT_GE(fd, 0);
        int small = 4096;
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &small, sizeof(small));
        timeval limit{60, 0};
        setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
        neverReaders.emplace_back([fd, &get, &droppedByServer] {
            while (send(fd, get.data(), get.size(), MSG_NOSIGNAL) > 0) {
            }
            droppedByServer += errno == EPIPE || errno == ECONNRESET ? 1 : 0;
            close(fd);
        });
    }
    BinderClient client(Socket());
    ASSERT_TRUE(client.Connect(nullptr));
    int served = 0;
    for (int i = 0; i < 300; ++i) {
        served += Call(client, 1, {"smart_charging"}) == android::OK ? 1 : 0;
    }
    EXPECT_EQ(served, 300);
    EXPECT_EQ(Ctl("set ichg_limit 'all 1500'"), 0);
    // The server gives up on each of them on its own and frees the threads.
    for (std::thread& t : neverReaders) {
        t.join();
    }
    EXPECT_EQ(droppedByServer.load(), 3);
    for (int fd : hostile) {
        EXPECT_TRUE(ClosedByServer(fd, seconds(60)));
        close(fd);
    }
    EXPECT_TRUE(WaitFor([&] { return Status("Threads") <= threadsBefore + 1; }, seconds(60)))
        << Status("Threads") << " threads, " << threadsBefore << " before";
    EXPECT_TRUE(Alive()) << Log();
}

TEST_F(BoundaryTest, FormatDirectivesAndPathSeparatorsAreInertText) {
    Start(1);
    ASSERT_TRUE(ServiceUp()) << Log();
    BinderClient client(Socket());
    ASSERT_TRUE(client.Connect(nullptr));
    const std::string forged = "\n1999-01-01 00:00:00.000 1 1 E quen: forged line";
    for (const std::string& name :
         std::vector<std::string>{"%s%n%x%n", "../../properties/ctl.stop", "/log/soh/sys_para.dat",
                                  "smart_charging/..", "smart_charging" + forged}) {
        EXPECT_EQ(Call(client, 1, {name}), android::BAD_TYPE) << name;
        EXPECT_EQ(Call(client, 2, {name, "1"}), android::BAD_TYPE) << name;
    }
    const struct {
        const char* name;
        std::string value;
    } sets[] = {
        {"ichg_limit", "%s%n%x%n"},     {"ichg_limit", "all %n"},
        {"vterm_dec", "../../../etc"},  {"close_scheme", "../BASP"},
        {"close_scheme", "%s%n"},       {"close_scheme", "BASP/../APP"},
        {"soc_control", "%n %n %n %n"}, {"batt_status", "1" + forged},
    };
    for (const auto& s : sets) {
        EXPECT_EQ(Call(client, 2, {s.name, s.value}), android::BAD_VALUE) << s.name;
    }
    // The protect mark is read as atoi reads it: a path is the number 0, not a file name.
    EXPECT_EQ(Call(client, 2, {"smart_charge_enable", "/dev/null"}), android::OK);
    EXPECT_FALSE(dev.Exists("/dev/null"));
    EXPECT_EQ(Call(client, 1, {"smart_charging"}), android::OK);
    EXPECT_TRUE(Alive()) << Log();

    // Logged literally, each message on one line; nothing named after the text was created.
    EXPECT_GE(CountLog("soh service obj name is null of %s%n%x%n"), 2) << Log();
    std::istringstream log(dev.Read("/quen.log"));
    for (std::string line; std::getline(log, line);) {
        EXPECT_NE(line.rfind("1999-", 0), 0u) << "a client forged a log line: " << line;
    }
    for (const auto& entry : std::filesystem::recursive_directory_iterator(
             dev.Root(), std::filesystem::directory_options::skip_permission_denied)) {
        const std::string file = entry.path().filename().string();
        EXPECT_EQ(file.find('%'), std::string::npos) << entry.path();
    }
    EXPECT_FALSE(dev.Exists("/properties/ctl.stop"));
    const std::string record = dev.Read("/log/soh/sys_para.dat");
    EXPECT_EQ(record.find("../"), std::string::npos);
    EXPECT_EQ(record.find('%'), std::string::npos);
}

TEST_F(BoundaryTest, ADaemonOutOfDescriptorsStaysIdleAndServesAgainWhenTheyReturn) {
    Start(1);
    ASSERT_TRUE(ServiceUp()) << Log();
    const pid_t pid = daemon.Pid();
    struct rlimit saved {};
    ASSERT_EQ(prlimit(pid, RLIMIT_NOFILE, nullptr, &saved), 0);
    // Gives the descriptors back once, and on every way out of the test: a sanitizer build
    // checks for leaks when the daemon exits and needs descriptors for that. Not once the
    // daemon has been reaped, when its process id may belong to another process.
    bool restored = false;
    auto restore = [&] {
        if (!restored && daemon.Pid() == pid) {
            restored = prlimit(pid, RLIMIT_NOFILE, &saved, nullptr) == 0;
        }
        return restored;
    };
    struct Finally {
        std::function<bool()> run;
        ~Finally() { run(); }
    } finally{restore};
    // Standard input, output and error only: every new descriptor fails. That holds for a
    // sanitizer runtime in the daemon too, since it takes the lowest free number as the
    // daemon's accept() does; no limit leaves it one that accept() could not take. So the
    // sanitizer builds leave out the one check that makes descriptors while the program runs
    // (the dynamic-type check, see CMakeLists.txt); the others need none until they report.
    struct rlimit none = saved;
    none.rlim_cur = 3;
    ASSERT_EQ(prlimit(pid, RLIMIT_NOFILE, &none, nullptr), 0);

    // A blocked accept() already holds a descriptor number: the first connection gets in
    // (and is answered); the second stays queued by the kernel.
    const std::vector<uint8_t> get = Request(1, {"smart_charging"});
    int first = Raw();
    ASSERT_GE(first, 0);
    ASSERT_EQ(send(first, get.data(), get.size(), MSG_NOSIGNAL), static_cast<ssize_t>(get.size()));
    int fd = Raw();
    ASSERT_GE(fd, 0);
    ASSERT_EQ(send(fd, get.data(), get.size(), MSG_NOSIGNAL), static_cast<ssize_t>(get.size()));
    ASSERT_TRUE(WaitFor([&] { return CountLog("accept failed: Too many open files") > 0; }))
        << Log();
    const long hz = sysconf(_SC_CLK_TCK);
    const long ticks0 = CpuTicks();
    auto w0 = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(seconds(2));
    const long ticks = CpuTicks() - ticks0;
    const double window =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - w0).count();
    EXPECT_LT(ticks, static_cast<long>(window * hz * 0.15)) << ticks << " ticks in " << window;
    EXPECT_TRUE(Alive()) << Log();
    EXPECT_EQ(CountLog("accept failed"), 1) << Log();
    struct pollfd early = {fd, POLLIN, 0};
    EXPECT_EQ(poll(&early, 1, 0), 0) << "answered while out of descriptors?";
    close(first);

    ASSERT_TRUE(restore()) << Log();
    auto freed = std::chrono::steady_clock::now();
    int32_t status = -1;
    struct pollfd pfd = {fd, POLLIN, 0};
    ASSERT_EQ(poll(&pfd, 1, 30000), 1) << Log();
    ASSERT_EQ(recv(fd, &status, sizeof(status), MSG_WAITALL), static_cast<ssize_t>(sizeof(status)));
    const double recovery =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - freed).count();
    close(fd);
    EXPECT_EQ(status, android::OK);
    EXPECT_EQ(Ctl("get smart_charging"), 0);
    EXPECT_EQ(CountLog("accepting again after"), 1) << Log();
    printf(
        "[ figures  ] out of descriptors: %ld CPU ticks (%ld/s) in %.1f s; the queued "
        "request answered %.0f ms after descriptors returned\n",
        ticks, hz, window, recovery);
}
