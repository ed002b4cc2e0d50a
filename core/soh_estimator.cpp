#include "core/soh_estimator.h"

#include <thread>
#include <utility>

#include "core/soh_configure.h"
#include "core/soh_enviroment.h"
#include "core/soh_log.h"
#include "platform/soh_clock.h"
#include "platform/soh_thread.h"

std::mutex EstimatorStateLock;
// Never destroyed: a monitor may announce its end while the process exits.
std::condition_variable& EstimatorStateChanged = *new std::condition_variable;
uint64_t EstimatorStateEvents = 0;

SOHObjectPool<SOHEstimator>& EstimatorPool() {
    static SOHObjectPool<SOHEstimator>* pool = new SOHObjectPool<SOHEstimator>;
    return *pool;
}

SOHObjectPool<SOHProtector>& ProtectorPool() {
    static SOHObjectPool<SOHProtector>* pool = new SOHObjectPool<SOHProtector>;
    return *pool;
}

SOHEstimator::SOHEstimator(const std::string& name) : name_(name) {
    const Json::Value& all = SOHConfigure::GetEstimatorsConfigure();
    Json::Value mine = all.isObject() ? all[name_] : Json::Value();
    if (mine.isObject() && mine["Common"].isObject()) {
        configure_ = mine["Common"];
        SOH_LOGE("use common configure for %s\n", name_.c_str());
    } else {
        configure_ = mine;
        SOH_LOGE("use top configure for %s\n", name_.c_str());
    }
    for (const std::string& protectorName : SOHConfigure::GetProtectorsOfEstimator(name_)) {
        SOHProtector* p = ProtectorPool().GetObjectByName(protectorName);
        if (p != nullptr) {
            RegisterSafeProtector(p);
            SOH_LOGI("Register protector(%s) for %s\n", protectorName.c_str(), name_.c_str());
        } else {
            SOH_LOGE("Can't find protector(%s)\n", protectorName.c_str());
        }
    }
}

int SOHEstimator::GetPara(const std::string&, std::string&) {
    return 0;
}

int SOHEstimator::SetPara(const std::string&, const std::string&) {
    return 0;
}

void SOHEstimator::RegisterSafeProtector(SOHProtector* p) {
    std::lock_guard<std::mutex> lock(demandLock_);
    protectors_[p] = {-1.0, -1.0};
}

double SOHEstimator::GetLimitValue(SOHProtector* p) const {
    std::lock_guard<std::mutex> lock(demandLock_);
    auto it = protectors_.find(p);
    return it == protectors_.end() ? -1.0 : it->second.second;
}

std::string SOHEstimator::GetRunState() const {
    std::lock_guard<std::mutex> lock(stateLock_);
    return runState_;
}

void SOHEstimator::SetRunState(const std::string& state) {
    std::lock_guard<std::mutex> lock(stateLock_);
    runState_ = state;
}

SOHProtector* SOHEstimator::FindProtector(const std::string& name) const {
    for (const auto& entry : protectors_) {
        if (entry.first->GetName() == name) {
            return entry.first;
        }
    }
    return nullptr;
}

SOHProtector* SOHEstimator::GetProtector(const std::string& name) const {
    std::lock_guard<std::mutex> lock(demandLock_);
    return FindProtector(name);
}

void SOHEstimator::NotifyOne(const std::string& protectorName, double value) {
    SOHProtector* p = nullptr;
    {
        std::lock_guard<std::mutex> lock(demandLock_);
        p = FindProtector(protectorName);
        if (p == nullptr) {
            return;
        }
        protectors_[p].second = value;
    }
    p->Update(this);  // the protector reads the demand back through GetLimitValue
}

void SOHEstimator::NotifyStrategy(const std::string& protectorName, SohStrategy strategy) {
    SOHProtector* p = nullptr;
    {
        std::lock_guard<std::mutex> lock(demandLock_);
        p = FindProtector(protectorName);
    }
    if (p != nullptr) {
        p->UpdateStrategy(name_, std::move(strategy));
    }
}

void SOHEstimator::NotifySocStrategy(const SocStrategy& s) {
    // Keys are appended in the map's own (byte-wise) order, so each insertion lands at the end
    // without searching the tree: this runs on every pass of every estimator.
    SohStrategy table;
    auto put = [&table](const char* key, double value) {
        table.emplace_hint(table.end(), key, value);
    };
    put("Enable", (s.HighSoc == 100) ? 0.0 : 1.0);
    if (s.Force) {
        put("Force", 1.0);
    }
    put("HighSoc", static_cast<double>(s.HighSoc));
    put("Iin", 0.0);
    put("LowSoc", static_cast<double>(s.LowSoc));
    put("ShutDownSign", static_cast<double>(s.ShutDownSign));
    put("SmartChgSign", static_cast<double>(s.SmartChgSign));
    put("Type", static_cast<double>(s.Type));
    NotifyStrategy("SocLimitator", std::move(table));
}

void SOHEstimator::NotifySocStrategy(uint32_t type, uint32_t highSoc, uint32_t lowSoc, bool force) {
    SocStrategy s;
    s.Type = type;
    s.HighSoc = highSoc;
    s.LowSoc = lowSoc;
    s.SmartChgSign = 1;
    s.ShutDownSign = 0;
    s.Force = force;
    NotifySocStrategy(s);
}

bool SOHEstimator::CanStartMonitor(const std::string& boardKey) {
    if (SOHConfigure::IsSchemeClosed(name_)) {
        return false;
    }
    if (!boardKey.empty() && !SOHEnviroment::IsSohSubSysEnable(boardKey)) {
        SOH_LOGI("%s is disabled by the board configuration\n", name_.c_str());
        return false;
    }
    return true;
}

void SOHEstimator::RunMonitorThread(std::function<void()> body) {
    SetRunState("run");
    try {
        SohThread::StartDetached(name_.c_str(), [this, body = std::move(body)] {
            body();
            AnnounceRunState(restartOnExit_.exchange(false) ? "restart" : "stop");
        });
    } catch (...) {
        SetRunState("stop");  // no thread: nothing runs
        throw;                // std::system_error: "thread constructor failed"
    }
}

void SOHEstimator::AnnounceRunState(const std::string& state) {
    std::lock_guard<std::mutex> lock(EstimatorStateLock);
    SetRunState(state);
    ++EstimatorStateEvents;
    SohClock::NotifyOne(EstimatorStateChanged);
}
