#include "sim/perf/storage_watch.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace fs = std::filesystem;

namespace sim {
namespace {

constexpr uint32_t kMask = IN_CLOSE_WRITE | IN_MOVED_TO | IN_CREATE | IN_ONLYDIR;
constexpr const char kTmpSuffix[] = ".tmp";

bool IsTemporary(const std::string& name) {
    const size_t n = sizeof(kTmpSuffix) - 1;
    return name.size() > n && name.compare(name.size() - n, n, kTmpSuffix) == 0;
}

}  // namespace

StorageWatch::~StorageWatch() {
    Stop();
}

bool StorageWatch::Start(const std::string& root, const std::vector<std::string>& dirs,
                         std::string& error) {
    root_ = root;
    fd_ = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    stopFd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (fd_ < 0 || stopFd_ < 0) {
        error = std::string("inotify: ") + strerror(errno);
        Stop();
        return false;
    }
    for (const std::string& dir : dirs) {
        std::error_code ec;
        if (fs::is_directory(root + dir, ec)) {
            AddTree(root + dir);
        }
    }
    thread_ = std::thread([this] { Loop(); });
    return true;
}

void StorageWatch::Stop() {
    if (thread_.joinable()) {
        uint64_t one = 1;
        (void)!write(stopFd_, &one, sizeof(one));
        thread_.join();
    }
    for (int* fd : {&fd_, &stopFd_}) {
        if (*fd >= 0) {
            close(*fd);
            *fd = -1;
        }
    }
}

std::map<std::string, StorageWatch::FileBytes> StorageWatch::ByFile() const {
    std::lock_guard<std::mutex> guard(lock_);
    return files_;
}

void StorageWatch::Reset() {
    std::lock_guard<std::mutex> guard(lock_);
    files_.clear();
}

void StorageWatch::AddTree(const std::string& hostDir) {
    int wd = inotify_add_watch(fd_, hostDir.c_str(), kMask);
    if (wd < 0) {
        return;
    }
    dirs_[wd] = hostDir;
    std::error_code ec;
    for (fs::directory_iterator it(hostDir, ec), end; !ec && it != end; it.increment(ec)) {
        if (it->is_directory(ec)) {
            AddTree(it->path().string());
        } else if (it->is_regular_file(ec)) {
            sizes_[it->path().string()] = it->file_size(ec);
        }
    }
}

void StorageWatch::Loop() {
    alignas(struct inotify_event) char buf[16384];
    for (;;) {
        struct pollfd fds[2] = {{fd_, POLLIN, 0}, {stopFd_, POLLIN, 0}};
        if (poll(fds, 2, -1) < 0 && errno != EINTR) {
            return;
        }
        for (;;) {
            ssize_t n = read(fd_, buf, sizeof(buf));
            if (n <= 0) {
                break;
            }
            for (char* p = buf; p < buf + n;) {
                auto* e = reinterpret_cast<struct inotify_event*>(p);
                OnEvent(e->wd, e->mask, e->len > 0 ? std::string(e->name) : std::string());
                p += sizeof(struct inotify_event) + e->len;
            }
        }
        if ((fds[1].revents & POLLIN) != 0) {
            return;
        }
    }
}

void StorageWatch::OnEvent(int wd, uint32_t mask, const std::string& name) {
    auto dir = dirs_.find(wd);
    if (dir == dirs_.end() || name.empty()) {
        return;
    }
    const std::string host = dir->second + "/" + name;
    if ((mask & IN_ISDIR) != 0) {
        if ((mask & IN_CREATE) != 0) {
            AddTree(host);
        }
        return;
    }
    if ((mask & (IN_CLOSE_WRITE | IN_MOVED_TO)) == 0 || IsTemporary(name)) {
        return;
    }
    struct stat st {};
    if (stat(host.c_str(), &st) != 0) {
        return;
    }
    const uint64_t size = static_cast<uint64_t>(st.st_size);
    uint64_t& last = sizes_[host];
    uint64_t bytes = 0;
    bool replaced = (mask & IN_MOVED_TO) != 0;
    if (replaced) {
        bytes = size;
    } else {
        bytes = size >= last ? size - last : size;
    }
    last = size;
    if (!replaced && bytes == 0) {
        return;
    }
    std::lock_guard<std::mutex> guard(lock_);
    FileBytes& f = files_[host.substr(root_.size())];
    f.bytes += bytes;
    (replaced ? f.replacements : f.appends) += 1;
}

}  // namespace sim
