// The daemon's side of the virtual clock (see vclock_page.h): with QUEN_VCLOCK=PAGE_FILE the
// host clock seam reads the time from the shared page, and every wait of a daemon thread that
// takes part in the schedule hands the turn back to the simulator.
//
// Who takes part: the main thread, and every thread started through SohThread::Start. Other
// threads (the control service's) read the virtual time but are not scheduled: their waits
// re-check the virtual clock every millisecond of real time.
//
// Threads: any. A participant calls Wait only while it holds the turn (it always does when it
// runs). Ownership: the page is mapped once per process and never unmapped.
#pragma once

#include <cstdint>
#include <string>

namespace VClockClient {

// True when the process runs on the virtual clock (QUEN_VCLOCK names a valid page).
bool On();
int64_t MonoNs();
int64_t WallNs();

// True when the calling thread takes part in the schedule.
bool Participant();

// Gives the turn back and sleeps until the master grants it again: at `deadlineNs` (virtual
// CLOCK_MONOTONIC, VClockPage::kNever for none), on a notify of `cvKey` (0: none), or on an
// event of a node in `pollMask`. Returns the VClockPage::Reason of the grant.
uint32_t Wait(int64_t deadlineNs, const void* cvKey, uint64_t pollMask);

// Gives the turn to the master for one look at the device (a node just written) and takes it
// back before any other thread runs.
void HandOver();

// Makes every participant waiting on `cvKey` runnable (it runs when the master grants it).
void Notify(const void* cvKey);

// The event node a file descriptor is open on (-1: none), and that node's event count.
int NodeOf(int fd);
uint64_t NodeEvents(int node);

// For SohThread::Start: NewSlot takes a slot for a thread about to start (on the starting
// thread, -1 when the process is not on the virtual clock or no slot is left); the new thread
// calls Enter(slot) first, which waits for its first turn, and Leave() last.
int NewSlot(const char* name);
void Enter(int slot);
void Leave();
// Gives up a slot whose thread could not be started.
void Abandon(int slot);

}  // namespace VClockClient
