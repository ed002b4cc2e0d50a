// The latency run: aging events raised by hand on the fake kernel, timed to the last limit
// write (see perf_runs.h).
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <thread>

#include "sim/fakefs/fake_kernel.h"
#include "sim/fakefs/file_nodes.h"
#include "sim/perf/perf_common.h"
#include "sim/perf/perf_nodes.h"
#include "sim/perf/perf_runs.h"
#include "sim/perf/proc_stats.h"

namespace sim {
namespace {

constexpr const char kAgingNode[] = "devices/platform/vorlan_batt_soh/basp/basp_data";
// A node nobody else uses, to price the fake kernel's own work.
constexpr const char kProbeNode[] = "devices/platform/vorlan_batt_soh/basp/perf_probe";
constexpr int kProbeRounds = 300;
// An event's writes are over once none came for this long (real time).
constexpr int64_t kQuietNs = 40LL * 1000000;
constexpr int64_t kEventTimeoutNs = 3000LL * 1000000;

// The limit nodes the protectors write, and the aging policy, as paths under /sys.
const std::set<std::string>& LimitNodes() {
    static const std::set<std::string> nodes = {
        "class/vn_power/interface/ichg_ratio",
        "class/vn_power/interface/ichg_limit",
        "class/vn_power/interface/vterm_dec",
        "class/vn_power/soc_control/strategy",
        "class/vn_power/soc_control/control",
        "devices/platform/vorlan_batt_soh/basp/basp_coul_vdec",
        "devices/platform/vorlan_batt_soh/iscd/iscd_status",
        "devices/platform/vorlan_batt_soh/basp/basp_policy",
    };
    return nodes;
}

// The kernel's 32-byte aging record: design capacity, cycles, sample count, five samples.
std::string AgingRecord(uint32_t cycles) {
    const uint32_t words[8] = {4500, cycles, 3, 4100, 4050, 4000, 0, 0};
    return std::string(reinterpret_cast<const char*>(words), sizeof(words));
}

double Median(std::vector<double> v) {
    if (v.empty()) {
        return 0;
    }
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

void SleepUs(int64_t us) {
    struct timespec ts {
        static_cast<time_t>(us / 1000000), static_cast<long>(us % 1000000) * 1000L
    };
    nanosleep(&ts, nullptr);
}

// Medians of the fake kernel's costs on the probe node, µs: an event reaching a poller and the
// poller reading the record from the start; an open, read and close; an open, write and close.
void PriceFakeKernel(FileNodes& files, const std::string& hostProbe, LatencyResult& out) {
    std::vector<double> notify;
    std::mutex lock;
    std::condition_variable cv;
    int64_t woke = 0;
    std::atomic<bool> stop{false};
    int fd = open(hostProbe.c_str(), O_RDONLY | O_CLOEXEC);
    char buf[64];
    if (fd >= 0 && read(fd, buf, sizeof(buf)) >= 0) {
        std::thread poller([&] {
            while (!stop) {
                struct pollfd p = {fd, POLLPRI, 0};
                if (poll(&p, 1, 200) <= 0) {
                    continue;
                }
                lseek(fd, 0, SEEK_SET);
                (void)!read(fd, buf, sizeof(buf));
                std::lock_guard<std::mutex> guard(lock);
                woke = InstrumentedNodes::MonoNs();
                cv.notify_all();
            }
        });
        for (int i = 0; i < kProbeRounds; ++i) {
            SleepUs(1000);
            const int64_t t0 = InstrumentedNodes::MonoNs();
            {
                std::lock_guard<std::mutex> guard(lock);
                woke = 0;
            }
            files.RaiseEvent(kProbeNode);
            std::unique_lock<std::mutex> guard(lock);
            if (cv.wait_for(guard, std::chrono::seconds(1), [&] { return woke != 0; })) {
                notify.push_back((woke - t0) / 1e3);
            }
        }
        stop = true;
        poller.join();
    }
    if (fd >= 0) {
        close(fd);
    }
    std::vector<double> reads;
    std::vector<double> writes;
    for (int i = 0; i < kProbeRounds; ++i) {
        int64_t t0 = InstrumentedNodes::MonoNs();
        int r = open(hostProbe.c_str(), O_RDONLY | O_CLOEXEC);
        if (r >= 0) {
            (void)!read(r, buf, sizeof(buf));
            close(r);
        }
        int64_t t1 = InstrumentedNodes::MonoNs();
        int w = open(hostProbe.c_str(), O_WRONLY | O_CLOEXEC);
        if (w >= 0) {
            (void)!write(w, "quen all 4000", 13);
            close(w);
        }
        int64_t t2 = InstrumentedNodes::MonoNs();
        reads.push_back((t1 - t0) / 1e3);
        writes.push_back((t2 - t1) / 1e3);
    }
    out.notifyUs = Median(notify);
    out.readUs = Median(reads);
    out.writeUs = Median(writes);
}

uint64_t Total(const std::map<std::string, InstrumentedNodes::Access>& byPath, bool writes) {
    uint64_t n = 0;
    for (const auto& kv : byPath) {
        n += writes ? kv.second.writes : kv.second.reads;
    }
    return n;
}

// Writes to the plain limit files of a device tree, timestamped as inotify reports them
// (IN_MODIFY: one per write(2)). One watcher thread; lock_ guards the log.
class LimitWatch {
public:
    ~LimitWatch() { Stop(); }

    bool Start(const std::string& sysDir, std::string& error) {
        fd_ = inotify_init1(IN_CLOEXEC);
        stop_ = eventfd(0, EFD_CLOEXEC);
        if (fd_ < 0 || stop_ < 0) {
            error = std::string("inotify: ") + strerror(errno);
            return false;
        }
        for (const std::string& node : LimitNodes()) {
            const std::string dir = node.substr(0, node.rfind('/'));
            if (dirs_.count(dir) == 0) {
                int wd = inotify_add_watch(fd_, (sysDir + "/" + dir).c_str(), IN_MODIFY);
                if (wd >= 0) {
                    wds_[wd] = dir;
                    dirs_.insert(dir);
                }
            }
        }
        thread_ = std::thread([this] { Loop(); });
        return true;
    }

    void Stop() {
        if (thread_.joinable()) {
            uint64_t one = 1;
            (void)!write(stop_, &one, sizeof(one));
            thread_.join();
        }
        for (int* fd : {&fd_, &stop_}) {
            if (*fd >= 0) {
                close(*fd);
                *fd = -1;
            }
        }
    }

    size_t WriteCount() const {
        std::lock_guard<std::mutex> guard(lock_);
        return writes_.size();
    }

    std::vector<InstrumentedNodes::TimedWrite> WritesFrom(size_t from) const {
        std::lock_guard<std::mutex> guard(lock_);
        return from < writes_.size()
                   ? std::vector<InstrumentedNodes::TimedWrite>(
                         writes_.begin() + static_cast<std::ptrdiff_t>(from), writes_.end())
                   : std::vector<InstrumentedNodes::TimedWrite>();
    }

private:
    void Loop() {
        alignas(struct inotify_event) char buf[8192];
        for (;;) {
            struct pollfd fds[2] = {{fd_, POLLIN, 0}, {stop_, POLLIN, 0}};
            if (poll(fds, 2, -1) < 0 && errno != EINTR) {
                return;
            }
            if ((fds[1].revents & POLLIN) != 0) {
                return;
            }
            if ((fds[0].revents & POLLIN) == 0) {
                continue;
            }
            ssize_t n = read(fd_, buf, sizeof(buf));
            const int64_t now = InstrumentedNodes::MonoNs();
            std::lock_guard<std::mutex> guard(lock_);
            for (char* p = buf; n > 0 && p < buf + n;) {
                auto* e = reinterpret_cast<struct inotify_event*>(p);
                auto dir = wds_.find(e->wd);
                if (dir != wds_.end() && e->len > 0) {
                    writes_.push_back({now, dir->second + "/" + e->name, 0});
                }
                p += sizeof(struct inotify_event) + e->len;
            }
        }
    }

    int fd_ = -1;
    int stop_ = -1;
    std::thread thread_;
    std::set<std::string> dirs_;
    std::map<int, std::string> wds_;  // watcher thread after Start
    mutable std::mutex lock_;         // guards writes_
    std::vector<InstrumentedNodes::TimedWrite> writes_;
};

using WriteSource = std::function<std::vector<InstrumentedNodes::TimedWrite>(size_t)>;

// Raises `events` aging events and times each to the last limit write that `writes` shows;
// `afterEvent` runs after each one. False with `error` when an event writes no limit.
bool TimeEvents(int events, FileNodes& files, const std::function<size_t()>& count,
                const WriteSource& writes, const std::function<void()>& afterEvent,
                std::vector<double>& measuredUs, std::string& error) {
    for (int i = 0; i < events; ++i) {
        files.Set(kAgingNode, AgingRecord((i & 1) == 0 ? 900 : 520));
        const size_t from = count();
        const int64_t t0 = InstrumentedNodes::MonoNs();
        files.RaiseEvent(kAgingNode);
        int64_t last = 0;
        for (;;) {
            SleepUs(1000);
            const int64_t now = InstrumentedNodes::MonoNs();
            const std::vector<InstrumentedNodes::TimedWrite> seen = writes(from);
            for (const auto& w : seen) {
                if (LimitNodes().count(w.path) != 0) {
                    last = std::max(last, w.monoNs);
                }
            }
            const int64_t newest = seen.empty() ? t0 : seen.back().monoNs;
            if ((last != 0 && now - newest >= kQuietNs) || now - t0 >= kEventTimeoutNs) {
                break;
            }
        }
        if (last == 0) {
            error = "event " + std::to_string(i) + " wrote no limit within 3 s";
            return false;
        }
        measuredUs.push_back((last - t0) / 1e3);
        if (afterEvent) {
            afterEvent();
        }
    }
    return true;
}

// Every node on the fake kernel: measured latencies, node accesses per event, replacements.
bool RunAllNodes(const PerfOptions& opt, const Scenario& sc, LatencyResult& out,
                 std::vector<double>& reads, std::vector<double>& writes, std::string& error) {
    const std::string dir = opt.workDir + "/latency-all-nodes";
    const std::string root = dir + "/root";
    FileNodes files;
    if (!PrepareRoot(sc, root, error) || !files.Load(root + "/sys", error)) {
        return false;
    }
    files.Set(kAgingNode, AgingRecord(520));
    files.Set(kProbeNode, "0");
    InstrumentedNodes nodes(files);
    FakeKernel kernel(nodes);
    if (!kernel.Mount(root + "/sys", error)) {
        return false;
    }
    StorageWatch storage;
    DaemonProcess daemon;
    const SimClock clock = SimClock::StartNow(sc.startEpoch, 1);
    bool ok = storage.Start(root, {"/log"}, error) &&
              StartDaemon(daemon, opt.quen, root, clock, sc.timezone, dir + "/quen.log", error) &&
              RunFor(1.0, daemon, nullptr, error);  // the record there at start is handled
    storage.Reset();
    std::map<std::string, InstrumentedNodes::Access> before = nodes.ByPath();
    auto countAccesses = [&] {
        const std::map<std::string, InstrumentedNodes::Access> after = nodes.ByPath();
        reads.push_back(static_cast<double>(Total(after, false) - Total(before, false)));
        writes.push_back(static_cast<double>(Total(after, true) - Total(before, true)));
        before = after;
    };
    ok = ok && TimeEvents(
                   opt.events, files, [&] { return nodes.WriteCount(); },
                   [&](size_t from) { return nodes.WritesFrom(from); }, countAccesses,
                   out.allNodes.measuredUs, error);
    if (ok) {
        for (const auto& kv : storage.ByFile()) {
            out.replacementsPerEvent += static_cast<double>(kv.second.replacements) / opt.events;
        }
    }
    daemon.Stop(SIGTERM, 3000);
    storage.Stop();
    if (ok) {
        // Priced once the daemon has stopped, so that nothing else runs meanwhile.
        PriceFakeKernel(files, root + "/sys/" + kProbeNode, out);
    }
    kernel.Unmount();
    return ok;
}

// Only the aging-data node on the fake kernel; the daemon's time on CPU per event.
bool RunEventNode(const PerfOptions& opt, const Scenario& sc, LatencyResult& out,
                  std::string& error) {
    const std::string dir = opt.workDir + "/latency-event-node";
    const std::string root = dir + "/root";
    const std::string mount = dir + "/kernel";
    FileNodes files;
    files.Set(kAgingNode, AgingRecord(520));
    if (!PrepareRoot(sc, root, error)) {
        return false;
    }
    FakeKernel kernel(files);
    if (!kernel.Mount(mount, error)) {
        return false;
    }
    const std::string link = root + "/sys/" + kAgingNode;
    if (unlink(link.c_str()) != 0 ||
        symlink((mount + "/" + kAgingNode).c_str(), link.c_str()) != 0) {
        error = "cannot link " + link + " into the fake kernel: " + strerror(errno);
        kernel.Unmount();
        return false;
    }
    LimitWatch limits;
    DaemonProcess daemon;
    ProcessStat cpuBefore;
    ProcessStat cpuAfter;
    const SimClock clock = SimClock::StartNow(sc.startEpoch, 1);
    bool ok = limits.Start(root + "/sys", error) &&
              StartDaemon(daemon, opt.quen, root, clock, sc.timezone, dir + "/quen.log", error) &&
              RunFor(1.0, daemon, nullptr, error) && ReadProcess(daemon.Pid(), cpuBefore, false) &&
              TimeEvents(
                  opt.events, files, [&] { return limits.WriteCount(); },
                  [&](size_t from) { return limits.WritesFrom(from); }, nullptr,
                  out.eventNode.measuredUs, error) &&
              ReadProcess(daemon.Pid(), cpuAfter, false);
    if (ok) {
        out.cpuUs = (cpuAfter.runSeconds - cpuBefore.runSeconds) * 1e6 / opt.events;
    }
    daemon.Stop(SIGTERM, 3000);
    limits.Stop();
    kernel.Unmount();
    return ok;
}

}  // namespace

bool RunLatency(const PerfOptions& opt, const Scenario& sc, LatencyResult& out,
                std::string& error) {
    std::vector<double> reads;
    std::vector<double> writes;
    if (!RunAllNodes(opt, sc, out, reads, writes, error) || !RunEventNode(opt, sc, out, error)) {
        return false;
    }
    out.events = opt.events;
    for (size_t i = 0; i < out.allNodes.measuredUs.size(); ++i) {
        // The record's read is part of the notification's price.
        const double share =
            out.notifyUs + std::max(0.0, reads[i] - 1) * out.readUs + writes[i] * out.writeUs;
        out.allNodes.shareUs.push_back(share);
        out.allNodes.ownUs.push_back(out.allNodes.measuredUs[i] - share);
        out.readsPerEvent += reads[i] / out.events;
        out.writesPerEvent += writes[i] / out.events;
    }
    for (double measured : out.eventNode.measuredUs) {
        out.eventNode.shareUs.push_back(out.notifyUs);
        out.eventNode.ownUs.push_back(measured - out.notifyUs);
    }
    return true;
}

}  // namespace sim
