#include "sim/lab/arm_pool.h"

#include <sys/wait.h>
#include <unistd.h>

#include <time.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

namespace sim {
namespace {

const char* const kErrorFile = "/start-error.txt";

[[noreturn]] void RunChild(const LabArm& arm, const volatile sig_atomic_t* stop) {
    RunSummary summary;
    std::string error;
    const int rc = RunArm(arm.plan, stop, summary, error);
    if (rc == 2) {
        std::ofstream(arm.plan.outDir + kErrorFile) << error;
    }
    fflush(stderr);
    _exit(rc);
}

}  // namespace

int DefaultJobs() {
    const unsigned n = std::thread::hardware_concurrency();
    return n == 0 ? 1 : static_cast<int>(n);
}

size_t RunArmsInParallel(std::vector<LabArm>& arms, int jobs, const volatile sig_atomic_t* stop,
                         const ArmDone& onDone) {
    jobs = std::max(1, jobs);
    std::map<pid_t, size_t> running;
    size_t next = 0, started = 0, finished = 0;
    bool forwarded = false;
    for (;;) {
        const bool stopping = stop != nullptr && *stop;
        while (!stopping && next < arms.size() && static_cast<int>(running.size()) < jobs) {
            LabArm& arm = arms[next];
            unlink((arm.plan.outDir + kErrorFile).c_str());
            fflush(nullptr);
            const pid_t pid = fork();
            if (pid == 0) {
                RunChild(arm, stop);
            }
            if (pid < 0) {
                arm.exitCode = 2;
                arm.error = "cannot start a process for the arm";
            } else {
                running[pid] = next;
                ++started;
            }
            ++next;
        }
        if (running.empty()) {
            break;
        }
        if (stopping && !forwarded) {
            for (const auto& kv : running) {
                kill(kv.first, SIGTERM);
            }
            forwarded = true;
        }
        // Poll rather than block, so that a stop request that lands just before the wait is
        // still seen within a tenth of a second (a signal also cuts the sleep short).
        int status = 0;
        const pid_t pid = waitpid(-1, &status, WNOHANG);
        if (pid == 0 || (pid < 0 && errno == EINTR)) {
            struct timespec tenth {
                0, 100000000L
            };
            nanosleep(&tenth, nullptr);
            continue;
        }
        if (pid < 0) {
            break;  // no child left to wait for (cannot happen while `running` holds one)
        }
        auto it = running.find(pid);
        if (it == running.end()) {
            continue;
        }
        LabArm& arm = arms[it->second];
        running.erase(it);
        arm.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        if (arm.exitCode == 2) {
            std::ifstream in(arm.plan.outDir + kErrorFile);
            std::stringstream ss;
            ss << in.rdbuf();
            arm.error = ss.str().empty() ? "the arm could not start" : ss.str();
        } else if (!WIFEXITED(status)) {
            arm.error =
                "the arm's process was killed by signal " + std::to_string(WTERMSIG(status));
        }
        ++finished;
        if (onDone) {
            onDone(arm, finished, arms.size());
        }
    }
    return started;
}

}  // namespace sim
