#include "sim/fakefs/file_nodes.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace sim {

bool FileNodes::Load(const std::string& sysDir, std::string& error) {
    namespace fs = std::filesystem;
    std::error_code ec;
    fs::recursive_directory_iterator it(sysDir, ec);
    if (ec) {
        error = "cannot read " + sysDir + ": " + ec.message();
        return false;
    }
    for (; it != fs::recursive_directory_iterator(); it.increment(ec)) {
        if (ec) {
            error = "cannot read " + sysDir + ": " + ec.message();
            return false;
        }
        if (!it->is_regular_file()) {
            continue;
        }
        std::ifstream in(it->path(), std::ios::binary);
        std::ostringstream content;
        content << in.rdbuf();
        Set(fs::relative(it->path(), sysDir).generic_string(), content.str());
    }
    return true;
}

void FileNodes::Set(const std::string& path, const std::string& value) {
    std::lock_guard<std::mutex> guard(lock_);
    nodes_[path].value = value;
}

std::string FileNodes::Get(const std::string& path) const {
    std::lock_guard<std::mutex> guard(lock_);
    auto it = nodes_.find(path);
    return it == nodes_.end() ? std::string() : it->second.value;
}

void FileNodes::RaiseEvent(const std::string& path) {
    {
        std::lock_guard<std::mutex> guard(lock_);
        ++nodes_[path].events;
    }
    Raise(path);
}

std::vector<FileNodes::WriteRecord> FileNodes::History() const {
    std::lock_guard<std::mutex> guard(lock_);
    return history_;
}

bool FileNodes::WaitForWrite(const std::string& path,
                             const std::function<bool(const std::string&)>& match, size_t& from,
                             std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> guard(lock_);
    auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        for (; from < history_.size(); ++from) {
            if (history_[from].path == path && match(history_[from].data)) {
                ++from;
                return true;
            }
        }
        if (written_.wait_until(guard, deadline) == std::cv_status::timeout &&
            from == history_.size()) {
            return false;
        }
    }
}

void FileNodes::RefuseWrites(const std::string& path, int errnoValue) {
    std::lock_guard<std::mutex> guard(lock_);
    nodes_[path].refuse = errnoValue;
}

std::vector<std::string> FileNodes::List() {
    std::lock_guard<std::mutex> guard(lock_);
    std::vector<std::string> paths;
    for (const auto& entry : nodes_) {
        paths.push_back(entry.first);
    }
    return paths;
}

int FileNodes::Read(const std::string& path, std::string& out) {
    std::lock_guard<std::mutex> guard(lock_);
    auto it = nodes_.find(path);
    if (it == nodes_.end()) {
        return -ENOENT;
    }
    out = it->second.value;
    return 0;
}

int FileNodes::Write(const std::string& path, const std::string& data) {
    {
        std::lock_guard<std::mutex> guard(lock_);
        auto it = nodes_.find(path);
        if (it == nodes_.end()) {
            return -ENOENT;
        }
        if (it->second.refuse != 0) {
            return -it->second.refuse;
        }
        it->second.value = data;
        history_.push_back({path, data});
    }
    written_.notify_all();
    return 0;
}

uint64_t FileNodes::Events(const std::string& path) {
    std::lock_guard<std::mutex> guard(lock_);
    auto it = nodes_.find(path);
    return it == nodes_.end() ? 0 : it->second.events;
}

}  // namespace sim
