// Where device paths live on this build.
//
// The daemon names every file by its device path ("/sys/...", "/log/soh/...") and keeps
// that path in its messages and records; only the moment a file is opened, created,
// renamed or inspected is the path mapped through RootPath. Device build: the identity.
// Host build: absolute paths are placed under $QUEN_ROOT (unset or empty: "/"), read at
// every call so that tests can point each process at its own fake device.
#pragma once

#include <string>

namespace SohRoot {

// The path at which `devicePath` is found on this build.
std::string RootPath(const std::string& devicePath);

// Called after a write to the kernel node `devicePath` succeeded. Device build: nothing. Host
// build under the simulator's virtual clock: the simulated kernel takes the write before the
// thread goes on, so that two writes to one node in a row are both seen, as a kernel sees them.
void Wrote(const std::string& devicePath);

// True when a kernel node's file, once opened, stays the file its path names: no one unlinks a
// node or renames another file over it. Device build: true (sysfs; a node whose device goes
// away fails its reads instead). Host build: true under the simulator's virtual clock, whose
// kernel writes every node in place; otherwise false (tests replace node files freely).
bool NodesStayInPlace();

}  // namespace SohRoot
