// BaspHerald: the persistent record of one aging-policy battery and its weekly report.
//
// The record (BaspDb, /log/soh/basp_<battery name>.dat) keeps the run time spent at each aging
// level, a ring of the last five learned full-charge capacities with the time each was first
// seen, and the graded decrement state (PolicyRecType). The battery objects are rebuilt for
// every kernel event, so a herald is constructed and loaded for every event: the file is the
// only memory between events. The file is always replaced atomically, never half-written.
//
// Units: seconds since the epoch (the clock seam), mAh, uV. Ownership: owned by its battery.
// Threads: used by the aging monitor thread only; the process-wide last-report time is an
// atomic touched by that thread alone.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "basp_db.pb.h"

class SOHBigData;

// The decrement state that must survive restarts (see BaspBattery::GetGradeNdcVdec).
struct PolicyRecType {
    uint32_t timestamp = 0;    // s since the epoch of the last change of ndcVdecUV
    uint32_t ndcVdecUV = 0;    // graded non-direct-charging voltage decrement, uV
    uint32_t noDecAswell = 0;  // swell-derived allowance used by the stage checks
    uint32_t lastSwell = 0;    // swell reading (x1000) the allowance last rose for
};

class BaspHerald {
public:
    static constexpr uint32_t kMaxRecords = 5;
    static constexpr uint32_t kDefaultInterval = 604800;  // s
    static constexpr uint32_t kReportPeriod = 604800;     // s between weekly reports
    static constexpr uint32_t kReportEventId = 930001007;

    // Kernel record for the weekly report, native byte order.
    struct battery_herald_data {
        uint32_t batCap;
        uint32_t reserved0;
        uint32_t batCycle;
        uint32_t reserved1;
        uint32_t qmax;
        char batMan[32];   // NUL-terminated
        char batParF[36];  // NUL-terminated
    };
    static_assert(sizeof(battery_herald_data) == 88, "kernel layout");

    explicit BaspHerald(const std::string& batteryName);

    // Loads the record for policy `version` (a changed battery deletes the file; a missing,
    // unreadable or other-version file starts an empty record), forces the ring capacity to 5,
    // prints the record and reads the report interval.
    void Init(const std::string& version);
    void ReadDb(const std::string& version);
    // Replaces the file with the record; failures are logged, the record stays in memory.
    void SaveDb();
    void PrintDb(const std::string& tag) const;

    // One aging event: books the run time, refreshes the ring with `fccs` (oldest first, at
    // most 5), saves when either changed, and sends the weekly report when it is due.
    void Update(uint32_t level, const std::vector<uint32_t>& fccs);
    // Books the time since the last accounting to the previous level; true when the record
    // changed (always, once a non-zero level has been seen).
    bool RefLevelRunTime(uint32_t level);
    void SetRunSeconds(uint32_t level, uint32_t seconds);

    // Matches the kernel's samples against the ring; true when the ring changed in a way that
    // must be saved.
    bool RefFccs(const std::vector<uint32_t>& fccs);
    bool ReplaceFccs(const std::vector<uint32_t>& fccs);
    bool RefSameSizeFccs(const std::vector<uint32_t>& fccs, const std::vector<uint32_t>& stored);
    bool RefAddOneFccs(const std::vector<uint32_t>& fccs, const std::vector<uint32_t>& stored);
    bool PushFcc(uint32_t fcc, uint32_t timestamp);
    // The ring's values, oldest first.
    std::vector<uint32_t> StoredFccs() const;

    // Copies the stored decrement state into `rec`; leaves it alone when there is none.
    void GetPolicyRec(PolicyRecType& rec) const;
    // Sets the decrement state in memory; written with the next SaveDb.
    void SavePolicyRec(const PolicyRecType& rec);

    void InitReportInterval();
    // Sends event 930001007 built from the kernel's herald record and this record. 0 on success.
    int ReportData();
    // "ChaICTp": the policy version read as a decimal number times 1000, truncated ("2.01"
    // gives 2010). A version without leading digits or with an exponent gives 0, one beyond
    // the int range gives INT32_MAX; both are logged.
    static int VersionThousandths(const std::string& version);
    // Termination voltage the charger is set to; 0 when unreadable.
    uint32_t GetVtermSet();

    const BaspDb& Db() const { return db_; }
    const std::string& Path() const { return path_; }
    uint32_t Interval() const { return interval_; }

private:
    void SetBatteryManId(SOHBigData& event, const battery_herald_data& data);
    // Adds `key` = local time of the k-th newest ring record (k from 0), "" when there is none.
    void SetFccTimeStamp(SOHBigData& event, const char* key, uint32_t k);
    // Ring index of the k-th newest record, or -1 when the ring holds fewer.
    int NewestIndex(uint32_t k) const;
    // Clears the ring when its capacity is not kMaxRecords or its position is inconsistent.
    void CheckRing();

    std::string path_;
    BaspDb db_;
    uint32_t interval_ = kDefaultInterval;
};
