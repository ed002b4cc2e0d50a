#include "sim/runner/daemon_process.h"

#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

extern char** environ;

namespace sim {

DaemonProcess::~DaemonProcess() {
    Stop(SIGKILL, 0);
}

bool DaemonProcess::Start(const std::string& binary, const std::vector<std::string>& args,
                          const std::map<std::string, std::string>& env, const std::string& logFile,
                          std::string& error) {
    if (pid_ > 0) {
        error = "the daemon already runs";
        return false;
    }
    if (access(binary.c_str(), X_OK) != 0) {
        error = binary + " is not an executable: " + strerror(errno);
        return false;
    }
    int logFd = open(logFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (logFd < 0) {
        error = "cannot open " + logFile + ": " + strerror(errno);
        return false;
    }
    // Everything the child needs is built before the fork: only async-signal-safe calls after.
    std::map<std::string, std::string> merged;
    for (char** e = environ; *e != nullptr; ++e) {
        std::string entry(*e);
        size_t eq = entry.find('=');
        if (eq != std::string::npos) {
            merged[entry.substr(0, eq)] = entry.substr(eq + 1);
        }
    }
    for (const auto& kv : env) {
        merged[kv.first] = kv.second;
    }
    std::vector<std::string> envStrings;
    for (const auto& kv : merged) {
        envStrings.push_back(kv.first + "=" + kv.second);
    }
    std::vector<char*> envp;
    for (std::string& s : envStrings) {
        envp.push_back(&s[0]);
    }
    envp.push_back(nullptr);
    std::vector<std::string> argStrings{binary};
    argStrings.insert(argStrings.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& s : argStrings) {
        argv.push_back(&s[0]);
    }
    argv.push_back(nullptr);

    pid_t pid = fork();
    if (pid < 0) {
        error = std::string("fork failed: ") + strerror(errno);
        close(logFd);
        return false;
    }
    if (pid == 0) {
        dup2(logFd, STDOUT_FILENO);
        dup2(logFd, STDERR_FILENO);
        int devNull = open("/dev/null", O_RDONLY);
        if (devNull >= 0) {
            dup2(devNull, STDIN_FILENO);
        }
        setpgid(0, 0);  // Ctrl-C in the terminal reaches the simulator, which stops the daemon
        execve(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    close(logFd);
    pid_ = pid;
    return true;
}

bool DaemonProcess::Running(int& status) {
    if (pid_ <= 0) {
        return false;
    }
    pid_t r = waitpid(pid_, &status, WNOHANG);
    if (r == 0) {
        return true;
    }
    pid_ = -1;
    return false;
}

int DaemonProcess::Stop(int sig, int graceMs) {
    if (pid_ <= 0) {
        return -1;
    }
    kill(pid_, sig);
    int status = 0;
    for (int waited = 0;; waited += 10) {
        pid_t r = waitpid(pid_, &status, WNOHANG);
        if (r == pid_ || (r < 0 && errno != EINTR)) {
            break;
        }
        if (waited >= graceMs) {
            kill(pid_, SIGKILL);
            waitpid(pid_, &status, 0);
            break;
        }
        struct timespec ten {
            0, 10000000
        };
        nanosleep(&ten, nullptr);
    }
    pid_ = -1;
    return status;
}

std::string DaemonProcess::Describe(int status) {
    if (WIFEXITED(status)) {
        return "exited with " + std::to_string(WEXITSTATUS(status));
    }
    if (WIFSIGNALED(status)) {
        std::string s = "killed by signal " + std::to_string(WTERMSIG(status)) + " (" +
                        strsignal(WTERMSIG(status)) + ")";
        if (WCOREDUMP(status)) {
            s += ", core dumped";
        }
        return s;
    }
    return "status " + std::to_string(status);
}

}  // namespace sim
