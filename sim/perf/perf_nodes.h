// InstrumentedNodes: a NodeSource that serves another one unchanged and keeps count of what
// the daemon did with it: reads and writes per node and per requesting thread (the thread id
// the file system reports for the request), and every write with the monotonic instant at
// which the fake kernel handed it on.
//
// Events of the inner source are passed on to whoever mounts this one.
//
// Threads: the file system calls Read/Write/Events/List from its worker threads; the getters
// and Reset run on the measuring thread. One mutex (lock_) guards the counts and the write
// log; it is never held while the inner source is called.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "sim/fakefs/node_source.h"

namespace sim {

class InstrumentedNodes : public NodeSource {
public:
    struct Access {
        uint64_t reads = 0;
        uint64_t writes = 0;
    };
    struct TimedWrite {
        int64_t monoNs = 0;  // CLOCK_MONOTONIC when the write reached the source
        std::string path;    // as in List()
        int result = 0;      // the inner source's answer
    };

    // `inner` must outlive this object.
    explicit InstrumentedNodes(NodeSource& inner);

    std::vector<std::string> List() override;
    int Read(const std::string& path, std::string& out) override;
    int Write(const std::string& path, const std::string& data) override;
    uint64_t Events(const std::string& path) override;

    // Counts since the last Reset, by node path and by requesting thread id (0: unknown).
    std::map<std::string, Access> ByPath() const;
    std::map<pid_t, Access> ByThread() const;
    // The writes logged from index `from` on.
    std::vector<TimedWrite> WritesFrom(size_t from) const;
    size_t WriteCount() const;
    void Reset();

    static int64_t MonoNs();

private:
    void Count(const std::string& path, bool write, int result);

    NodeSource& inner_;
    mutable std::mutex lock_;  // guards the three below
    std::map<std::string, Access> byPath_;
    std::map<pid_t, Access> byThread_;
    std::vector<TimedWrite> writes_;
};

}  // namespace sim
