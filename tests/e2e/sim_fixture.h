// The fixture of the end-to-end tests that run the real daemon against the fake kernel, on
// an accelerated clock shared with the test: a copy of the sample device, its sys tree served
// by FileNodes over FUSE, the daemon as a child process, and helpers to wait for kernel writes.
// Skipped with a message where FUSE cannot be used.
#pragma once

#include <sys/wait.h>

#include <chrono>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include "sim/fakefs/fake_kernel.h"
#include "sim/fakefs/file_nodes.h"
#include "sim/runner/daemon_process.h"
#include "sim/runner/sim_clock.h"
#include "tests/support/fake_device.h"

namespace e2e {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr const char* kVterm = "class/vn_power/interface/vterm_dec";
constexpr const char* kIchgLimit = "class/vn_power/interface/ichg_limit";
constexpr const char* kDmd = "devices/platform/vorlan_batt_soh/quen_dmd_report";
constexpr const char* kAging = "devices/platform/vorlan_batt_soh/basp/basp_data";
constexpr const char* kPolicy = "devices/platform/vorlan_batt_soh/basp/basp_policy";
constexpr const char* kAcr = "devices/platform/vorlan_batt_soh/eis/acr_info";
constexpr const char* kVoltage = "class/power_supply/Battery/voltage_now";
// 2026-03-01 20:00:00 in UTC+8.
constexpr int64_t kStart = 1772366400;

class SimTest : public FakeDeviceTest {
protected:
    void SetUp() override {
        std::string reason;
        if (!sim::FakeKernel::Available(reason)) {
            GTEST_SKIP() << "FUSE is not available here (" << reason
                         << "): the fake-kernel tests are skipped";
        }
        dev.CopyTree("examples/device");
    }
    void TearDown() override {
        daemon.Stop(SIGTERM, 2000);
        if (kernel) {
            kernel->Unmount();
        }
    }
    // Mounts the fake kernel over the copied tree, with `values` replacing the tree's.
    void Mount(const std::map<std::string, std::string>& values = {}) {
        std::string error;
        ASSERT_TRUE(nodes.Load(dev.HostPath("/sys"), error)) << error;
        for (const auto& kv : values) {
            nodes.Set(kv.first, kv.second);
        }
        kernel = std::make_unique<sim::FakeKernel>(nodes);
        ASSERT_TRUE(kernel->Mount(dev.HostPath("/sys"), error)) << error;
    }
    // Starts the daemon at `speed`; its clock goes on from where the last run's ended.
    void Launch(int64_t speed) {
        int64_t start =
            clock.speed > 0 && clock.anchorNs > 0 ? static_cast<int64_t>(clock.Now()) : kStart;
        clock = sim::SimClock::StartNow(start, speed);
        std::string error;
        ASSERT_TRUE(daemon.Start(QUEN_BINARY, {"-d"},
                                 {{"QUEN_ROOT", dev.Root()},
                                  {"QUEN_CLOCK_SPEED", std::to_string(speed)},
                                  {"QUEN_CLOCK_START", std::to_string(start)},
                                  {"QUEN_CLOCK_ANCHOR", std::to_string(clock.anchorNs)},
                                  {"TZ", "CST-8"}},
                                 dev.HostPath("/quen.log"), error))
            << error;
    }
    void Start(int64_t speed, const std::map<std::string, std::string>& values = {}) {
        Mount(values);
        if (!HasFatalFailure()) {
            Launch(speed);
        }
    }
    // Waits until the control service answers (real time); false when it does not.
    bool ServiceUp(seconds timeout = seconds(20)) {
        auto deadline = std::chrono::steady_clock::now() + timeout;
        while (Ctl("get smart_charging") != 0) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            std::this_thread::sleep_for(milliseconds(5));
        }
        return true;
    }
    // True while the daemon runs; once it has ended, false, and Log() says how it ended.
    bool Alive() {
        const bool started = daemon.Pid() > 0;
        int status = 0;
        if (daemon.Running(status)) {
            return true;
        }
        if (started) {
            ended = sim::DaemonProcess::Describe(status);
        }
        return false;
    }
    // Waits for a write to `node` equal to `value` (or any write, when empty).
    bool Written(const std::string& node, const std::string& value, size_t& from,
                 seconds timeout = seconds(20)) {
        return nodes.WaitForWrite(
            node, [&](const std::string& d) { return value.empty() || d == value; }, from,
            std::chrono::duration_cast<milliseconds>(timeout));
    }
    int Ctl(const std::string& args) {
        std::string cmd = std::string(QUENCTL_BINARY) + " --root '" + dev.Root() + "' " + args +
                          " >/dev/null 2>&1";
        int status = system(cmd.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    // The daemon's log, every kernel write and, once Alive() saw it end, how it ended, for
    // failure messages.
    std::string Log() {
        std::string writes;
        for (const auto& w : nodes.History()) {
            writes += w.path + " <- " + (w.data.size() == 16 ? "(16 bytes)" : w.data) + "\n";
        }
        std::string end = ended.empty() ? "" : "\nthe daemon " + ended + "\n";
        return dev.Read("/quen.log") + "\nkernel writes:\n" + writes + end;
    }
    // Waits (real time, bounded) until the log holds `text` at least `count` times.
    bool Logged(const std::string& text, int count = 1, seconds timeout = seconds(60)) {
        auto deadline = std::chrono::steady_clock::now() + timeout;
        while (CountLog(text) < count) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            std::this_thread::sleep_for(milliseconds(5));
        }
        return true;
    }
    // Size of a file of the device root in bytes, 0 when it is missing.
    uint64_t Size(const std::string& devicePath) {
        std::ifstream in(dev.HostPath(devicePath), std::ios::binary | std::ios::ate);
        return in ? static_cast<uint64_t>(in.tellg()) : 0;
    }
    // Serves an impedance record with AC resistance `value` and raises its event.
    void RaiseAcr(uint32_t value) {
        uint32_t acr[6] = {value, 600, 27, 31, 29, 3950};
        nodes.Set(kAcr, std::string(reinterpret_cast<const char*>(acr), sizeof(acr)));
        nodes.RaiseEvent(kAcr);
    }
    int CountLog(const std::string& text) {
        const std::string log = dev.Read("/quen.log");
        int n = 0;
        for (size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + 1)) {
            ++n;
        }
        return n;
    }

    sim::FileNodes nodes;
    std::unique_ptr<sim::FakeKernel> kernel;
    sim::DaemonProcess daemon;
    std::string ended;  // how the daemon ended, as Alive() found it: "exited with 1", ...
    sim::SimClock clock{0, 0, 0};
};

}  // namespace e2e
