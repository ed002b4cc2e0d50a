// CvtDataManage: the constant-voltage-time results of the fitted battery, kept as one
// fixed-layout record ("/splash2/battery/cvtnew.data", CvtInfoSave), the swelling judgement
// made from them, the big-data report (event 930001009) and the policy step.
//
// The record holds the last 200 results in a ring: the k-th result ever saved (counting
// from 0) lives in slot k mod 200 and the count goes on past 200. The record is always
// written whole and atomically; a record that cannot be read, has the wrong size or the
// wrong magic is reset to zeros in memory and rewritten at the next save.
//
// Configuration (members of the battery's object in the "CVT" section; each missing one is
// logged "<key> not config" and taken as 0): "JudgeEnable", "PolicyEnable",
// "CalculateCount", "ErrorCount", "ErrorValue" (seconds), "ErrorCycle" (cycles), "FccRatio"
// (percent of design capacity). A "CalculateCount" above 200 examines the 200 results kept;
// an "ErrorCount" of 0 never declares swelling.
//
// Threads: owned by one CvtBattery and used only by the CVT monitor thread; no lock.
#pragma once

#include <json/json.h>

#include <cstddef>
#include <cstdint>
#include <string>

// The on-disk layout, little-endian (the byte order of every supported device).
struct CvtInfoSave {
    static constexpr uint32_t kMagic = 0x3C5A7711;
    static constexpr int kSlots = 200;
    static constexpr int kBrandSize = 32;

    uint16_t swellFlag;       // 1 once the judgement has found swelling
    uint16_t count;           // results ever saved; the latest is in slot (count - 1) % 200
    uint32_t magic;           // kMagic
    char brand[kBrandSize];   // battery brand, NUL-terminated
    uint16_t orgCvt[kSlots];  // measured constant-voltage time, s
    uint16_t calCvt[kSlots];  // temperature-corrected time, s
    uint16_t batCyc[kSlots];  // battery cycle count
    int16_t batTemp[kSlots];  // mean battery temperature, degC
    int64_t time[kSlots];     // when the result was saved, s since the epoch
};
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the record is stored little-endian");
static_assert(sizeof(CvtInfoSave) == 3240, "CvtInfoSave is 3240 bytes on disk");
static_assert(offsetof(CvtInfoSave, count) == 2 && offsetof(CvtInfoSave, magic) == 4 &&
                  offsetof(CvtInfoSave, brand) == 8 && offsetof(CvtInfoSave, orgCvt) == 40 &&
                  offsetof(CvtInfoSave, calCvt) == 440 && offsetof(CvtInfoSave, batCyc) == 840 &&
                  offsetof(CvtInfoSave, batTemp) == 1240 && offsetof(CvtInfoSave, time) == 1640,
              "CvtInfoSave field offsets are fixed by the stored format");

class CvtDataManage {
public:
    static constexpr uint32_t kReportEventId = 930001009;

    // Reads the configuration (see above), then loads or resets the record (CheckCvtFile).
    void CvtInfoInit(const Json::Value& config);
    // Makes sure the directory and the record exist; loads the record or resets it after a
    // battery change, a failed read or a wrong magic. Removes the older format's file.
    void CheckCvtFile();
    // Stores one result (seconds, cycles, degC) in the next slot and writes the record whole.
    // 0, or -1 when the record file does not exist or cannot be written.
    int CvtSaveInfoToFile(int calculated, int measured, unsigned cycle, int temperature);
    // Sets the swelling flag when "ErrorCount" of the last "CalculateCount" corrected
    // results are below "ErrorValue" on an aged battery (cycle, fcc in the kernel's units).
    void CvtSwellJudge(unsigned cycle, unsigned fccNow, unsigned fccDesign);
    // Sends event 930001009 with the latest result.
    void CvtExportReport();
    void CvtPolicyExecute();

    const CvtInfoSave& Record() const { return data_; }

private:
    // Loads the file's first sizeof(CvtInfoSave) bytes into data_; false when the file is
    // shorter or unreadable (a longer file is read from its start).
    bool ReadRecord();
    int judgeEnable_ = 0;
    int policyEnable_ = 0;
    int calculateCount_ = 0;
    int errorCount_ = 0;
    int errorValue_ = 0;
    int errorCycle_ = 0;
    int fccRatio_ = 0;
    CvtInfoSave data_{};
};
