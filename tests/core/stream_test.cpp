// Logger limits and the device/file streams' read, write and failure rules.
#include <string>

#include "core/device_stream.h"
#include "core/file_stream.h"
#include "core/soh_file.h"
#include "core/soh_log.h"
#include "tests/support/fake_device.h"

namespace {

using StreamTest = FakeDeviceTest;

TEST_F(StreamTest, InfoNeedsLevelOneAndOverlongMessagesAreDroppedWhole) {
    SOH_LOGI("%s\n", "quiet");
    EXPECT_EQ(dev.CountLog("quiet\n"), 0);
    SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
    SOH_LOGI("%s\n", "loud");
    ASSERT_EQ(dev.CountLog("loud\n"), 1);
    EXPECT_EQ(dev.Logs().back().prio, 4);

    std::string fits(1022, 'a');  // 1022 + "\n" = 1023 characters
    std::string over(1023, 'b');  // 1024 characters
    SOH_LOGE("%s\n", fits.c_str());
    SOH_LOGE("%s\n", over.c_str());
    SOH_LOGE("%s", "");
    EXPECT_EQ(dev.CountLog(fits + "\n"), 1);
    EXPECT_EQ(dev.CountLogContaining("bbbb"), 0);
    EXPECT_EQ(dev.Logs().back().prio, 6);
    EXPECT_EQ(dev.Logs().size(), 2u);
}

TEST_F(StreamTest, RecordReadNeedsExactlyItsSize) {
    struct Rec {
        char bytes[32];
    } rec{};
    dev.Write("/sys/rec", std::string(31, 'x'));
    DeviceReader shortReader("/sys/rec");
    EXPECT_EQ(shortReader.Read(rec), -1);
    EXPECT_EQ(dev.CountLogContaining("read file /sys/rec len 31 failed, error is "), 1);

    dev.Write("/sys/rec", std::string(40, 'y'));
    DeviceReader reader("/sys/rec");
    EXPECT_EQ(reader.Read(rec), 0);
    EXPECT_EQ(rec.bytes[31], 'y');
    EXPECT_EQ(reader.Read(rec), -1);  // no seek: the second read gets the remaining 8 bytes

    DeviceReader missing("/sys/missing");
    EXPECT_EQ(missing.Read(rec), -1);
    EXPECT_TRUE(dev.HasLog("open file /sys/missing failed, error is No such file or directory\n"));
}

TEST_F(StreamTest, TextReadsParseNumbersAndKeepValueOnGarbage) {
    dev.Write("/sys/n", "42\n");
    char buf[128];
    memset(buf, 0x7f, sizeof(buf));
    memset(buf, 0, sizeof(buf));
    DeviceReader raw("/sys/n");
    EXPECT_EQ(raw.ReadRawStr(buf, sizeof(buf)), 0);
    EXPECT_EQ(std::string(buf, 4), std::string("42\n\0", 4));
    EXPECT_EQ(raw.ReadRawStr(nullptr, 8), -1);

    int v = 7;
    EXPECT_EQ(DeviceReader("/sys/n").ReadStrToT(v), 0);
    EXPECT_EQ(v, 42);
    dev.Write("/sys/n", "abc\n");
    EXPECT_EQ(DeviceReader("/sys/n").ReadStrToT(v), 0);
    EXPECT_EQ(v, 42);
    float f = 0;
    dev.Write("/sys/n", "  -3.5 mV");
    EXPECT_EQ(DeviceReader("/sys/n").ReadStrToT(f), 0);
    EXPECT_FLOAT_EQ(f, -3.5f);
    unsigned u = 9;
    EXPECT_EQ(DeviceReader("/sys/none").ReadStrToT(u), -1);
    EXPECT_EQ(u, 9u);
}

TEST_F(StreamTest, WritesAreWholeOrFail) {
    dev.Write("/sys/node", "");
    const char one[2] = "1";
    EXPECT_EQ(DeviceWriter("/sys/node").Write(one), 0);
    EXPECT_EQ(dev.Read("/sys/node"), std::string("1\0", 2));
    EXPECT_EQ(DeviceWriter("/sys/node").Write(std::string("quen all 50")), 0);
    EXPECT_EQ(dev.Read("/sys/node"), std::string("quen all 50"));
    EXPECT_EQ(DeviceWriter("/sys/absent").Write(std::string("x")), -1);  // nodes are not created
    EXPECT_FALSE(dev.Exists("/sys/absent"));
    // A device that refuses the write (full): logged with the count returned.
    if (access("/dev/full", W_OK) == 0) {
        dev.MakeDir("/dev");
        ASSERT_EQ(symlink("/dev/full", dev.HostPath("/dev/full").c_str()), 0);
        EXPECT_EQ(DeviceWriter("/dev/full").Write(std::string("abc")), -1);
        EXPECT_EQ(dev.CountLogContaining("write file /dev/full len -1 failed, error is "), 1);
    }
}

TEST_F(StreamTest, FileStreamSizeAndReopen) {
    FileStream missing("/log/none.dat", std::ios::in | std::ios::binary);
    EXPECT_EQ(missing.Size(), 0xFFFFFFFFu);
    EXPECT_TRUE(dev.HasLog("open file /log/none.dat failed\n"));

    dev.Write("/log/some.dat", "12345");
    FileReader reader("/log/some.dat", std::ios::in | std::ios::binary);
    EXPECT_EQ(reader.Size(), 5u);
    std::string s;
    reader.Stream() >> s;
    EXPECT_EQ(s, "12345");
}

TEST_F(StreamTest, AtomicWriteReplacesWholeFileAndLeavesNoTemporary) {
    dev.MakeDir("/log/soh");
    ASSERT_TRUE(SohFile::WriteAtomic("/log/soh/a.dat", "old", 0640));
    ASSERT_TRUE(SohFile::WriteAtomic("/log/soh/a.dat", "new content", 0640));
    EXPECT_EQ(dev.Read("/log/soh/a.dat"), "new content");
    EXPECT_FALSE(dev.Exists("/log/soh/a.dat.tmp"));
    struct stat st {};
    ASSERT_EQ(SohFile::Stat("/log/soh/a.dat", st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0640u);
    EXPECT_FALSE(SohFile::WriteAtomic("/log/nodir/a.dat", "x"));
    std::string back;
    EXPECT_TRUE(SohFile::ReadAll("/log/soh/a.dat", back));
    EXPECT_EQ(back, "new content");
    EXPECT_FALSE(SohFile::ReadAll("/log/soh/a.dat", back, 3));  // larger than allowed
}

}  // namespace
