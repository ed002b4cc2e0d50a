// The daemon's side of the virtual clock: maps the page, takes part in the turn hand-off.
#include "platform/host/vclock_client.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <mutex>

#include "platform/host/vclock_page.h"

namespace VClockClient {
namespace {

using VClockPage::Page;
using VClockPage::Slot;

// A sleeping waiter looks at its word again at least this often (real ns), so that a lost
// wake-up costs a pause, never a hang.
constexpr int64_t kFutexSliceNs = 50000000LL;

Page* MapPage() {
    const char* path = getenv("QUEN_VCLOCK");
    if (path == nullptr || *path == '\0') {
        return nullptr;
    }
    int fd = open(path, O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        fprintf(stderr, "quen: QUEN_VCLOCK %s cannot be opened: %s; using the real clock\n", path,
                strerror(errno));
        return nullptr;
    }
    struct stat st {};
    void* map = MAP_FAILED;
    if (fstat(fd, &st) == 0 && st.st_size >= static_cast<off_t>(sizeof(Page))) {
        map = mmap(nullptr, sizeof(Page), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    }
    close(fd);
    Page* page = map == MAP_FAILED ? nullptr : static_cast<Page*>(map);
    if (page == nullptr || page->magic.load(std::memory_order_acquire) != VClockPage::kMagic ||
        page->size != sizeof(Page)) {
        fprintf(stderr, "quen: QUEN_VCLOCK %s is not a clock page; using the real clock\n", path);
        return nullptr;
    }
    return page;
}

Page* ThePage() {
    static Page* page = MapPage();
    return page;
}

// The calling thread's slot: -2 not looked at yet, -1 not a participant.
thread_local int tSlot = -2;

// A release-acquire edge between the thread that gives the turn back and the one that takes
// it next, visible to ThreadSanitizer (the futex hand-off through the page is not).
std::atomic<uint64_t> gHandoff{0};

// Slots are taken only by the thread that holds the turn; the lock covers the rare thread
// that starts another while it is not a participant.
std::mutex gSlotLock;

int MySlot() {
    if (tSlot == -2) {
        tSlot = (ThePage() != nullptr && syscall(SYS_gettid) == getpid()) ? 0 : -1;
    }
    return tSlot;
}

void GiveTurnBack(Page* page) {
    gHandoff.fetch_add(1, std::memory_order_acq_rel);
    // Sequentially consistent, like the master's side: its "waiting" flag and this store must
    // not be seen in the other order, or its wake-up is lost for a slice.
    page->turn.store(VClockPage::kMasterTurn, std::memory_order_seq_cst);
    if (page->masterWaiting.load(std::memory_order_seq_cst) != 0) {
        VClockPage::FutexWake(&page->turn);
    }
}

// Waits until the slot's grant count moves past `seen`.
void AwaitGrant(Slot& slot, uint32_t seen) {
    // No busy wait: it would count as the daemon's CPU time, and the master's step between
    // two turns of a thread is longer than a futex wake-up.
    while (slot.go.load(std::memory_order_acquire) == seen) {
        VClockPage::FutexWait(&slot.go, seen, kFutexSliceNs);
    }
    gHandoff.fetch_add(1, std::memory_order_acq_rel);
}

}  // namespace

bool On() {
    return ThePage() != nullptr;
}

int64_t MonoNs() {
    return ThePage()->monoNs.load(std::memory_order_acquire);
}

int64_t WallNs() {
    Page* page = ThePage();
    return page->wallAtZeroNs.load(std::memory_order_relaxed) +
           page->monoNs.load(std::memory_order_acquire);
}

bool Participant() {
    return MySlot() >= 0;
}

uint32_t Wait(int64_t deadlineNs, const void* cvKey, uint64_t pollMask) {
    Page* page = ThePage();
    Slot& slot = page->slots[MySlot()];
    slot.deadline.store(deadlineNs, std::memory_order_relaxed);
    slot.cvKey.store(reinterpret_cast<uint64_t>(cvKey), std::memory_order_relaxed);
    slot.pollMask.store(pollMask, std::memory_order_relaxed);
    const uint32_t seen = slot.go.load(std::memory_order_acquire);
    slot.state.store(VClockPage::kWaiting, std::memory_order_release);
    // A notify from a thread outside the schedule may have come while this one still ran.
    if (cvKey != nullptr && slot.notifyPending.exchange(0) != 0) {
        uint32_t expected = VClockPage::kWaiting;
        if (slot.state.compare_exchange_strong(expected, VClockPage::kRunnable)) {
            slot.reason.store(VClockPage::kNotify, std::memory_order_relaxed);
        }
    }
    GiveTurnBack(page);
    AwaitGrant(slot, seen);
    slot.cvKey.store(0, std::memory_order_relaxed);
    slot.pollMask.store(0, std::memory_order_relaxed);
    return slot.reason.load(std::memory_order_acquire);
}

void HandOver() {
    Page* page = ThePage();
    Slot& slot = page->slots[MySlot()];
    const uint32_t seen = slot.go.load(std::memory_order_acquire);
    slot.reason.store(VClockPage::kResume, std::memory_order_relaxed);
    slot.state.store(VClockPage::kRunnable, std::memory_order_release);
    page->resume.store(MySlot(), std::memory_order_release);
    GiveTurnBack(page);
    AwaitGrant(slot, seen);
}

void Notify(const void* cvKey) {
    Page* page = ThePage();
    const uint64_t key = reinterpret_cast<uint64_t>(cvKey);
    const uint32_t n = page->slotCount.load(std::memory_order_acquire);
    for (uint32_t i = 0; i < n && i < VClockPage::kMaxSlots; ++i) {
        Slot& slot = page->slots[i];
        if (slot.cvKey.load(std::memory_order_acquire) != key) {
            continue;
        }
        uint32_t expected = VClockPage::kWaiting;
        if (slot.state.compare_exchange_strong(expected, VClockPage::kRunnable)) {
            slot.reason.store(VClockPage::kNotify, std::memory_order_release);
        } else if (expected == VClockPage::kRunning) {
            slot.notifyPending.store(1, std::memory_order_release);
        }
    }
}

int NodeOf(int fd) {
    Page* page = ThePage();
    char link[64];
    char target[VClockPage::kPathBytes];
    snprintf(link, sizeof(link), "/proc/self/fd/%d", fd);
    ssize_t len = readlink(link, target, sizeof(target) - 1);
    if (len <= 0) {
        return -1;
    }
    target[len] = '\0';
    const uint32_t n = page->nodeCount.load(std::memory_order_acquire);
    for (uint32_t i = 0; i < n && i < VClockPage::kMaxNodes; ++i) {
        if (strcmp(page->nodes[i].hostPath, target) == 0) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

uint64_t NodeEvents(int node) {
    return ThePage()->nodes[node].events.load(std::memory_order_acquire);
}

int NewSlot(const char* name) {
    Page* page = ThePage();
    if (page == nullptr) {
        return -1;
    }
    std::lock_guard<std::mutex> lock(gSlotLock);
    const uint32_t n = page->slotCount.load(std::memory_order_acquire);
    uint32_t i = 0;
    while (i < n && page->slots[i].state.load() != VClockPage::kExited) {
        ++i;
    }
    if (i >= static_cast<uint32_t>(VClockPage::kMaxSlots)) {
        return -1;
    }
    Slot& slot = page->slots[i];
    snprintf(slot.name, sizeof(slot.name), "%s", name);
    slot.deadline.store(VClockPage::kNever);
    slot.cvKey.store(0);
    slot.pollMask.store(0);
    slot.notifyPending.store(0);
    slot.reason.store(VClockPage::kStart);
    slot.go.store(0);
    slot.state.store(VClockPage::kRunnable, std::memory_order_release);
    if (i == n) {
        page->slotCount.store(n + 1, std::memory_order_release);
    }
    return static_cast<int>(i);
}

void Enter(int slot) {
    tSlot = slot;
    if (slot >= 0) {
        AwaitGrant(ThePage()->slots[slot], 0);
    }
}

void Leave() {
    const int me = MySlot();
    if (me < 0) {
        return;
    }
    Page* page = ThePage();
    page->slots[me].state.store(VClockPage::kExited, std::memory_order_release);
    tSlot = -1;
    GiveTurnBack(page);
}

void Abandon(int slot) {
    ThePage()->slots[slot].state.store(VClockPage::kExited, std::memory_order_release);
}

}  // namespace VClockClient
