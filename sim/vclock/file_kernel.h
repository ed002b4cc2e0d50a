// The fake kernel as plain files, for runs on the virtual clock: every node of a NodeSource is
// a regular file under ROOT/sys that holds the node's content. Between the daemon's turns the
// simulator brings the files up to date (Sync) and takes the daemon's writes (Collect, found
// through inotify: one non-blocking read when nothing was written). The daemon hands its turn
// over after every node write (SohRoot::Wrote), so each write is taken on its own, never
// merged with the next one to the same node. Events reach pollers
// through the virtual clock's event nodes instead of POLLPRI.
//
// Why not FUSE here: under the virtual clock only one side runs at a time, so a read needs no
// server; a plain file costs the daemon an open, a read and a close in the page cache instead
// of three round trips through a file-system server. The FUSE fake kernel stays for the tests
// that need a kernel's behaviour (errors, short reads, a node that disappears).
//
// Threads: the owner's thread only, while the daemon does not run.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "sim/fakefs/node_source.h"
#include "sim/vclock/virtual_clock.h"

namespace sim {

class FileKernel {
public:
    // Writes every node of `source` under `sysDir` (which must exist; missing directories are
    // made), watches them for the daemon's writes, registers `events` (the nodes that raise
    // events) with `clock` and routes the source's events there. `driven` lists the nodes
    // whose content changes without a write (re-read at every Sync).
    static std::unique_ptr<FileKernel> Create(NodeSource& source, const std::string& sysDir,
                                              const std::vector<std::string>& driven,
                                              const std::vector<std::string>& events,
                                              VirtualClock& clock, std::string& error);
    ~FileKernel();
    FileKernel(const FileKernel&) = delete;
    FileKernel& operator=(const FileKernel&) = delete;

    // Rewrites the driven nodes whose content changed.
    void Sync();
    // Hands the daemon's writes since the last call to the source (which may refuse them);
    // each written file is then set back to what a read of the node returns.
    void Collect();

    uint64_t FileWrites() const { return fileWrites_; }

private:
    struct File {
        int fd = -1;
        std::string content;  // what the file holds
        bool driven = false;
    };
    FileKernel(NodeSource& source, VirtualClock& clock) : source_(source), clock_(clock) {}
    bool Put(File& file, const std::string& content);
    void Drain();

    NodeSource& source_;
    VirtualClock& clock_;
    std::string sysDir_;
    std::map<std::string, File> files_;  // by node path
    std::vector<File*> driven_;          // the driven files, and their node paths
    std::vector<std::string> drivenPaths_;
    std::vector<std::string> contents_;  // Sync's reads, kept to reuse their buffers
    std::vector<int> results_;
    std::map<int, std::string> watchDirs_;   // inotify watch -> directory (relative)
    std::map<std::string, int> eventNodes_;  // node path -> clock event node
    int inotify_ = -1;
    uint64_t fileWrites_ = 0;
};

}  // namespace sim
