// Host property store and the <cutils/properties.h> calls on top of it.
#include <cutils/properties.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <utility>
#include <vector>

#include "platform/host/property_store.h"
#include "platform/soh_root.h"

namespace {

constexpr size_t kMaxKeyLen = 255;

std::string StoreDir() {
    return SohRoot::RootPath("/properties");
}

bool WriteFully(int fd, const char* data, size_t len) {
    while (len > 0) {
        ssize_t n = write(fd, data, len);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        data += n;
        len -= static_cast<size_t>(n);
    }
    return true;
}

// Each reading thread keeps the descriptors of the properties it reads (a periodic pass reads the
// same few every time). Set replaces a property's file by a rename, which leaves a kept
// descriptor on a file without a name: such a descriptor is closed and the path opened again.
class KeptFiles {
public:
    ~KeptFiles() { Clear(); }
    // A descriptor open on path, or -1.
    int Get(const std::string& path) {
        for (auto it = files_.begin(); it != files_.end(); ++it) {
            if (it->first == path) {
                struct stat st;
                if (fstat(it->second, &st) == 0 && st.st_nlink > 0) {
                    return it->second;
                }
                close(it->second);
                files_.erase(it);
                break;
            }
        }
        const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd >= 0) {
            if (files_.size() >= kMaxKept) {
                Clear();
            }
            files_.emplace_back(path, fd);
        }
        return fd;
    }
    void Forget(int fd) {
        for (auto it = files_.begin(); it != files_.end(); ++it) {
            if (it->second == fd) {
                close(fd);
                files_.erase(it);
                return;
            }
        }
    }

private:
    static constexpr size_t kMaxKept = 16;
    void Clear() {
        for (const auto& f : files_) {
            close(f.second);
        }
        files_.clear();
    }
    std::vector<std::pair<std::string, int>> files_;
};

}  // namespace

namespace PropertyStore {

bool ValidKey(const char* key) {
    if (key == nullptr || key[0] == '\0' || strlen(key) > kMaxKeyLen) {
        return false;
    }
    if (strcmp(key, ".") == 0 || strcmp(key, "..") == 0) {
        return false;
    }
    return strchr(key, '/') == nullptr;
}

bool Get(const char* key, std::string& value) {
    if (!ValidKey(key)) {
        return false;
    }
    thread_local KeptFiles kept;
    const int fd = kept.Get(StoreDir() + "/" + key);
    if (fd < 0) {
        return false;
    }
    std::string out;
    char buf[256];
    for (;;) {
        ssize_t n = pread(fd, buf, sizeof(buf), static_cast<off_t>(out.size()));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            if (n < 0) {
                kept.Forget(fd);
                return false;
            }
            break;
        }
        out.append(buf, static_cast<size_t>(n));
        if (out.size() > 4096) {  // no property is this long; do not read a runaway file
            break;
        }
    }
    if (!out.empty() && out.back() == '\n') {
        out.pop_back();
    }
    value.swap(out);
    return true;
}

bool Set(const char* key, const char* value) {
    if (!ValidKey(key) || value == nullptr) {
        return false;
    }
    std::string dir = StoreDir();
    mkdir(dir.c_str(), 0755);
    static std::atomic<unsigned> seq{0};
    std::string tmp = dir + "/." + key + ".tmp." + std::to_string(getpid()) + "." +
                      std::to_string(seq.fetch_add(1));
    int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        return false;
    }
    bool ok = WriteFully(fd, value, strlen(value));
    ok = (close(fd) == 0) && ok;
    if (!ok || rename(tmp.c_str(), (dir + "/" + key).c_str()) != 0) {
        unlink(tmp.c_str());
        return false;
    }
    return true;
}

}  // namespace PropertyStore

extern "C" int property_get(const char* key, char* value, const char* default_value) {
    if (value == nullptr) {
        return -1;
    }
    std::string v;
    if (!PropertyStore::Get(key, v)) {
        v = default_value != nullptr ? default_value : "";
    }
    size_t len = v.size() < PROPERTY_VALUE_MAX - 1 ? v.size() : PROPERTY_VALUE_MAX - 1;
    memcpy(value, v.data(), len);
    value[len] = '\0';
    return static_cast<int>(len);
}

extern "C" int property_set(const char* key, const char* value) {
    if (value == nullptr || strlen(value) >= PROPERTY_VALUE_MAX) {
        return -1;
    }
    return PropertyStore::Set(key, value) ? 0 : -1;
}
