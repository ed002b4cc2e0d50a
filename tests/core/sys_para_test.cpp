// The persistent system parameter record: load rules, writes only on change, atomic saves.
#include <google/protobuf/text_format.h>
#include <sys/stat.h>

#include "core/soh_configure.h"
#include "core/soh_log.h"
#include "sys_para.pb.h"
#include "tests/support/fake_device.h"

namespace {

constexpr const char* kFile = "/log/soh/sys_para.dat";

class SysParaTest : public FakeDeviceTest {
protected:
    void SetUp() override {
        dev.MakeDir("/log/soh");
        SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
    }
    // The bytes of the record written here as text, to compare with the file.
    static std::string Record(const std::string& text) {
        SysPara p;
        EXPECT_TRUE(google::protobuf::TextFormat::ParseFromString(text, &p)) << text;
        return p.SerializeAsString();
    }
    // Every save replaces the file, so an unchanged inode means nothing was written.
    ino_t Inode() {
        struct stat st {};
        return stat(dev.HostPath(kFile).c_str(), &st) == 0 ? st.st_ino : 0;
    }
};

TEST_F(SysParaTest, NoFileStartsEmptyAndOnlyChangesAreWritten) {
    EXPECT_FALSE(SOHConfigure::IsSchemeClosed("BASP"));
    EXPECT_TRUE(dev.HasLog("syspara db file is not exist\n"));
    EXPECT_EQ(SOHConfigure::SetProtectMark(2), -1);
    EXPECT_EQ(SOHConfigure::SetProtectMark(0), 0);  // equals the default: nothing written
    SOHConfigure::SetSmartCharging(1);              // kept in memory only
    EXPECT_EQ(SOHConfigure::GetSmartCharging(), 1u);
    EXPECT_FALSE(dev.Exists(kFile));

    SOHConfigure::CloseScheme("BASP");
    EXPECT_TRUE(dev.HasLog("close BASP scheme\n"));
    EXPECT_EQ(SOHConfigure::SetProtectMark(1), 0);
    SOHConfigure::RefLimitRecord("DcVoltLimitator", "BASP", "40");
    SOHConfigure::RefLimitRecord("SocLimitator", "", "1 95 100");
    SOHConfigure::RefLimitRecord("DcVoltLimitator", "APP", "60");  // replaced in place
    ino_t saved = Inode();
    SOHConfigure::CloseScheme("BASP");
    EXPECT_EQ(SOHConfigure::SetProtectMark(1), 0);
    SOHConfigure::RefLimitRecord("DcVoltLimitator", "APP", "60");  // reported, not written
    EXPECT_EQ(Inode(), saved);
    EXPECT_EQ(dev.CountLog("close BASP scheme\n"), 1);
    EXPECT_EQ(dev.CountLog("save DcVoltLimitator limit from APP to 60\n"), 2);
    EXPECT_EQ(dev.Read(kFile), Record(R"(version: "1.0" asw {protect: 1} schemes {name: "BASP"}
        records {name: "DcVoltLimitator" src: "APP" value: "60"}
        records {name: "SocLimitator" src: "" value: "1 95 100"})"));
}

TEST_F(SysParaTest, OtherVersionIsDiscardedAndNextSaveWritesOnlyTheChange) {
    dev.Write(kFile, Record(R"(version: "0.9" schemes {name: "ASW"}
        records {name: "DcCurLimitator" value: "50"})"));
    EXPECT_FALSE(SOHConfigure::IsSchemeClosed("ASW"));
    EXPECT_TRUE(dev.HasLog("syspara version change 0.9:1.0\n"));
    SOHConfigure::RefLimitRecord("NonDcCurLimitator", "APP", "1500");
    EXPECT_EQ(dev.Read(kFile), Record(R"(version: "1.0"
        records {name: "NonDcCurLimitator" src: "APP" value: "1500"})"));
}

TEST_F(SysParaTest, CorruptFileIsIgnoredAndOnlyReplacedWhole) {
    dev.Write(kFile, std::string("\x0a\xff\xff garbage", 12));
    EXPECT_FALSE(SOHConfigure::GetProtectMark());
    EXPECT_TRUE(dev.HasLog("parse syspara data from file failed\n"));
    EXPECT_EQ(dev.Read(kFile).size(), 12u);  // reading never rewrites it
    SOHConfigure::CloseScheme("EIS");
    EXPECT_EQ(dev.Read(kFile), Record(R"(version: "1.0" schemes {name: "EIS"})"));
}

TEST_F(SysParaTest, SaveFailureIsReportedAndRetriedByTheNextChange) {
    dev.Remove("/log/soh");
    EXPECT_EQ(SOHConfigure::SetProtectMark(1), -1);
    EXPECT_TRUE(dev.HasLog("syspara data file open failed to write\n"));
    SOHConfigure::RefLimitRecord("DcCurLimitator", "BASP", "50");
    EXPECT_TRUE(dev.HasLog("save DcCurLimitator limit from BASP to 50 fail\n"));
    SOHConfigure::CloseScheme("CVT");
    EXPECT_TRUE(dev.HasLog("close CVT scheme fail\n"));
    dev.MakeDir("/log/soh");
    EXPECT_EQ(SOHConfigure::SetProtectMark(1), 0);  // unchanged, but the file lagged behind
    EXPECT_EQ(dev.Read(kFile), Record(R"(version: "1.0" asw {protect: 1} schemes {name: "CVT"}
        records {name: "DcCurLimitator" src: "BASP" value: "50"})"));
}

}  // namespace
