// The daemon's state as the control service's dump transaction reports it: the configuration
// in use, every estimator's run state, every protector's value in force with its winning
// estimator, the time of its last change and every estimator's last demand, the SOC tables,
// the app bridge's running heartbeats, the protect mark and the smart-charging flag.
//
// CollectDumpState copies that state into plain values. It takes each lock it needs briefly
// and one at a time (the pools' own locks, each estimator's run-state lock, each protector's
// lock_, the app bridge's heartbeat lock, the parameter store's lock), never two at once and
// never the pool's call lock, so it cannot deadlock with estimators or parameter requests and
// holds up an estimator for no longer than one copy. Formatting (soh_dump_format.h) works on
// the copy without any lock.
//
// Units: wall times in ns since the epoch (the clock seam); heartbeat times in s.
// Threads: callable from any thread, several at once.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/soh_protector.h"

struct SohDumpState {
    struct Estimator {
        std::string name;
        std::string runState;  // "stop", "run" or "restart"
        bool schemeClosed = false;
    };
    struct HeartBeat {
        std::string limitator;
        uint32_t elapsed = 0;  // s since the last request (whole 10-second steps)
    };

    int64_t nowNs = 0;  // when the state was taken
    std::string configPath;
    std::string configVersion;
    bool protectMark = false;
    unsigned smartCharging = 0;
    std::vector<Estimator> estimators;          // pool order (ascending names)
    std::vector<ProtectorSnapshot> protectors;  // pool order (ascending names)
    std::vector<HeartBeat> heartbeats;          // the running ones, by limitator name
    uint32_t heartbeatTimeout = 0;              // s; 0 when there is no app bridge
};

SohDumpState CollectDumpState();
