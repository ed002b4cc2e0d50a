#include "service/app_estimator.h"

#include <bms_interface.h>
#include <errno.h>
#include <stdlib.h>

#include <climits>
#include <cstring>
#include <set>
#include <vector>

#include "core/device_stream.h"
#include "core/soh_configure.h"
#include "core/soh_log.h"
#include "platform/soh_clock.h"

namespace {

constexpr const char* kSocLimitator = "SocLimitator";
constexpr const char* kSocDefault = "1 95 100";
// The SOC default in request order (TYPE HIGH LOW): upper bound 100, so it does not limit.
constexpr const char* kSocDefaultRequest = "1 100 95";

bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

// Parses a whole decimal number of digits only into [0, max]; false otherwise.
bool ParseUnsigned(const std::string& text, unsigned long long max, unsigned long long& out) {
    if (text.empty() || text.size() > 19) {
        return false;
    }
    for (char c : text) {
        if (c < '0' || c > '9') {
            return false;
        }
    }
    errno = 0;
    unsigned long long v = strtoull(text.c_str(), nullptr, 10);
    if (errno != 0 || v > max) {
        return false;
    }
    out = v;
    return true;
}

// Splits at runs of blanks; a trailing line end is not part of the value.
std::vector<std::string> Words(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
        text.pop_back();
    }
    std::vector<std::string> words;
    size_t i = 0;
    while (i < text.size()) {
        while (i < text.size() && IsBlank(text[i])) {
            ++i;
        }
        size_t start = i;
        while (i < text.size() && !IsBlank(text[i])) {
            ++i;
        }
        if (i > start) {
            words.push_back(text.substr(start, i - start));
        }
    }
    return words;
}

// "TYPE N" with N a decimal integer, optionally negative, within 32 bits (-1: no demand).
bool ParseTypedValue(const std::string& text, std::string& type, int& value) {
    std::vector<std::string> words = Words(text);
    if (words.size() != 2) {
        return false;
    }
    const bool negative = words[1][0] == '-';
    unsigned long long v = 0;
    const unsigned long long max = negative ? 1ULL + INT_MAX : INT_MAX;
    if (!ParseUnsigned(negative ? words[1].substr(1) : words[1], max, v)) {
        return false;
    }
    type = words[0];
    value = negative ? static_cast<int>(-static_cast<long long>(v)) : static_cast<int>(v);
    return true;
}

// Decimal numbers separated by blanks, each within 32 bits.
bool ParseNumbers(const std::string& text, std::vector<uint32_t>& numbers) {
    numbers.clear();
    for (const std::string& w : Words(text)) {
        unsigned long long v = 0;
        if (!ParseUnsigned(w, UINT32_MAX, v)) {
            return false;
        }
        numbers.push_back(static_cast<uint32_t>(v));
    }
    return true;
}

// Every AppEstimator alive, so that FromPool can tell whether the pool's "APP" is one.
struct LiveApps {
    std::mutex lock;
    std::set<AppEstimator*> apps;  // guarded by lock
};

LiveApps& TheLiveApps() {
    static LiveApps* live = new LiveApps;  // never destroyed: estimators outlive exit handlers
    return *live;
}

}  // namespace

AppEstimator* AppEstimator::FromPool() {
    SOHEstimator* app = EstimatorPool().FindObject("APP");
    LiveApps& live = TheLiveApps();
    std::lock_guard<std::mutex> lock(live.lock);
    for (AppEstimator* a : live.apps) {
        if (static_cast<SOHEstimator*>(a) == app) {
            return a;
        }
    }
    return nullptr;
}

AppEstimator::~AppEstimator() {
    LiveApps& live = TheLiveApps();
    std::lock_guard<std::mutex> lock(live.lock);
    live.apps.erase(this);
}

AppEstimator::AppEstimator(const std::string& name)
    : SOHEstimator(name), defaults_{{"DcVoltLimitator", "0"},
                                    {"NonDcVoltLimitator", "0"},
                                    {"DcCurLimitator", "100"},
                                    {"NonDcCurLimitator", "2147483647"},
                                    {kSocLimitator, kSocDefault},
                                    {"StatusLimitator", "0"}} {
    for (const auto& d : defaults_) {
        beats_[d.first] = HeartBeat{};
    }
    LiveApps& live = TheLiveApps();
    std::lock_guard<std::mutex> lock(live.lock);
    live.apps.insert(this);
}

void AppEstimator::StartMonitor() {
    for (const char* limitator : {"DcVoltLimitator", "NonDcVoltLimitator", "DcCurLimitator",
                                  "NonDcCurLimitator", "StatusLimitator"}) {
        RestoreLimit(limitator);
    }
    RestoreSocControl();
    if (BmsPropertyIsChargerMode()) {
        SetRunState("run");  // no heartbeats in charger mode: nothing to time out
        return;
    }
    RunMonitorThread([this] { Monitor(); });
}

int AppEstimator::GetPara(const std::string& name, std::string& value) {
    if (name == "vnupd_config") {
        return GetVnupdConfig(value);
    }
    if (name == "smart_charge_enable") {
        return GetSmartChargeEnable(value);
    }
    if (name == "smart_charging") {
        return GetSmartCharging(value);
    }
    if (name == "smart_charge_feature") {
        return GetSmartChargeFeature(value);
    }
    return -1;
}

int AppEstimator::SetPara(const std::string& name, const std::string& value) {
    if (name == "smart_charge_enable") {
        return SetSmartChargeEnable(value);
    }
    if (name == "smart_charge_support") {
        return SetSmartChargeSupport(value);
    }
    if (name == "soc_control") {
        return SetSocBeat(value);
    }
    if (name == "vterm_dec") {
        return SetVtermDec(value);
    }
    if (name == "ichg_limit") {
        return SetIChg(name, value, "NonDcCurLimitator");
    }
    if (name == "ichg_ratio") {
        return SetIChg(name, value, "DcCurLimitator");
    }
    if (name == "close_scheme") {
        return CloseScheme(value);
    }
    if (name == "batt_status") {
        return SetBattStatus(value);
    }
    return -1;
}

bool AppEstimator::IsBeatRunning(const std::string& limitator) const {
    std::lock_guard<std::mutex> lock(lock_);
    auto it = beats_.find(limitator);
    return it != beats_.end() && it->second.running;
}

uint32_t AppEstimator::BeatElapsed(const std::string& limitator) const {
    std::lock_guard<std::mutex> lock(lock_);
    auto it = beats_.find(limitator);
    return it == beats_.end() ? 0 : it->second.elapsed;
}

std::map<std::string, AppEstimator::HeartBeat> AppEstimator::HeartBeats() const {
    std::lock_guard<std::mutex> lock(lock_);
    return beats_;
}

SOHEstimator* AppEstimator::Asw() const {
    return EstimatorPool().FindObject("ASW");
}

int AppEstimator::GetVnupdConfig(std::string& value) {
    value = "type=QUENJSONCONFIG,subtype=generic,compatibleVersion=1,version=" +
            SOHConfigure::GetConfigVersion() +
            ",needRestart=true,installLocation=vendor,cfgDir=/power/QUENJSONCONFIG";
    return 0;
}

int AppEstimator::GetSmartChargeEnable(std::string& value) {
    if (SOHEstimator* asw = Asw()) {
        return asw->GetPara("smart_charge_enable", value);
    }
    value = std::to_string(SOHConfigure::GetProtectMark() ? 1 : 0);
    return 0;
}

int AppEstimator::GetSmartCharging(std::string& value) {
    if (SOHEstimator* asw = Asw()) {
        return asw->GetPara("smart_charging", value);
    }
    // A node that cannot be read reads as all ones, so the flag alone answers.
    unsigned connected = UINT_MAX;
    if (DeviceReader(kConnectStateNode).ReadStrToT(connected) != 0) {
        connected = UINT_MAX;
    }
    value = std::to_string(SOHConfigure::GetSmartCharging() & connected);
    return 0;
}

int AppEstimator::GetSmartChargeFeature(std::string& value) {
    SOHEstimator* asw = Asw();
    return asw == nullptr ? -1 : asw->GetPara("smart_charge_feature", value);
}

int AppEstimator::SetSmartChargeEnable(const std::string& value) {
    if (SOHEstimator* asw = Asw()) {
        return asw->SetPara("smart_charge_enable", value);
    }
    // The leading integer counts, as atoi reads it ("1\n" is 1, "yes" is 0); the store
    // refuses anything but 0 and 1.
    errno = 0;
    const long mark = strtol(value.c_str(), nullptr, 10);
    if (errno != 0 || mark < 0 || mark > 1) {
        SOH_LOGE("app set %s value %s illegal\n", "smart_charge_enable", value.c_str());
        return -1;
    }
    return SOHConfigure::SetProtectMark(static_cast<unsigned>(mark));
}

int AppEstimator::SetSmartChargeSupport(const std::string& value) {
    SOHEstimator* asw = Asw();
    return asw == nullptr ? 0 : asw->SetPara("smart_charge_support", value);
}

int AppEstimator::SetIChg(const std::string& para, const std::string& value,
                          const std::string& limitator) {
    std::string type;
    int v = 0;
    if (!ParseTypedValue(value, type, v) || type != "all") {
        SOH_LOGE("app set %s value %s illegal\n", para.c_str(), value.c_str());
        return -1;
    }
    NotifyBeat(limitator, v);
    return 0;
}

int AppEstimator::SetVtermDec(const std::string& value) {
    std::string type;
    int v = 0;
    if (!ParseTypedValue(value, type, v)) {
        SOH_LOGE("app set %s value %s illegal\n", "vterm_dec", value.c_str());
        return -1;
    }
    bool accepted = false;
    for (const char* limitator : {"DcVoltLimitator", "NonDcVoltLimitator"}) {
        SOHProtector* p = GetProtector(limitator);
        if (p != nullptr && p->Match(type)) {
            NotifyBeat(limitator, v);
            accepted = true;
        }
    }
    if (!accepted) {
        SOH_LOGE("app set %s value %s illegal\n", "vterm_dec", value.c_str());
    }
    return accepted ? 0 : -1;
}

int AppEstimator::SetBattStatus(const std::string& value) {
    std::vector<std::string> words = Words(value);
    bool digitsAndBlanks = std::strspn(value.c_str(), "0123456789 \t\r\n") == value.size();
    unsigned long long v = 0;
    if (!digitsAndBlanks || words.empty() || !ParseUnsigned(words[0], INT_MAX, v)) {
        SOH_LOGE("app set %s value %s illegal\n", "batt_status", value.c_str());
        return -1;
    }
    NotifyBeat("StatusLimitator", static_cast<int>(v));
    return 0;
}

int AppEstimator::SetSocBeat(const std::string& value) {
    // The heartbeat follows the request before it is validated: a refused value still
    // starts, renews or stops it.
    std::lock_guard<std::mutex> lock(lock_);
    if (value.compare(0, std::strlen(kSocDefault), kSocDefault) == 0) {
        StopHeartBeat(kSocLimitator);
    } else {
        StartHeartBeat(kSocLimitator);
    }
    return SetSocControl(value);
}

int AppEstimator::SetSocControl(const std::string& value) {
    std::vector<uint32_t> n;
    if (!ParseNumbers(value, n) || n.size() < 3 || n.size() == 4) {
        SOH_LOGE("soc control value %s illegal\n", value.c_str());
        return -1;
    }
    SocStrategy s;
    s.Type = n[0];
    s.HighSoc = n[1];
    s.LowSoc = n[2];
    s.SmartChgSign = n.size() >= 5 ? n[3] : 1;
    s.ShutDownSign = n.size() >= 5 ? n[4] : 0;
    s.Force = false;
    NotifySocStrategy(s);
    return 0;
}

int AppEstimator::CloseScheme(const std::string& value) {
    const std::vector<std::string>& configured = SOHConfigure::GetEstimators();
    bool known = false;
    for (const std::string& name : configured) {
        known = known || name == value;
    }
    if (value == GetName() || !known) {
        SOH_LOGE("app set %s value %s illegal\n", "close_scheme", value.c_str());
        return -1;
    }
    if (EstimatorPool().FindObject(value) == nullptr) {
        return 0;
    }
    SOH_LOGE("receive app close %s request\n", value.c_str());
    SOHConfigure::CloseScheme(value);
    return 0;
}

void AppEstimator::NotifyBeat(const std::string& limitator, int v) {
    std::lock_guard<std::mutex> lock(lock_);
    auto d = defaults_.find(limitator);
    if (d != defaults_.end()) {
        if (std::to_string(v) == d->second) {
            StopHeartBeat(limitator);
        } else {
            StartHeartBeat(limitator);
        }
    }
    NotifyOne(limitator, v);
}

void AppEstimator::StartHeartBeat(const std::string& limitator) {
    auto it = beats_.find(limitator);
    if (it == beats_.end()) {
        return;
    }
    it->second.running = true;
    it->second.elapsed = 0;
    SOH_LOGI("start heartbeat of %s\n", limitator.c_str());
    SohClock::NotifyAll(beatStarted_);
}

void AppEstimator::StopHeartBeat(const std::string& limitator) {
    auto it = beats_.find(limitator);
    if (it == beats_.end()) {
        return;
    }
    it->second.running = false;
    SOH_LOGI("stop heartbeat of %s\n", limitator.c_str());
}

void AppEstimator::Monitor() {
    std::unique_lock<std::mutex> lock(lock_);
    auto anyRunning = [this] {
        for (const auto& b : beats_) {
            if (b.second.running) {
                return true;
            }
        }
        return false;
    };
    for (;;) {
        // With no heartbeat running there is nothing to count: sleep until one starts
        // instead of waking every step.
        SohClock::Wait(beatStarted_, lock, anyRunning);
        SohClock::WaitFor(beatStarted_, lock, kBeatStepSeconds * 1000000000LL,
                          [] { return false; });
        UpdateHeartBeats();
    }
}

void AppEstimator::UpdateHeartBeats() {
    for (auto& entry : beats_) {
        HeartBeat& beat = entry.second;
        if (!beat.running) {
            continue;
        }
        beat.elapsed += kBeatStepSeconds;
        if (beat.elapsed < kBeatTimeoutSeconds) {
            SOH_LOGI("heartbeat of %s is %d\n", entry.first.c_str(),
                     static_cast<int>(beat.elapsed));
        } else {
            RestoreDefValue(entry.first);  // stays running: re-applied at every step
        }
    }
}

void AppEstimator::RestoreDefValue(const std::string& limitator) {
    auto d = defaults_.find(limitator);
    if (d == defaults_.end()) {
        return;
    }
    SOH_LOGI("heartbeat of %s timeout restore default value %s\n", limitator.c_str(),
             d->second.c_str());
    if (limitator == kSocLimitator) {
        SetSocControl(kSocDefaultRequest);
    } else {
        NotifyOne(limitator, static_cast<double>(strtol(d->second.c_str(), nullptr, 10)));
    }
}

void AppEstimator::RestoreLimit(const std::string& limitator) {
    std::string src;
    std::string value;
    if (GetProtector(limitator) == nullptr ||
        SOHConfigure::GetLimitRecord(limitator, src, value) != 0) {
        return;
    }
    SOH_LOGI("restore %s limit from %s with value %s\n", limitator.c_str(), src.c_str(),
             value.c_str());
    char* end = nullptr;
    errno = 0;
    long n = strtol(value.c_str(), &end, 10);
    if (end == value.c_str() || *end != '\0' || errno != 0 || n < INT_MIN || n > INT_MAX) {
        SOH_LOGE("app set %s value %s illegal\n", limitator.c_str(), value.c_str());
        return;
    }
    NotifyBeat(limitator, static_cast<int>(n));
}

void AppEstimator::RestoreSocControl() {
    std::string src;
    std::string value;
    if (GetProtector(kSocLimitator) == nullptr ||
        SOHConfigure::GetLimitRecord(kSocLimitator, src, value) != 0) {
        return;
    }
    // The record reads TYPE LOW HIGH [SMART SHUTDOWN]; requests read TYPE HIGH LOW [...].
    std::vector<uint32_t> n;
    if (!ParseNumbers(value, n) || n.size() < 3 || n.size() == 4) {
        SOH_LOGE("soc control value %s illegal\n", value.c_str());
        return;
    }
    SOH_LOGI("restore soc control from %s with value %s\n", src.c_str(), value.c_str());
    if (n[2] >= 100) {
        return;  // the record does not limit: nothing to restore
    }
    std::string request =
        std::to_string(n[0]) + " " + std::to_string(n[2]) + " " + std::to_string(n[1]);
    if (n.size() >= 5) {
        request += " " + std::to_string(n[3]) + " " + std::to_string(n[4]);
    }
    // No heartbeat: a restored window stays until the app asks for another.
    std::lock_guard<std::mutex> lock(lock_);
    SetSocControl(request);
}
