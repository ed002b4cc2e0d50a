// The virtual clock's shared page: one file mapped by the simulator (the master) and by the
// daemon under test, through which the two share one clock that moves only when the master
// moves it, and hand the right to run back and forth.
//
// Exactly one party runs at a time: the master or one daemon thread ("slot"), named by
// `turn`. A daemon thread that waits (sleep, condition wait, poll) writes why and until when
// into its slot, gives the turn back to the master and sleeps on its slot's `go` word; the
// master picks the next slot to run in a fixed order (started, notified and woken-by-event
// slots by number, then the earliest due deadline), moves the clock when nothing is due, and
// grants that slot the turn by raising `go`. Because one thread runs at a time and the order
// is fixed, a run is deterministic.
//
// The master creates the page with slot 0 (the daemon's main thread) holding the turn, so the
// daemon starts running at once. Slots of threads the daemon starts later are taken by the
// thread that starts them, while it holds the turn.
//
// Units: nanoseconds of virtual time; CLOCK_MONOTONIC of the virtual clock starts at 0.
// Threads/processes: every field is an atomic in shared memory; futex words are 32-bit.
#pragma once

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstdint>

namespace VClockPage {

constexpr uint32_t kMagic = 0x51564b31;  // "QVK1"
constexpr int kMaxSlots = 64;
constexpr int kMaxNodes = 16;
constexpr int kPathBytes = 480;
constexpr int32_t kMasterTurn = -1;
constexpr int64_t kNever = INT64_MAX;

enum SlotState : uint32_t {
    kFree = 0,
    kRunning = 1,   // holds the turn
    kWaiting = 2,   // waits for its deadline, a notify on `cvKey` or an event on `pollMask`
    kRunnable = 3,  // may run at the current time; the master grants it in slot order
    kExited = 4,
};

// Why a slot was granted the turn.
enum Reason : uint32_t {
    kStart = 1,
    kTimer = 2,
    kNotify = 3,
    kEvent = 4,
    kResume = 5,  // handed over for a look at the device; resumes before anyone else
};

struct Slot {
    std::atomic<uint32_t> state;
    std::atomic<uint32_t> go;  // futex word: grants so far
    std::atomic<uint32_t> reason;
    std::atomic<uint32_t> notifyPending;  // a notify came while the slot was running
    std::atomic<int64_t> deadline;        // virtual CLOCK_MONOTONIC ns, kNever for none
    std::atomic<uint64_t> cvKey;          // condition variable waited on (0: none)
    std::atomic<uint64_t> pollMask;       // event nodes polled (bit per node)
    std::atomic<uint64_t> grants;         // turns taken, for reports
    char name[32];                        // the thread's role, for reports
};

struct Node {
    char hostPath[kPathBytes];     // the node's file as the daemon opens it (real path)
    std::atomic<uint64_t> events;  // POLLPRI events raised so far
};

struct Page {
    std::atomic<uint32_t> magic;  // set last, once the rest is in place
    uint32_t size;
    std::atomic<int64_t> monoNs;
    std::atomic<int64_t> wallAtZeroNs;    // wall time when monoNs was 0
    std::atomic<int32_t> turn;            // futex word: the slot that runs, or kMasterTurn
    std::atomic<uint32_t> masterWaiting;  // the master sleeps on `turn`: wake it
    std::atomic<uint32_t> slotCount;      // slots ever taken
    std::atomic<uint32_t> nodeCount;
    std::atomic<int32_t> resume;  // a slot that handed over and runs next, -1 none
    Slot slots[kMaxSlots];
    Node nodes[kMaxNodes];
};

static_assert(std::atomic<int32_t>::is_always_lock_free, "futex words must be plain words");
static_assert(std::atomic<uint32_t>::is_always_lock_free, "futex words must be plain words");
static_assert(std::atomic<int64_t>::is_always_lock_free, "clock words must be lock-free");
static_assert(sizeof(std::atomic<uint32_t>) == 4, "futex words are 32 bits");

// Shared (not process-private) futex operations on a 32-bit atomic word.
inline void FutexWait(const void* word, uint32_t expected, int64_t timeoutNs) {
    struct timespec ts {
        static_cast<time_t>(timeoutNs / 1000000000LL), static_cast<long>(timeoutNs % 1000000000LL)
    };
    syscall(SYS_futex, word, FUTEX_WAIT, expected, timeoutNs >= 0 ? &ts : nullptr, nullptr, 0);
}

inline void FutexWake(const void* word) {
    syscall(SYS_futex, word, FUTEX_WAKE, 1, nullptr, nullptr, 0);
}

}  // namespace VClockPage
