// SocLimitator: selection and output of the SOC strategy. UpdateStrategy validates without a
// lock and holds lock_ for everything after; the other members run under it.
#include "protectors/soc_limitator.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>

#include "core/device_stream.h"
#include "core/soh_configure.h"
#include "core/soh_log.h"
#include "protectors/limit_nodes.h"

namespace {

// Truncation toward zero to 32 bits unsigned; negatives and NaN give 0 and large values
// saturate, as the device's own conversion does.
unsigned ToUnsigned(double value) {
    if (std::isnan(value) || value <= 0.0) {
        return 0;
    }
    if (value >= static_cast<double>(std::numeric_limits<uint32_t>::max())) {
        return std::numeric_limits<uint32_t>::max();
    }
    return static_cast<unsigned>(value);
}

// The value of `key` in a table; a key the table lacks reads as 0.
double ValueIn(const SohStrategy& strategy, const std::string& key) {
    auto v = strategy.find(key);
    return v == strategy.end() ? 0.0 : v->second;
}

// Same set of keys, and every stored value within `same` of the new one.
bool SameStrategy(const SohStrategy& stored, const SohStrategy& next, double same) {
    if (stored.size() != next.size()) {
        return false;
    }
    // Both tables are ordered by key: with equal sizes they hold the same keys exactly when
    // their keys match pairwise, so one walk over both replaces a lookup per key.
    for (auto s = stored.begin(), n = next.begin(); s != stored.end(); ++s, ++n) {
        if (s->first != n->first || !(std::fabs(n->second - s->second) <= same)) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool SocLimitator::CheckStrategy(const SohStrategy& strategy) {
    for (const char* key : {"Type", "HighSoc", "LowSoc", "Enable"}) {
        if (strategy.find(key) == strategy.end()) {
            return false;
        }
    }
    return true;
}

void SocLimitator::UpdateStrategy(const std::string& estimator, SohStrategy strategy) {
    if (!CheckStrategy(strategy)) {
        return;  // incomplete tables are dropped without a word
    }
    std::lock_guard<std::mutex> lock(lock_);
    if (strategy.try_emplace("Force", 0.0).first->second > 0) {  // stored tables carry "Force"
        releaseArmed_ = true;
    }
    SohStrategy& stored = strategies_[estimator];
    const bool unchanged = SameStrategy(stored, strategy, kSameValue);
    if (!unchanged) {
        stored = std::move(strategy);
    }
    std::string winner = SelectStrategy();
    // The table in force changed when another estimator won, or the winner's own table moved.
    NoteWinner(winner, winner != lastSent_ || (!unchanged && winner == estimator));
    if (unchanged && winner == lastSent_) {
        return;
    }
    // Failed writes are logged; the state moves on anyway so an identical update is not retried.
    SendStrategy(winner);
    lastSent_ = std::move(winner);
}

std::string SocLimitator::SelectStrategy() const {
    static const std::string* const kHighSoc = new std::string("HighSoc");  // never destroyed
    static const std::string* const kEnable = new std::string("Enable");
    double best = 100.0;
    std::string winner;
    for (const auto& entry : strategies_) {
        const double high = ValueIn(entry.second, *kHighSoc);
        if (ValueIn(entry.second, *kEnable) != 0 && high < best) {
            best = high;
            winner = entry.first;
        }
    }
    return winner;
}

void SocLimitator::SendStrategy(const std::string& winner) {
    SaveStrategy(winner);
    WriteControl(winner);
    if (winner.empty()) {
        return;
    }
    const unsigned type = UnsignedValue(winner, "Type");
    if (DeviceWriter(LimitNodes::kSocStrategy).Write("quen " + std::to_string(type)) == 0) {
        SOH_LOGI("write soc strategy %u success\n", type);
    } else {
        SOH_LOGE("write soc strategy failed\n");
    }
}

void SocLimitator::SaveStrategy(const std::string& winner) {
    std::string text = "1 95 100";  // what the kernel runs with when nobody limits
    if (!winner.empty()) {
        text.clear();
        for (const char* key : {"Type", "LowSoc", "HighSoc", "SmartChgSign", "ShutDownSign"}) {
            text += (text.empty() ? "" : " ") + std::to_string(UnsignedValue(winner, key));
        }
    }
    SOHConfigure::RefLimitRecord(GetName(), winner, text);
}

void SocLimitator::WriteControl(const std::string& winner) {
    std::string line = "quen";
    if (!winner.empty()) {
        const unsigned enable = UnsignedValue(winner, "Enable");
        const unsigned low = UnsignedValue(winner, "LowSoc");
        const unsigned high = UnsignedValue(winner, "HighSoc");
        line +=
            " " + std::to_string(enable) + " " + std::to_string(low) + " " + std::to_string(high);
        if (Value(winner, "SmartChgSign") == 1.0) {
            SOHConfigure::SetSmartCharging(1);
        }
        SOH_LOGE("write soc control of %s with %u %u %u %u %u\n", winner.c_str(), enable, low, high,
                 UnsignedValue(winner, "SmartChgSign"), UnsignedValue(winner, "ShutDownSign"));
    } else {
        if (!releaseArmed_) {
            return;  // never switch the kernel's SOC control off before a forced strategy
        }
        line += " 0 95 100";
        SOH_LOGE("write soc control to disable soc limit\n");
        SOHConfigure::SetSmartCharging(0);
    }
    if (DeviceWriter(LimitNodes::kSocControl).Write(line) != 0) {
        SOH_LOGE("write soc control failed\n");
    }
}

double SocLimitator::Value(const std::string& estimator, const std::string& key) const {
    auto s = strategies_.find(estimator);
    return s == strategies_.end() ? 0.0 : ValueIn(s->second, key);
}

unsigned SocLimitator::UnsignedValue(const std::string& estimator, const std::string& key) const {
    return ToUnsigned(Value(estimator, key));
}
