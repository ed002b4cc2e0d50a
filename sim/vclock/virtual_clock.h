// The simulator's side of the virtual clock (the master): creates the shared page that the
// daemon maps (QUEN_VCLOCK), decides which daemon thread runs next, and moves time.
//
// A step of the master: RunDue() grants the turn to every daemon thread that may run at the
// current time, one at a time and in a fixed order (started, notified and woken-by-event
// threads by slot number, then due deadlines, earliest first, ties by slot number), until
// every thread waits for a later time, a notify or an event. Then the caller moves the clock
// with AdvanceTo (never past NextDeadline(), so that no wake-up is late) and does its own work
// for that instant (the phone model, events through Raise).
//
// A daemon that dies or stops yielding cannot hang the master: a turn is waited for in slices
// of 50 ms of real time, between which `alive()` is asked; a turn that lasts longer than
// `stallSeconds` of real time ends the run as stalled.
//
// Units: virtual CLOCK_MONOTONIC ns from 0 at creation; wall = start wall + monotonic.
// Threads: one owner thread. Ownership: owns the page file (removed on destruction).
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "platform/host/vclock_page.h"

namespace sim {

class VirtualClock {
public:
    enum class Outcome { kIdle, kGone, kStalled };

    // Creates the page file at `path` with slot 0 (the daemon's main thread) holding the turn.
    static std::unique_ptr<VirtualClock> Create(const std::string& path, int64_t startWallNs,
                                                std::string& error);
    ~VirtualClock();
    VirtualClock(const VirtualClock&) = delete;
    VirtualClock& operator=(const VirtualClock&) = delete;

    const std::string& PagePath() const { return path_; }
    int64_t MonoNs() const;
    // Simulated epoch seconds.
    double Now() const;

    // Registers the file at `hostPath` (as the daemon's descriptors name it: an absolute path
    // without links) as an event node. Returns its number, or -1 when the table is full.
    int AddEventNode(const std::string& hostPath);
    // Raises one event on node `node`: the threads polling it become runnable.
    void Raise(int node);

    // Runs the daemon until no thread may run at the current time (see above). `beforeTurn` is
    // called before each turn, `afterTurn` after it (both on this thread, while the daemon
    // waits). `alive` is asked while a turn lasts longer than a slice.
    Outcome RunDue(const std::function<void()>& beforeTurn, const std::function<void()>& afterTurn,
                   const std::function<bool()>& alive);
    // The earliest deadline of a waiting daemon thread, VClockPage::kNever when none.
    int64_t NextDeadline() const;
    // Moves the clock to `monoNs` (never backwards).
    void AdvanceTo(int64_t monoNs);

    // Turns granted so far, in all and per thread role; the role of the slot that stalled.
    uint64_t Turns() const { return turns_; }
    std::map<std::string, uint64_t> TurnsByRole() const;
    std::string StalledRole() const { return stalledRole_; }
    double stallSeconds = 60;

private:
    VirtualClock(std::string path, VClockPage::Page* page) : path_(std::move(path)), page_(page) {}
    // The next slot to run now, -1 when none; its grant reason in *reason.
    int PickNext(uint32_t* reason);
    bool AwaitTurn(int slot, const std::function<bool()>& alive);

    std::string path_;
    VClockPage::Page* page_;
    uint64_t turns_ = 0;
    std::string stalledRole_;
};

}  // namespace sim
