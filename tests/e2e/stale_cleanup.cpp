// Cleans up after end-to-end tests that were killed (a time-out, a crash) before their own
// tear-down ran: under the test directories /tmp/quen-test-*, it ends daemons whose test is
// gone and detaches fake-kernel mounts whose server is gone, then removes those directories.
// Live tests are left alone: a daemon whose parent is still a test program, and a mount that
// still answers, are kept. Runs as the CTest fixture clean-up of the FUSE tests; exits 0.
#include <dirent.h>
#include <errno.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>

namespace {

constexpr const char* kTestDirPrefix = "/tmp/quen-test-";

std::string ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

// The test directory of `pid` (its QUEN_ROOT), or "" when it has none under the prefix.
std::string TestRootOf(const std::string& pid) {
    const std::string env = ReadAll("/proc/" + pid + "/environ");
    const std::string key = std::string("QUEN_ROOT=") + kTestDirPrefix;
    for (size_t at = 0; at < env.size();) {
        const size_t end = env.find('\0', at);
        const std::string var = env.substr(at, end == std::string::npos ? end : end - at);
        if (var.compare(0, key.size(), key) == 0) {
            return var.substr(std::string("QUEN_ROOT=").size());
        }
        if (end == std::string::npos) {
            break;
        }
        at = end + 1;
    }
    return "";
}

pid_t ParentOf(const std::string& pid) {
    const std::string stat = ReadAll("/proc/" + pid + "/stat");
    const size_t close = stat.rfind(')');
    if (close == std::string::npos) {
        return -1;
    }
    std::istringstream fields(stat.substr(close + 2));
    std::string state;
    long ppid = -1;
    fields >> state >> ppid;
    return static_cast<pid_t>(ppid);
}

// The file name of the program `pid` runs; "" when unknown.
std::string ProgramOf(const std::string& pid) {
    char exe[4096] = {};
    const std::string link = "/proc/" + pid + "/exe";
    const ssize_t n = readlink(link.c_str(), exe, sizeof(exe) - 1);
    return n > 0 ? std::filesystem::path(std::string(exe, n)).filename().string() : "";
}

// Whether `name` is a program that starts daemons: a test program or the simulators.
bool StartsDaemons(const std::string& name) {
    const bool test = name.size() > 5 && name.compare(name.size() - 5, 5, "_test") == 0;
    return test || name == "quen-sim" || name == "quen-perf";
}

}  // namespace

int main() {
    std::set<std::string> stale;
    int killed = 0;
    int detached = 0;
    if (DIR* proc = opendir("/proc")) {
        while (dirent* e = readdir(proc)) {
            const std::string pid = e->d_name;
            if (pid.find_first_not_of("0123456789") != std::string::npos ||
                std::to_string(getpid()) == pid) {
                continue;
            }
            if (ProgramOf(pid) != "quen") {
                continue;  // only daemons are ended
            }
            const std::string root = TestRootOf(pid);
            const pid_t parent = ParentOf(pid);
            if (root.empty() || parent < 0 || StartsDaemons(ProgramOf(std::to_string(parent)))) {
                continue;
            }
            if (kill(static_cast<pid_t>(std::stol(pid)), SIGKILL) == 0) {
                ++killed;
                stale.insert(root);
            }
        }
        closedir(proc);
    }
    std::istringstream mounts(ReadAll("/proc/self/mountinfo"));
    for (std::string line; std::getline(mounts, line);) {
        std::istringstream fields(line);
        std::string id, parent, devno, root, point;
        fields >> id >> parent >> devno >> root >> point;
        if (point.compare(0, std::string(kTestDirPrefix).size(), kTestDirPrefix) != 0) {
            continue;
        }
        struct stat st {};
        if (stat(point.c_str(), &st) == 0 || errno != ENOTCONN) {
            continue;  // its server still answers: a test that runs
        }
        if (umount2(point.c_str(), MNT_DETACH) == 0) {
            ++detached;
            const size_t slash = point.find('/', std::string(kTestDirPrefix).size());
            stale.insert(point.substr(0, slash));
        }
    }
    for (const std::string& dir : stale) {
        std::error_code ec;
        std::filesystem::remove_all(dir, ec);
    }
    printf(
        "stale test state: %d daemon(s) ended, %d mount(s) detached, %zu director(ies) "
        "removed\n",
        killed, detached, stale.size());
    return 0;
}
