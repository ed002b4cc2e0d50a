// What the simulator's fake kernel serves: a set of sysfs-like nodes, each a small value that
// is read whole at offset 0 and replaced whole by a write, some of which raise POLLPRI events.
//
// Paths are device paths under /sys without the prefix, e.g. "class/power_supply/Battery/temp"
// (no leading slash). Directories are implied by the paths of the nodes.
//
// Threads: the file system calls every method from its own worker threads, concurrently with
// the simulator's threads; an implementation guards its state with its own lock. The event
// callback may be called with that lock held, from any thread; it must not call back into the
// source.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace sim {

class NodeSource {
public:
    virtual ~NodeSource() = default;

    // Every node, as paths relative to the mount point. Fixed after the mount.
    virtual std::vector<std::string> List() = 0;
    // The node's current content (bytes, may be binary). 0, or -errno (e.g. -ENOENT).
    virtual int Read(const std::string& path, std::string& out) = 0;
    // A whole-value write from the daemon. 0, or -errno (e.g. -EINVAL for a line the node does
    // not accept, -EACCES for a read-only node).
    virtual int Write(const std::string& path, const std::string& data) = 0;
    // Reads several nodes at one instant: out[i] and rc[i] as Read would give them for paths[i].
    // A source whose reads share work (advancing a model, computing its state) does it once.
    virtual void ReadMany(const std::vector<std::string>& paths, std::vector<std::string>& out,
                          std::vector<int>& rc) {
        out.resize(paths.size());
        rc.resize(paths.size());
        for (size_t i = 0; i < paths.size(); ++i) {
            rc[i] = Read(paths[i], out[i]);
        }
    }
    // How many events the node has raised so far; a reader that has seen fewer gets POLLPRI.
    virtual uint64_t Events(const std::string& path) = 0;

    // Called by the source after a node's event count grew (path as in List()).
    using EventSink = std::function<void(const std::string& path)>;
    void SetEventSink(EventSink sink) { sink_ = std::move(sink); }

protected:
    void Raise(const std::string& path) {
        if (sink_) {
            sink_(path);
        }
    }

private:
    EventSink sink_;
};

}  // namespace sim
