// StorageWatch: the bytes the daemon writes to its persistent storage, by file, seen through
// inotify on folders of a device root (and every folder created under them).
//
// Attribution: a file that arrives by rename (the daemon replaces its records atomically: a
// temporary file is written, synced and renamed over the record) counts its whole size once per
// replacement, under its final name; the temporary file itself is not counted. A file written in
// place counts what it grew by at each close after writing (appends); one that shrank counts
// its new size. A rewrite in place that keeps the size would count nothing: the daemon does
// not make any. Sizes are read when the event is handled, a moment after it happened; a file
// replaced twice in that moment counts the newer size twice.
//
// Threads: Start and Stop on the owner's thread; one watcher thread reads the events; the
// getters and Reset may run on any thread (lock_ guards the counts).
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace sim {

class StorageWatch {
public:
    struct FileBytes {
        uint64_t bytes = 0;
        uint64_t replacements = 0;  // atomic replacements (each one a sync)
        uint64_t appends = 0;       // closes after writing in place
    };

    StorageWatch() = default;
    ~StorageWatch();
    StorageWatch(const StorageWatch&) = delete;
    StorageWatch& operator=(const StorageWatch&) = delete;

    // Watches `dirs` (device paths such as "/log") under `root`; missing folders are skipped.
    bool Start(const std::string& root, const std::vector<std::string>& dirs, std::string& error);
    void Stop();

    // By device path, since Start or the last Reset.
    std::map<std::string, FileBytes> ByFile() const;
    void Reset();

private:
    void AddTree(const std::string& hostDir);
    void Loop();
    void OnEvent(int wd, uint32_t mask, const std::string& name);

    std::string root_;
    int fd_ = -1;
    int stopFd_ = -1;
    std::thread thread_;
    std::map<int, std::string> dirs_;         // watch -> host folder; watcher thread after Start
    std::map<std::string, uint64_t> sizes_;   // host path -> last size seen; watcher thread
    mutable std::mutex lock_;                 // guards files_
    std::map<std::string, FileBytes> files_;  // device path -> counts
};

}  // namespace sim
