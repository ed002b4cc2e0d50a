// A NodeSource that holds plain values: every regular file of a device tree's "sys" directory
// becomes a node with that file's content; writes replace the value and are kept in a history.
// Tests and scenarios set values and raise events by hand.
//
// Threads: every method may be called from any thread; one mutex guards the values, event
// counts and history. The event sink is called after that mutex is released.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "sim/fakefs/node_source.h"

namespace sim {

class FileNodes : public NodeSource {
public:
    struct WriteRecord {
        std::string path;
        std::string data;
    };

    FileNodes() = default;
    // Adds every regular file under `sysDir` (recursively) as a node. False with a message when
    // the directory cannot be read.
    bool Load(const std::string& sysDir, std::string& error);
    // Adds a node or replaces its value (no event). Nodes must be added before the mount.
    void Set(const std::string& path, const std::string& value);
    std::string Get(const std::string& path) const;
    // Counts one event on the node and wakes its pollers.
    void RaiseEvent(const std::string& path);
    // Every write accepted so far, oldest first.
    std::vector<WriteRecord> History() const;
    // Waits (real time) until a write to `path` satisfies `match`, looking at writes from the
    // `from`-th on; true when one did. `from` is updated past the match.
    bool WaitForWrite(const std::string& path, const std::function<bool(const std::string&)>& match,
                      size_t& from, std::chrono::milliseconds timeout);
    // Makes writes to `path` fail with -errnoValue (0: accept again).
    void RefuseWrites(const std::string& path, int errnoValue);

    std::vector<std::string> List() override;
    int Read(const std::string& path, std::string& out) override;
    int Write(const std::string& path, const std::string& data) override;
    uint64_t Events(const std::string& path) override;

private:
    struct Node {
        std::string value;
        uint64_t events = 0;
        int refuse = 0;
    };
    mutable std::mutex lock_;  // guards nodes_ and history_
    std::condition_variable written_;
    std::map<std::string, Node> nodes_;
    std::vector<WriteRecord> history_;
};

}  // namespace sim
