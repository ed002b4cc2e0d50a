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
        fs::copy(from, to, fs::copy_options::recursive | fs::copy_options::copy_symlinks, ec);
        if (ec) {
            error = "cannot move " + from.string() + " to " + to + ": " + ec.message();
            return false;
        }
        fs::remove_all(from, ec);
    }
    return true;
}

}  // namespace sim
