#include "core/soh_algo_para.h"

#include <mutex>

#include "core/soh_log.h"

SohMetaPara::SohMetaPara(const Json::Value& obj) {
    if (!obj.isObject()) {
        return;
    }
    for (const std::string& key : obj.getMemberNames()) {
        const Json::Value& v = obj[key];
        if (!v.isNumeric()) {
            continue;
        }
        if (v.isInt()) {
            entries_.emplace(key, Entry(v.asInt()));
        } else if (v.isInt64()) {
            entries_.emplace(key, Entry(static_cast<long long>(v.asInt64())));
        } else {
            entries_.emplace(key, Entry(v.asDouble()));
        }
    }
}

bool SohMetaPara::GetPara(const std::string& key, int& out) const {
    auto it = entries_.find(key);
    if (it == entries_.end()) {
        return false;
    }
    const int* value = std::get_if<int>(&it->second);
    if (value == nullptr) {
        return false;
    }
    out = *value;
    return true;
}

void SohMetaPara::Print2Log(const std::string& /*name*/, const std::string& prefix) const {
    for (const auto& [key, entry] : entries_) {
        if (const int* i = std::get_if<int>(&entry)) {
            SOH_LOGI("%s%s: %d\n", prefix.c_str(), key.c_str(), *i);
        } else if (const long long* ll = std::get_if<long long>(&entry)) {
            SOH_LOGI("%s%s: %lld\n", prefix.c_str(), key.c_str(), *ll);
        } else if (const double* d = std::get_if<double>(&entry)) {
            SOH_LOGI("%s%s: %f\n", prefix.c_str(), key.c_str(), *d);
        }
    }
}

void SohAlgoPara::AddConfig(const Json::Value& cfg, const std::string& /*name*/) {
    if (!cfg.isObject()) {
        SOH_LOGE("not a valid value for AddObject");
        return;
    }
    std::unique_lock<std::shared_mutex> lock(groupLock_);
    for (const std::string& group : cfg.getMemberNames()) {
        const Json::Value& member = cfg[group];
        if (!member.isObject() || groups_.count(group) != 0) {
            continue;
        }
        auto table = std::make_unique<SohMetaPara>(member);
        if (table->size() != 0) {
            groups_.emplace(group, std::move(table));
        }
    }
}

bool SohAlgoPara::GetPara(const std::string& name, const std::string& key, int& out) const {
    std::shared_lock<std::shared_mutex> lock(groupLock_);
    auto it = groups_.find(name);
    return it != groups_.end() && it->second->GetPara(key, out);
}

bool SohAlgoPara::GetPara(const std::string& name, const std::string& key, unsigned& out) const {
    int value = 0;
    if (!GetPara(name, key, value) || value < 0) {
        return false;
    }
    out = static_cast<unsigned>(value);
    return true;
}

std::unique_ptr<SohMetaPara> SohAlgoPara::GetOutParas(const std::string& name) {
    std::unique_lock<std::shared_mutex> lock(groupLock_);
    auto it = groups_.find(name);
    if (it == groups_.end()) {
        return std::make_unique<SohMetaPara>(Json::Value());
    }
    std::unique_ptr<SohMetaPara> table = std::move(it->second);
    groups_.erase(it);
    return table;
}

void SohAlgoPara::Clear(const std::string& name) {
    std::unique_lock<std::shared_mutex> lock(groupLock_);
    groups_.erase(name);
}

void SohAlgoPara::Print2Log(const std::string& name, const std::string& prefix) const {
    std::shared_lock<std::shared_mutex> lock(groupLock_);
    auto it = groups_.find(name);
    if (it == groups_.end()) {
        return;
    }
    SOH_LOGI("%s:\n", name.c_str());
    it->second->Print2Log(name, prefix);
}
