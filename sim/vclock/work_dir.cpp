#include "sim/vclock/work_dir.h"

#include <errno.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <filesystem>

namespace fs = std::filesystem;

namespace sim {
namespace {

constexpr const char* kPrefix = "quen-sim-";

// Removes the folders "quen-sim-PID-*" of processes that no longer exist.
void RemoveStale(const std::string& base) {
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(base, ec)) {
        const std::string name = entry.path().filename().string();
        if (name.rfind(kPrefix, 0) != 0) {
            continue;
        }
        const long pid = strtol(name.c_str() + strlen(kPrefix), nullptr, 10);
        if (pid > 0 && kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH) {
            fs::remove_all(entry.path(), ec);
        }
    }
}

// Copies the tree at `from` to `to`: folders, regular files and links. Sockets and FIFOs (the
// control service's socket) are left out: they mean nothing once their process is gone.
void CopyTree(const fs::path& from, const fs::path& to, std::error_code& ec) {
    fs::create_directories(to, ec);
    for (auto it = fs::recursive_directory_iterator(from, ec);
         !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
        const fs::path target = to / it->path().lexically_relative(from);
        const fs::file_status st = it->symlink_status(ec);
        if (ec) {
            return;
        }
        if (fs::is_symlink(st)) {
            fs::copy_symlink(it->path(), target, ec);
        } else if (fs::is_directory(st)) {
            fs::create_directories(target, ec);
        } else if (fs::is_regular_file(st)) {
            fs::copy_file(it->path(), target, fs::copy_options::overwrite_existing, ec);
        }
    }
}

}  // namespace

std::string& WorkDir::Base() {
    static std::string base = "/dev/shm";
    return base;
}

WorkDir::WorkDir(const std::string& fallback) : path_(fallback) {
    if (access(Base().c_str(), W_OK) != 0) {
        return;
    }
    RemoveStale(Base());
    std::string tmpl = Base() + "/" + kPrefix + std::to_string(getpid()) + "-XXXXXX";
    if (mkdtemp(tmpl.data()) != nullptr) {
        path_ = tmpl;
        inMemory_ = true;
    }
}

WorkDir::~WorkDir() {
    if (inMemory_) {
        std::error_code ec;
        fs::remove_all(path_, ec);
    }
}

bool WorkDir::MoveOut(const std::string& name, const std::string& to, std::string& error) {
    if (!inMemory_) {
        return true;
    }
    std::error_code ec;
    const fs::path from = fs::path(path_) / name;
    fs::remove_all(to, ec);
    fs::rename(from, to, ec);  // works when both are on one file system
    if (ec) {
        ec.clear();
        CopyTree(from, to, ec);
        if (ec) {
            error = "cannot move " + from.string() + " to " + to + ": " + ec.message();
            return false;
        }
        fs::remove_all(from, ec);
    }
    return true;
}

}  // namespace sim
