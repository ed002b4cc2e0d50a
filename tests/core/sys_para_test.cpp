// The persistent system parameter record: load rules, writes only on change, atomic saves.
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
    SysPara OnDisk() {
        SysPara p;
        EXPECT_TRUE(p.ParseFromString(dev.Read(kFile)));
        return p;
    }
    ino_t Inode() {
        struct stat st {};
        return stat(dev.HostPath(kFile).c_str(), &st) == 0 ? st.st_ino : 0;
    }
};

TEST_F(SysParaTest, NoFileStartsEmptyAndFirstCloseCreatesIt) {
    EXPECT_FALSE(SOHConfigure::IsSchemeClosed("BASP"));
    EXPECT_TRUE(dev.HasLog("syspara db file is not exist\n"));
    EXPECT_FALSE(dev.Exists(kFile));
    SOHConfigure::CloseScheme("BASP");
    EXPECT_TRUE(dev.HasLog("close BASP scheme\n"));
    ino_t first = Inode();
    SOHConfigure::CloseScheme("BASP");
    EXPECT_EQ(Inode(), first);  // second close: no write
    SysPara p = OnDisk();
    EXPECT_EQ(p.version(), "1.0");
    ASSERT_EQ(p.schemes_size(), 1);
    EXPECT_EQ(p.schemes(0).name(), "BASP");
    EXPECT_FALSE(p.schemes(0).has_switch_());
    EXPECT_TRUE(SOHConfigure::IsSchemeClosed("BASP"));
    EXPECT_FALSE(SOHConfigure::IsSchemeClosed("basp"));
}

TEST_F(SysParaTest, ProtectMarkWritesOnlyOnChange) {
    EXPECT_EQ(SOHConfigure::SetProtectMark(2), -1);
    EXPECT_EQ(SOHConfigure::SetProtectMark(0), 0);  // equals the default: nothing written
    EXPECT_FALSE(dev.Exists(kFile));
    EXPECT_EQ(SOHConfigure::SetProtectMark(1), 0);
    EXPECT_TRUE(SOHConfigure::GetProtectMark());
    ino_t first = Inode();
    EXPECT_EQ(SOHConfigure::SetProtectMark(1), 0);
    EXPECT_EQ(Inode(), first);
    EXPECT_EQ(OnDisk().asw().protect(), 1u);
}

TEST_F(SysParaTest, OtherVersionIsDiscardedAndNextSaveWritesOnlyTheChange) {
    SysPara old;
    old.set_version("0.9");
    old.add_schemes()->set_name("ASW");
    auto* r = old.add_records();
    r->set_name("DcCurLimitator");
    r->set_value("50");
    dev.Write(kFile, old.SerializeAsString());
    EXPECT_FALSE(SOHConfigure::IsSchemeClosed("ASW"));
    EXPECT_TRUE(dev.HasLog("syspara version change 0.9:1.0\n"));
    std::string src, value;
    EXPECT_EQ(SOHConfigure::GetLimitRecord("DcCurLimitator", src, value), -1);
    SOHConfigure::RefLimitRecord("NonDcCurLimitator", "APP", "1500");
    SysPara p = OnDisk();
    EXPECT_EQ(p.version(), "1.0");
    EXPECT_EQ(p.schemes_size(), 0);
    ASSERT_EQ(p.records_size(), 1);
    EXPECT_EQ(p.records(0).name(), "NonDcCurLimitator");
}

TEST_F(SysParaTest, LimitRecordIsReplacedInPlaceAndSurvivesReload) {
    SOHConfigure::RefLimitRecord("DcVoltLimitator", "BASP", "40");
    SOHConfigure::RefLimitRecord("SocLimitator", "", "1 95 100");
    SOHConfigure::RefLimitRecord("DcVoltLimitator", "APP", "60");
    EXPECT_TRUE(dev.HasLog("save DcVoltLimitator limit from APP to 60\n"));
    std::string src = "x", value = "y";
    EXPECT_EQ(SOHConfigure::GetLimitRecord("DcVoltLimitator", src, value), 0);
    EXPECT_EQ(src, "APP");
    EXPECT_EQ(value, "60");
    EXPECT_EQ(SOHConfigure::GetLimitRecord("StatusLimitator", src, value), -1);
    EXPECT_EQ(src, "APP");  // untouched
    SysPara p = OnDisk();
    ASSERT_EQ(p.records_size(), 2);
    EXPECT_EQ(p.records(0).src(), "APP");
    EXPECT_EQ(p.records(1).value(), "1 95 100");
    // The same record again costs no write but is still reported.
    ino_t first = Inode();
    SOHConfigure::RefLimitRecord("DcVoltLimitator", "APP", "60");
    EXPECT_EQ(Inode(), first);
    EXPECT_EQ(dev.CountLog("save DcVoltLimitator limit from APP to 60\n"), 2);
}

TEST_F(SysParaTest, CorruptFileIsIgnoredAndOnlyReplacedWhole) {
    dev.Write(kFile, std::string("\x0a\xff\xff garbage", 12));
    EXPECT_FALSE(SOHConfigure::GetProtectMark());
    EXPECT_TRUE(dev.HasLog("parse syspara data from file failed\n"));
    EXPECT_EQ(dev.Read(kFile).size(), 12u);  // reading never rewrites it
    SOHConfigure::CloseScheme("EIS");
    EXPECT_TRUE(OnDisk().IsInitialized());
}

TEST_F(SysParaTest, SaveFailureIsReportedAndRetriedByTheNextChange) {
    dev.Remove("/log/soh");
    EXPECT_EQ(SOHConfigure::SetProtectMark(1), -1);
    EXPECT_TRUE(dev.HasLog("syspara data file open failed to write\n"));
    EXPECT_TRUE(SOHConfigure::GetProtectMark());  // memory keeps the change
    SOHConfigure::RefLimitRecord("DcCurLimitator", "BASP", "50");
    EXPECT_TRUE(dev.HasLog("save DcCurLimitator limit from BASP to 50 fail\n"));
    SOHConfigure::CloseScheme("CVT");
    EXPECT_TRUE(dev.HasLog("close CVT scheme fail\n"));
    dev.MakeDir("/log/soh");
    EXPECT_EQ(SOHConfigure::SetProtectMark(1), 0);  // unchanged, but the file lagged behind
    SysPara p = OnDisk();
    EXPECT_EQ(p.asw().protect(), 1u);
    EXPECT_EQ(p.records_size(), 1);
    EXPECT_EQ(p.schemes_size(), 1);
}

TEST_F(SysParaTest, SmartChargingIsMemoryOnly) {
    EXPECT_EQ(SOHConfigure::GetSmartCharging(), 0u);
    SOHConfigure::SetSmartCharging(1);
    EXPECT_EQ(SOHConfigure::GetSmartCharging(), 1u);
    EXPECT_FALSE(dev.Exists(kFile));
}

}  // namespace
