// NodeHandles: the calling thread's open descriptors of the kernel nodes it reads again and
// again. Opening a sysfs node costs a path walk, a file allocation and, on close, its release;
// a periodic pass reads the same few nodes every time, so each thread keeps those descriptors
// open and reads them with pread(2) (sysfs produces an attribute's text afresh on every read
// from offset 0).
//
// Only nodes under "/sys/" opened read-only are kept, at most kCapacity per thread (the least
// recently used one is closed to make room). Where node files may be replaced
// (SohRoot::NodesStayInPlace false: the host's fake device trees) a kept descriptor is checked
// before it is handed out: a file that no longer has a name (unlinked, or replaced by a rename)
// is closed and opened again, so the caller always reads what the path names now. A caller that
// sees a read fail drops the descriptor with Drop().
//
// Ownership: the cache owns the descriptors; callers borrow one until their next call into
// this namespace on the same thread. Threads: every thread has its own cache; no locks.
#pragma once

#include <string>

namespace NodeHandles {

constexpr unsigned kCapacity = 24;

// True when reads of devicePath (a device path, not yet mapped through the root) are kept.
bool Keeps(const std::string& devicePath);

// A descriptor open on devicePath: the kept one, or a new one opened (through the root, with
// O_RDONLY | O_CLOEXEC) and kept. -1 with errno set when the open fails.
int Get(const std::string& devicePath);

// Closes and forgets the kept descriptor of devicePath, if any.
void Drop(const std::string& devicePath);

}  // namespace NodeHandles
