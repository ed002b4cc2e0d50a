// Where a run on the virtual clock keeps the daemon's device root while it runs: a folder in
// memory (/dev/shm) when there is one, else the arm's result folder. The daemon opens a node
// file on every read and saves its records with fdatasync and rename, so a short path on a
// file system in memory takes about a quarter off a simulated day. At the end the root is
// moved into the result folder.
//
// A run killed outright leaves its folder behind; the next WorkDir removes the folders of
// processes that are gone. Threads: one owner thread.
#pragma once

#include <string>

namespace sim {

class WorkDir {
public:
    // `fallback`: the folder to use when no folder in memory can be made.
    explicit WorkDir(const std::string& fallback);
    ~WorkDir();
    WorkDir(const WorkDir&) = delete;
    WorkDir& operator=(const WorkDir&) = delete;

    const std::string& Path() const { return path_; }
    bool InMemory() const { return inMemory_; }
    // Moves the folder `name` in Path() to `to` (replaced), when in memory: its folders,
    // regular files and links (no socket or FIFO). False with a message when it could not be
    // moved.
    bool MoveOut(const std::string& name, const std::string& to, std::string& error);

    // The folders in memory are made under this one (tests point it elsewhere).
    static std::string& Base();

private:
    std::string path_;
    bool inMemory_ = false;
};

}  // namespace sim
