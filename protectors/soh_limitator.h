// SOHLimitator: base of the protectors that keep the latest demand of every estimator, combine
// them into one effective value and write that value to a kernel node when, and only when, its
// 32-bit integer part changes.
//
// Units: whatever the kernel node takes (a current ratio, a current, a voltage decrease, a
// status level); values are doubles here and reach the kernel as decimal integers, never
// converted. -1 means "no demand" but takes part in every combination like any other value.
//
// Ownership: limitators are created by the protector pool at start-up and never deleted.
// Threads: Update runs on estimator monitor threads and service threads. `lock_` (of
// SOHProtector) guards value_, demands_ and every field a subclass adds; each subclass holds it
// for the whole of Update, kernel writes and limit records included, so updates of one
// limitator are serialised. Inside it only the estimator's demand lock (GetLimitValue) and the
// parameter store's lock (RefLimitRecord) are taken, never another protector's.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "core/device_stream.h"
#include "core/soh_configure.h"
#include "core/soh_log.h"
#include "core/soh_protector.h"

class SOHLimitator : public SOHProtector {
public:
    explicit SOHLimitator(const std::string& name) : SOHProtector(name) {}

    // Plain limitators take no strategy tables.
    void UpdateStrategy(const std::string&, SohStrategy) override {}
    // Plain limitators serve every charger type.
    bool Match(const std::string&) override { return true; }

    enum class Wins { kSmallest, kLargest };
    struct Combined {
        std::string winner;  // estimator name; empty when there were no demands
        double value = -1.0;
    };
    // Walks `demands` in key order. The first entry is always taken; a later one replaces it
    // only when strictly smaller (kSmallest) or strictly larger (kLargest), so ties stay with
    // the earlier name. A -1 is compared like any other value. No demands: ("", -1.0).
    static Combined Combine(const std::map<std::string, double>& demands, Wins wins);
    // Truncation toward zero to 32 bits. Out-of-range values saturate and NaN gives 0, as the
    // device's own conversion does, so that host and device builds agree.
    static int32_t TruncToInt32(double value);

protected:
    struct ChargerType {
        std::string type;  // the word written after "quen" ("lvc", "dcp", ...)
        int32_t failures;  // consecutive failed writes of this type
    };
    // A type that failed this many writes in a row is taken as unsupported by the kernel.
    static constexpr int32_t kMaxTypeFailures = 4;

    // Stores the current demand of `estimator` under its name; the caller holds lock_.
    void StoreDemand(SOHEstimator* estimator);
    // Copies demands_ into the snapshot; lock_ is held by SOHProtector::Snapshot.
    void CopyStateLocked(ProtectorSnapshot& s) const override { s.demands = demands_; }
    // The common Update of the combining limitators: under lock_, stores the demand of
    // `estimator` and combines all demands; when the combined value truncates to another
    // integer than value_ does, stores it, logs "refresh <what> of <winner> limit <value>" and
    // calls write(winner, integer) with lock_ still held. The winner is noted for diagnostics
    // whether or not the value changed (NoteWinner). A null estimator changes nothing.
    template <typename Write>
    void UpdateCombined(SOHEstimator* estimator, Wins wins, const char* what, Write write) {
        if (estimator == nullptr) {
            return;
        }
        std::lock_guard<std::mutex> lock(lock_);
        StoreDemand(estimator);
        Combined best = Combine(demands_, wins);
        const bool changed = TruncToInt32(best.value) != TruncToInt32(value_);
        NoteWinner(best.winner, changed);
        if (!changed) {
            return;
        }
        value_ = best.value;
        SOH_LOGE("refresh %s of %s limit %f\n", what, best.winner.c_str(), value_);
        write(best.winner, static_cast<int>(TruncToInt32(value_)));
    }

    // Records `value` as this limitator's limit from `src` in the parameter store, then writes
    // the line "quen TYPE VALUE" (no newline) to `path` in one write. The record is kept
    // whatever the write does. 0, or -1 when the node could not be opened or written (the
    // writer logs why). Called under lock_.
    template <typename T>
    int WriteLimitToKernel(const std::string& src, const std::string& path, const std::string& type,
                           const T& value) {
        const std::string text = std::to_string(value);
        SOHConfigure::RefLimitRecord(GetName(), src, text);
        return DeviceWriter(path).Write("quen " + type + " " + text);
    }

    // Writes `limit` to the termination-voltage node once per charger type still supported,
    // in list order, counting consecutive failures. Returns the types that reached
    // kMaxTypeFailures in this call (the caller logs them; they are never written again).
    // Called under lock_.
    std::vector<std::string> WriteVtermDec(std::vector<ChargerType>& types,
                                           const std::string& winner, int limit);
    // True when `type` is "all" or one of `types` (exact, case-sensitive).
    static bool MatchType(const std::vector<ChargerType>& types, const std::string& type);

    std::map<std::string, double> demands_;  // estimator name -> last demand; guarded by lock_
};
