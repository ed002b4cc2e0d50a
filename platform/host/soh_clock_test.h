// In-process control of the host clock seam, for unit tests only.
//
// After SetManual the clock stands still until Advance moves it: sleepers wake once the
// clock has reached their deadline, condition-variable waits and poll time-outs end then
// too. Thread-safe; may be called while other threads sleep on the clock.
#pragma once

#include <stdint.h>

namespace SohClockTest {

// Switches the process to the manual clock, starting at `wallNs` nanoseconds since the
// epoch. Monotonic time restarts at 0.
void SetManual(int64_t wallNs);
// Moves the manual clock forward by `ns` (no effect in real mode).
void Advance(int64_t ns);
// Sets the manual clock to `wallNs` (forward or backward; monotonic time only goes forward).
void SetWall(int64_t wallNs);
// Number of threads currently blocked in SleepNs/WaitFor/Poll on the manual clock, so that
// a test can wait until the code under test has gone to sleep before advancing.
int Sleepers();

}  // namespace SohClockTest
