#define FUSE_USE_VERSION 35
#include "sim/perf/perf_nodes.h"

#include "sim/fakefs/fake_kernel.h"

#include <fuse.h>
#include <time.h>

namespace sim {
namespace {

// The thread that made the file-system request being served, 0 outside a request.
pid_t Requester() {
    if (!FakeKernel::Serving()) {
        return 0;  // no file system: no request, and no context to ask
    }
    fuse_context* context = fuse_get_context();
    return context != nullptr ? context->pid : 0;
}

}  // namespace

InstrumentedNodes::InstrumentedNodes(NodeSource& inner) : inner_(inner) {
    inner_.SetEventSink([this](const std::string& path) { Raise(path); });
}

int64_t InstrumentedNodes::MonoNs() {
    struct timespec ts {};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000LL + ts.tv_nsec;
}

std::vector<std::string> InstrumentedNodes::List() {
    return inner_.List();
}

int InstrumentedNodes::Read(const std::string& path, std::string& out) {
    int rc = inner_.Read(path, out);
    Count(path, false, rc);
    return rc;
}

int InstrumentedNodes::Write(const std::string& path, const std::string& data) {
    int rc = inner_.Write(path, data);
    Count(path, true, rc);
    return rc;
}

uint64_t InstrumentedNodes::Events(const std::string& path) {
    return inner_.Events(path);
}

void InstrumentedNodes::Count(const std::string& path, bool write, int result) {
    const int64_t now = MonoNs();
    const pid_t tid = Requester();
    std::lock_guard<std::mutex> guard(lock_);
    Access& byPath = byPath_[path];
    Access& byThread = byThread_[tid];
    if (write) {
        ++byPath.writes;
        ++byThread.writes;
        writes_.push_back({now, path, result});
    } else {
        ++byPath.reads;
        ++byThread.reads;
    }
}

std::map<std::string, InstrumentedNodes::Access> InstrumentedNodes::ByPath() const {
    std::lock_guard<std::mutex> guard(lock_);
    return byPath_;
}

std::map<pid_t, InstrumentedNodes::Access> InstrumentedNodes::ByThread() const {
    std::lock_guard<std::mutex> guard(lock_);
    return byThread_;
}

std::vector<InstrumentedNodes::TimedWrite> InstrumentedNodes::WritesFrom(size_t from) const {
    std::lock_guard<std::mutex> guard(lock_);
    if (from >= writes_.size()) {
        return {};
    }
    return {writes_.begin() + static_cast<std::ptrdiff_t>(from), writes_.end()};
}

size_t InstrumentedNodes::WriteCount() const {
    std::lock_guard<std::mutex> guard(lock_);
    return writes_.size();
}

void InstrumentedNodes::Reset() {
    std::lock_guard<std::mutex> guard(lock_);
    byPath_.clear();
    byThread_.clear();
    writes_.clear();
}

}  // namespace sim
