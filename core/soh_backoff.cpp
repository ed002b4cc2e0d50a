#include "core/soh_backoff.h"

#include "platform/soh_clock.h"

SohBackoff::SohBackoff(int64_t firstNs, int64_t maxNs)
    : first_(firstNs > 0 ? firstNs : 1), max_(maxNs > first_ ? maxNs : first_), step_(first_) {}

bool SohBackoff::Fail() {
    ++failures_;
    return (failures_ & (failures_ - 1)) == 0;  // a power of two
}

int64_t SohBackoff::TakeStepNs() {
    const int64_t step = step_;
    step_ = step_ > max_ / 2 ? max_ : step_ * 2;
    return step;
}

void SohBackoff::Wait() {
    SohClock::SleepNs(TakeStepNs());
}

uint64_t SohBackoff::Reset() {
    const uint64_t ended = failures_;
    failures_ = 0;
    step_ = first_;
    return ended;
}
