#include "cvt/cvt_data_manage.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

#include <algorithm>

#include "core/device_stream.h"
#include "core/soh_big_data.h"
#include "core/soh_enviroment.h"
#include "core/soh_file.h"
#include "core/soh_log.h"
#include "cvt/cvt_nodes.h"
#include "platform/soh_clock.h"

namespace {

constexpr const char* kDefaultBrand = "Li-poly";

int ConfigInt(const Json::Value& config, const char* key) {
    const Json::Value& v = config.isObject() ? config[key] : Json::Value::nullSingleton();
    if (!v.isInt()) {
        SOH_LOGE("%s not config\n", key);
        return 0;
    }
    return v.asInt();
}

uint16_t ToU16(long long v) {
    return static_cast<uint16_t>(std::clamp<long long>(v, 0, UINT16_MAX));
}

int Slot(unsigned n) {
    return static_cast<int>(n % CvtInfoSave::kSlots);
}

}  // namespace

void CvtDataManage::CvtInfoInit(const Json::Value& config) {
    judgeEnable_ = ConfigInt(config, "JudgeEnable");
    policyEnable_ = ConfigInt(config, "PolicyEnable");
    calculateCount_ = ConfigInt(config, "CalculateCount");
    errorCount_ = ConfigInt(config, "ErrorCount");
    errorValue_ = ConfigInt(config, "ErrorValue");
    errorCycle_ = ConfigInt(config, "ErrorCycle");
    fccRatio_ = ConfigInt(config, "FccRatio");
    SOH_LOGI("cvt init JudgeEnable:%d,PolicyEnable:%d,CalCnt=%d,ErrCnt=%d,ErrVal=%d\n",
             judgeEnable_, policyEnable_, calculateCount_, errorCount_, errorValue_);
    CheckCvtFile();
}

bool CvtDataManage::ReadRecord() {
    // The record is the file's first sizeof(CvtInfoSave) bytes; anything after it is ignored,
    // only a shorter file is unreadable.
    CvtInfoSave record{};
    if (DeviceReader(CvtNodes::kCvtFile).Read(record) != 0) {
        return false;
    }
    data_ = record;
    return true;
}

void CvtDataManage::CheckCvtFile() {
    SOH_LOGI("start read cvt data form file\n");
    struct stat st {};
    if (SohFile::Stat(CvtNodes::kCvtDir, st) != 0 || !S_ISDIR(st.st_mode)) {
        SOH_LOGE("open dir %s failed\n", CvtNodes::kCvtDir);
        if (SohFile::MakeDir(CvtNodes::kCvtDir, 0770) != 0) {
            SOH_LOGE("create dir %s failed\n", CvtNodes::kCvtDir);
        }
    }
    if (SohFile::Exists(CvtNodes::kCvtOldFile)) {
        SOH_LOGE("first boot on new version, need reset cvt.data\n");
        if (SohFile::Remove(CvtNodes::kCvtOldFile) != 0) {
            SOH_LOGE("need delete cvt.data fail\n");
        }
    }
    bool changed = SOHEnviroment::IsBatteryChanged();
    SOH_LOGI("battery remove flag = %d\n", changed ? 1 : 0);
    bool reset = false;
    if (changed && SohFile::Exists(CvtNodes::kCvtFile)) {
        SOH_LOGE("battery have changed, need reset cvtnew.data\n");
        if (SohFile::Remove(CvtNodes::kCvtFile) != 0) {
            SOH_LOGE("need delete cvtnew.data fail\n");
        }
        reset = true;
    }
    if (SohFile::Exists(CvtNodes::kCvtFile)) {
        if (!ReadRecord()) {
            SOH_LOGE("read %s failed\n", CvtNodes::kCvtFile);
            reset = true;
        } else if (data_.magic != CvtInfoSave::kMagic) {
            SOH_LOGE("cvt original data corrupted, magic num=%d\n", static_cast<int>(data_.magic));
            reset = true;
        }
    } else {
        if (!SohFile::WriteAtomic(CvtNodes::kCvtFile, std::string(), 0664)) {
            SOH_LOGE("open %s failed\n", CvtNodes::kCvtFile);
        }
        reset = true;
    }
    if (reset) {
        memset(&data_, 0, sizeof(data_));
        SOH_LOGI("memset_s cvtKeyData reset succ\n");
    }
    SOH_LOGI("read cvt data succ, isReset=%d, magicNum=%d, cvtValidNum=%d, cvt0=%d\n",
             reset ? 1 : 0, static_cast<int>(data_.magic), data_.count, data_.calCvt[0]);
}

int CvtDataManage::CvtSaveInfoToFile(int calculated, int measured, unsigned cycle,
                                     int temperature) {
    if (!SohFile::Exists(CvtNodes::kCvtFile)) {
        SOH_LOGE("file %s is not exist\n", CvtNodes::kCvtFile);
        return -1;
    }
    char brand[CvtInfoSave::kBrandSize] = {};
    if (DeviceReader(CvtNodes::kBatteryBrand).ReadRawStr(brand, sizeof(brand)) != 0) {
        SOH_LOGE("read battery brand fail\n");
        memset(brand, 0, sizeof(brand));
        strncpy(brand, kDefaultBrand, sizeof(brand) - 1);
    }
    size_t len = strlen(brand);
    if (len > 0 && brand[len - 1] == '\n') {
        brand[len - 1] = '\0';
    }
    memcpy(data_.brand, brand, sizeof(brand));
    data_.magic = CvtInfoSave::kMagic;
    int slot = Slot(data_.count);
    data_.calCvt[slot] = ToU16(calculated);
    data_.orgCvt[slot] = ToU16(measured);
    data_.batCyc[slot] = ToU16(cycle);
    data_.batTemp[slot] = static_cast<int16_t>(std::clamp(temperature, INT16_MIN, INT16_MAX));
    data_.time[slot] = static_cast<int64_t>(SohClock::Time(nullptr));
    data_.count = static_cast<uint16_t>(data_.count + 1);
    std::string bytes(reinterpret_cast<const char*>(&data_), sizeof(data_));
    if (!SohFile::WriteAtomic(CvtNodes::kCvtFile, bytes, 0664)) {
        SOH_LOGE("write cvt data file failed\n");
        return -1;
    }
    SOH_LOGI("write cvt data succ\n");
    return 0;
}

void CvtDataManage::CvtSwellJudge(unsigned cycle, unsigned fccNow, unsigned fccDesign) {
    if (judgeEnable_ == 0) {
        SOH_LOGI("cvt swell judge is not enabled\n");
        return;
    }
    if (static_cast<long long>(cycle) < errorCycle_ ||
        static_cast<long long>(fccNow) * 100 > static_cast<long long>(fccRatio_) * fccDesign) {
        SOH_LOGI("cvt battery aging is not enough, cycle=%u\n", cycle);
        return;
    }
    if (calculateCount_ > data_.count) {
        SOH_LOGI("cvt valid data not enough, cnt=%d\n", data_.count);
        return;
    }
    int examined = std::clamp(calculateCount_, 0, CvtInfoSave::kSlots);
    int low = 0;
    for (int i = 0; i < examined; ++i) {
        int slot = Slot(static_cast<unsigned>(data_.count - examined + i));  // count >= examined
        low += data_.calCvt[slot] < errorValue_ ? 1 : 0;
    }
    if (errorCount_ > 0 && low >= errorCount_) {
        data_.swellFlag = 1;
        SOH_LOGE("battery is swelling, cvtErrorCnt=%d\n", low);
    }
}

void CvtDataManage::CvtExportReport() {
    if (data_.count == 0) {
        SOH_LOGE("index is invalid\n");
        return;
    }
    SOHBigData event(kReportEventId);
    if (!event.Available()) {
        SOH_LOGE("big data reporter is not available\n");
        return;
    }
    char now[32] = {};
    time_t t = SohClock::Time(nullptr);
    struct tm local {};
    if (localtime_r(&t, &local) == nullptr ||
        strftime(now, sizeof(now), "%Y-%m-%d %H:%M:%S", &local) == 0) {
        now[0] = '\0';
    }
    char brand[CvtInfoSave::kBrandSize + 1] = {};
    memcpy(brand, data_.brand, CvtInfoSave::kBrandSize);
    int slot = Slot(data_.count - 1u);
    int rc = event.Set("DETTIME", now);
    rc |= event.Set("BATVENDOR", brand);
    rc |= event.Set("ORGCVT", static_cast<int>(data_.orgCvt[slot]));
    rc |= event.Set("CALCVT", static_cast<int>(data_.calCvt[slot]));
    rc |= event.Set("BATTEMP", static_cast<int>(data_.batTemp[slot]));
    rc |= event.Set("BATCYC", static_cast<int>(data_.batCyc[slot]));
    rc |= event.Set("FASTFCCEST", 0);
    if (rc == 0 && event.Send() == 0) {
        SOH_LOGI("send cvt herald data Ok\n");
    } else {
        SOH_LOGE("herald: send cvt herald data failed\n");
    }
}

void CvtDataManage::CvtPolicyExecute() {
    if (policyEnable_ == 0) {
        SOH_LOGI("cvt policy execute is not enabled\n");
    }
}
