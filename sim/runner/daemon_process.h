// The daemon under simulation as a child process: started with an environment of its own,
// its standard error appended to a log file, stopped with a signal and reaped.
//
// Threads: one owner thread. The destructor kills a daemon still running.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace sim {

class DaemonProcess {
public:
    DaemonProcess() = default;
    ~DaemonProcess();
    DaemonProcess(const DaemonProcess&) = delete;
    DaemonProcess& operator=(const DaemonProcess&) = delete;

    // Starts `binary` with `args`; `env` is added to (and overrides) this process's
    // environment; standard output and error go to `logFile` (appended). False with a message
    // when it cannot be started.
    bool Start(const std::string& binary, const std::vector<std::string>& args,
               const std::map<std::string, std::string>& env, const std::string& logFile,
               std::string& error);
    // True while the child runs; once it has ended, false and its wait status in `status`.
    bool Running(int& status);
    // Sends `sig`, waits up to `graceMs` for the end, then SIGKILL. Returns the wait status,
    // or -1 when nothing was running.
    int Stop(int sig, int graceMs);
    pid_t Pid() const { return pid_; }
    // "exited with 3", "killed by signal 11 (core dumped)", ...
    static std::string Describe(int status);

private:
    pid_t pid_ = -1;
};

}  // namespace sim
