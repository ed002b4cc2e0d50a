// The simulator's fake kernel seen through plain system calls, as the daemon sees sysfs.
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

#include "sim/fakefs/fake_kernel.h"
#include "sim/fakefs/file_nodes.h"
#include "tests/support/fake_device.h"

namespace {

constexpr const char* kEvent = "devices/platform/soh/basp_data";
constexpr const char* kLimit = "class/power/vterm_dec";

class FakeKernelTest : public FakeDeviceTest {
protected:
    void SetUp() override {
        std::string reason;
        if (!sim::FakeKernel::Available(reason)) {
            GTEST_SKIP() << "FUSE is not available here (" << reason << "): skipped";
        }
        nodes.Set(kEvent, std::string("\x01\x00\x00\x00", 4));
        nodes.Set(kLimit, "0");
        kernel = std::make_unique<sim::FakeKernel>(nodes);
        std::string error;
        ASSERT_TRUE(kernel->Mount(dev.HostPath("/sys"), error)) << error;
    }
    void TearDown() override { kernel.reset(); }
    std::string Path(const std::string& node) { return dev.HostPath("/sys/" + node); }
    // One read at offset 0 of an open file, as the daemon does.
    static std::string ReadFd(int fd) {
        char buf[64];
        ssize_t n = pread(fd, buf, sizeof(buf), 0);
        return n < 0 ? "errno " + std::to_string(errno) : std::string(buf, n);
    }

    sim::FileNodes nodes;
    std::unique_ptr<sim::FakeKernel> kernel;
};

}  // namespace

TEST_F(FakeKernelTest, ValuesAreReadFreshAndReplacedWhole) {
    int fd = open(Path(kLimit).c_str(), O_RDWR);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(ReadFd(fd), "0");
    nodes.Set(kLimit, "quen all 100");
    EXPECT_EQ(ReadFd(fd), "quen all 100");  // no page cache between two reads
    ASSERT_EQ(pwrite(fd, "quen dcp 50", 11, 0), 11);
    EXPECT_EQ(nodes.Get(kLimit), "quen dcp 50");
    ASSERT_EQ(pwrite(fd, "quen lvc 5", 10, 0), 10);
    EXPECT_EQ(nodes.Get(kLimit), "quen lvc 5");  // not merged with the longer value before
    close(fd);
    // O_TRUNC (what a shell redirection does) is accepted.
    fd = open(Path(kLimit).c_str(), O_WRONLY | O_TRUNC);
    ASSERT_GE(fd, 0);
    close(fd);
    struct stat st {};
    ASSERT_EQ(stat(Path("devices/platform").c_str(), &st), 0);
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    EXPECT_NE(stat(Path("class/none").c_str(), &st), 0);
}

TEST_F(FakeKernelTest, PollWakesOnlyForEventsNotYetRead) {
    int fd = open(Path(kEvent).c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    ReadFd(fd);
    pollfd pfd{fd, POLLPRI | POLLERR, 0};
    EXPECT_EQ(poll(&pfd, 1, 50), 0);  // nothing raised since the open

    std::thread raiser([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        nodes.Set(kEvent, std::string("\x02\x00\x00\x00", 4));
        nodes.RaiseEvent(kEvent);
    });
    pfd.revents = 0;
    ASSERT_EQ(poll(&pfd, 1, 5000), 1);  // a waiting poll is woken
    raiser.join();
    EXPECT_TRUE(pfd.revents & POLLPRI);
    EXPECT_EQ(ReadFd(fd), std::string("\x02\x00\x00\x00", 4));
    pfd.revents = 0;
    EXPECT_EQ(poll(&pfd, 1, 50), 0);  // the read consumed it

    nodes.RaiseEvent(kEvent);  // raised while nobody waits: seen by the next poll at once
    EXPECT_EQ(poll(&pfd, 1, 0), 1);
    close(fd);
}

TEST_F(FakeKernelTest, InjectedFaultsReachTheCallerAndEndWhenLifted) {
    int fd = open(Path(kEvent).c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    kernel->SetFault(kEvent, {EIO, 0, 0, false});
    EXPECT_EQ(ReadFd(fd), "errno " + std::to_string(EIO));
    kernel->SetFault(kEvent, {0, 3, 0, false});
    EXPECT_EQ(ReadFd(fd).size(), 3u);
    kernel->SetFault(kEvent, {});
    EXPECT_EQ(ReadFd(fd).size(), 4u);
    close(fd);

    kernel->SetFault(kLimit, {0, 0, EROFS, false});
    fd = open(Path(kLimit).c_str(), O_WRONLY);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(write(fd, "quen all 1", 10), -1);
    EXPECT_EQ(errno, EROFS);
    close(fd);
    nodes.RefuseWrites(kLimit, EINVAL);  // the source's own refusal
    kernel->ClearFaults();
    fd = open(Path(kLimit).c_str(), O_WRONLY);
    EXPECT_EQ(write(fd, "quen all 1", 10), -1);
    EXPECT_EQ(errno, EINVAL);
    close(fd);

    kernel->SetFault(kLimit, {0, 0, 0, true});
    EXPECT_LT(open(Path(kLimit).c_str(), O_RDONLY), 0);
    EXPECT_EQ(errno, ENOENT);
    kernel->SetFault(kLimit, {});
    fd = open(Path(kLimit).c_str(), O_RDONLY);
    EXPECT_GE(fd, 0);
    close(fd);
    EXPECT_GT(kernel->Reads(), 0u);
}

TEST_F(FakeKernelTest, UnmountLeavesThePlainDirectoryAndMountsAgain) {
    kernel->Unmount();
    kernel->Unmount();  // twice is harmless
    EXPECT_FALSE(dev.Exists("/sys/" + std::string(kLimit)));
    std::string error;
    ASSERT_TRUE(kernel->Mount(dev.HostPath("/sys"), error)) << error;
    EXPECT_EQ(dev.Read("/sys/" + std::string(kLimit)), "0");
}
