// What every fuzz target shares: one temporary device root per process, laid out from the
// sample device (examples/device) and seen by the daemon's code as "/", a quiet log at info
// level (so that every message is still formatted), the manual clock, and small helpers to
// place an input on the device and to take an input apart.
//
// The root lives in $QUEN_FUZZ_TMP when set, else in /dev/shm when it is writable (the daemon
// syncs every record it replaces; on a memory file system that costs nothing), else in
// $TMPDIR or /tmp. It is removed when the process exits normally.
//
// Threads: Setup and the helpers are for the fuzzing thread only.
#pragma once

#include <json/json.h>
#include <stddef.h>
#include <stdint.h>

#include <string>

namespace FuzzDevice {

// 2023-11-14 23:59:00 UTC: one minute before a day closes, in the time zone the targets use.
constexpr int64_t kStartSeconds = 1700006340;
constexpr int64_t kNsPerSecond = 1000000000LL;

// Creates the root, switches the log and the clock, and loads the sample configuration (so
// that the configuration getters keep the sample whatever a target writes later). Only the
// first call does anything.
void Setup();
// Registers the build's estimator and protector classes in their pools (as start-up does).
void DeclareAll();

std::string HostPath(const std::string& devicePath);
// Replaces a file (creating its directories) with `bytes`.
void Write(const std::string& devicePath, const std::string& bytes);
void Write(const std::string& devicePath, const uint8_t* data, size_t size);
// Removes a file; a missing one is fine.
void Remove(const std::string& devicePath);

// Sets the wall clock back to kStartSeconds (+ `offsetSeconds`).
void SetTime(int64_t offsetSeconds = 0);
// Forgets what earlier inputs left behind that grows without bound: big-data lines and the
// appended impedance logs.
void ForgetAppends();

// The sample configuration's section of estimator `name` (null value when absent).
const Json::Value& SampleSection(const std::string& name);

// Writes `text` to a scratch file on the device and parses it with the daemon's own
// configuration reader. False when the daemon refuses it.
bool ParseAsConfig(const std::string& text, Json::Value& root);

}  // namespace FuzzDevice

// Takes an input apart from the front: bytes, little-endian words, NUL-terminated strings.
// Reading past the end yields zeros and empty strings.
class FuzzInput {
public:
    FuzzInput(const uint8_t* data, size_t size) : data_(data), size_(size) {}

    uint8_t Byte();
    uint32_t Word();
    // The bytes up to the next NUL (which is consumed) or to the end.
    std::string CString();
    // Everything not taken yet.
    std::string Rest();
    size_t Left() const { return size_ - pos_; }

private:
    const uint8_t* data_;
    size_t size_;
    size_t pos_ = 0;
};
