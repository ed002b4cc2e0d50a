// SOHObjectPool<T>: a registry of factories by name that creates each object on its first
// lookup and keeps it for the life of the process (objects are never deleted).
//
// Threads: lookups and registration are serialised by the pool's own mutex, so a lookup from a
// service thread may create an object while the main thread walks the pool. A factory must
// not look up the same pool again (the mutex is not recursive). CallLock() is a second,
// separate lock that the control service holds across a lookup and its call into the object,
// which serialises parameter requests; the object may use the pool's lookups meanwhile.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

template <typename T>
class SOHObjectPool {
public:
    using Factory = std::function<T*(const char*)>;

    // Adds a factory under `name`, or replaces the factory of an existing name.
    void Register(const std::string& name, Factory factory) {
        std::lock_guard<std::mutex> lock(lock_);
        factories_[name] = std::move(factory);
    }

    // The object of `name`, created by its factory on first lookup; null when no factory
    // is registered or the factory returned null (it is asked again next time).
    T* GetObjectByName(const std::string& name) {
        std::lock_guard<std::mutex> lock(lock_);
        auto obj = objects_.find(name);
        if (obj != objects_.end()) {
            return obj->second;
        }
        auto factory = factories_.find(name);
        if (factory == factories_.end()) {
            return nullptr;
        }
        T* created = factory->second(name.c_str());
        if (created != nullptr) {
            objects_[name] = created;
        }
        return created;
    }

    // The objects created so far, in ascending name order (a snapshot; the pool's lock is not
    // held while the caller uses it).
    std::vector<std::pair<std::string, T*>> Objects() const {
        std::lock_guard<std::mutex> lock(lock_);
        return {objects_.begin(), objects_.end()};
    }

    // The object of `name` if it was created already; never creates one.
    T* FindObject(const std::string& name) const {
        std::lock_guard<std::mutex> lock(lock_);
        auto obj = objects_.find(name);
        return obj == objects_.end() ? nullptr : obj->second;
    }

    std::mutex& CallLock() { return callLock_; }

    bool HasFactory(const std::string& name) const {
        std::lock_guard<std::mutex> lock(lock_);
        return factories_.count(name) != 0;
    }

private:
    mutable std::mutex lock_;  // guards factories_ and objects_
    std::mutex callLock_;      // held by callers across a lookup and a call (see above)
    std::map<std::string, Factory> factories_;
    std::map<std::string, T*> objects_;  // owned by nobody: live until process exit
};
