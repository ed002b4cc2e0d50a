// The persistent system parameter record kept by SOHConfigure.
#include <mutex>

#include "core/soh_configure.h"
#include "core/soh_file.h"
#include "core/soh_log.h"
#include "sys_para.pb.h"

namespace {

constexpr const char* kSysParaVersion = "1.0";
constexpr size_t kMaxSysParaBytes = 1u << 20;

struct SysParaState {
    std::mutex lock;  // SysParaLock: held by every operation for its whole run
    bool loaded = false;
    // True while the file lags behind the record (a save failed); the next change saves.
    bool dirty = false;
    SysPara para;
    unsigned smartCharging = 0;
};

SysParaState& State() {
    static SysParaState* state = new SysParaState;  // never destroyed: detached threads may still
                                                    // use it while the process exits
    return *state;
}

void ResetRecord(SysPara& para) {
    para.Clear();
    para.set_version(kSysParaVersion);
}

// Loads the record on first use; the caller holds the lock.
void InitLocked(SysParaState& s) {
    if (s.loaded) {
        return;
    }
    s.loaded = true;  // a failed load is not retried
    std::string data;
    if (!SohFile::ReadAll(SohPaths::kSysParaFile, data, kMaxSysParaBytes)) {
        SOH_LOGE("syspara db file is not exist\n");
        ResetRecord(s.para);
        return;
    }
    SysPara parsed;
    if (!parsed.ParseFromString(data)) {
        SOH_LOGE("parse syspara data from file failed\n");
        ResetRecord(s.para);
        return;
    }
    if (parsed.version() != kSysParaVersion) {
        SOH_LOGI("syspara version change %s:%s\n", parsed.version().c_str(), kSysParaVersion);
        ResetRecord(s.para);
        return;
    }
    s.para.Swap(&parsed);
}

int SaveLocked(SysParaState& s) {
    std::string data;
    if (!s.para.SerializeToString(&data)) {
        SOH_LOGE("failed to write syspara data\n");
        s.dirty = true;
        return -1;
    }
    bool openFailed = false;
    if (!SohFile::WriteAtomic(SohPaths::kSysParaFile, data, 0660, &openFailed)) {
        SOH_LOGE(openFailed ? "syspara data file open failed to write\n"
                            : "failed to write syspara data\n");
        s.dirty = true;
        return -1;
    }
    s.dirty = false;
    return 0;
}

}  // namespace

void SOHConfigure::InitPara() {
    std::lock_guard<std::mutex> lock(State().lock);
    InitLocked(State());
}

int SOHConfigure::SavePara() {
    SysParaState& s = State();
    std::lock_guard<std::mutex> lock(s.lock);
    InitLocked(s);
    return SaveLocked(s);
}

bool SOHConfigure::GetProtectMark() {
    SysParaState& s = State();
    std::lock_guard<std::mutex> lock(s.lock);
    InitLocked(s);
    return s.para.has_asw() && s.para.asw().protect() != 0;
}

int SOHConfigure::SetProtectMark(unsigned mark) {
    if (mark > 1) {
        return -1;
    }
    SysParaState& s = State();
    std::lock_guard<std::mutex> lock(s.lock);
    InitLocked(s);
    if (s.para.asw().protect() == mark && !s.dirty) {
        return 0;
    }
    s.para.mutable_asw()->set_protect(mark);
    return SaveLocked(s);
}

void SOHConfigure::CloseScheme(const std::string& name) {
    SysParaState& s = State();
    std::lock_guard<std::mutex> lock(s.lock);
    InitLocked(s);
    for (const auto& scheme : s.para.schemes()) {
        if (scheme.name() == name) {
            return;
        }
    }
    s.para.add_schemes()->set_name(name);
    if (SaveLocked(s) != 0) {
        SOH_LOGE("close %s scheme fail\n", name.c_str());
    } else {
        SOH_LOGI("close %s scheme\n", name.c_str());
    }
}

bool SOHConfigure::IsSchemeClosed(const std::string& name) {
    SysParaState& s = State();
    std::lock_guard<std::mutex> lock(s.lock);
    InitLocked(s);
    for (const auto& scheme : s.para.schemes()) {
        if (scheme.name() == name) {
            return true;
        }
    }
    return false;
}

void SOHConfigure::RefLimitRecord(const std::string& name, const std::string& src,
                                  const std::string& value) {
    SysParaState& s = State();
    std::lock_guard<std::mutex> lock(s.lock);
    InitLocked(s);
    SysPara::LimitRecord* record = nullptr;
    for (auto& r : *s.para.mutable_records()) {
        if (r.name() == name) {
            record = &r;
            break;
        }
    }
    // An unchanged record that is already on storage costs no flash write.
    bool unchanged =
        record != nullptr && record->src() == src && record->value() == value && !s.dirty;
    if (record == nullptr) {
        record = s.para.add_records();
        record->set_name(name);
    }
    record->set_src(src);
    record->set_value(value);
    if (!unchanged && SaveLocked(s) != 0) {
        SOH_LOGE("save %s limit from %s to %s fail\n", name.c_str(), src.c_str(), value.c_str());
        return;
    }
    SOH_LOGI("save %s limit from %s to %s\n", name.c_str(), src.c_str(), value.c_str());
}

int SOHConfigure::GetLimitRecord(const std::string& name, std::string& src, std::string& value) {
    SysParaState& s = State();
    std::lock_guard<std::mutex> lock(s.lock);
    InitLocked(s);
    for (const auto& r : s.para.records()) {
        if (r.name() == name) {
            src = r.src();
            value = r.value();
            return 0;
        }
    }
    return -1;
}

void SOHConfigure::SetSmartCharging(unsigned value) {
    std::lock_guard<std::mutex> lock(State().lock);
    State().smartCharging = value;
}

unsigned SOHConfigure::GetSmartCharging() {
    std::lock_guard<std::mutex> lock(State().lock);
    return State().smartCharging;
}
