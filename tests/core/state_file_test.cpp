// Data files under hostile conditions: links planted in their place, things that are not
// files, garbage, a full partition and no free descriptors. The daemon's record must never
// be written through a link, the old record must survive every failed save, and a failed
// save must be retried by the next change once the fault is gone.
#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "core/soh_configure.h"
#include "core/soh_file.h"
#include "core/soh_log.h"
#include "sys_para.pb.h"
#include "tests/support/fake_device.h"

namespace {

constexpr const char* kFile = "/log/soh/sys_para.dat";

class StateFileTest : public FakeDeviceTest {
protected:
    void SetUp() override {
        dev.MakeDir("/log/soh");
        dev.MakeDir("/elsewhere");
        SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
    }
    void TearDown() override {
        if (!mounted_.empty()) {
            umount2(mounted_.c_str(), MNT_DETACH);
        }
    }
    void Link(const std::string& target, const std::string& devicePath) {
        ASSERT_EQ(symlink(dev.HostPath(target).c_str(), dev.HostPath(devicePath).c_str()), 0);
    }
    bool IsLink(const std::string& devicePath) {
        struct stat st {};
        return lstat(dev.HostPath(devicePath).c_str(), &st) == 0 && S_ISLNK(st.st_mode);
    }
    static std::string Record(const std::string& scheme) {
        SysPara p;
        p.set_version("1.0");
        p.add_schemes()->set_name(scheme);
        return p.SerializeAsString();
    }
    std::string mounted_;  // host path of a tmpfs this test mounted, if any
};

TEST_F(StateFileTest, DataPathsAreNeverReadThroughLinksNorFromNonFiles) {
    dev.Write("/elsewhere/secret", "not the daemon's");
    dev.Write("/vendor/etc/real.json", "{}");
    dev.MakeDir("/log/soh/adir");
    ASSERT_EQ(mkfifo(dev.HostPath("/log/soh/fifo").c_str(), 0600), 0);
    Link("/elsewhere/secret", "/log/soh/leaf.dat");
    Link("/elsewhere", "/log/soh/linkdir");
    Link("/vendor/etc/real.json", "/vendor/etc/quen.json");
    struct Case {
        const char* path;
        bool readable;
        const char* log;  // a line the refusal logs, or nothing
    } cases[] = {
        {"/log/soh/leaf.dat", false,
         "refusing /log/soh/leaf.dat: /log/soh/leaf.dat is a "
         "symbolic link\n"},
        {"/log/soh/linkdir/secret", false,
         "refusing /log/soh/linkdir/secret: /log/soh/linkdir is a symbolic link\n"},
        {"/log/soh/fifo", false, "refusing /log/soh/fifo: not a regular file\n"},  // no hang
        {"/log/soh/adir", false, "refusing /log/soh/adir: not a regular file\n"},
        {"/vendor/etc/quen.json", true, nullptr},  // configuration may be linked
    };
    for (const Case& c : cases) {
        std::string out = "untouched";
        EXPECT_EQ(SohFile::ReadAll(c.path, out), c.readable) << c.path;
        if (!c.readable) {
            EXPECT_EQ(out, "untouched") << c.path;
        }
        if (c.log != nullptr) {
            EXPECT_EQ(dev.CountLog(c.log), 1) << c.path;
        }
    }
}

TEST_F(StateFileTest, SavesReplaceLinksAndNeverWriteThroughThem) {
    dev.Write("/elsewhere/victim", "keep me");
    dev.Write("/elsewhere/victim2", "keep me too");
    Link("/elsewhere/victim", "/log/soh/a.dat");
    Link("/elsewhere/victim2", "/log/soh/a.dat.tmp");  // where the save writes first
    ASSERT_TRUE(SohFile::WriteAtomic("/log/soh/a.dat", "record"));
    EXPECT_EQ(dev.Read("/elsewhere/victim"), "keep me");
    EXPECT_EQ(dev.Read("/elsewhere/victim2"), "keep me too");
    EXPECT_FALSE(IsLink("/log/soh/a.dat"));
    EXPECT_EQ(dev.Read("/log/soh/a.dat"), "record");
    EXPECT_FALSE(dev.Exists("/log/soh/a.dat.tmp"));
    EXPECT_TRUE(dev.HasLog("replacing symbolic link /log/soh/a.dat by the file itself\n"));

    // A linked directory is refused whole: nothing is created where it points.
    Link("/elsewhere", "/log/soh/sub");
    bool openFailed = false;
    EXPECT_FALSE(SohFile::WriteAtomic("/log/soh/sub/b.dat", "x", 0660, &openFailed));
    EXPECT_TRUE(openFailed);
    EXPECT_FALSE(dev.Exists("/elsewhere/b.dat"));
    EXPECT_FALSE(dev.Exists("/elsewhere/b.dat.tmp"));
}

TEST_F(StateFileTest, ALinkedRecordIsRefusedAndTheNextSaveTakesItsPlace) {
    dev.Write("/elsewhere/planted", Record("BASP"));
    Link("/elsewhere/planted", kFile);
    EXPECT_FALSE(SOHConfigure::IsSchemeClosed("BASP"));  // the planted record is not taken
    EXPECT_TRUE(
        dev.HasLog("refusing /log/soh/sys_para.dat: /log/soh/sys_para.dat is a "
                   "symbolic link\n"));
    SOHConfigure::CloseScheme("EIS");
    EXPECT_EQ(dev.Read("/elsewhere/planted"), Record("BASP"));
    EXPECT_FALSE(IsLink(kFile));
    EXPECT_EQ(dev.Read(kFile), Record("EIS"));
}

TEST_F(StateFileTest, GarbageAndWrongSizedRecordsStartEmptyAndAreReplacedWhole) {
    const std::string good = Record("CVT");
    struct Case {
        const char* name;
        std::string bytes;
        const char* log;
    } cases[] = {
        {"empty", "", "parse syspara data from file failed\n"},
        {"cut short", good.substr(0, good.size() - 2), "parse syspara data from file failed\n"},
        {"format text", "%s%n%x%n", "parse syspara data from file failed\n"},
        {"oversized", std::string(2u << 20, '\0'), "syspara db file is not exist\n"},
    };
    for (const Case& c : cases) {
        // Each load happens once per process: run each case in a child.
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            dev.Write(kFile, c.bytes);
            bool ok = !SOHConfigure::IsSchemeClosed("CVT") && dev.HasLog(c.log);
            SOHConfigure::CloseScheme("ASW");
            ok = ok && dev.Read(kFile) == Record("ASW");
            _exit(ok ? 0 : 1);
        }
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << c.name;
    }
}

// A full partition: a small tmpfs over /log/soh in a mount namespace of this process alone,
// so that the mount goes with the process however the test ends.
TEST_F(StateFileTest, AFullPartitionKeepsTheOldRecordAndTheNextChangeRetries) {
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) ||
        mount("quen-test", dev.HostPath("/log/soh").c_str(), "tmpfs", 0, "size=64k") != 0) {
        GTEST_SKIP() << "cannot mount a private tmpfs here (" << strerror(errno) << ")";
    }
    mounted_ = dev.HostPath("/log/soh");
    SOHConfigure::CloseScheme("BASP");
    const std::string old = dev.Read(kFile);
    ASSERT_EQ(old, Record("BASP"));
    // Fill the partition to its last byte.
    {
        int fd = open(dev.HostPath("/log/soh/filler").c_str(), O_WRONLY | O_CREAT, 0600);
        ASSERT_GE(fd, 0);
        std::string block(4096, 'x');
        while (write(fd, block.data(), block.size()) > 0) {
        }
        while (write(fd, "x", 1) > 0) {
        }
        close(fd);
    }
    SOHConfigure::RefLimitRecord("DcVoltLimitator", "BASP", std::string(512, '4'));
    EXPECT_TRUE(dev.HasLog("failed to write syspara data\n"));
    EXPECT_TRUE(
        dev.HasLog("save /log/soh/sys_para.dat failed, error is No space left on device\n"));
    EXPECT_EQ(dev.CountLogContaining("limit from BASP to 4444"), 1);
    EXPECT_EQ(dev.Read(kFile), old);
    EXPECT_FALSE(dev.Exists("/log/soh/sys_para.dat.tmp"));

    dev.Remove("/log/soh/filler");
    EXPECT_EQ(SOHConfigure::SetProtectMark(1), 0);
    SysPara saved;
    ASSERT_TRUE(saved.ParseFromString(dev.Read(kFile)));
    EXPECT_EQ(saved.records_size(), 1);
    EXPECT_EQ(saved.asw().protect(), 1u);
}

TEST_F(StateFileTest, NoFreeDescriptorsFailsTheSaveWhichTheNextChangeRetries) {
    struct rlimit saved {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &saved), 0);
    struct rlimit low = saved;
    low.rlim_cur = 64;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &low), 0);
    SOHConfigure::InitPara();  // loaded while descriptors are free
    SOHConfigure::RefLimitRecord("NonDcCurLimitator", "APP", "1000");  // and saved once
    const std::string before = dev.Read(kFile);
    ASSERT_FALSE(before.empty());
    std::vector<int> fillers;
    for (int fd; (fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) {
        fillers.push_back(fd);
    }
    ASSERT_EQ(errno, EMFILE);
    SOHConfigure::RefLimitRecord("NonDcCurLimitator", "APP", "1500");
    EXPECT_TRUE(dev.HasLog("syspara data file open failed to write\n"));
    EXPECT_TRUE(dev.HasLog("save /log/soh/sys_para.dat failed, error is Too many open files\n"));
    EXPECT_TRUE(dev.HasLog("save NonDcCurLimitator limit from APP to 1500 fail\n"));

    for (int fd : fillers) {
        close(fd);
    }
    EXPECT_EQ(dev.Read(kFile), before);  // the saved record is left as it was
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &saved), 0);
    SOHConfigure::CloseScheme("EIS");
    SysPara back;
    ASSERT_TRUE(back.ParseFromString(dev.Read(kFile)));
    ASSERT_EQ(back.records_size(), 1);
    EXPECT_EQ(back.records(0).value(), "1500");
    EXPECT_EQ(back.schemes_size(), 1);
}

}  // namespace
