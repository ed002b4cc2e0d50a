// The record inspector on records written by the daemon's own code, on a directory pulled
// from a phone, on truncated and garbage files, and its plots.
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <random>

#include "basp/basp_herald.h"
#include "core/soh_configure.h"
#include "core/soh_log.h"
#include "cvt/cvt_data_manage.h"
#include "cvt/cvt_nodes.h"
#include "eis/eis_estimator.h"
#include "eis/eis_nodes.h"
#include "platform/host/soh_clock_test.h"
#include "tests/support/fake_device.h"
#include "tools/records/records_decode.h"
#include "tools/records/records_plot.h"
#include "tools/records/records_scan.h"
#include "tools/records/records_text.h"

namespace {

constexpr int64_t kSec = 1000000000LL;
constexpr int64_t kT0 = 1700000000;  // 2023-11-14 22:13:20 UTC
constexpr int64_t kDay = 86400;
constexpr const char* kAswFile = "/log/soh/asw_QBT41.dat";

template <typename T>
std::string Bytes(const T& value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof(value));
}

// A time table on the sample swell table's axes (6 columns, 5 rows) with `seconds` in one bin.
Json::Value Times(int row, int column, int64_t seconds) {
    Json::Value table(Json::arrayValue);
    for (int r = 0; r < 5; ++r) {
        Json::Value line(Json::arrayValue);
        for (int c = 0; c < 6; ++c) {
            line.append(Json::Int64(r == row && c == column ? seconds : 0));
        }
        table.append(line);
    }
    return table;
}

Json::Value Day(int64_t start, const Json::Value& times) {
    Json::Value d(Json::objectValue);
    d["Tstart"] = Json::Int64(start);
    d["Tend"] = Json::Int64(start + kDay - 1);
    d["CycStart"] = 300;
    d["CycEnd"] = 301;
    d["Tstat"] = Json::Int64(kDay);
    d["Tusb_in"] = Json::Int64(kDay / 2);
    d["Tsim_in"] = Json::Int64(kDay);
    d["Sim"] = 1;
    d["SwellTimes"] = times;
    return d;
}

class DiagInspectTest : public FakeDeviceTest {
protected:
    void SetUp() override {
        dev.CopyTree("examples/device");
        SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
        SohClockTest::SetManual(kT0 * kSec);
    }

    // Every kind of record, written by the daemon's own code where it has a writer.
    void WriteRecords() {
        SOHConfigure::RefLimitRecord("NonDcCurLimitator", "APP", "1500");
        SOHConfigure::CloseScheme("CVT");
        ASSERT_EQ(SOHConfigure::SetProtectMark(1), 0);

        {  // two aging events a day apart; the battery objects are rebuilt for each
            BaspHerald h("QBT41");
            h.Init("2.0");
            h.Update(1, {4100, 4050});
        }
        SohClockTest::Advance(kDay * kSec);
        {
            BaspHerald h("QBT41");
            h.Init("2.0");
            h.SavePolicyRec(PolicyRecType{static_cast<uint32_t>(kT0 + kDay), 16000, 3});
            h.Update(2, {4100, 4050, 4000});
        }

        Json::Value cvtConfig(Json::objectValue);
        cvtConfig["JudgeEnable"] = 1;
        CvtDataManage cvt;
        cvt.CvtInfoInit(cvtConfig);
        dev.Write(CvtNodes::kBatteryBrand, "ATL\n");
        for (int i = 0; i < 3; ++i) {
            ASSERT_EQ(cvt.CvtSaveInfoToFile(1100 + i, 1200 + i, 300 + i, 25), 0);
            SohClockTest::Advance(kDay * kSec);
        }

        EISEstimator eis("EIS");
        const char* node = "/sys/devices/platform/vorlan_batt_soh/eis/acr_info";
        for (const std::string& raw :
             {Bytes(AcrRaw{70, 321, 26, 41, 33, 3987}), Bytes(DcrRaw{55, 120, 321, 27, 3950})}) {
            dev.Write(node, raw);
            std::unique_ptr<EisInfo> info =
                EISEstimator::MakeInfo(raw.size() == sizeof(AcrRaw) ? 0 : 1);
            int fd = open(dev.HostPath(node).c_str(), O_RDONLY);
            ASSERT_TRUE(eis.Processor(false, fd, *info));
            close(fd);
        }
        Eis::HistoryData hist;
        hist.set_version(2005);
        hist.set_name("QBT41");
        Eis::RawDatum* raw = hist.add_raw();
        raw->set_cycles(10);
        raw->set_freq(1000);
        raw->set_temp(298150);
        raw->set_magnitude(70);
        std::string hash;
        ASSERT_TRUE(EISEstimator::HistHash(hist, hash));
        hist.set_hash(hash);
        std::string bytes;
        ASSERT_TRUE(hist.SerializeToString(&bytes));
        dev.Write(EisNodes::kHistFile, bytes);

        // The anti-swelling file as the estimator stores it: 7 closed days and today.
        Json::Value asw(Json::objectValue);
        asw["AswPolicy"] = "3.1";
        asw["Vbat"] = Json::Value(Json::arrayValue);
        for (int v : {4100, 4200, 4300, 4400, 4450}) {
            asw["Vbat"].append(v);
        }
        asw["Temp"] = Json::Value(Json::arrayValue);
        for (int t : {25, 35, 40, 45}) {
            asw["Temp"].append(t);
        }
        asw["Scene"] = 1;
        asw["ConditonGroupNo"] = 1;
        asw["TReport"] = Json::Int64(kT0);
        asw["Addup"] = Day(kT0, Times(1, 1, 8 * kDay));
        asw["Addup"]["OldAswell"] = 0.5;
        for (int d = 0; d < 7; ++d) {
            asw["Day"].append(Day(kT0 + d * kDay, Times(1, 1, kDay)));  // 0.0020 per day
        }
        asw["Day"].append(Day(kT0 + 7 * kDay, Times(4, 5, 3600)));  // 0.1280 / 24
        dev.Write(kAswFile, Json::StyledWriter().write(asw));
    }

    std::map<std::string, InspectedRecord> Scan(const std::string& root) {
        std::vector<InspectedRecord> records;
        std::string error;
        EXPECT_TRUE(Inspect::ScanRoot(root, records, error)) << error;
        std::map<std::string, InspectedRecord> byPath;
        for (InspectedRecord& r : records) {
            byPath[r.path] = std::move(r);
        }
        return byPath;
    }
};

TEST_F(DiagInspectTest, RecordsWrittenByTheDaemonDecode) {
    WriteRecords();
    auto recs = Scan(dev.Root());
    ASSERT_EQ(recs.size(), 7u);  // sys_para, basp, asw, cvt, acr, dcr, eis
    for (const auto& r : recs) {
        EXPECT_TRUE(r.second.ok) << r.first << ": " << r.second.error;
    }

    const Json::Value& sys = recs["/log/soh/sys_para.dat"].data;
    EXPECT_EQ(sys["protect_mark"].asUInt(), 1u);
    EXPECT_EQ(sys["closed_schemes"][0].asString(), "CVT");
    EXPECT_EQ(sys["limits"][0]["protector"].asString(), "NonDcCurLimitator");
    EXPECT_EQ(sys["limits"][0]["source"].asString(), "APP");

    const Json::Value& basp = recs["/log/soh/basp_QBT41.dat"].data;
    EXPECT_EQ(basp["level"].asUInt(), 2u);
    EXPECT_EQ(basp["stages"][0]["level"].asUInt(), 1u);
    EXPECT_EQ(basp["stages"][0]["seconds"].asInt64(), kDay);
    const Json::Value& ring = basp["fcc_ring"]["records"];
    ASSERT_EQ(ring.size(), 3u);
    EXPECT_EQ(ring[2]["fcc_mah"].asUInt(), 4000u);
    EXPECT_EQ(ring[0]["first_seen"].asInt64(), kT0);
    EXPECT_EQ(ring[2]["first_seen"].asInt64(), kT0 + kDay);
    EXPECT_EQ(ring[2]["first_seen_text"].asString(), "2023-11-15 22:13:20");
    EXPECT_EQ(basp["decrement"]["ndc_vdec_uv"].asUInt(), 16000u);

    const Json::Value& cvt = recs["/splash2/battery/cvtnew.data"].data;
    EXPECT_EQ(cvt["brand"].asString(), "ATL");
    ASSERT_EQ(cvt["results"].size(), 3u);
    EXPECT_EQ(cvt["results"][0]["corrected_s"].asUInt(), 1102u);  // newest first
    EXPECT_EQ(cvt["results"][0]["measured_s"].asUInt(), 1202u);
    EXPECT_EQ(cvt["results"][2]["time"].asInt64(), kT0 + kDay);

    const Json::Value& acr = recs["/log/soh/acr.dat"].data["records"];
    ASSERT_EQ(acr.size(), 1u);
    EXPECT_EQ(acr[0]["acr"].asUInt(), 70u);
    EXPECT_EQ(acr[0]["time"].asInt64(), kT0 + 4 * kDay);
    EXPECT_EQ(acr[0]["vendor"].asString(), "QBT41");
    EXPECT_EQ(recs["/log/soh/dcr.dat"].data["records"][0]["r0"].asUInt(), 55u);
    EXPECT_EQ(recs["/log/soh/eis"].data["hash"].asString(), "verified");
    EXPECT_EQ(recs["/log/soh/eis"].data["raw"][0]["temp_c"].asDouble(), 25.0);

    const InspectedRecord& aswRec = recs[kAswFile];
    const Json::Value& asw = aswRec.data;
    EXPECT_EQ(asw["scene"].asInt(), 1);
    EXPECT_EQ(asw["days"].size(), 7u);
    EXPECT_NEAR(asw["days"][3]["swell"].asDouble(), 0.0020, 1e-9);
    EXPECT_NEAR(asw["today"]["swell"].asDouble(), 0.1280 / 24, 1e-9);
    EXPECT_NEAR(asw["week"]["swell"].asDouble(), 7 * 0.0020, 1e-9);
    EXPECT_NEAR(asw["week"]["charger_pct"].asDouble(), 50.0, 1e-9);
    EXPECT_NEAR(asw["history"]["swell"].asDouble(), 0.5 + 8 * 0.0020, 1e-9);
    EXPECT_EQ(aswRec.notes[0], "swell computed with the swell table of /odm/etc/power/quen.json");

    std::string text = Inspect::RecordText(recs["/log/soh/basp_QBT41.dat"]);
    EXPECT_NE(text.find("     4000 mAh    first seen 2023-11-15 22:13:20\n"), std::string::npos)
        << text;
    text = Inspect::RecordText(recs["/log/soh/sys_para.dat"]);
    EXPECT_NE(text.find("     NonDcCurLimitator   1500            from APP\n"), std::string::npos)
        << text;
}

TEST_F(DiagInspectTest, APulledDirectoryIsReadTheSameWay) {
    WriteRecords();
    const std::string pulled = "/pulled";
    dev.MakeDir(pulled);
    for (const char* file : {"/log/soh/sys_para.dat", "/log/soh/basp_QBT41.dat", kAswFile,
                             "/splash2/battery/cvtnew.data", "/log/soh/acr.dat"}) {
        std::string path = file;
        dev.Write(pulled + path.substr(path.rfind('/')), dev.Read(file));
    }
    dev.Write(pulled + "/quen.json", dev.Read("/odm/etc/power/quen.json"));
    auto recs = Scan(dev.HostPath(pulled));
    ASSERT_EQ(recs.size(), 5u);
    EXPECT_TRUE(recs["/cvtnew.data"].ok);
    EXPECT_EQ(recs["/basp_QBT41.dat"].data["fcc_ring"]["records"].size(), 3u);
    EXPECT_NEAR(recs["/asw_QBT41.dat"].data["week"]["swell"].asDouble(), 0.014, 1e-9);
    // Without the configuration the swell is unknown, and said to be.
    dev.Remove(pulled + "/quen.json");
    recs = Scan(dev.HostPath(pulled));
    EXPECT_TRUE(recs["/asw_QBT41.dat"].data["week"]["swell"].isNull());
    EXPECT_NE(recs["/asw_QBT41.dat"].notes[0].find("swell not computed"), std::string::npos);
}

TEST_F(DiagInspectTest, DamagedFilesGetAClearErrorAndTheScanGoesOn) {
    WriteRecords();
    std::string cvt = dev.Read("/splash2/battery/cvtnew.data");
    dev.Write("/splash2/battery/cvtnew.data", cvt.substr(0, 1000));
    dev.Write("/log/soh/acr.dat", dev.Read("/log/soh/acr.dat") + std::string(88, 'x'));
    std::string asw = dev.Read(kAswFile);
    dev.Write(kAswFile, asw.substr(0, asw.size() / 2));
    dev.Write("/log/soh/sys_para.dat", "\xff\xff\xff\xff garbage");
    dev.Write("/log/soh/basp_QBT41.dat", std::string("\x0a\xff\xff\xff\xff\x0f", 6));
    std::string eis = dev.Read(EisNodes::kHistFile);
    eis[eis.size() - 40] ^= 0x01;  // a flipped bit inside the sealed part
    dev.Write(EisNodes::kHistFile, eis);
    dev.Write("/log/soh/basp_EMPTY.dat", "");
    dev.Remove("/log/soh/dcr.dat");
    dev.MakeDir("/log/soh/dcr.dat");

    auto recs = Scan(dev.Root());
    ASSERT_EQ(recs.size(), 8u);  // and the empty basp_EMPTY.dat
    std::map<std::string, std::string> want = {
        {"/splash2/battery/cvtnew.data", "size 1000 bytes, expected 3240"},
        {"/log/soh/acr.dat", "1 whole records and 88 bytes left over"},
        {kAswFile, "not readable as JSON"},
        {"/log/soh/sys_para.dat", "not a readable SysPara record"},
        {"/log/soh/basp_QBT41.dat", "not a readable BaspDb record"},
        {"/log/soh/basp_EMPTY.dat", "empty file"},
        {"/log/soh/dcr.dat", "not a regular file"},
    };
    for (const auto& w : want) {
        const InspectedRecord& r = recs[w.first];
        EXPECT_FALSE(r.ok) << w.first;
        EXPECT_NE(r.error.find(w.second), std::string::npos) << w.first << ": " << r.error;
        const std::string text = Inspect::RecordText(r);
        EXPECT_NE(text.find("   ERROR: " + r.error + "\n"), std::string::npos) << text;
    }
    // The whole record before the damage is still shown.
    EXPECT_EQ(recs["/log/soh/acr.dat"].data["records"].size(), 1u);
    const InspectedRecord& hist = recs["/log/soh/eis"];
    EXPECT_FALSE(hist.ok);
    EXPECT_TRUE(hist.error == "hash mismatch: the daemon discards this history" ||
                hist.error.find("not a readable") == 0)
        << hist.error;
}

// Every prefix of every valid record, and random bytes, through every decoder: whatever they
// say, they must not crash or read outside the bytes (run under AddressSanitizer as well).
TEST_F(DiagInspectTest, EveryTruncationAndGarbageIsSurvived) {
    WriteRecords();
    using Decode = std::function<void(const std::string&, InspectedRecord&)>;
    std::vector<std::pair<std::string, Decode>> decoders = {
        {"/log/soh/sys_para.dat", DecodeSysPara},
        {"/log/soh/basp_QBT41.dat",
         [](const std::string& b, InspectedRecord& r) { DecodeBasp(b, "QBT41", r); }},
        {kAswFile, [](const std::string& b,
                      InspectedRecord& r) { DecodeAsw(b, "QBT41", Json::Value(), "", r); }},
        {"/splash2/battery/cvtnew.data", DecodeCvt},
        {"/log/soh/acr.dat", DecodeAcrLog},
        {"/log/soh/dcr.dat", DecodeDcrLog},
        {EisNodes::kHistFile, DecodeEisHistory},
    };
    std::mt19937 rng(11);
    for (const auto& d : decoders) {
        const std::string valid = dev.Read(d.first);
        size_t okPrefixes = 0;
        for (size_t n = 0; n <= valid.size(); n += (valid.size() > 4000 ? 7 : 1)) {
            InspectedRecord r;
            d.second(valid.substr(0, n), r);
            okPrefixes += r.ok;
            EXPECT_TRUE(r.ok || !r.error.empty()) << d.first << " cut at " << n;
        }
        InspectedRecord whole;
        d.second(valid, whole);
        EXPECT_TRUE(whole.ok) << d.first;
        if (d.first == "/splash2/battery/cvtnew.data") {
            EXPECT_EQ(okPrefixes, 2u);  // the empty file the daemon creates, and the whole one
        }
        for (int i = 0; i < 300; ++i) {
            std::string garbage(rng() % 4000, '\0');
            for (char& c : garbage) {
                c = static_cast<char>(rng());
            }
            InspectedRecord r;
            d.second(garbage, r);
            EXPECT_TRUE(r.ok || !r.error.empty()) << d.first;
            Inspect::RecordText(r);
        }
    }
}

TEST_F(DiagInspectTest, PlotsAreDrawnWithGnuplot) {
    const std::string gnuplot = Inspect::FindGnuplot();
    if (gnuplot.empty()) {
        GTEST_SKIP() << "gnuplot is not installed";
    }
    WriteRecords();
    std::vector<InspectedRecord> records;
    std::string error;
    ASSERT_TRUE(Inspect::ScanRoot(dev.Root(), records, error));
    std::vector<std::string> made;
    ASSERT_TRUE(Inspect::WritePlots(records, dev.HostPath("/plots/sub"), gnuplot, made, error))
        << error;
    EXPECT_EQ(made, (std::vector<std::string>{"basp_QBT41.svg", "asw_QBT41.svg", "cvt.svg",
                                              "acr.svg", "dcr.svg", "eis.svg"}));
    for (const std::string& svg : made) {
        std::string content = dev.Read("/plots/sub/" + svg);
        EXPECT_NE(content.find("<svg"), std::string::npos) << svg;
        EXPECT_TRUE(dev.Exists("/plots/sub/" + svg.substr(0, svg.size() - 4) + ".gp"));
    }
    EXPECT_NE(dev.Read("/plots/sub/cvt.dat").find(std::to_string(kT0 + kDay) + " 1200 1100\n"),
              std::string::npos);

    const char* path = getenv("PATH");
    std::string saved = path != nullptr ? path : "";
    setenv("PATH", dev.HostPath("/nowhere").c_str(), 1);
    EXPECT_EQ(Inspect::FindGnuplot(), "");
    setenv("PATH", saved.c_str(), 1);
}

}  // namespace
