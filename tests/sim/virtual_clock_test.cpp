// The virtual clock's schedule, with a scripted "daemon" in a child process that waits through
// the clock and thread seams as the real one does: who runs when, in which order, and how the
// master gets out when the daemon dies or stops yielding.
#include "sim/vclock/virtual_clock.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <condition_variable>
#include <fstream>
#include <functional>
#include <mutex>
#include <sstream>

#include <gtest/gtest.h>

#include "platform/soh_clock.h"
#include "platform/soh_thread.h"
#include "sim/vclock/work_dir.h"

namespace {

constexpr int64_t kSec = 1000000000LL;

class VirtualClockTest : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/quen-vclock-XXXXXX";
        dir_ = mkdtemp(tmpl);
        clock_ = sim::VirtualClock::Create(dir_ + "/page", 1700000000LL * kSec, error_);
        ASSERT_NE(clock_, nullptr) << error_;
    }
    void TearDown() override {
        if (child_ > 0) {
            kill(child_, SIGKILL);
            waitpid(child_, nullptr, 0);
        }
        clock_.reset();
        system(("rm -rf " + dir_).c_str());
    }
    // Runs `script` in a child on the virtual clock; the child ends with _exit(0) after it.
    void Start(const std::function<void()>& script) {
        child_ = fork();
        if (child_ == 0) {
            setenv("QUEN_VCLOCK", clock_->PagePath().c_str(), 1);
            script();
            _exit(0);
        }
    }
    bool Alive() {
        int status = 0;
        return waitpid(child_, &status, WNOHANG) == 0;
    }
    sim::VirtualClock::Outcome Run() {
        return clock_->RunDue([] {}, [] {}, [this] { return Alive(); });
    }
    // Moves the clock from deadline to deadline until `until` (virtual ns).
    void RunUntil(int64_t until) {
        for (;;) {
            ASSERT_EQ(Run(), sim::VirtualClock::Outcome::kIdle);
            const int64_t next = clock_->NextDeadline();
            if (next > until) {
                break;
            }
            clock_->AdvanceTo(next);
        }
    }
    // A line in the child's journal: "who at virtual second".
    static void Note(const std::string& path, const std::string& what) {
        FILE* f = fopen(path.c_str(), "a");
        fprintf(f, "%s %lld\n", what.c_str(), static_cast<long long>(SohClock::MonoNs() / kSec));
        fclose(f);
    }
    std::string Journal() {
        std::ifstream in(dir_ + "/journal");
        std::stringstream s;
        s << in.rdbuf();
        return s.str();
    }

    std::string dir_;
    std::string error_;
    std::unique_ptr<sim::VirtualClock> clock_;
    pid_t child_ = -1;
};

TEST_F(VirtualClockTest, ThreadsRunOneAtATimeInDeadlineOrderAndNotifiesWakeWaiters) {
    const std::string journal = dir_ + "/journal";
    Start([journal] {
        static std::mutex lock;
        static std::condition_variable cv;
        static bool ready = false;
        for (int t = 0; t < 2; ++t) {
            const int64_t step = (t == 0 ? 10 : 15) * kSec;
            const std::string name = t == 0 ? "a" : "b";
            SohThread::StartDetached(name.c_str(), [journal, step, name] {
                for (int i = 0; i < 3; ++i) {
                    SohClock::SleepNs(step);
                    Note(journal, name);
                }
                if (name == "b") {
                    std::lock_guard<std::mutex> g(lock);
                    ready = true;
                    SohClock::NotifyAll(cv);
                }
            });
        }
        std::unique_lock<std::mutex> g(lock);
        SohClock::Wait(cv, g, [] { return ready; });
        Note(journal, "main");
        SohClock::Sleep(1000);
    });
    RunUntil(100 * kSec);
    // a at 10, 20, 30; b at 15, 30, 45: at 30 the earlier deadline... both are due at 30, and
    // the lower slot (a, started first) runs first. main runs at 45, right after b's notify.
    EXPECT_EQ(Journal(), "a 10\nb 15\na 20\na 30\nb 30\nb 45\nmain 45\n");
    const auto turns = clock_->TurnsByRole();
    EXPECT_EQ(turns.at("a"), 4u);  // its start and three sleeps
    EXPECT_EQ(turns.at("b"), 4u);
    EXPECT_EQ(clock_->NextDeadline(), 1045 * kSec);  // main's last sleep
}

TEST_F(VirtualClockTest, EventsWakeOnlyThePollersOfTheirNode) {
    const std::string node = dir_ + "/basp_data";
    const std::string other = dir_ + "/acr_info";
    for (const std::string& f : {node, other}) {
        close(open(f.c_str(), O_CREAT | O_WRONLY, 0644));
    }
    const int id = clock_->AddEventNode(node);
    const int otherId = clock_->AddEventNode(other);
    ASSERT_EQ(id, 0);
    const std::string journal = dir_ + "/journal";
    Start([journal, node] {
        int fd = open(node.c_str(), O_RDONLY);
        for (int i = 0; i < 2; ++i) {
            struct pollfd p = {fd, POLLPRI, 0};
            const int n = SohClock::Poll(&p, 1, 60 * 1000);  // a minute at most
            Note(journal, n == 1 && (p.revents & POLLPRI) != 0 ? "event" : "timeout");
        }
        struct pollfd bad = {fd + 100, POLLPRI, 0};
        Note(journal, SohClock::Poll(&bad, 1, -1) == 1 && bad.revents == POLLNVAL ? "nval" : "?");
        SohClock::Sleep(1000);
    });
    ASSERT_EQ(Run(), sim::VirtualClock::Outcome::kIdle);  // polling until second 60
    clock_->AdvanceTo(20 * kSec);
    clock_->Raise(otherId);
    ASSERT_EQ(Run(), sim::VirtualClock::Outcome::kIdle);
    EXPECT_EQ(Journal(), "");  // not its node
    clock_->AdvanceTo(25 * kSec);
    clock_->Raise(id);
    clock_->Raise(id);  // two events before it looks: one wake-up
    RunUntil(200 * kSec);
    EXPECT_EQ(Journal(), "event 25\ntimeout 85\nnval 85\n");
}

TEST_F(VirtualClockTest, ADeadOrHoggingDaemonEndsTheTurnInsteadOfHangingTheMaster) {
    Start([] { _exit(3); });
    EXPECT_EQ(Run(), sim::VirtualClock::Outcome::kGone);
    waitpid(child_, nullptr, 0);
    child_ = -1;

    clock_.reset();
    clock_ = sim::VirtualClock::Create(dir_ + "/page2", 0, error_);
    ASSERT_NE(clock_, nullptr) << error_;
    clock_->stallSeconds = 0.3;
    Start([] {
        SohClock::Sleep(5);
        for (;;) {
            pause();  // holds the turn for ever
        }
    });
    ASSERT_EQ(Run(), sim::VirtualClock::Outcome::kIdle);
    clock_->AdvanceTo(clock_->NextDeadline());
    EXPECT_EQ(Run(), sim::VirtualClock::Outcome::kStalled);
    EXPECT_EQ(clock_->StalledRole(), "main");
}

}  // namespace

namespace {

TEST(WorkDirTest, FoldersOfGoneRunsAreRemovedAndTheRootIsMovedOut) {
    // In memory where there is such a folder, so that the move crosses file systems.
    char tmpl[] = "/dev/shm/quen-workdir-XXXXXX";
    char fallbackTmpl[] = "/tmp/quen-workdir-XXXXXX";
    const char* made = mkdtemp(tmpl);
    const std::string base = made != nullptr ? made : mkdtemp(fallbackTmpl);
    char outTmpl[] = "/tmp/quen-workdir-out-XXXXXX";
    const std::string outBase = mkdtemp(outTmpl);
    sim::WorkDir::Base() = base;
    pid_t gone = fork();
    if (gone == 0) {
        _exit(0);
    }
    waitpid(gone, nullptr, 0);
    const std::string stale = base + "/quen-sim-" + std::to_string(gone) + "-abcdef";
    const std::string live = base + "/quen-sim-" + std::to_string(getpid()) + "-ghijkl";
    ASSERT_EQ(mkdir(stale.c_str(), 0700), 0);
    ASSERT_EQ(mkdir(live.c_str(), 0700), 0);
    const std::string out = outBase + "/out";
    ASSERT_EQ(mkdir(out.c_str(), 0700), 0);
    std::string moved;
    {
        sim::WorkDir work(out);
        ASSERT_TRUE(work.InMemory());
        EXPECT_NE(work.Path(), out);
        EXPECT_NE(access(stale.c_str(), F_OK), 0) << "the gone run's folder stays";
        EXPECT_EQ(access(live.c_str(), F_OK), 0) << "a running process's folder went";
        ASSERT_EQ(mkdir((work.Path() + "/root").c_str(), 0700), 0);
        std::ofstream(work.Path() + "/root/record") << "kept";
        ASSERT_EQ(symlink("record", (work.Path() + "/root/link").c_str()), 0);
        // The daemon's control socket is left behind.
        const int sock = socket(AF_UNIX, SOCK_STREAM, 0);
        struct sockaddr_un addr {};
        addr.sun_family = AF_UNIX;
        snprintf(addr.sun_path, sizeof(addr.sun_path), "%s/root/soh.service", work.Path().c_str());
        ASSERT_EQ(bind(sock, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
        close(sock);
        std::string error;
        ASSERT_TRUE(work.MoveOut("root", out + "/root", error)) << error;
        moved = work.Path();
    }
    std::ifstream record(out + "/root/record");
    std::string text;
    record >> text;
    EXPECT_EQ(text, "kept");
    char link[16] = "";
    EXPECT_GT(readlink((out + "/root/link").c_str(), link, sizeof(link) - 1), 0);
    EXPECT_STREQ(link, "record");
    EXPECT_NE(access(moved.c_str(), F_OK), 0) << "the work folder outlived its run";
    sim::WorkDir::Base() = base + "/none";  // cannot be written: the result folder is used
    sim::WorkDir fallback(out);
    EXPECT_FALSE(fallback.InMemory());
    EXPECT_EQ(fallback.Path(), out);
    system(("rm -rf " + base + " " + outBase).c_str());
}

}  // namespace
