#include "sim/vclock/file_kernel.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

namespace fs = std::filesystem;

namespace sim {

std::unique_ptr<FileKernel> FileKernel::Create(NodeSource& source, const std::string& sysDir,
                                               const std::vector<std::string>& driven,
                                               const std::vector<std::string>& events,
                                               VirtualClock& clock, std::string& error) {
    std::unique_ptr<FileKernel> k(new FileKernel(source, clock));
    k->sysDir_ = sysDir;
    k->inotify_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (k->inotify_ < 0) {
        error = std::string("inotify: ") + strerror(errno);
        return nullptr;
    }
    for (const std::string& path : source.List()) {
        const fs::path file = fs::path(sysDir) / path;
        std::error_code ec;
        fs::create_directories(file.parent_path(), ec);
        File f;
        f.fd = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
        if (f.fd < 0) {
            error = "cannot create the node file " + file.string() + ": " + strerror(errno);
            return nullptr;
        }
        std::string content;
        source.Read(path, content);
        File& placed = k->files_[path] = f;
        placed.content = "\x01";  // differs from any content: the first Put writes
        k->Put(placed, content);
        const std::string dir = fs::path(path).parent_path().string();
        bool watched = false;
        for (const auto& w : k->watchDirs_) {
            watched = watched || w.second == dir;
        }
        if (!watched) {
            const int wd = inotify_add_watch(k->inotify_, file.parent_path().c_str(), IN_MODIFY);
            if (wd < 0) {
                error = "cannot watch " + file.parent_path().string() + ": " + strerror(errno);
                return nullptr;
            }
            k->watchDirs_[wd] = dir;
        }
    }
    for (const std::string& path : driven) {
        auto it = k->files_.find(path);
        if (it != k->files_.end()) {
            it->second.driven = true;
            k->driven_.push_back(&it->second);
            k->drivenPaths_.push_back(path);
        }
    }
    for (const std::string& path : events) {
        char real[PATH_MAX];
        const std::string file = (fs::path(sysDir) / path).string();
        if (realpath(file.c_str(), real) == nullptr) {
            error = "cannot resolve " + file + ": " + strerror(errno);
            return nullptr;
        }
        const int node = clock.AddEventNode(real);
        if (node < 0) {
            error = "too many event nodes for the virtual clock";
            return nullptr;
        }
        k->eventNodes_[path] = node;
    }
    FileKernel* self = k.get();
    source.SetEventSink([self](const std::string& path) {
        auto it = self->eventNodes_.find(path);
        if (it != self->eventNodes_.end()) {
            self->clock_.Raise(it->second);
        }
    });
    k->Drain();
    return k;
}

FileKernel::~FileKernel() {
    source_.SetEventSink(nullptr);
    for (auto& entry : files_) {
        close(entry.second.fd);
    }
    if (inotify_ >= 0) {
        close(inotify_);
    }
}

bool FileKernel::Put(File& file, const std::string& content) {
    if (file.content == content) {
        return false;
    }
    ssize_t n = pwrite(file.fd, content.data(), content.size(), 0);
    if (n == static_cast<ssize_t>(content.size()) && file.content.size() > content.size()) {
        n = ftruncate(file.fd, static_cast<off_t>(content.size())) == 0 ? n : -1;
    }
    file.content = n == static_cast<ssize_t>(content.size()) ? content : std::string("\x01");
    ++fileWrites_;
    return true;
}

void FileKernel::Sync() {
    source_.ReadMany(drivenPaths_, contents_, results_);
    bool put = false;
    for (size_t i = 0; i < driven_.size(); ++i) {
        if (results_[i] == 0) {
            put = Put(*driven_[i], contents_[i]) || put;
        }
    }
    if (put) {
        Drain();  // the events of this side's own writes
    }
}

void FileKernel::Collect() {
    alignas(inotify_event) char buf[4096];
    std::vector<std::string> written;
    for (;;) {
        const ssize_t n = read(inotify_, buf, sizeof(buf));
        if (n <= 0) {
            break;
        }
        for (ssize_t off = 0; off < n;) {
            const auto* ev = reinterpret_cast<const inotify_event*>(buf + off);
            off += static_cast<ssize_t>(sizeof(inotify_event) + ev->len);
            auto dir = watchDirs_.find(ev->wd);
            if (dir == watchDirs_.end() || ev->len == 0 || (ev->mask & IN_MODIFY) == 0) {
                continue;
            }
            const std::string path =
                dir->second.empty() ? ev->name : dir->second + "/" + std::string(ev->name);
            if (files_.count(path) != 0 &&
                std::find(written.begin(), written.end(), path) == written.end()) {
                written.push_back(path);
            }
        }
    }
    for (const std::string& path : written) {
        File& file = files_[path];
        std::string data(4096, '\0');
        const ssize_t n = pread(file.fd, data.data(), data.size(), 0);
        data.resize(n > 0 ? static_cast<size_t>(n) : 0);
        file.content = data;
        source_.Write(path, data);
        std::string now;
        if (source_.Read(path, now) == 0) {
            Put(file, now);
        }
    }
    if (!written.empty()) {
        Drain();
    }
}

void FileKernel::Drain() {
    char buf[4096];
    while (read(inotify_, buf, sizeof(buf)) > 0) {
    }
}

}  // namespace sim
