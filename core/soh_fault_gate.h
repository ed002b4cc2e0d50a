// SohFaultGate: keeps a failure that repeats on every turn of a loop from writing a log line on
// every turn.
//
// A caller keys its failures (a device path, for example). Fail(key) counts one failure of
// that key in a row and answers whether this one is to be logged: the 1st, 2nd, 4th, 8th, ...
// so a node that stays unreadable for a year at one read every 30 s costs about 20 lines.
// Ok(key) ends the run and answers how many failures it ended (0 when the key was not
// failing), so that the caller can log the recovery once.
//
// Memory: one entry per key that is failing now (erased at its Ok), so bounded by the number
// of distinct paths the daemon reads. Cost of Ok() while nothing fails: one atomic load.
// Threads: callable from any thread; one process-wide table guarded by its own mutex.
#pragma once

#include <cstdint>
#include <string>

namespace SohFaultGate {

// Counts one failure of `key`; true when it is to be logged. *count (when not null) receives
// the number of failures in a row, this one included.
bool Fail(const std::string& key, uint64_t* count = nullptr);
// Ends a run of failures of `key`; the number of failures it ended (0: none).
uint64_t Ok(const std::string& key);

}  // namespace SohFaultGate
