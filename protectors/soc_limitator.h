// SocLimitator (registered as "SocLimitator"): keeps the battery's state of charge between a
// lower and an upper bound through the kernel's SOC-control nodes.
//
// Every estimator hands it a whole strategy table (keys "Type", "Enable", "LowSoc", "HighSoc",
// "SmartChgSign", "ShutDownSign", "Force"; SOC bounds in percent, the rest codes and flags).
// The latest table of each estimator is kept; the enabled table with the lowest HighSoc below
// 100 wins (ties keep the earlier estimator name). The winner is recorded in the parameter
// store and written as "quen ENABLE LOW HIGH" to the control node and "quen TYPE" to the
// strategy node. When nothing wins, the control is switched off ("quen 0 95 100") only once
// some table has carried "Force" > 0 (the release flag); before that this daemon never turns
// the kernel's SOC control off. Plain demands (Update) are ignored.
//
// Ownership: created once by the protector pool, never deleted.
// Threads and locks: UpdateStrategy runs on estimator monitor threads and service threads. It
// validates the table without a lock, then holds lock_ (of SOHProtector) for the rest of the
// call, writes included; lock_ guards strategies_, lastSent_ and releaseArmed_. Inside it only
// the parameter store's own lock is taken (RefLimitRecord, SetSmartCharging).
#pragma once

#include <map>
#include <string>

#include "protectors/soh_limitator.h"

class SocLimitator : public SOHLimitator {
public:
    explicit SocLimitator(const std::string& name) : SOHLimitator(name) {}

    void Update(SOHEstimator*) override {}
    void UpdateStrategy(const std::string& estimator, SohStrategy strategy) override;

    // True when `strategy` holds "Type", "HighSoc", "LowSoc" and "Enable". The signs may be
    // missing: a key that a stored table lacks reads as 0 wherever it is used.
    static bool CheckStrategy(const SohStrategy& strategy);

protected:
    // Copies the stored tables into the snapshot; its winner is the estimator sent last.
    // lock_ is held by SOHProtector::Snapshot.
    void CopyStateLocked(ProtectorSnapshot& s) const override { s.strategies = strategies_; }

    // The steps of UpdateStrategy; each requires lock_ to be held. An empty name stands for
    // "no strategy".
    // The winning estimator's name, or "" when no enabled table has HighSoc below 100.
    std::string SelectStrategy() const;
    // Records, writes the control line and, for a winner, the strategy type.
    void SendStrategy(const std::string& winner);
    // Records the winner's "Type LowSoc HighSoc SmartChgSign ShutDownSign", or "1 95 100".
    void SaveStrategy(const std::string& winner);
    // Writes the winner's control line, or the disabling line when release is armed.
    void WriteControl(const std::string& winner);

private:
    // Changes of at most this much (absolute) leave a stored value unchanged.
    static constexpr double kSameValue = 0.01;

    // A key that a stored table lacks reads as 0; the table is not changed.
    double Value(const std::string& estimator, const std::string& key) const;
    unsigned UnsignedValue(const std::string& estimator, const std::string& key) const;

    std::map<std::string, SohStrategy> strategies_;  // by estimator name; guarded by lock_
    std::string lastSent_;                           // winner sent last; guarded by lock_
    bool releaseArmed_ = false;  // some table carried "Force" > 0; guarded by lock_
};
