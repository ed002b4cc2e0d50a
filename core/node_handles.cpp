#include "core/node_handles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <vector>

#include "platform/soh_root.h"

namespace NodeHandles {
namespace {

struct Handle {
    std::string path;  // device path
    int fd;
    uint64_t used;  // value of the thread's use counter at the last Get
};

class Cache {
public:
    ~Cache() {
        for (const Handle& h : handles_) {
            close(h.fd);
        }
    }

    Handle* Find(const std::string& path) {
        for (Handle& h : handles_) {
            if (h.path == path) {
                return &h;
            }
        }
        return nullptr;
    }

    void Forget(Handle* h) {
        close(h->fd);
        *h = handles_.back();
        handles_.pop_back();
    }

    int Keep(const std::string& path, int fd) {
        if (handles_.size() >= kCapacity) {
            Handle* oldest = &handles_.front();
            for (Handle& h : handles_) {
                oldest = h.used < oldest->used ? &h : oldest;
            }
            Forget(oldest);
        }
        handles_.push_back(Handle{path, fd, ++uses_});
        return fd;
    }

    uint64_t NextUse() { return ++uses_; }

private:
    std::vector<Handle> handles_;
    uint64_t uses_ = 0;
};

Cache& ThreadCache() {
    thread_local Cache cache;
    return cache;
}

}  // namespace

bool Keeps(const std::string& devicePath) {
    return devicePath.compare(0, 5, "/sys/") == 0;
}

int Get(const std::string& devicePath) {
    Cache& cache = ThreadCache();
    if (Handle* h = cache.Find(devicePath)) {
        struct stat st;
        if (SohRoot::NodesStayInPlace() || (fstat(h->fd, &st) == 0 && st.st_nlink > 0)) {
            h->used = cache.NextUse();
            return h->fd;
        }
        cache.Forget(h);
    }
    const int fd = open(SohRoot::RootPath(devicePath).c_str(), O_RDONLY | O_CLOEXEC);
    return fd < 0 ? -1 : cache.Keep(devicePath, fd);
}

void Drop(const std::string& devicePath) {
    Cache& cache = ThreadCache();
    if (Handle* h = cache.Find(devicePath)) {
        cache.Forget(h);
    }
}

}  // namespace NodeHandles
