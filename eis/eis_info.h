// One impedance measurement as the kernel publishes it, its big-data event and its record in
// a per-kind log file.
//
// EisInfo is the base: the log file, the event id and the processor type. A measurement is
// read from its node as exactly one raw record (AcrRaw 24 bytes, DcrRaw 20 bytes, native
// byte order): a node holding fewer or more bytes is refused. Info2Bigdata fills the log
// record: "UPDTIME" (UTC "%F %T"), "BATVENDOR" (battery type) and the measured fields; every
// other field is 0. The same fields make the event (ACR 930001004, DCR 930001005), in record
// order. The log record is appended to the log file only while the file holds whole records:
// appends are made with O_APPEND in one write of a whole record, under a process-wide lock,
// and a short write is cut back; CutTornTail repairs a file left torn by a crash.
//
// Ownership: one object per measurement, owned by the monitor thread that reads it. Appends
// from several monitor threads are serialised by the append lock.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

#include "eisdata.pb.h"

enum ProcessorType : int {
    PROCESSOR_ACR = 0,
    PROCESSOR_DCR = 1,
};

// Kernel records.
struct AcrRaw {
    uint32_t acrValue;  // measured AC resistance
    uint32_t cycleCount;
    uint32_t batTemp;  // degC
    uint32_t icTempMax;
    uint32_t icTempMin;
    uint32_t batVolt;
};
static_assert(sizeof(AcrRaw) == 24, "the kernel's ACR record is 24 bytes");

struct DcrRaw {
    uint32_t batR0;
    uint32_t dcrValue;  // measured DC resistance
    uint32_t cycleCount;
    uint32_t batTemp;  // degC
    uint32_t batVolt;
};
static_assert(sizeof(DcrRaw) == 20, "the kernel's DCR record is 20 bytes");

// Log records; also the field order of the events.
constexpr int kUpdTimeSize = 20;
constexpr int kBatVendorSize = 32;
constexpr int kEisValues = 8;

struct AcrRecord {
    char updTime[kUpdTimeSize];
    char batVendor[kBatVendorSize];
    uint32_t acrType;
    uint32_t batCyc;
    uint32_t batTemp;
    uint32_t acrOrgReal[kEisValues];
    uint32_t acrOrgImag[kEisValues];
    uint32_t batSoh;
    uint32_t icTempMax;
    uint32_t icTempMin;
    uint32_t batVol;
    uint32_t acrCalReal[kEisValues];
    uint32_t acrCalImag[kEisValues];
    uint32_t reserved;
};
static_assert(sizeof(AcrRecord) == 212, "an acr.dat record is 212 bytes");
static_assert(offsetof(AcrRecord, acrType) == 52 && offsetof(AcrRecord, batSoh) == 128 &&
                  offsetof(AcrRecord, acrCalReal) == 144 && offsetof(AcrRecord, reserved) == 208,
              "acr.dat field offsets are fixed by the stored format");

struct DcrRecord {
    char updTime[kUpdTimeSize];
    char batVendor[kBatVendorSize];
    uint32_t dcrType;
    uint32_t batCyc;
    uint32_t batTemp;
    uint32_t dcrOrg;
    uint32_t dcrCal;
    uint32_t batR0;
    uint32_t batSoh;
    uint32_t batVol[kEisValues];
    uint32_t batCurr[kEisValues];
    uint32_t reserved1;
    uint32_t qmax;
    uint32_t reserved2;
};
static_assert(sizeof(DcrRecord) == 156, "a dcr.dat record is 156 bytes");
static_assert(offsetof(DcrRecord, batVol) == 80 && offsetof(DcrRecord, qmax) == 148,
              "dcr.dat field offsets are fixed by the stored format");

class EisInfo {
public:
    EisInfo(const std::string& logPath, uint32_t eventId, ProcessorType type)
        : logPath_(logPath), eventId_(eventId), type_(type) {}
    virtual ~EisInfo() = default;
    EisInfo(const EisInfo&) = delete;
    EisInfo& operator=(const EisInfo&) = delete;

    // Reads one raw record from `fd` (a node opened read-only) and seeks back to 0.
    virtual bool GetInfo(int fd) = 0;
    // Fills the log record from the raw record; false when the time or vendor is unknown.
    virtual bool Info2Bigdata() = 0;
    // Sends the event; false when it could not be created or sent.
    virtual bool ReportBigdata() = 0;
    // Appends the log record to the log file.
    virtual bool RecordBigdata() = 0;
    virtual void ToRawDatum(Eis::RawDatum& datum) const = 0;

    // Cuts the log file `logPath` (device path) back to a whole number of `recordSize`-byte
    // records, logging what it cut. 0 when the file is whole, missing or was cut; -1 when it
    // could not be read or cut (logged).
    static int CutTornTail(const std::string& logPath, size_t recordSize);

    // While quiet, reading logs nothing (a monitor retrying a failing node counts instead).
    void SetQuiet(bool quiet) { quiet_ = quiet; }
    // Whether the last GetInfo read one whole raw record.
    bool Taken() const { return taken_; }

    ProcessorType GetType() const { return type_; }
    uint32_t EventId() const { return eventId_; }
    const std::string& LogPath() const { return logPath_; }

protected:
    // Reads exactly `len` bytes and then finds the node at its end; always seeks back to 0.
    bool GetRawInfo(int fd, void* buf, size_t len);
    // Fills the two text fields every log record starts with.
    bool FillHeader(char* updTime, char* batVendor);
    // Appends one record of `len` bytes (see the file comment); true when written whole.
    bool RecordBigdata(const void* buf, size_t len);
    bool Quiet() const { return quiet_; }

private:
    // Serialises the appends and repairs of every record log of the process.
    static std::mutex& AppendLock();

    const std::string logPath_;  // device path
    const uint32_t eventId_;
    const ProcessorType type_;
    bool quiet_ = false;
    bool taken_ = false;
};

class AcrInfo : public EisInfo {
public:
    static constexpr uint32_t kEventId = 930001004;
    AcrInfo();
    bool GetInfo(int fd) override;
    bool Info2Bigdata() override;
    bool ReportBigdata() override;
    bool RecordBigdata() override;
    void ToRawDatum(Eis::RawDatum& datum) const override;
    const AcrRecord& Record() const { return record_; }

private:
    AcrRaw raw_{};
    AcrRecord record_{};
};

class DcrInfo : public EisInfo {
public:
    static constexpr uint32_t kEventId = 930001005;
    DcrInfo();
    bool GetInfo(int fd) override;
    bool Info2Bigdata() override;
    bool ReportBigdata() override;
    bool RecordBigdata() override;
    void ToRawDatum(Eis::RawDatum& datum) const override;
    const DcrRecord& Record() const { return record_; }

private:
    DcrRaw raw_{};
    DcrRecord record_{};
};
