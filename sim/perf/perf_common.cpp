#include "sim/perf/perf_common.h"

#include <sys/mount.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>

namespace fs = std::filesystem;

namespace sim {
namespace {

void SleepMs(int64_t ms) {
    struct timespec ts {
        static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L
    };
    nanosleep(&ts, nullptr);
}

}  // namespace

bool StartDaemon(DaemonProcess& daemon, const std::string& quen, const std::string& root,
                 const SimClock& clock, const std::string& timezone, const std::string& log,
                 std::string& error) {
    const std::map<std::string, std::string> env = {
        {"QUEN_ROOT", root},
        {"QUEN_CLOCK_SPEED", std::to_string(clock.speed)},
        {"QUEN_CLOCK_START", std::to_string(clock.startEpoch)},
        {"QUEN_CLOCK_ANCHOR", std::to_string(clock.anchorNs)},
        {"TZ", timezone},
    };
    unsetenv("QUEN_LOG_FILE");  // its standard error already goes to `log`
    if (!daemon.Start(quen, {"-d"}, env, log, error)) {
        return false;
    }
    const std::string announced = root + "/properties/vendor.soh_service";
    for (int i = 0; i < 2000; ++i) {
        int status = 0;
        if (!daemon.Running(status)) {
            error =
                "the daemon " + DaemonProcess::Describe(status) + " at start (log: " + log + ")";
            return false;
        }
        std::ifstream in(announced);
        std::string value;
        if (in >> value && value == "start") {
            return true;
        }
        SleepMs(10);
    }
    error = "the daemon did not start its control service within 20 s (log: " + log + ")";
    return false;
}

bool RunFor(double seconds, DaemonProcess& daemon, const std::function<void()>& tick,
            std::string& error) {
    const int64_t end = SimClock::MonoNs() + static_cast<int64_t>(seconds * 1e9);
    while (SimClock::MonoNs() < end) {
        int status = 0;
        if (!daemon.Running(status)) {
            error = "the daemon " + DaemonProcess::Describe(status);
            return false;
        }
        if (tick) {
            tick();
        }
        SleepMs(tick ? 2 : 20);
    }
    return true;
}

int64_t NextLocalHour(int64_t epoch, int hour) {
    time_t t = static_cast<time_t>(epoch);
    struct tm local {};
    localtime_r(&t, &local);
    local.tm_hour = hour;
    local.tm_min = 0;
    local.tm_sec = 0;
    local.tm_isdst = -1;
    time_t at = mktime(&local);
    if (at < t) {
        local.tm_mday += 1;
        local.tm_isdst = -1;
        at = mktime(&local);
    }
    return static_cast<int64_t>(at);
}

uint64_t CountLines(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    uint64_t n = 0;
    for (std::string line; std::getline(in, line);) {
        ++n;
    }
    return n;
}

}  // namespace sim
