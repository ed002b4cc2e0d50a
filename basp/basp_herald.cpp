#include "basp/basp_herald.h"

#include <string.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "basp/basp_nodes.h"
#include "core/device_stream.h"
#include "core/soh_big_data.h"
#include "core/soh_enviroment.h"
#include "core/soh_file.h"
#include "core/soh_log.h"
#include "platform/soh_clock.h"

namespace {

// When the last weekly report went out, s since the epoch; shared by every herald of the process.
std::atomic<uint32_t> g_lastReport{0};

uint32_t Now() {
    return static_cast<uint32_t>(SohClock::Time(nullptr));
}

// A record file is small; anything larger is not ours.
constexpr size_t kMaxDbBytes = 64 * 1024;
constexpr uint32_t kSecondsPerDay = 86400;

// The NUL-terminated text of a fixed kernel field (also when the kernel left no NUL).
std::string FieldText(const char* field, size_t size) {
    return std::string(field, strnlen(field, size));
}

}  // namespace

BaspHerald::BaspHerald(const std::string& batteryName)
    : path_(std::string(BaspNodes::kDbPrefix) + batteryName + BaspNodes::kDbSuffix) {}

void BaspHerald::Init(const std::string& version) {
    if (SOHEnviroment::IsBatteryChanged()) {
        const int rc = SohFile::Remove(path_);
        SOH_LOGE("herald: battery moved clear basp db file(%d)\n", rc);
        db_.Clear();
        db_.set_version(version);
    } else {
        ReadDb(version);
    }
    CheckRing();
    PrintDb("init");
    InitReportInterval();
}

void BaspHerald::ReadDb(const std::string& version) {
    BaspDb parsed;
    std::string data;
    db_.Clear();
    db_.set_version(version);
    if (!SohFile::Exists(path_)) {
        SOH_LOGE("herald: basp db file is not exist\n");
        return;
    }
    if (!SohFile::ReadAll(path_, data, kMaxDbBytes) || !parsed.ParseFromString(data)) {
        SOH_LOGE("herald: parse basp data from file failed\n");
        return;
    }
    if (parsed.version() != version) {
        SOH_LOGE("herald: basp version change %s:%s\n", parsed.version().c_str(), version.c_str());
        return;
    }
    db_ = parsed;
}

void BaspHerald::CheckRing() {
    const uint32_t count = static_cast<uint32_t>(db_.records_size());
    // A ring written with another capacity, or whose position does not fit its records, cannot
    // be read in age order: start it afresh.
    const bool consistent = db_.mnum() == kMaxRecords && count <= kMaxRecords &&
                            db_.pos() < kMaxRecords && (count == kMaxRecords || db_.pos() == count);
    if (consistent) {
        return;
    }
    SOH_LOGE("herald: max records change mnum:%u, size:%u\n", db_.mnum(), count);
    if (count != 0 || db_.pos() != 0) {
        db_.clear_records();
        db_.set_pos(0);
    }
    db_.set_mnum(kMaxRecords);
}

void BaspHerald::SaveDb() {
    std::string data;
    if (!db_.SerializeToString(&data)) {
        SOH_LOGE("herald: failed to write basp data\n");
        return;
    }
    bool openFailed = false;
    if (!SohFile::WriteAtomic(path_, data, 0660, &openFailed)) {
        SOH_LOGE(openFailed ? "herald: basp data file open failed to write\n"
                            : "herald: failed to write basp data\n");
    }
}

void BaspHerald::PrintDb(const std::string& tag) const {
    SOH_LOGI("herald: tag is %s, basp db version is %s\n", tag.c_str(), db_.version().c_str());
    SOH_LOGI("herald: current level is %u, refresh time is %u\n", db_.level(), db_.timestamp());
    for (const BaspDb::Stage& stage : db_.stages()) {
        SOH_LOGI("herald: stage level is %u, run time is %u\n", stage.level(), stage.seconds());
    }
    SOH_LOGI("herald: fcc records maxim %u, num %u pos %u\n", db_.mnum(),
             static_cast<uint32_t>(db_.records_size()), db_.pos());
    for (int i = 0; i < db_.records_size(); ++i) {
        SOH_LOGI("herald: pos %u, record fcc is %u, timestamp is %u\n", static_cast<uint32_t>(i),
                 db_.records(i).fcc(), db_.records(i).timestamp());
    }
}

void BaspHerald::Update(uint32_t level, const std::vector<uint32_t>& fccs) {
    const bool changedLevel = RefLevelRunTime(level);
    const bool changedFccs = RefFccs(fccs);
    if (changedLevel || changedFccs) {
        SaveDb();
    }
    PrintDb("update");

    const uint32_t now = Now();
    const uint32_t last = g_lastReport.load();
    if (now < last) {
        g_lastReport.store(now);  // the clock went back: count the week from here
    } else if (now > last && now - last >= kReportPeriod && ReportData() == 0) {
        g_lastReport.store(now);
    }
}

bool BaspHerald::RefLevelRunTime(uint32_t level) {
    const uint32_t now = Now();
    if (db_.level() == 0) {
        if (level == 0) {
            return false;
        }
        db_.set_level(level);
        db_.set_timestamp(now);
        SOH_LOGI("herald: new level %u timestamp %u\n", level, now);
        return true;
    }
    const uint32_t old = db_.level();
    db_.set_level(level);
    if (now >= db_.timestamp()) {
        uint32_t seconds = now - db_.timestamp();
        for (const BaspDb::Stage& stage : db_.stages()) {
            if (stage.level() == old) {
                seconds += stage.seconds();
                break;
            }
        }
        SetRunSeconds(old, seconds);
    } else {
        SOH_LOGE("herald: last %u > now %u, just refresh timestamp\n", db_.timestamp(), now);
    }
    db_.set_timestamp(now);
    return true;
}

void BaspHerald::SetRunSeconds(uint32_t level, uint32_t seconds) {
    for (BaspDb::Stage& stage : *db_.mutable_stages()) {
        if (stage.level() == level) {
            stage.set_seconds(seconds);
            SOH_LOGI("herald: set level %u run times %u\n", level, seconds);
            return;
        }
    }
    BaspDb::Stage* stage = db_.add_stages();
    if (stage == nullptr) {
        SOH_LOGE("herald: failed to add stage\n");
        return;
    }
    stage->set_level(level);
    stage->set_seconds(seconds);
    SOH_LOGI("herald: add level %u run times %u\n", level, seconds);
}

std::vector<uint32_t> BaspHerald::StoredFccs() const {
    const uint32_t count = static_cast<uint32_t>(db_.records_size());
    const uint32_t mnum = db_.mnum() == 0 ? kMaxRecords : db_.mnum();
    const uint32_t start = count == mnum ? db_.pos() : 0;
    std::vector<uint32_t> stored;
    for (uint32_t i = 0; i < count; ++i) {
        stored.push_back(db_.records(static_cast<int>((start + i) % mnum)).fcc());
    }
    return stored;
}

bool BaspHerald::RefFccs(const std::vector<uint32_t>& fccs) {
    if (fccs.empty()) {
        if (db_.records_size() != 0) {
            ReplaceFccs(fccs);  // clears the ring; reaches the file with the next save
        }
        return false;
    }
    const std::vector<uint32_t> stored = StoredFccs();
    if (fccs.size() == stored.size()) {
        return RefSameSizeFccs(fccs, stored);
    }
    if (fccs.size() == stored.size() + 1) {
        return RefAddOneFccs(fccs, stored);
    }
    SOH_LOGE("herald: size is wrong %u %u\n", static_cast<uint32_t>(fccs.size()),
             static_cast<uint32_t>(stored.size()));
    return ReplaceFccs(fccs);
}

bool BaspHerald::RefSameSizeFccs(const std::vector<uint32_t>& fccs,
                                 const std::vector<uint32_t>& stored) {
    if (fccs == stored) {
        return false;
    }
    if (stored.size() < db_.mnum()) {
        SOH_LOGE("herald: size is %u but value is not same\n", static_cast<uint32_t>(fccs.size()));
        return ReplaceFccs(fccs);
    }
    bool shifted = true;
    for (size_t i = 0; i + 1 < fccs.size(); ++i) {
        shifted = shifted && fccs[i] == stored[i + 1];
    }
    if (shifted) {
        SOH_LOGI("herald: cover old record\n");
        return PushFcc(fccs.back(), Now());
    }
    SOH_LOGE("herald: records is full but fcc is not same\n");
    return ReplaceFccs(fccs);
}

bool BaspHerald::RefAddOneFccs(const std::vector<uint32_t>& fccs,
                               const std::vector<uint32_t>& stored) {
    for (size_t i = 0; i < stored.size(); ++i) {
        if (fccs[i] != stored[i]) {
            SOH_LOGE("herald: size is %u but fcc is disaccord\n",
                     static_cast<uint32_t>(fccs.size()));
            return ReplaceFccs(fccs);
        }
    }
    SOH_LOGI("herald: push new record\n");
    return PushFcc(fccs.back(), Now());
}

bool BaspHerald::ReplaceFccs(const std::vector<uint32_t>& fccs) {
    SOH_LOGI("herald: replace fcc records %u %u %u\n", db_.pos(),
             static_cast<uint32_t>(db_.records_size()), db_.mnum());
    db_.clear_records();
    db_.set_pos(0);
    const uint32_t now = Now();
    bool pushed = false;
    for (uint32_t fcc : fccs) {
        pushed = PushFcc(fcc, now) || pushed;
    }
    return pushed;
}

bool BaspHerald::PushFcc(uint32_t fcc, uint32_t timestamp) {
    const uint32_t count = static_cast<uint32_t>(db_.records_size());
    const uint32_t pos = db_.pos();
    SOH_LOGI("herald: before push recrod %u %u %u %u %u\n", pos, count, db_.mnum(), fcc, timestamp);
    BaspDb::FccRecord* record = nullptr;
    if (pos < count) {
        record = db_.mutable_records(static_cast<int>(pos));  // full ring: the oldest goes
    } else if (pos == count && count < db_.mnum()) {
        record = db_.add_records();
    }
    if (record == nullptr) {
        SOH_LOGE("herald: failed to add record\n");
        return false;
    }
    record->set_fcc(fcc);
    record->set_timestamp(timestamp);
    db_.set_pos(pos + 1 >= db_.mnum() ? 0 : pos + 1);
    SOH_LOGI("herald: after push recrod %u %u\n", db_.pos(),
             static_cast<uint32_t>(db_.records_size()));
    return true;
}

void BaspHerald::GetPolicyRec(PolicyRecType& rec) const {
    if (db_.realpolicyrecs_size() == 0) {
        SOH_LOGI("GetPolicyRec size %d\n", db_.realpolicyrecs_size());
        return;
    }
    const BaspDb::RealPolicyRec& saved = db_.realpolicyrecs(0);
    rec.timestamp = saved.timestamp();
    rec.ndcVdecUV = saved.ndcvdecuv();
    rec.noDecAswell = saved.nodecaswell();
    rec.lastSwell = saved.lastswell();
    SOH_LOGI("basp: saved timestamp %d, ndcVdecUV %d, noDecAswell %d\n",
             static_cast<int>(rec.timestamp), static_cast<int>(rec.ndcVdecUV),
             static_cast<int>(rec.noDecAswell));
}

void BaspHerald::SavePolicyRec(const PolicyRecType& rec) {
    BaspDb::RealPolicyRec* saved =
        db_.realpolicyrecs_size() == 0 ? db_.add_realpolicyrecs() : db_.mutable_realpolicyrecs(0);
    if (saved == nullptr) {
        SOH_LOGE("herald: failed to add realpolicyrecs\n");
        return;
    }
    saved->set_timestamp(rec.timestamp);
    saved->set_ndcvdecuv(rec.ndcVdecUV);
    saved->set_nodecaswell(rec.noDecAswell);
    saved->set_lastswell(rec.lastSwell);
}

void BaspHerald::InitReportInterval() {
    uint32_t interval = 0;
    if (DeviceReader(BaspNodes::kHeraldInterval).Read(interval) == 0) {
        interval_ = interval;
        SOH_LOGI("herald: used config interval %u\n", interval_);
    } else {
        SOH_LOGI("herald: used default interval %u\n", interval_);
    }
}

uint32_t BaspHerald::GetVtermSet() {
    uint32_t vterm = 0;
    if (DeviceReader(BaspNodes::kChargeTermVolt).ReadStrToT(vterm) != 0) {
        SOH_LOGE("herald: read charger term volt failed\n");
        return 0;
    }
    SOH_LOGI("herald: BatTVSet:%u\n", vterm);
    return vterm;
}

int BaspHerald::NewestIndex(uint32_t k) const {
    const uint32_t count = static_cast<uint32_t>(db_.records_size());
    const uint32_t mnum = db_.mnum();
    if (k >= count || mnum == 0) {
        return -1;
    }
    const uint32_t pos = db_.pos() == 0 ? mnum : db_.pos();
    const uint32_t index = (pos + mnum - 1 - k) % mnum;
    return index < count ? static_cast<int>(index) : -1;
}

void BaspHerald::SetBatteryManId(SOHBigData& event, const battery_herald_data& data) {
    const std::string man = FieldText(data.batMan, sizeof(data.batMan));
    const std::string mod = man.size() >= 4 ? man.substr(man.size() - 3) : man;
    const std::string parF = FieldText(data.batParF, sizeof(data.batParF));
    event.Set("BatMan", man.c_str());
    event.Set("BatMod", mod.c_str());
    event.Set("BatParF", parF.c_str());
    SOH_LOGI("herald: BatMan:%s, BatMod:%s\n", man.c_str(), mod.c_str());
}

void BaspHerald::SetFccTimeStamp(SOHBigData& event, const char* key, uint32_t k) {
    const int index = NewestIndex(k);
    const uint32_t stamp = index < 0 ? 0 : db_.records(index).timestamp();
    char text[32] = {};
    if (index >= 0) {
        const time_t t = static_cast<time_t>(stamp);
        struct tm local {};
        if (localtime_r(&t, &local) == nullptr ||
            snprintf(text, sizeof(text), "%.4d-%.2d-%.2d %.2d:%.2d:%.2d", local.tm_year + 1900,
                     local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
                     local.tm_sec) <= 0) {
            SOH_LOGE("herald: switch time_t to string failed\n");
            text[0] = '\0';
        }
    }
    event.Set(key, text);
    SOH_LOGI("herald: send fcc%u with timestamp %u-%s\n", k + 1, stamp, text);
}

int BaspHerald::VersionThousandths(const std::string& version) {
    // Decimal digits are read as such: a binary floating-point product would turn "2.01"
    // into 2009. Letters after the number are ignored, as for the version check.
    size_t i = version.find_first_not_of(" \t");
    i = i == std::string::npos ? version.size() : i;
    int64_t value = 0;
    bool digits = false;
    bool tooLarge = false;
    for (; i < version.size() && isdigit(static_cast<unsigned char>(version[i])); ++i) {
        digits = true;
        value = value * 10 + (version[i] - '0');
        tooLarge = tooLarge || value > INT32_MAX / 1000;
        value = tooLarge ? INT32_MAX / 1000 + 1 : value;
    }
    value *= 1000;
    if (i < version.size() && version[i] == '.') {
        int64_t scale = 100;
        for (++i; i < version.size() && isdigit(static_cast<unsigned char>(version[i])); ++i) {
            digits = true;
            value += scale * (version[i] - '0');
            scale /= 10;
        }
    }
    // An exponent ("2e9", "2.5e400") would scale the number beyond what the digits say.
    bool exponent = false;
    if (digits && i < version.size() && (version[i] == 'e' || version[i] == 'E')) {
        size_t j = i + 1;
        j += j < version.size() && (version[j] == '+' || version[j] == '-') ? 1 : 0;
        exponent = j < version.size() && isdigit(static_cast<unsigned char>(version[j]));
    }
    if (!digits || exponent) {
        SOH_LOGE("herald: version %s is not a plain decimal number, ChaICTp 0\n", version.c_str());
        return 0;
    }
    if (tooLarge) {
        SOH_LOGE("herald: version %s is too large, ChaICTp %d\n", version.c_str(), INT32_MAX);
        return INT32_MAX;
    }
    return static_cast<int>(std::min<int64_t>(value, INT32_MAX));
}

int BaspHerald::ReportData() {
    battery_herald_data data{};
    if (DeviceReader(BaspNodes::kHeraldData).Read(data) != 0) {
        SOH_LOGE("herald: read basp herald file failed\n");
        return -1;
    }
    SOHBigData event(kReportEventId);
    if (!event.Available()) {
        SOH_LOGE("herald: big data reporter is not available\n");
        return -1;
    }
    event.Set("ActDays", 0L);
    event.Set("BatCap", static_cast<int>(data.batCap));
    event.Set("BatTVSet", static_cast<int>(GetVtermSet()));
    event.Set("BatCyc", static_cast<int>(data.batCycle));
    event.Set("BaspLv", static_cast<int>(db_.level()));
    static const char* const kDayKeys[] = {"Basp1Days", "Basp2Days", "Basp3Days", "Basp4Days"};
    for (uint32_t level = 1; level <= 4; ++level) {
        uint32_t seconds = 0;
        for (const BaspDb::Stage& stage : db_.stages()) {
            if (stage.level() == level) {
                seconds = stage.seconds();
                break;
            }
        }
        event.Set(kDayKeys[level - 1], static_cast<int>(seconds / kSecondsPerDay));
        SOH_LOGI("herald: level %d, run time is %d:%d\n", static_cast<int>(level),
                 static_cast<int>(seconds), static_cast<int>(seconds / kSecondsPerDay));
    }
    event.Set("Qmax", static_cast<int>(data.qmax));
    static const char* const kFccKeys[] = {"FGFcc1", "FGFcc2", "FGFcc3"};
    for (uint32_t k = 0; k < 3; ++k) {
        const int index = NewestIndex(k);
        const uint32_t fcc = index < 0 ? 0 : db_.records(index).fcc();
        event.Set(kFccKeys[k], static_cast<int>(fcc));
        SOH_LOGI("herald: send fcc%u with value %u\n", k + 1, fcc);
    }
    SetBatteryManId(event, data);
    event.Set("ChaICTp", VersionThousandths(db_.version()));
    static const char* const kTimeKeys[] = {"HTime1", "HTime2", "HTime3"};
    for (uint32_t k = 0; k < 3; ++k) {
        SetFccTimeStamp(event, kTimeKeys[k], k);
    }
    if (event.Send() != 0) {
        SOH_LOGE("herald: send basp herald data failed\n");
        return -1;
    }
    SOH_LOGI("herald: send %s herald data %u %u %u %u\n",
             FieldText(data.batMan, sizeof(data.batMan)).c_str(), db_.level(), data.batCap,
             data.batCycle, data.qmax);
    return 0;
}
