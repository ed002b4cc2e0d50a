#define FUSE_USE_VERSION 35
#include "sim/fakefs/fake_kernel.h"

#include <fcntl.h>
#include <fuse.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

namespace sim {
namespace {

std::atomic<int> g_live{0};  // fuse objects alive in this process

FakeKernel& Self() {
    return *static_cast<FakeKernel*>(fuse_get_context()->private_data);
}

// FUSE hands absolute paths; nodes are named without the leading slash.
std::string Rel(const char* path) {
    return path[0] == '/' ? std::string(path + 1) : std::string(path);
}

FakeKernel::OpenFile* FileOf(fuse_file_info* fi) {
    return reinterpret_cast<FakeKernel::OpenFile*>(static_cast<uintptr_t>(fi->fh));
}

void* OpInit(fuse_conn_info*, fuse_config* cfg) {
    // Values are never cached: every read reaches the source, as in sysfs. Names and
    // attributes are cached for a second, which saves a lookup and a getattr on every open;
    // a hidden node still fails at once, because open itself checks the fault.
    cfg->direct_io = 1;
    cfg->kernel_cache = 0;
    cfg->entry_timeout = 1.0;
    cfg->attr_timeout = 1.0;
    cfg->negative_timeout = 0;
    cfg->use_ino = 0;
    return fuse_get_context()->private_data;
}

int OpGetattr(const char* path, struct stat* st, fuse_file_info*) {
    FakeKernel& k = Self();
    std::string p = Rel(path);
    memset(st, 0, sizeof(*st));
    st->st_uid = getuid();
    st->st_gid = getgid();
    if (k.IsDir(p)) {
        st->st_mode = S_IFDIR | 0755;
        st->st_nlink = 2;
        return 0;
    }
    if (k.IsNode(p) && !k.FaultOf(p).hidden) {
        st->st_mode = S_IFREG | 0664;
        st->st_nlink = 1;
        st->st_size = 4096;  // what sysfs reports for every attribute
        return 0;
    }
    return -ENOENT;
}

int OpReaddir(const char* path, void* buf, fuse_fill_dir_t fill, off_t, fuse_file_info*,
              fuse_readdir_flags) {
    FakeKernel& k = Self();
    std::string p = Rel(path);
    if (!k.IsDir(p)) {
        return -ENOTDIR;
    }
    fill(buf, ".", nullptr, 0, static_cast<fuse_fill_dir_flags>(0));
    fill(buf, "..", nullptr, 0, static_cast<fuse_fill_dir_flags>(0));
    for (const std::string& name : k.Children(p)) {
        std::string child = p.empty() ? name : p + "/" + name;
        if (k.IsNode(child) && k.FaultOf(child).hidden) {
            continue;
        }
        fill(buf, name.c_str(), nullptr, 0, static_cast<fuse_fill_dir_flags>(0));
    }
    return 0;
}

int OpOpen(const char* path, fuse_file_info* fi) {
    FakeKernel& k = Self();
    std::string p = Rel(path);
    if (k.IsDir(p)) {
        return -EISDIR;
    }
    if (!k.IsNode(p) || k.FaultOf(p).hidden) {
        return -ENOENT;
    }
    fi->fh = reinterpret_cast<uintptr_t>(k.Open(p));
    fi->direct_io = 1;
    fi->keep_cache = 0;
    return 0;
}

int OpRelease(const char*, fuse_file_info* fi) {
    Self().Release(FileOf(fi));
    return 0;
}

int OpRead(const char*, char* buf, size_t size, off_t offset, fuse_file_info* fi) {
    return Self().Read(FileOf(fi), buf, size, offset);
}

int OpWrite(const char*, const char* buf, size_t size, off_t, fuse_file_info* fi) {
    return Self().Write(FileOf(fi), buf, size);
}

int OpTruncate(const char* path, off_t, fuse_file_info*) {
    return Self().IsNode(Rel(path)) ? 0 : -ENOENT;
}

int OpPoll(const char*, fuse_file_info* fi, fuse_pollhandle* ph, unsigned* revents) {
    *revents = Self().Poll(FileOf(fi), ph);
    return 0;
}

fuse_operations MakeOps() {
    fuse_operations ops{};
    ops.init = OpInit;
    ops.getattr = OpGetattr;
    ops.readdir = OpReaddir;
    ops.open = OpOpen;
    ops.release = OpRelease;
    ops.read = OpRead;
    ops.write = OpWrite;
    ops.truncate = OpTruncate;
    ops.poll = OpPoll;
    return ops;
}

}  // namespace

FakeKernel::FakeKernel(NodeSource& source) : source_(source) {
    dirs_.insert("");
    for (const std::string& node : source_.List()) {
        nodes_.insert(node);
        for (size_t slash = node.find('/'); slash != std::string::npos;
             slash = node.find('/', slash + 1)) {
            dirs_.insert(node.substr(0, slash));
        }
    }
    source_.SetEventSink([this](const std::string& path) { OnEvent(path); });
}

FakeKernel::~FakeKernel() {
    Unmount();
    source_.SetEventSink(nullptr);
}

bool FakeKernel::Available(std::string& reason) {
    int fd = open("/dev/fuse", O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        reason = std::string("/dev/fuse cannot be opened: ") + strerror(errno);
        return false;
    }
    close(fd);
    if (geteuid() != 0 && access("/usr/bin/fusermount3", X_OK) != 0) {
        reason = "not root and no fusermount3";
        return false;
    }
    return true;
}

bool FakeKernel::Serving() {
    return g_live.load() > 0;
}

bool FakeKernel::Mount(const std::string& dir, std::string& error) {
    if (fuse_ != nullptr) {
        error = "already mounted";
        return false;
    }
    struct stat st {};
    if (stat(dir.c_str(), &st) != 0) {
        if (errno == ENOTCONN) {
            umount2(dir.c_str(), MNT_DETACH);  // left by a run that died
        } else if (errno == ENOENT && mkdir(dir.c_str(), 0755) != 0) {
            error = "cannot create " + dir + ": " + strerror(errno);
            return false;
        }
    }
    fuse_operations ops = MakeOps();
    const char* argv[] = {"quen-sim", "-o", "fsname=quen-sim,subtype=sysfs"};
    fuse_args args = FUSE_ARGS_INIT(3, const_cast<char**>(argv));
    fuse* f = fuse_new(&args, &ops, sizeof(ops), this);
    fuse_opt_free_args(&args);
    if (f == nullptr) {
        error = "fuse_new failed";
        return false;
    }
    if (fuse_mount(f, dir.c_str()) != 0) {
        fuse_destroy(f);
        error = "cannot mount the fake kernel on " + dir;
        return false;
    }
    fuse_ = f;
    mountDir_ = dir;
    ++g_live;
    {
        std::lock_guard<std::mutex> guard(lock_);
        reads_ = writes_ = polls_ = 0;
    }
    loop_ = std::thread([f] {
        fuse_loop_config config{};
        config.clone_fd = 0;
        config.max_idle_threads = 8;
        int rc = fuse_loop_mt(f, &config);
        if (rc != 0) {
            fprintf(stderr, "quen-sim: fake kernel loop ended: %d\n", rc);
        }
    });
    return true;
}

void FakeKernel::Unmount() {
    if (fuse_ == nullptr) {
        return;
    }
    // Detaching the mount destroys the super block once no file is open on it; the kernel
    // then ends the connection and the workers' loop returns. It is detached here rather than
    // by fuse_unmount(), which would also close the device while the workers still read from
    // it; fuse_unmount() below finds the connection gone and only closes the descriptor.
    // (Asking the loop to exit first would make the workers drop the kernel's last requests
    // unanswered, and whoever sent them would wait for ever.)
    if (geteuid() == 0) {
        umount2(mountDir_.c_str(), MNT_DETACH);
    } else {
        pid_t pid = fork();
        if (pid == 0) {
            execlp("fusermount3", "fusermount3", "-u", "-z", mountDir_.c_str(),
                   static_cast<char*>(nullptr));
            _exit(127);
        }
        if (pid > 0) {
            waitpid(pid, nullptr, 0);
        }
    }
    if (loop_.joinable()) {
        loop_.join();
    }
    fuse_unmount(fuse_);
    {
        std::lock_guard<std::mutex> guard(lock_);
        for (OpenFile* file : open_) {
            if (file->poll != nullptr) {
                fuse_pollhandle_destroy(file->poll);
            }
            delete file;
        }
        open_.clear();
    }
    --g_live;
    fuse_destroy(fuse_);
    fuse_ = nullptr;
}

void FakeKernel::SetFault(const std::string& path, const NodeFault& fault) {
    std::lock_guard<std::mutex> guard(lock_);
    if (fault.readErrno == 0 && fault.shortRead == 0 && fault.writeErrno == 0 && !fault.hidden) {
        faults_.erase(path);
    } else {
        faults_[path] = fault;
    }
}

void FakeKernel::ClearFaults() {
    std::lock_guard<std::mutex> guard(lock_);
    faults_.clear();
}

uint64_t FakeKernel::Reads() const {
    std::lock_guard<std::mutex> guard(lock_);
    return reads_;
}

uint64_t FakeKernel::Writes() const {
    std::lock_guard<std::mutex> guard(lock_);
    return writes_;
}

uint64_t FakeKernel::Polls() const {
    std::lock_guard<std::mutex> guard(lock_);
    return polls_;
}

bool FakeKernel::IsDir(const std::string& path) const {
    return dirs_.count(path) != 0;
}

bool FakeKernel::IsNode(const std::string& path) const {
    return nodes_.count(path) != 0;
}

std::set<std::string> FakeKernel::Children(const std::string& dir) const {
    std::set<std::string> names;
    std::string prefix = dir.empty() ? "" : dir + "/";
    auto collect = [&](const std::set<std::string>& from) {
        for (auto it = from.lower_bound(prefix); it != from.end(); ++it) {
            if (it->compare(0, prefix.size(), prefix) != 0) {
                break;
            }
            std::string rest = it->substr(prefix.size());
            if (!rest.empty() && rest.find('/') == std::string::npos) {
                names.insert(rest);
            }
        }
    };
    collect(nodes_);
    collect(dirs_);
    return names;
}

NodeFault FakeKernel::FaultOf(const std::string& path) const {
    std::lock_guard<std::mutex> guard(lock_);
    auto it = faults_.find(path);
    return it == faults_.end() ? NodeFault{} : it->second;
}

FakeKernel::OpenFile* FakeKernel::Open(const std::string& path) {
    auto* file = new OpenFile;
    file->path = path;
    // Opening arms the file at the events raised so far, as a sysfs open does.
    file->seen = source_.Events(path);
    std::lock_guard<std::mutex> guard(lock_);
    open_.insert(file);
    return file;
}

void FakeKernel::Release(OpenFile* file) {
    std::lock_guard<std::mutex> guard(lock_);
    if (open_.erase(file) == 0) {
        return;
    }
    if (file->poll != nullptr) {
        fuse_pollhandle_destroy(file->poll);
    }
    delete file;
}

int FakeKernel::Read(OpenFile* file, char* buf, size_t size, int64_t offset) {
    NodeFault fault = FaultOf(file->path);
    {
        std::lock_guard<std::mutex> guard(lock_);
        ++reads_;
    }
    if (fault.hidden) {
        return -ENOENT;
    }
    if (fault.readErrno != 0) {
        return -fault.readErrno;
    }
    uint64_t events = source_.Events(file->path);
    std::string value;
    int rc = source_.Read(file->path, value);
    if (rc != 0) {
        return rc < 0 ? rc : -EIO;
    }
    {
        std::lock_guard<std::mutex> guard(lock_);
        file->seen = events;
    }
    if (offset < 0 || static_cast<uint64_t>(offset) >= value.size()) {
        return 0;
    }
    size_t n = std::min(size, value.size() - static_cast<size_t>(offset));
    if (fault.shortRead > 0) {
        n = std::min(n, fault.shortRead);
    }
    memcpy(buf, value.data() + offset, n);
    return static_cast<int>(n);
}

int FakeKernel::Write(OpenFile* file, const char* buf, size_t size) {
    NodeFault fault = FaultOf(file->path);
    {
        std::lock_guard<std::mutex> guard(lock_);
        ++writes_;
    }
    if (fault.hidden) {
        return -ENOENT;
    }
    if (fault.writeErrno != 0) {
        return -fault.writeErrno;
    }
    int rc = source_.Write(file->path, std::string(buf, size));
    if (rc != 0) {
        return rc < 0 ? rc : -EIO;
    }
    return static_cast<int>(size);
}

unsigned FakeKernel::Poll(OpenFile* file, fuse_pollhandle* ph) {
    const unsigned idle = POLLIN | POLLRDNORM;
    const unsigned raised = idle | POLLPRI | POLLERR;
    {
        std::lock_guard<std::mutex> guard(lock_);
        ++polls_;
    }
    uint64_t events = source_.Events(file->path);
    {
        std::lock_guard<std::mutex> guard(lock_);
        if (events > file->seen) {
            if (ph != nullptr) {
                fuse_pollhandle_destroy(ph);
            }
            return raised;
        }
        if (ph != nullptr) {
            if (file->poll != nullptr) {
                fuse_pollhandle_destroy(file->poll);
            }
            file->poll = ph;
        }
    }
    // An event raised between the count above and keeping the handle found no handle to
    // notify: look again now that it is kept.
    if (ph != nullptr && source_.Events(file->path) > events) {
        OnEvent(file->path);
    }
    return idle;
}

void FakeKernel::OnEvent(const std::string& path) {
    std::vector<fuse_pollhandle*> wake;
    {
        std::lock_guard<std::mutex> guard(lock_);
        for (OpenFile* file : open_) {
            if (file->poll != nullptr && file->path == path) {
                wake.push_back(file->poll);
                file->poll = nullptr;
            }
        }
    }
    for (fuse_pollhandle* ph : wake) {
        fuse_notify_poll(ph);
        fuse_pollhandle_destroy(ph);
    }
}

}  // namespace sim
