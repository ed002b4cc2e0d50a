// quen-perf's measuring parts: bytes attributed to the files a daemon writes, node accesses
// counted and events passed on, and threads told apart by where they wait.
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <thread>

#include "sim/fakefs/file_nodes.h"
#include "sim/perf/perf_nodes.h"
#include "sim/perf/proc_stats.h"
#include "sim/perf/storage_watch.h"
#include "tests/support/fake_device.h"

namespace fs = std::filesystem;

namespace {

#if defined(__SANITIZE_THREAD__)
// ThreadSanitizer runs timed condition waits through sleeps of its own.
constexpr const char* kTimedWaiter = "sleeping";
#else
constexpr const char* kTimedWaiter = "ASW monitor";
#endif

bool Eventually(const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

void Append(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::app) << bytes;
}

// What the daemon's atomic replacement does: temporary file, then rename over the record.
void Replace(const std::string& path, const std::string& bytes) {
    std::ofstream(path + ".tmp", std::ios::binary | std::ios::trunc) << bytes;
    fs::rename(path + ".tmp", path);
}

}  // namespace

TEST_F(FakeDeviceTest, StorageWatchCountsReplacementsWholeAndAppendsByGrowth) {
    dev.Write("/log/soh/old.dat", std::string(50, 'x'));
    dev.MakeDir("/splash2");
    sim::StorageWatch watch;
    std::string error;
    ASSERT_TRUE(watch.Start(dev.Root(), {"/log", "/splash2", "/data"}, error)) << error;
    // One change at a time: sizes are read when the watcher gets to the event.
    auto counted = [&](const std::string& file, uint64_t events) {
        return Eventually([&] {
            const sim::StorageWatch::FileBytes f = watch.ByFile()[file];
            return f.replacements + f.appends == events;
        });
    };
    Replace(dev.HostPath("/log/soh/rec.dat"), std::string(100, 'r'));
    ASSERT_TRUE(counted("/log/soh/rec.dat", 1));
    Replace(dev.HostPath("/log/soh/rec.dat"), std::string(120, 'r'));
    Append(dev.HostPath("/log/soh/old.dat"), std::string(8, 'a'));  // grows from 50
    ASSERT_TRUE(counted("/log/soh/old.dat", 1));
    Append(dev.HostPath("/log/soh/old.dat"), std::string(8, 'a'));
    dev.MakeDir("/splash2/battery");  // a folder made later is watched too
    ASSERT_TRUE(Eventually([&] {
        Append(dev.HostPath("/splash2/battery/probe"), "p");  // grows: counted once watched
        return watch.ByFile().count("/splash2/battery/probe") != 0;
    }));
    Replace(dev.HostPath("/splash2/battery/cvt.data"), std::string(30, 'c'));

    std::map<std::string, sim::StorageWatch::FileBytes> files;
    ASSERT_TRUE(Eventually([&] {
        files = watch.ByFile();
        return files["/splash2/battery/cvt.data"].bytes == 30 &&
               files["/log/soh/old.dat"].appends == 2;
    }));
    EXPECT_EQ(files["/log/soh/rec.dat"].bytes, 220u);
    EXPECT_EQ(files["/log/soh/rec.dat"].replacements, 2u);
    EXPECT_EQ(files["/log/soh/old.dat"].bytes, 16u);
    EXPECT_EQ(files.count("/log/soh/rec.dat.tmp"), 0u);  // temporary files never count

    watch.Reset();
    EXPECT_TRUE(watch.ByFile().empty());
    watch.Stop();
}

TEST(InstrumentedNodesTest, CountsAccessesLogsWritesAndPassesEventsOn) {
    sim::FileNodes inner;
    inner.Set("class/a", "1");
    inner.RefuseWrites("class/b", EACCES);
    inner.Set("class/b", "x");
    sim::InstrumentedNodes nodes(inner);
    std::vector<std::string> raised;
    nodes.SetEventSink([&raised](const std::string& path) { raised.push_back(path); });

    std::string value;
    EXPECT_EQ(nodes.Read("class/a", value), 0);
    EXPECT_EQ(value, "1");
    EXPECT_EQ(nodes.Write("class/a", "2"), 0);
    EXPECT_EQ(nodes.Write("class/b", "3"), -EACCES);
    EXPECT_EQ(inner.Get("class/a"), "2");
    inner.RaiseEvent("class/a");
    EXPECT_EQ(raised, std::vector<std::string>{"class/a"});
    EXPECT_EQ(nodes.Events("class/a"), 1u);

    const auto byPath = nodes.ByPath();
    EXPECT_EQ(byPath.at("class/a").reads, 1u);
    EXPECT_EQ(byPath.at("class/a").writes, 1u);
    EXPECT_EQ(nodes.ByThread().at(0).writes, 2u);  // outside a file-system request: thread 0
    const auto writes = nodes.WritesFrom(1);
    ASSERT_EQ(writes.size(), 1u);
    EXPECT_EQ(writes[0].path, "class/b");
    EXPECT_EQ(writes[0].result, -EACCES);
    EXPECT_LE(nodes.WritesFrom(0)[0].monoNs, writes[0].monoNs);

    nodes.Reset();
    EXPECT_EQ(nodes.WriteCount(), 0u);
    EXPECT_TRUE(nodes.ByPath().empty());
}

TEST_F(FakeDeviceTest, ThreadsAreToldApartByWhereTheyWait) {
    dev.Write("/sys/basp_data", "record");
    const int node = open(dev.HostPath("/sys/basp_data").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(node, 0);
    int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    struct sockaddr_un addr {};
    addr.sun_family = AF_UNIX;
    snprintf(addr.sun_path, sizeof(addr.sun_path), "%s/sock", dev.Root().c_str());
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
    ASSERT_EQ(listen(listener, 1), 0);

    std::mutex lock;
    std::condition_variable cv;
    bool stop = false;
    // A regular file never raises POLLPRI: the poller waits until the pipe wakes it.
    int wake[2];
    ASSERT_EQ(pipe2(wake, O_CLOEXEC), 0);
    std::thread poller([node, &wake] {
        struct pollfd p[2] = {{node, POLLPRI, 0}, {wake[0], POLLIN, 0}};
        poll(p, 2, -1);
    });
    std::thread timed([&] {
        std::unique_lock<std::mutex> guard(lock);
        cv.wait_for(guard, std::chrono::seconds(3), [&] { return stop; });
    });
    std::thread untimed([&] {
        std::unique_lock<std::mutex> guard(lock);
        cv.wait(guard, [&] { return stop; });
    });
    std::thread acceptor([listener] { close(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC)); });

    std::multiset<std::string> labels;
    const std::multiset<std::string> expected = {"main", "BASP monitor", kTimedWaiter,
                                                 "APP monitor", "service listener"};
    EXPECT_TRUE(Eventually([&] {
        sim::ProcessStat stat;
        labels.clear();
        if (sim::ReadProcess(getpid(), stat, true)) {
            for (const sim::ThreadStat& t : stat.threads) {
                labels.insert(t.label);
            }
        }
        return labels == expected;
    })) << ::testing::PrintToString(labels);

    sim::ProcessStat stat;
    ASSERT_TRUE(sim::ReadProcess(getpid(), stat, false));
    EXPECT_GT(stat.rssKb, 0u);
    EXPECT_GE(stat.hwmKb, stat.rssKb);
    EXPECT_EQ(stat.threads.size(), 5u);

    {
        std::lock_guard<std::mutex> guard(lock);
        stop = true;
    }
    cv.notify_all();
    (void)!write(wake[1], "x", 1);
    int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    connect(client, reinterpret_cast<sockaddr*>(&addr), sizeof(addr));
    for (std::thread* t : {&poller, &timed, &untimed, &acceptor}) {
        t->join();
    }
    close(client);
    close(listener);
    close(node);
    close(wake[0]);
    close(wake[1]);
}
