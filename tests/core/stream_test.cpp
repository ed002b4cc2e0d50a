// Logger limits and the device/file streams' read, write and failure rules.
#include <cstdio>
#include <sstream>
#include <string>

#include "core/device_stream.h"
#include "core/file_stream.h"
#include "core/node_handles.h"
#include "core/soh_file.h"
#include "core/soh_log.h"
#include "tests/support/fake_device.h"

namespace {

using StreamTest = FakeDeviceTest;

TEST_F(StreamTest, InfoNeedsLevelOneAndOverlongMessagesAreDroppedWhole) {
    SOH_LOGI("%s\n", "quiet");
    SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
    SOH_LOGI("%s\n", "loud");
    const std::string fits(1022, 'a');  // 1022 + "\n" = 1023 characters
    const std::string over(1023, 'b');  // 1024 characters
    SOH_LOGE("%s\n", fits.c_str());
    SOH_LOGE("%s\n", over.c_str());
    SOH_LOGE("%s", "");
    std::vector<LogLine> logs = dev.Logs();
    ASSERT_EQ(logs.size(), 2u);
    EXPECT_EQ(logs[0].prio, 4);
    EXPECT_EQ(logs[0].text, "loud\n");
    EXPECT_EQ(logs[1].prio, 6);
    EXPECT_EQ(logs[1].text, fits + "\n");
}

TEST_F(StreamTest, RecordReadNeedsExactlyItsSize) {
    struct Rec {
        char bytes[32];
    } rec{};
    dev.Write("/sys/rec", std::string(31, 'x'));
    EXPECT_EQ(DeviceReader("/sys/rec").Read(rec), -1);
    EXPECT_EQ(dev.CountLogContaining("read file /sys/rec len 31 failed, error is "), 1);

    dev.Write("/sys/rec", std::string(40, 'y'));
    DeviceReader reader("/sys/rec");
    EXPECT_EQ(reader.Read(rec), 0);
    EXPECT_EQ(rec.bytes[31], 'y');
    EXPECT_EQ(reader.Read(rec), -1);  // no seek: the second read gets the remaining 8 bytes

    EXPECT_EQ(DeviceReader("/sys/missing").Read(rec), -1);
    EXPECT_TRUE(dev.HasLog("open file /sys/missing failed, error is No such file or directory\n"));
}

TEST_F(StreamTest, ANodeThatKeepsFailingIsLoggedAtDoublingCountsAndItsRecoveryOnce) {
    // A sampling loop that reads a missing node every turn: 1st, 2nd, 4th, 8th failure logged.
    int v = 0;
    for (int turn = 0; turn < 10; ++turn) {
        EXPECT_EQ(DeviceReader("/sys/gone").ReadStrToT(v), -1);
    }
    EXPECT_EQ(dev.CountLogContaining("open file /sys/gone failed"), 4);
    EXPECT_TRUE(dev.HasLog("open file /sys/gone failed, error is No such file or directory\n"));
    EXPECT_TRUE(dev.HasLog(
        "open file /sys/gone failed, error is No such file or directory (8 times in a row)\n"));
    // Another node's failures are counted apart.
    EXPECT_EQ(DeviceReader("/sys/other").ReadStrToT(v), -1);
    EXPECT_EQ(dev.CountLogContaining("open file /sys/other failed"), 1);

    dev.Write("/sys/gone", "5\n");
    EXPECT_EQ(DeviceReader("/sys/gone").ReadStrToT(v), 0);
    EXPECT_EQ(DeviceReader("/sys/gone").ReadStrToT(v), 0);
    EXPECT_EQ(dev.CountLogContaining("file /sys/gone works again after 10 failures"), 1);
    // A new run of failures starts logging from its first again.
    dev.Remove("/sys/gone");
    EXPECT_EQ(DeviceReader("/sys/gone").ReadStrToT(v), -1);
    EXPECT_EQ(dev.CountLogContaining("open file /sys/gone failed"), 5);
}

// Node readers keep their descriptors between samples; what they read still follows the path:
// a node rewritten in place, replaced by a rename, or more nodes than the thread keeps.
TEST_F(StreamTest, KeptNodeDescriptorsFollowThePath) {
    int v = 0;
    dev.Write("/sys/n", "1\n");
    EXPECT_EQ(DeviceReader("/sys/n").ReadStrToT(v), 0);
    EXPECT_EQ(v, 1);
    dev.Write("/sys/n", "22\n");
    EXPECT_EQ(DeviceReader("/sys/n").ReadStrToT(v), 0);
    EXPECT_EQ(v, 22);
    dev.Write("/sys/n.new", "333\n");
    ASSERT_EQ(rename(dev.HostPath("/sys/n.new").c_str(), dev.HostPath("/sys/n").c_str()), 0);
    EXPECT_EQ(DeviceReader("/sys/n").ReadStrToT(v), 0);
    EXPECT_EQ(v, 333);

    const unsigned nodes = NodeHandles::kCapacity + 3;
    for (unsigned round = 0; round < 3; ++round) {
        for (unsigned i = 0; i < nodes; ++i) {
            dev.Write("/sys/many/" + std::to_string(i), std::to_string(i * 10 + round));
        }
        for (unsigned i = 0; i < nodes; ++i) {
            EXPECT_EQ(DeviceReader("/sys/many/" + std::to_string(i)).ReadStrToT(v), 0);
            EXPECT_EQ(v, static_cast<int>(i * 10 + round));
        }
    }
    EXPECT_EQ(dev.CountLogContaining("failed"), 0);
}

// Text reads parse as stream extraction does (leading blanks skipped, trailing text ignored, the
// value kept on garbage), whether or not a plain number skips the stream; a failed read keeps it.
TEST_F(StreamTest, TextReadsMatchStreamExtraction) {
    for (const char* text : {"  42 mA\n", "abc\n", "123456789\n", "1234567890", "4294967296",
                             "-2147483648", "-0", "-7x", "+5", "0x1A", "3.75.2", "1.5e3", "-.5",
                             "1e40", "00012.50", "12.", "9999999999999999999999999999999999.5"}) {
        dev.Write("/sys/n", text);
        auto same = [&](auto value) {
            auto expected = value;
            std::istringstream(text) >> expected || (expected = value, true);
            EXPECT_EQ(DeviceReader("/sys/n").ReadStrToT(value), 0);
            EXPECT_EQ(value, expected) << text;
        };
        same(3);
        same(3u);
        same(3.0f);
    }
    unsigned u = 9;
    EXPECT_EQ(DeviceReader("/sys/none").ReadStrToT(u), -1);
    EXPECT_EQ(u, 9u);
}

TEST_F(StreamTest, NodeWritesAreWholeOrFailAndFilesAreReplacedWhole) {
    dev.Write("/sys/node", "");
    const char one[2] = "1";
    EXPECT_EQ(DeviceWriter("/sys/node").Write(one), 0);
    EXPECT_EQ(dev.Read("/sys/node"), std::string("1\0", 2));
    EXPECT_EQ(DeviceWriter("/sys/absent").Write(std::string("x")), -1);  // nodes are not created
    EXPECT_FALSE(dev.Exists("/sys/absent"));

    // Data files are replaced whole; a missing one has no size.
    FileStream missing("/log/none.dat", std::ios::in | std::ios::binary);
    EXPECT_EQ(missing.Size(), 0xFFFFFFFFu);
    EXPECT_TRUE(dev.HasLog("open file /log/none.dat failed\n"));

    dev.MakeDir("/log/soh");
    umask(077);  // must not narrow the mode asked for
    ASSERT_TRUE(SohFile::WriteAtomic("/log/soh/a.dat", "old content", 0640));
    ASSERT_TRUE(SohFile::WriteAtomic("/log/soh/a.dat", "new", 0640));
    EXPECT_EQ(dev.Read("/log/soh/a.dat"), "new");
    EXPECT_FALSE(dev.Exists("/log/soh/a.dat.tmp"));
    struct stat st {};
    ASSERT_EQ(SohFile::Stat("/log/soh/a.dat", st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0640u);
    EXPECT_EQ(FileReader("/log/soh/a.dat", std::ios::in | std::ios::binary).Size(), 3u);
    EXPECT_FALSE(SohFile::WriteAtomic("/log/nodir/a.dat", "x"));
    std::string back;
    EXPECT_FALSE(SohFile::ReadAll("/log/soh/a.dat", back, 2));  // larger than allowed
}

}  // namespace
