// The simulator's fake kernel: a FUSE file system that serves a NodeSource with sysfs
// behaviour, mounted over $QUEN_ROOT/sys.
//
// - Reads return the node's current value from the offset asked (reads bypass the page cache,
//   so every read at offset 0 sees the value of that moment).
// - A write replaces the node's value with the bytes written (its offset is ignored, as sysfs
//   does for a store); the source may refuse it with an errno, which the writer sees.
// - Opening with O_TRUNC and truncate() are accepted and ignored.
// - poll() reports POLLPRI | POLLERR once the node has raised an event that this open file has
//   not yet seen; a read marks every event up to then as seen, as sysfs_notify does.
//   A waiting poll() is woken through the FUSE poll notification when the event arrives.
// - Faults can be injected per node: a read error, short reads, refused writes, a node that
//   is hidden (ENOENT) until the fault is lifted.
//
// Threads: libfuse serves requests on its own worker threads; Mount/Unmount run on the
// caller's thread. State shared with the workers (open files, poll handles, faults) is guarded
// by lock_; the source is called without lock_ held, so it may raise events from inside Read
// or Write.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "sim/fakefs/node_source.h"

struct fuse;
struct fuse_pollhandle;

namespace sim {

// A fault on one node. Errors are positive errno values; 0 means none.
struct NodeFault {
    int readErrno = 0;     // every read fails with this error
    size_t shortRead = 0;  // when > 0, a read returns at most this many bytes
    int writeErrno = 0;    // every write fails with this error
    bool hidden = false;   // lookups fail with ENOENT (the node "disappears")
};

class FakeKernel {
public:
    // `source` must outlive the mount. Sets the source's event sink.
    explicit FakeKernel(NodeSource& source);
    ~FakeKernel();  // unmounts
    FakeKernel(const FakeKernel&) = delete;
    FakeKernel& operator=(const FakeKernel&) = delete;

    // Mounts over `dir` (created when missing; a stale mount left there by a crashed run is
    // detached first) and starts serving. False with a message in `error` on failure.
    bool Mount(const std::string& dir, std::string& error);
    // Stops serving and unmounts; safe to call twice and from a signal-free context only.
    void Unmount();
    bool Mounted() const { return fuse_ != nullptr; }

    // Sets (or, with a default NodeFault, clears) the fault of one node (path as in List()).
    void SetFault(const std::string& path, const NodeFault& fault);
    void ClearFaults();

    // Counters since the mount (for benchmarks and fault-test reports).
    uint64_t Reads() const;
    uint64_t Writes() const;
    uint64_t Polls() const;

    // Whether /dev/fuse can be used here; false with a reason otherwise.
    static bool Available(std::string& reason);
    // Whether a mounted fake kernel exists in this process, i.e. whether fuse_get_context()
    // may be called (libfuse creates its per-thread context only while one exists).
    static bool Serving();

    // --- Called by the file system's operations (public so the C callbacks can reach them).
    struct OpenFile {
        std::string path;
        uint64_t seen = 0;                // events seen by this open file
        fuse_pollhandle* poll = nullptr;  // a waiting poller, owned
    };
    NodeSource& Source() { return source_; }
    bool IsDir(const std::string& path) const;
    bool IsNode(const std::string& path) const;
    std::set<std::string> Children(const std::string& dir) const;
    NodeFault FaultOf(const std::string& path) const;
    OpenFile* Open(const std::string& path);
    void Release(OpenFile* file);
    int Read(OpenFile* file, char* buf, size_t size, int64_t offset);
    int Write(OpenFile* file, const char* buf, size_t size);
    // Returns the poll mask and keeps `ph` (owned from here on) to notify later.
    unsigned Poll(OpenFile* file, fuse_pollhandle* ph);

private:
    void OnEvent(const std::string& path);

    NodeSource& source_;
    std::set<std::string> nodes_;  // fixed at construction
    std::set<std::string> dirs_;   // "" is the root
    mutable std::mutex lock_;      // guards everything below
    std::set<OpenFile*> open_;
    std::map<std::string, NodeFault> faults_;
    uint64_t reads_ = 0;
    uint64_t writes_ = 0;
    uint64_t polls_ = 0;
    // Mount state: caller's thread only.
    fuse* fuse_ = nullptr;
    std::string mountDir_;
    std::thread loop_;
};

}  // namespace sim
