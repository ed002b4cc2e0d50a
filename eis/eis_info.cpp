#include "eis/eis_info.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <mutex>

#include "core/soh_big_data.h"
#include "core/soh_enviroment.h"
#include "core/soh_log.h"
#include "eis/eis_nodes.h"
#include "platform/soh_root.h"

namespace {

constexpr uint32_t kZeroKelvinMilli = 273150;

// Adds a record's fields to an event; the result is 0 only when every field was added.
class EventFields {
public:
    explicit EventFields(SOHBigData& event) : event_(event) {}
    EventFields& Text(const char* key, const char* value, size_t size) {
        std::string text(value, strnlen(value, size));
        rc_ |= event_.Set(key, text.c_str());
        return *this;
    }
    EventFields& Int(const char* key, uint32_t value) {
        rc_ |= event_.Set(key, static_cast<int>(value));
        return *this;
    }
    EventFields& Ints(const char* key, const uint32_t (&values)[kEisValues]) {
        int copy[kEisValues];
        for (int i = 0; i < kEisValues; ++i) {
            copy[i] = static_cast<int>(values[i]);
        }
        rc_ |= event_.Set(key, copy, kEisValues);
        return *this;
    }
    bool Send() { return rc_ == 0 && event_.Send() == 0; }

private:
    SOHBigData& event_;
    int rc_ = 0;
};

}  // namespace

bool EisInfo::GetRawInfo(int fd, void* buf, size_t len) {
    ssize_t n = read(fd, buf, len);
    char extra = 0;
    ssize_t ex = n == static_cast<ssize_t>(len) ? read(fd, &extra, 1) : 0;
    lseek(fd, 0, SEEK_SET);
    taken_ = n == static_cast<ssize_t>(len) && ex == 0;
    if (!taken_ && !quiet_) {
        SOH_LOGE("get raw information size:%d, ex:%d failed\n", static_cast<int>(n),
                 static_cast<int>(ex));
    }
    return taken_;
}

int EisInfo::CutTornTail(const std::string& logPath, size_t recordSize) {
    const std::string host = SohRoot::RootPath(logPath);
    std::lock_guard<std::mutex> lock(AppendLock());
    // Never through a link: a log planted as a link must not cut a file elsewhere.
    const int fd = open(host.c_str(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        return errno == ENOENT ? 0 : -1;
    }
    struct stat st {};
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        close(fd);
        return -1;
    }
    const off_t whole = st.st_size - st.st_size % static_cast<off_t>(recordSize);
    if (whole == st.st_size) {
        close(fd);
        return 0;
    }
    if (ftruncate(fd, whole) != 0) {
        SOH_LOGE("%s has a torn tail of %ld bytes and cannot be cut: %s\n", logPath.c_str(),
                 static_cast<long>(st.st_size - whole), strerror(errno));
        close(fd);
        return -1;
    }
    close(fd);
    SOH_LOGE("%s had a torn tail: cut from %ld to %ld bytes\n", logPath.c_str(),
             static_cast<long>(st.st_size), static_cast<long>(whole));
    return 0;
}

std::mutex& EisInfo::AppendLock() {
    static std::mutex lock;
    return lock;
}

bool EisInfo::FillHeader(char* updTime, char* batVendor) {
    return SOHEnviroment::GetGmtimeCstr(updTime, kUpdTimeSize, "%F %T") &&
           SOHEnviroment::GetBatteryType(batVendor, kBatVendorSize);
}

bool EisInfo::RecordBigdata(const void* buf, size_t len) {
    const char* path = logPath_.c_str();
    std::lock_guard<std::mutex> lock(AppendLock());
    int fd = open(SohRoot::RootPath(logPath_).c_str(),
                  O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0660);
    if (fd < 0) {
        SOH_LOGE("read %s failed: %s\n", path, strerror(errno));
        return false;
    }
    bool ok = false;
    off_t size = lseek(fd, 0, SEEK_END);
    if (size < 0) {
        SOH_LOGE("lseek %s failed: %s\n", path, strerror(errno));
    } else if (size % static_cast<off_t>(len) != 0) {
        SOH_LOGE("%s size:%ld incorrect\n", path, static_cast<long>(size));
    } else {
        ssize_t n = write(fd, buf, len);
        if (n < 0) {
            SOH_LOGE("write %s failed: %s\n", path, strerror(errno));
        } else if (static_cast<size_t>(n) != len) {
            SOH_LOGE("write %s failed: %zd@%zu\n", path, n, len);
            if (ftruncate(fd, size) != 0) {  // leave whole records only
                SOH_LOGE("ftruncate %s failed: %s\n", path, strerror(errno));
            }
        } else {
            ok = true;
        }
    }
    close(fd);
    return ok;
}

AcrInfo::AcrInfo() : EisInfo(EisNodes::kAcrLogFile, kEventId, PROCESSOR_ACR) {}

bool AcrInfo::GetInfo(int fd) {
    if (!Quiet()) {
        SOH_LOGI("going to read acr information\n");
    }
    return GetRawInfo(fd, &raw_, sizeof(raw_));
}

bool AcrInfo::Info2Bigdata() {
    record_ = AcrRecord{};
    if (!FillHeader(record_.updTime, record_.batVendor)) {
        return false;
    }
    record_.batCyc = raw_.cycleCount;
    record_.batTemp = raw_.batTemp;
    record_.acrOrgReal[0] = raw_.acrValue;
    record_.icTempMax = raw_.icTempMax;
    record_.icTempMin = raw_.icTempMin;
    record_.batVol = raw_.batVolt;
    return true;
}

bool AcrInfo::ReportBigdata() {
    SOHBigData event(EventId());
    if (!event.Available()) {
        SOH_LOGE("can't create client for acr event\n");
        return false;
    }
    const AcrRecord& r = record_;
    return EventFields(event)
        .Text("UPDTIME", r.updTime, sizeof(r.updTime))
        .Text("BATVENDOR", r.batVendor, sizeof(r.batVendor))
        .Int("ACRTYPE", r.acrType)
        .Int("BATCYC", r.batCyc)
        .Int("BATTEMP", r.batTemp)
        .Ints("ACRORGREAL", r.acrOrgReal)
        .Ints("ACRORGIMAG", r.acrOrgImag)
        .Int("BATSOH", r.batSoh)
        .Int("ICTEMPMAX", r.icTempMax)
        .Int("ICTEMPMIN", r.icTempMin)
        .Int("BATVOL", r.batVol)
        .Ints("ACRCALREAL", r.acrCalReal)
        .Ints("ACRCALIMAG", r.acrCalImag)
        .Send();
}

bool AcrInfo::RecordBigdata() {
    return EisInfo::RecordBigdata(&record_, sizeof(record_));
}

void AcrInfo::ToRawDatum(Eis::RawDatum& datum) const {
    datum.set_freq(1000);
    datum.set_cycles(raw_.cycleCount);
    datum.set_temp(raw_.batTemp * 1000 + kZeroKelvinMilli);
    datum.set_magnitude(raw_.acrValue);
    datum.set_real(0);
    datum.set_image(0);
    datum.set_phase(0);
}

DcrInfo::DcrInfo() : EisInfo(EisNodes::kDcrLogFile, kEventId, PROCESSOR_DCR) {}

bool DcrInfo::GetInfo(int fd) {
    if (!Quiet()) {
        SOH_LOGI("going to read dcr information\n");
    }
    return GetRawInfo(fd, &raw_, sizeof(raw_));
}

bool DcrInfo::Info2Bigdata() {
    record_ = DcrRecord{};
    if (!FillHeader(record_.updTime, record_.batVendor)) {
        return false;
    }
    record_.batCyc = raw_.cycleCount;
    record_.batTemp = raw_.batTemp;
    record_.dcrOrg = raw_.dcrValue;
    record_.batR0 = raw_.batR0;
    record_.batVol[0] = raw_.batVolt;
    return true;
}

bool DcrInfo::ReportBigdata() {
    SOHBigData event(EventId());
    if (!event.Available()) {
        SOH_LOGE("can't create client for dcr event\n");
        return false;
    }
    const DcrRecord& r = record_;
    return EventFields(event)
        .Text("UPDTIME", r.updTime, sizeof(r.updTime))
        .Text("BATVENDOR", r.batVendor, sizeof(r.batVendor))
        .Int("DCRTYPE", r.dcrType)
        .Int("BATCYC", r.batCyc)
        .Int("BATTEMP", r.batTemp)
        .Int("DCRORG", r.dcrOrg)
        .Int("DCRCAL", r.dcrCal)
        .Int("BATR0", r.batR0)
        .Int("BATSOH", r.batSoh)
        .Ints("BATVOL", r.batVol)
        .Ints("BATCURR", r.batCurr)
        .Int("QMAX", r.qmax)
        .Send();
}

bool DcrInfo::RecordBigdata() {
    return EisInfo::RecordBigdata(&record_, sizeof(record_));
}

void DcrInfo::ToRawDatum(Eis::RawDatum& datum) const {
    datum.set_freq(0);
    datum.set_cycles(raw_.cycleCount);
    datum.set_temp(raw_.batTemp * 1000 + kZeroKelvinMilli);
    datum.set_magnitude(raw_.dcrValue);
    datum.set_real(0);
    datum.set_image(0);
    datum.set_phase(0);
}
