#include "core/soh_fault_gate.h"

#include <atomic>
#include <mutex>
#include <unordered_map>

namespace {

struct Table {
    std::mutex lock;
    std::unordered_map<std::string, uint64_t> failures;  // guarded by lock
    std::atomic<size_t> failing{0};                      // failures.size(), read without lock
};

Table& Gate() {
    static Table* table = new Table;  // never destroyed: detached threads log until exit
    return *table;
}

}  // namespace

namespace SohFaultGate {

bool Fail(const std::string& key, uint64_t* count) {
    Table& t = Gate();
    std::lock_guard<std::mutex> guard(t.lock);
    const uint64_t n = ++t.failures[key];
    t.failing.store(t.failures.size(), std::memory_order_relaxed);
    if (count != nullptr) {
        *count = n;
    }
    return (n & (n - 1)) == 0;  // a power of two
}

uint64_t Ok(const std::string& key) {
    Table& t = Gate();
    if (t.failing.load(std::memory_order_relaxed) == 0) {
        return 0;
    }
    std::lock_guard<std::mutex> guard(t.lock);
    auto it = t.failures.find(key);
    if (it == t.failures.end()) {
        return 0;
    }
    const uint64_t ended = it->second;
    t.failures.erase(it);
    t.failing.store(t.failures.size(), std::memory_order_relaxed);
    return ended;
}

}  // namespace SohFaultGate
