#include "sim/perf/proc_stats.h"

#include <dirent.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>

namespace sim {
namespace {

std::string ReadText(const std::string& path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// utime + stime of a /proc stat line, in seconds; false when it cannot be parsed.
bool CpuOfStat(const std::string& stat, double& seconds) {
    size_t close = stat.rfind(')');
    if (close == std::string::npos) {
        return false;
    }
    std::istringstream in(stat.substr(close + 1));
    std::vector<std::string> fields;
    for (std::string f; in >> f;) {
        fields.push_back(f);
    }
    // Fields after the command: state is field 3, utime 14 and stime 15.
    if (fields.size() < 13) {
        return false;
    }
    const double ticks = static_cast<double>(sysconf(_SC_CLK_TCK));
    seconds =
        (std::strtod(fields[11].c_str(), nullptr) + std::strtod(fields[12].c_str(), nullptr)) /
        ticks;
    return true;
}

// The value (first number) of "key:" in a /proc status-like text; 0 when absent.
uint64_t Field(const std::string& text, const std::string& key) {
    size_t at = text.find("\n" + key + ":");
    if (at == std::string::npos) {
        at = text.compare(0, key.size() + 1, key + ":") == 0 ? 0 : std::string::npos;
    } else {
        ++at;
    }
    if (at == std::string::npos) {
        return 0;
    }
    return std::strtoull(text.c_str() + at + key.size() + 1, nullptr, 10);
}

std::vector<pid_t> Tasks(pid_t pid) {
    std::vector<pid_t> tids;
    DIR* dir = opendir(("/proc/" + std::to_string(pid) + "/task").c_str());
    if (dir == nullptr) {
        return tids;
    }
    while (dirent* e = readdir(dir)) {
        if (e->d_name[0] >= '0' && e->d_name[0] <= '9') {
            tids.push_back(static_cast<pid_t>(std::atoi(e->d_name)));
        }
    }
    closedir(dir);
    std::sort(tids.begin(), tids.end());
    return tids;
}

std::string NodeLabel(const std::string& target) {
    static const std::map<std::string, std::string> kNames = {
        {"basp_data", "BASP monitor"},
        {"acr_info", "EIS monitor (acr)"},
        {"dcr_info", "EIS monitor (dcr)"},
        {"poll_charge_start_event", "CVT monitor"},
    };
    if (target.compare(0, 7, "socket:") == 0) {
        return "service connection";
    }
    std::string base = target.substr(target.rfind('/') + 1);
    auto it = kNames.find(base);
    return it != kNames.end() ? it->second : "poll " + base;
}

// What the nodes polled by `tid` are, from its pollfd array in the daemon's memory.
std::string PollLabel(pid_t pid, uint64_t fdsAddress, uint64_t count) {
    std::vector<struct pollfd> fds(std::min<uint64_t>(count, 16));
    struct iovec local = {fds.data(), fds.size() * sizeof(struct pollfd)};
    struct iovec remote = {reinterpret_cast<void*>(fdsAddress), local.iov_len};
    if (fds.empty() ||
        process_vm_readv(pid, &local, 1, &remote, 1, 0) != static_cast<ssize_t>(local.iov_len)) {
        return "poll";
    }
    char target[512];
    ssize_t n =
        readlink(("/proc/" + std::to_string(pid) + "/fd/" + std::to_string(fds[0].fd)).c_str(),
                 target, sizeof(target) - 1);
    if (n <= 0) {
        return "poll";
    }
    target[n] = '\0';
    return NodeLabel(target);
}

std::string LabelThread(pid_t pid, pid_t tid) {
    if (tid == pid) {
        return "main";
    }
    std::istringstream in(
        ReadText("/proc/" + std::to_string(pid) + "/task/" + std::to_string(tid) + "/syscall"));
    std::string first;
    in >> first;
    if (first.empty() || first == "running" || first == "-1") {
        return "running";
    }
    long nr = std::strtol(first.c_str(), nullptr, 10);
    uint64_t args[6] = {};
    for (uint64_t& a : args) {
        std::string word;
        in >> word;
        a = std::strtoull(word.c_str(), nullptr, 16);
    }
    switch (nr) {
        case SYS_futex:
            return args[3] != 0 ? "ASW monitor" : "APP monitor";
        case SYS_poll:
        case SYS_ppoll:
            return PollLabel(pid, args[0], args[1]);
        case SYS_accept:
        case SYS_accept4:
            return "service listener";
        case SYS_recvfrom:
        case SYS_recvmsg:
            return "service connection";
        case SYS_nanosleep:
        case SYS_clock_nanosleep:
            return "sleeping";
        default:
            return "syscall " + first;
    }
}

}  // namespace

bool ReadProcess(pid_t pid, ProcessStat& out, bool label) {
    const std::string base = "/proc/" + std::to_string(pid);
    out = ProcessStat{};
    if (!CpuOfStat(ReadText(base + "/stat"), out.cpuSeconds)) {
        return false;
    }
    const std::string status = ReadText(base + "/status");
    out.rssKb = Field(status, "VmRSS");
    out.hwmKb = Field(status, "VmHWM");
    out.anonKb = Field(status, "RssAnon");
    out.pssKb = Field(ReadText(base + "/smaps_rollup"), "Pss");
    for (pid_t tid : Tasks(pid)) {
        const std::string task = base + "/task/" + std::to_string(tid);
        ThreadStat t;
        t.tid = tid;
        const std::string taskStatus = ReadText(task + "/status");
        if (taskStatus.empty()) {
            continue;  // ended meanwhile
        }
        t.involuntary = Field(taskStatus, "nonvoluntary_ctxt_switches");
        t.switches = Field(taskStatus, "voluntary_ctxt_switches") + t.involuntary;
        CpuOfStat(ReadText(task + "/stat"), t.cpuSeconds);
        t.runSeconds = std::strtod(ReadText(task + "/schedstat").c_str(), nullptr) / 1e9;
        out.runSeconds += t.runSeconds;
        if (label) {
            t.label = LabelThread(pid, tid);
        }
        out.threads.push_back(t);
    }
    return true;
}

}  // namespace sim
