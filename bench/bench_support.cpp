#include "bench/bench_support.h"

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <mutex>

#include "core/soh_log.h"
#include "daemon/soh_declare.h"
#include "platform/host/soh_log_sink.h"

namespace fs = std::filesystem;

namespace bench {
namespace {

// Time stamp, pid, tid, level and tag in front of every host log line:
// "YYYY-MM-DD HH:MM:SS.mmm PID TID L quen: ".
constexpr size_t kLogHeadBytes = 44;

FILE* g_stderr = stderr;

std::string ParentDir() {
    if (const char* dir = getenv("QUEN_BENCH_DIR"); dir != nullptr && dir[0] != '\0') {
        return dir;
    }
    if (access("/dev/shm", W_OK) == 0) {
        return "/dev/shm";
    }
    const char* tmp = getenv("TMPDIR");
    return tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp";
}

struct RootDir {
    std::string path;
    RootDir() {
        std::string tmpl = ParentDir() + "/quen-bench-XXXXXX";
        if (mkdtemp(tmpl.data()) == nullptr) {
            Fail("cannot create a root under " + ParentDir() + ": " + strerror(errno));
        }
        path = tmpl;
        std::error_code ec;
        fs::copy(QUEN_SOURCE_DIR "/examples/device", path, fs::copy_options::recursive, ec);
        if (ec) {
            Fail("cannot copy the sample device: " + ec.message());
        }
        setenv("QUEN_ROOT", path.c_str(), 1);
        unsetenv("QUEN_LOG_FILE");
    }
    ~RootDir() {
        std::error_code ec;
        fs::remove_all(path, ec);
    }
};

}  // namespace

const std::string& Root() {
    static RootDir root;
    return root.path;
}

std::string Host(const std::string& devicePath) {
    return Root() + devicePath;
}

void WriteFile(const std::string& devicePath, const std::string& content) {
    const fs::path path = Host(devicePath);
    std::error_code ec;
    fs::create_directories(path.parent_path(), ec);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    if (!out) {
        Fail("cannot write " + path.string());
    }
}

void QuietLogs() {
    int saved = dup(STDERR_FILENO);
    int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (saved < 0 || null < 0 || dup2(null, STDERR_FILENO) < 0) {
        Fail("cannot send standard error to /dev/null");
    }
    close(null);
    g_stderr = fdopen(saved, "w");
    if (g_stderr == nullptr) {
        g_stderr = stderr;
    }
    SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
}

FILE* Stderr() {
    return g_stderr;
}

void Fail(const std::string& what) {
    fprintf(g_stderr, "quen-bench: %s\n", what.c_str());
    fflush(g_stderr);
    _exit(2);
}

void DeclareObjects() {
    static const bool declared = [] {
        DeclearEstimators();
        DeclearProtectors();
        return true;
    }();
    (void)declared;
}

LogCount CountLog(const std::function<void()>& op) {
    std::mutex lock;
    LogCount count;
    SohLogSink::Set([&](int, const char*, const char* text) {
        std::lock_guard<std::mutex> guard(lock);
        size_t len = strlen(text);
        count.lines += 1;
        count.bytes += kLogHeadBytes + len + (len > 0 && text[len - 1] == '\n' ? 0 : 1);
    });
    op();
    SohLogSink::Set(nullptr);
    return count;
}

void ReadNode(const std::string& hostPath) {
    char buf[128];
    int fd = open(hostPath.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        (void)!read(fd, buf, sizeof(buf));
        close(fd);
    }
}

void ReadWhole(const std::string& hostPath) {
    char buf[4096];
    int fd = open(hostPath.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return;
    }
    while (read(fd, buf, sizeof(buf)) > 0) {
    }
    close(fd);
}

void WriteNode(const std::string& hostPath, const std::string& data) {
    int fd = open(hostPath.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd >= 0) {
        (void)!write(fd, data.data(), data.size());
        close(fd);
    }
}

void ReplaceFile(const std::string& hostPath, const std::string& data, mode_t mode) {
    const std::string tmp = hostPath + ".tmp";
    int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
    if (fd < 0) {
        return;
    }
    fchmod(fd, mode);  // the record keeps its mode whatever the umask
    (void)!write(fd, data.data(), data.size());
    fdatasync(fd);
    close(fd);
    rename(tmp.c_str(), hostPath.c_str());
}

void WriteLogLines(const LogCount& count) {
    static const std::string line(512, 'x');
    if (count.lines == 0) {
        return;
    }
    const size_t each = std::min(line.size(), count.bytes / static_cast<size_t>(count.lines));
    for (int i = 0; i < count.lines; ++i) {
        (void)!write(STDERR_FILENO, line.data(), each);
    }
}

}  // namespace bench
