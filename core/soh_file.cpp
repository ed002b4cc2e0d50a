#include "core/soh_file.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include "platform/soh_root.h"

namespace SohFile {

bool Exists(const std::string& path) {
    return access(SohRoot::RootPath(path).c_str(), F_OK) == 0;
}

int Stat(const std::string& path, struct stat& st) {
    return stat(SohRoot::RootPath(path).c_str(), &st);
}

int MakeDir(const std::string& path, mode_t mode) {
    return mkdir(SohRoot::RootPath(path).c_str(), mode);
}

int Remove(const std::string& path) {
    return unlink(SohRoot::RootPath(path).c_str());
}

int Rename(const std::string& from, const std::string& to) {
    return rename(SohRoot::RootPath(from).c_str(), SohRoot::RootPath(to).c_str());
}

bool ReadAll(const std::string& path, std::string& out, size_t maxBytes) {
    int fd = open(SohRoot::RootPath(path).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    std::string data;
    char buf[4096];
    bool ok = true;
    for (;;) {
        ssize_t n = read(fd, buf, sizeof(buf));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0 || data.size() + static_cast<size_t>(n) > maxBytes) {
            ok = false;
            break;
        }
        if (n == 0) {
            break;
        }
        data.append(buf, static_cast<size_t>(n));
    }
    int saved = errno;
    close(fd);
    errno = saved;
    if (ok) {
        out.swap(data);
    }
    return ok;
}

bool WriteAtomic(const std::string& path, const std::string& data, mode_t mode, bool* openFailed) {
    if (openFailed != nullptr) {
        *openFailed = false;
    }
    std::string target = SohRoot::RootPath(path);
    std::string tmp = target + ".tmp";
    int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
    if (fd < 0) {
        if (openFailed != nullptr) {
            *openFailed = true;
        }
        return false;
    }
    fchmod(fd, mode);  // the umask must not narrow the record's mode
    const char* p = data.data();
    size_t left = data.size();
    bool ok = true;
    while (left > 0) {
        ssize_t n = write(fd, p, left);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            if (n == 0) {
                errno = ENOSPC;
            }
            ok = false;
            break;
        }
        p += n;
        left -= static_cast<size_t>(n);
    }
    ok = ok && fdatasync(fd) == 0;
    int saved = errno;
    ok = (close(fd) == 0) && ok;
    if (ok && rename(tmp.c_str(), target.c_str()) == 0) {
        return true;
    }
    saved = errno != 0 ? errno : saved;
    unlink(tmp.c_str());
    errno = saved;
    return false;
}

}  // namespace SohFile
