// What the micro-benchmarks share: a temporary device root, the log set-up, a count of the
// log lines an operation writes, and the raw system calls that the floor benchmarks are made
// of.
//
// The root is a copy of examples/device made once per process, on tmpfs (/dev/shm) when it
// can be written, else under $TMPDIR or /tmp; $QUEN_BENCH_DIR chooses another parent. On tmpfs
// fdatasync costs next to nothing, so operation and floor are compared on their CPU and
// system-call cost, not on this machine's disk. QUEN_ROOT points at it from the first call of
// Root() on, and it is removed at exit.
//
// The daemon logs at the info level (the init script starts it with -d). Standard error is
// sent to /dev/null for the whole run, so every log line is one write(2) there; Stderr() is
// the original standard error for the benchmarks' own messages.
//
// Threads: Root(), Host() and the log set-up are for the benchmark's main thread; the floor
// helpers keep no state and may run on any thread.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdio>
#include <functional>
#include <string>

namespace bench {

// The device root (host path) of this process, created on first use.
const std::string& Root();
// Host path of a device path ("/sys/..." -> "<root>/sys/...").
std::string Host(const std::string& devicePath);
// Replaces a file of the root (parents created); aborts the run when it cannot.
void WriteFile(const std::string& devicePath, const std::string& content);

// Sends standard error to /dev/null and sets the daemon's log level to info. Call once,
// before the first benchmark.
void QuietLogs();
// The original standard error.
FILE* Stderr();
// Stops the run with a message on the original standard error.
[[noreturn]] void Fail(const std::string& what);

// Registers the daemon's estimator and protector factories in the pools (once).
void DeclareObjects();

// Lines and bytes (as formatted on the host: time stamp, ids, level, tag, text) that one run
// of `op` logs.
struct LogCount {
    int lines = 0;
    size_t bytes = 0;
};
LogCount CountLog(const std::function<void()>& op);

// ---- floor primitives: exactly the system calls named, on host paths ----

// open, one read of up to 128 bytes, close (a kernel node or a property).
void ReadNode(const std::string& hostPath);
// open, read until end of file (4 KiB at a time), close.
void ReadWhole(const std::string& hostPath);
// open, one write of `data`, close.
void WriteNode(const std::string& hostPath, const std::string& data);
// An atomic replacement: open "<path>.tmp" (create, truncate), fchmod to `mode`, write,
// fdatasync, close, rename.
void ReplaceFile(const std::string& hostPath, const std::string& data, mode_t mode);
// One write(2) of an average line per logged line, to standard error.
void WriteLogLines(const LogCount& count);

}  // namespace bench
