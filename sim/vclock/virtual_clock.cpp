#include "sim/vclock/virtual_clock.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <new>

namespace sim {
namespace {

using VClockPage::Page;
using VClockPage::Slot;

constexpr int64_t kSliceNs = 50 * 1000000LL;  // real time between liveness checks

int64_t RealMonoNs() {
    struct timespec ts {};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000LL + ts.tv_nsec;
}

}  // namespace

std::unique_ptr<VirtualClock> VirtualClock::Create(const std::string& path, int64_t startWallNs,
                                                   std::string& error) {
    int fd = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) {
        error = "cannot create the clock page " + path + ": " + strerror(errno);
        return nullptr;
    }
    void* map = MAP_FAILED;
    if (ftruncate(fd, sizeof(Page)) == 0) {
        map = mmap(nullptr, sizeof(Page), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    }
    const int err = errno;
    close(fd);
    if (map == MAP_FAILED) {
        error = "cannot map the clock page " + path + ": " + strerror(err);
        unlink(path.c_str());
        return nullptr;
    }
    Page* page = new (map) Page();  // zeroed by ftruncate; constructs the atomics
    page->size = sizeof(Page);
    page->monoNs.store(0);
    page->wallAtZeroNs.store(startWallNs);
    Slot& main = page->slots[0];
    snprintf(main.name, sizeof(main.name), "main");
    main.deadline.store(VClockPage::kNever);
    main.state.store(VClockPage::kRunning);
    main.grants.store(1);
    page->slotCount.store(1);
    page->resume.store(-1);
    page->turn.store(0);
    page->magic.store(VClockPage::kMagic, std::memory_order_release);
    return std::unique_ptr<VirtualClock>(new VirtualClock(path, page));
}

VirtualClock::~VirtualClock() {
    munmap(page_, sizeof(Page));
    unlink(path_.c_str());
}

int64_t VirtualClock::MonoNs() const {
    return page_->monoNs.load(std::memory_order_acquire);
}

double VirtualClock::Now() const {
    return static_cast<double>(page_->wallAtZeroNs.load() + MonoNs()) * 1e-9;
}

int VirtualClock::AddEventNode(const std::string& hostPath) {
    const uint32_t n = page_->nodeCount.load();
    if (n >= static_cast<uint32_t>(VClockPage::kMaxNodes) ||
        hostPath.size() >= static_cast<size_t>(VClockPage::kPathBytes)) {
        return -1;
    }
    snprintf(page_->nodes[n].hostPath, sizeof(page_->nodes[n].hostPath), "%s", hostPath.c_str());
    page_->nodes[n].events.store(0);
    page_->nodeCount.store(n + 1, std::memory_order_release);
    return static_cast<int>(n);
}

void VirtualClock::Raise(int node) {
    if (node < 0 || node >= static_cast<int>(page_->nodeCount.load())) {
        return;
    }
    page_->nodes[node].events.fetch_add(1, std::memory_order_acq_rel);
    const uint64_t bit = 1ULL << node;
    const uint32_t n = page_->slotCount.load(std::memory_order_acquire);
    for (uint32_t i = 0; i < n; ++i) {
        Slot& slot = page_->slots[i];
        uint32_t expected = VClockPage::kWaiting;
        if ((slot.pollMask.load() & bit) != 0 &&
            slot.state.compare_exchange_strong(expected, VClockPage::kRunnable)) {
            slot.reason.store(VClockPage::kEvent);
        }
    }
}

int VirtualClock::PickNext(uint32_t* reason) {
    const int32_t resume = page_->resume.exchange(-1, std::memory_order_acq_rel);
    if (resume >= 0) {
        *reason = VClockPage::kResume;
        return resume;
    }
    const uint32_t n = page_->slotCount.load(std::memory_order_acquire);
    const int64_t now = MonoNs();
    int due = -1;
    int64_t dueAt = VClockPage::kNever;
    for (uint32_t i = 0; i < n; ++i) {
        Slot& slot = page_->slots[i];
        const uint32_t state = slot.state.load(std::memory_order_acquire);
        if (state == VClockPage::kRunnable) {
            *reason = slot.reason.load();
            return static_cast<int>(i);
        }
        if (state == VClockPage::kWaiting) {
            const int64_t d = slot.deadline.load();
            if (d <= now && d < dueAt) {
                due = static_cast<int>(i);
                dueAt = d;
            }
        }
    }
    if (due >= 0) {
        uint32_t expected = VClockPage::kWaiting;
        if (!page_->slots[due].state.compare_exchange_strong(expected, VClockPage::kRunnable)) {
            return PickNext(reason);  // notified meanwhile by a thread outside the schedule
        }
        *reason = VClockPage::kTimer;
    }
    return due;
}

bool VirtualClock::AwaitTurn(int slot, const std::function<bool()>& alive) {
    const int64_t began = RealMonoNs();
    for (;;) {
        const int32_t turn = page_->turn.load(std::memory_order_acquire);
        if (turn == VClockPage::kMasterTurn) {
            return true;
        }
        page_->masterWaiting.store(1, std::memory_order_seq_cst);
        if (page_->turn.load(std::memory_order_seq_cst) == turn) {
            VClockPage::FutexWait(&page_->turn, static_cast<uint32_t>(turn), kSliceNs);
        }
        page_->masterWaiting.store(0, std::memory_order_relaxed);
        if (page_->turn.load(std::memory_order_acquire) == VClockPage::kMasterTurn) {
            return true;
        }
        if (!alive()) {
            return false;
        }
        if (RealMonoNs() - began > static_cast<int64_t>(stallSeconds * 1e9)) {
            stalledRole_ = page_->slots[slot].name;
            return false;
        }
    }
}

VirtualClock::Outcome VirtualClock::RunDue(const std::function<void()>& beforeTurn,
                                           const std::function<void()>& afterTurn,
                                           const std::function<bool()>& alive) {
    // Slot 0 holds the turn from creation until the daemon's main thread first waits.
    if (page_->turn.load(std::memory_order_acquire) != VClockPage::kMasterTurn) {
        if (!AwaitTurn(0, alive)) {
            return stalledRole_.empty() ? Outcome::kGone : Outcome::kStalled;
        }
        afterTurn();
    }
    for (;;) {
        uint32_t reason = 0;
        const int next = PickNext(&reason);
        if (next < 0) {
            return Outcome::kIdle;
        }
        beforeTurn();
        Slot& slot = page_->slots[next];
        slot.reason.store(reason, std::memory_order_relaxed);
        slot.state.store(VClockPage::kRunning, std::memory_order_relaxed);
        slot.grants.fetch_add(1, std::memory_order_relaxed);
        page_->turn.store(next, std::memory_order_release);
        slot.go.fetch_add(1, std::memory_order_release);
        VClockPage::FutexWake(&slot.go);
        ++turns_;
        if (!AwaitTurn(next, alive)) {
            return stalledRole_.empty() ? Outcome::kGone : Outcome::kStalled;
        }
        afterTurn();
    }
}

int64_t VirtualClock::NextDeadline() const {
    int64_t best = VClockPage::kNever;
    const uint32_t n = page_->slotCount.load(std::memory_order_acquire);
    for (uint32_t i = 0; i < n; ++i) {
        const Slot& slot = page_->slots[i];
        if (slot.state.load() == VClockPage::kWaiting && slot.deadline.load() < best) {
            best = slot.deadline.load();
        }
    }
    return best;
}

void VirtualClock::AdvanceTo(int64_t monoNs) {
    if (monoNs > MonoNs()) {
        page_->monoNs.store(monoNs, std::memory_order_release);
    }
}

std::map<std::string, uint64_t> VirtualClock::TurnsByRole() const {
    std::map<std::string, uint64_t> out;
    const uint32_t n = page_->slotCount.load(std::memory_order_acquire);
    for (uint32_t i = 0; i < n; ++i) {
        out[page_->slots[i].name] += page_->slots[i].grants.load();
    }
    return out;
}

}  // namespace sim
