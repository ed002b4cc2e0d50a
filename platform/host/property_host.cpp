// Host property store and the <cutils/properties.h> calls on top of it.
#include <cutils/properties.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

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
    std::string path = StoreDir() + "/" + key;
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    std::string out;
    char buf[256];
    for (;;) {
        ssize_t n = read(fd, buf, sizeof(buf));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            if (n < 0) {
                close(fd);
                return false;
            }
            break;
        }
        out.append(buf, static_cast<size_t>(n));
        if (out.size() > 4096) {  // no property is this long; do not read a runaway file
            break;
        }
    }
    close(fd);
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
