// AswDataObject: one accounting period of the anti-swelling estimator (a day, a week or the
// whole history): its time counters, its time table (seconds per voltage/temperature bin)
// and its swell value.
//
// Stored quantities (members of the data object; times in seconds, instants in seconds
// since the epoch): "Tstart", "CycStart" (period start), "Tend", "CycEnd" (last update),
// "Tstat" (all accounted time), "Tsim_in", "Tusb_in", "Taction" (time with a SIM, with a
// charger, with the caller's action flag), "Tusb_out" (time since the charger was last
// removed), "Sim" (SIM support setting), "OldAswell" (swell carried over from the legacy log).
// Derived quantities, through operator[]: "Psim_in", "Pusb_in" (percent of "Tstat"),
// "Pvbat_ov", "Ptbat_ot" (percent of "Tstat" above the voltage / temperature threshold),
// "Aswell" (swell value + "OldAswell" + the debug addend), "CycCurrent" (cycle count now).
//
// The first Update only prepares (start instant and cycle count; time while the daemon was
// down is credited as time without charger); each later Update advances the counters by the
// ASW-clock time since the previous one: 30 s * speed when that time is 5 h * speed or more,
// or when the clock ran backwards.
//
// Bad values never throw: arithmetic on non-numbers gives null, a null derived quantity
// makes the scene items using it fail. Used by the ASW monitor thread only; no locks.
//
// The counters a later Update advances ("Tend", "CycEnd", "Tstat", "Tsim_in", "Tusb_in",
// "Taction", "Tusb_out") are kept as plain numbers between passes and written into the data
// when anything reads or changes it (GetData, operator[], the derived quantities, Prepare,
// operator+=, copies). A reference from GetData therefore shows the counters as of that call.
#pragma once

#include <json/json.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "asw/asw_common.h"
#include "asw/asw_table.h"

class AswDataObject {
public:
    static constexpr unsigned kStepSeconds = 30;    // default step, clock seconds
    static constexpr unsigned kGapSeconds = 18000;  // a longer gap counts as one step
    static constexpr unsigned kSecondsPerDay = 86400;

    // Copies the table and takes the data by swap (a non-object becomes an empty object).
    AswDataObject(AswTable&& table, Json::Value&& data);
    // Copies time table and data; every other member starts afresh (first update pending,
    // thresholds 4294967295, swell 0, last update now).
    AswDataObject(const AswDataObject& other);
    AswDataObject& operator=(const AswDataObject&) = delete;
    virtual ~AswDataObject() = default;

    // Accounts the time since the last update: vbatMv in mV, tempC in whole degC (a negative
    // temperature arrives as a large unsigned number and lands in the top row), usbIn when a
    // charger is connected, simIn with a SIM present, action while a scene is active.
    // swellTable gives swell per day spent in each bin.
    virtual void Update(unsigned vbatMv, unsigned tempC, bool usbIn, bool simIn, bool action,
                        const AswTable& swellTable);
    // The same with the battery's cycle count already read: a pass reads its samples once and
    // hands them to every object it accounts.
    void Update(unsigned vbatMv, unsigned tempC, bool usbIn, bool simIn, bool action, int cycles,
                const AswTable& swellTable);

    // Merges another period in: tables added, earliest start, latest end, "Sim" kept (a
    // difference is logged), other counters added, keys only the other holds copied.
    AswDataObject& operator+=(const AswDataObject& other);
    // A derived quantity by name, else a copy of the stored member (null when absent).
    Json::Value operator[](const std::string& name) const;

    unsigned GetStatSeconds() const;
    void SetSupportSim(unsigned sim);
    void SetOldAswell(double swell);
    // Thresholds (mV, degC) of "Pvbat_ov" and "Ptbat_ot", set by the scene evaluation.
    void SetThreshold(unsigned vbatMv, unsigned tempC);
    // The first update's work (see above); the first form reads the cycle count itself.
    void Prepare();
    void Prepare(int cycles);

    Json::Value PsimIn() const;
    Json::Value PusbIn() const;
    Json::Value PvbatOv() const;
    Json::Value PtbatOt() const;
    Json::Value Aswell() const;
    Json::Value CycleCount() const;
    // (v / "Tstat") * 100 when v is not null and "Tstat" is a positive integer; else null.
    Json::Value Time2PScale(const Json::Value& v) const;

    const AswTable& GetTimeTable() const { return timeTable_; }
    const Json::Value& GetData() const;
    // "Tstart" and "Tend" as whole seconds; false unless both are integers (int64).
    bool GetPeriodSeconds(int64_t& start, int64_t& end) const;
    double GetSwellValue() const { return swell_; }

private:
    // The members every later Update writes, in the order of kNames in Counter().
    enum class CounterSlot { kTend, kCycEnd, kTstat, kTsimIn, kTusbIn, kTaction, kTusbOut };
    static constexpr size_t kCounterSlots = 7;

    // A counter between passes: its value as a Number and whether the member is JSON null (a
    // member that is neither null nor numeric is kind nullValue and not null).
    struct PendingCounter {
        ExtraJValue::Number number{Json::nullValue, 0.0};
        bool null = true;
        bool loaded = false;  // number and null describe the counter
        bool dirty = false;   // newer than the member in data_
    };

    void CreateFuncMaps();
    // data_[name of slot], created as null when absent; the member's address is kept after
    // the first lookup (members of data_ are never removed and data_ is never replaced once
    // constructed, so the address stays valid for the object's life).
    Json::Value& Counter(CounterSlot slot) const;
    // The slot's counter, read from data_ when it is not loaded.
    PendingCounter& Pending(CounterSlot slot);
    void SetPending(CounterSlot slot, const ExtraJValue::Number& value);
    // Writes the dirty counters into data_ and forgets all of them (data_ may change next).
    void Flush() const;
    void UpdateTValue(CounterSlot slot, bool flag, const ExtraJValue::Number& dt);
    void UpdateTusbOut(bool usbIn, const ExtraJValue::Number& dt);
    void UpdateTtable(const Json::Value& dt, unsigned vbatMv, unsigned tempC);
    void UpdateRealSwellValue(const AswTable& swellTable);

    bool firstUpdate_ = true;
    unsigned vbatThreshold_ = 4294967295u;
    unsigned tbatThreshold_ = 4294967295u;
    double swell_ = 0.0;
    AswTable timeTable_;
    Json::Value data_;                                   // current once Flush has run
    mutable Json::Value* counters_[kCounterSlots] = {};  // into data_, see Counter(); not copied
    mutable PendingCounter pending_[kCounterSlots];      // not copied
    // The "Tstart" member once it exists (members are never removed); not copied.
    mutable const Json::Value* tstart_ = nullptr;
    std::map<std::string, std::function<Json::Value()>> funcs_;
    Asw::TimePoint lastUpdate_;
};
