#include "core/soh_file.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "core/soh_log.h"
#include "platform/soh_root.h"

namespace SohFile {

namespace {

bool IsDataPath(const std::string& path) {
    return path.rfind("/log/", 0) == 0 || path.rfind("/splash2/", 0) == 0;
}

// False (logged, errno ELOOP) when a component of the data path `path` below its top
// directory is a symbolic link; the last component is checked only when `withLeaf`.
bool LinkFree(const std::string& path, bool withLeaf) {
    if (!IsDataPath(path)) {
        return true;
    }
    size_t at = path.find('/', 1);
    while (at != std::string::npos && at + 1 < path.size()) {
        size_t next = path.find('/', at + 1);
        if (next == std::string::npos && !withLeaf) {
            break;
        }
        std::string prefix = path.substr(0, next);
        struct stat st {};
        if (lstat(SohRoot::RootPath(prefix).c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
            SOH_LOGE("refusing %s: %s is a symbolic link\n", path.c_str(), prefix.c_str());
            errno = ELOOP;
            return false;
        }
        at = next;
    }
    return true;
}

// Names the file and the reason (full partition, no descriptors, ...) beside the caller's own
// message; leaves errno as `err`.
void LogSaveFailure(const std::string& path, int err) {
    SOH_LOGE("save %s failed, error is %s\n", path.c_str(), strerror(err));
    errno = err;
}

}  // namespace

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
    if (!LinkFree(path, true)) {
        return false;
    }
    // Non-blocking so that a FIFO in the file's place cannot hold the open; no-follow so that
    // a link put there between the check above and here is refused too.
    int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | (IsDataPath(path) ? O_NOFOLLOW : 0);
    int fd = open(SohRoot::RootPath(path).c_str(), flags);
    if (fd < 0) {
        if (errno == ELOOP) {
            SOH_LOGE("refusing %s: %s is a symbolic link\n", path.c_str(), path.c_str());
            errno = ELOOP;
        }
        return false;
    }
    struct stat st {};
    if (fstat(fd, &st) != 0) {
        int saved = errno;
        close(fd);
        errno = saved;
        return false;
    }
    if (!S_ISREG(st.st_mode)) {
        close(fd);
        SOH_LOGE("refusing %s: not a regular file\n", path.c_str());
        errno = EINVAL;
        return false;
    }
    if (static_cast<uint64_t>(st.st_size) > maxBytes) {
        close(fd);
        errno = EFBIG;
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
    if (!LinkFree(path, false)) {
        if (openFailed != nullptr) {
            *openFailed = true;
        }
        return false;
    }
    std::string target = SohRoot::RootPath(path);
    std::string tmp = target + ".tmp";
    struct stat st {};
    if (lstat(target.c_str(), &st) == 0 && S_ISLNK(st.st_mode) && IsDataPath(path)) {
        SOH_LOGE("replacing symbolic link %s by the file itself\n", path.c_str());
    }
    // A temporary file left by a crash (or a link planted in its place) is removed, and the
    // new one must be created here: never opened through a link.
    unlink(tmp.c_str());
    int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
    if (fd < 0) {
        if (openFailed != nullptr) {
            *openFailed = true;
        }
        LogSaveFailure(path, errno);
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
    LogSaveFailure(path, saved);
    return false;
}

}  // namespace SohFile
