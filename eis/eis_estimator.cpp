#include "eis/eis_estimator.h"

#include <bms_interface.h>
#include <errno.h>
#include <fcntl.h>
#include <openssl/sha.h>
#include <poll.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <thread>

#include "core/soh_backoff.h"
#include "core/soh_configure.h"
#include "core/soh_enviroment.h"
#include "core/soh_file.h"
#include "core/soh_log.h"
#include "eis/eis_judge.h"
#include "eis/eis_nodes.h"
#include "eis/eis_unifier.h"
#include "platform/soh_clock.h"
#include "platform/soh_root.h"
#include "platform/soh_thread.h"

namespace {

int OpenNode(const std::string& node) {
    return open(SohRoot::RootPath(node).c_str(), O_RDONLY | O_CLOEXEC);
}

}  // namespace

EISEstimator::EISEstimator(const std::string& name) : SOHEstimator(name) {
    const Json::Value& cfg = *GetJsonValue();
    InitMonitors(cfg.isObject() ? cfg["Monitors"] : Json::Value());
    InitParas(cfg.isObject() ? cfg["Parameters"] : Json::Value());
}

void EISEstimator::InitMonitors(const Json::Value& monitors) {
    if (!monitors.isObject()) {
        return;
    }
    for (const std::string& name : monitors.getMemberNames()) {
        const Json::Value& nodes = monitors[name];
        EisMonitor monitor{name, {}};
        for (const std::string& node :
             nodes.isObject() ? nodes.getMemberNames() : std::vector<std::string>()) {
            const Json::Value& type = nodes[node];
            if (!type.isInt() || MakeInfo(type.asInt()) == nullptr) {
                continue;
            }
            int fd = OpenNode(node);
            if (fd < 0) {
                SOH_LOGE("%s can't open\n", node.c_str());
                continue;
            }
            close(fd);
            monitor.nodes.emplace_back(node, type.asInt());
        }
        if (!monitor.nodes.empty()) {
            monitors_.push_back(std::move(monitor));
        }
    }
}

void EISEstimator::InitParas(const Json::Value& paras) {
    if (!paras.isObject()) {
        SOH_LOGE("Add configure for EIS fail\n");
    } else {
        paras_.AddConfig(paras, GetName());
        for (const std::string& group : paras.getMemberNames()) {
            paras_.Print2Log(group, "  ");
        }
    }
    if (!paras_.GetPara(kRecorderGroup, "versionRecorder", version_) ||
        !paras_.GetPara(kRecorderGroup, "rawSizeRecorder", rawSize_) ||
        !paras_.GetPara(kRecorderGroup, "setSizeRecorder", setSize_)) {
        version_ = rawSize_ = setSize_ = 0;
        SOH_LOGI("using default pbversion:%d\n", 0);
    }
}

std::unique_ptr<EisInfo> EISEstimator::MakeInfo(int type) {
    switch (type) {
        case PROCESSOR_ACR:
            return std::make_unique<AcrInfo>();
        case PROCESSOR_DCR:
            return std::make_unique<DcrInfo>();
        default:
            return nullptr;
    }
}

void EISEstimator::StartMonitor() {
    if (!CanStartMonitor("") || monitors_.empty()) {
        return;
    }
    // A record log cut short by a crash or a full partition is cut back to whole records, so
    // that appends go on.
    EisInfo::CutTornTail(EisNodes::kAcrLogFile, sizeof(AcrRecord));
    EisInfo::CutTornTail(EisNodes::kDcrLogFile, sizeof(DcrRecord));
    SetRunState("run");
    {
        std::lock_guard<std::mutex> lock(liveLock_);
        live_ = 1;  // held by this start-up, so that a quick monitor cannot end it early
    }
    for (size_t i = 0; i < monitors_.size(); ++i) {
        {
            std::lock_guard<std::mutex> lock(liveLock_);
            ++live_;
        }
        SOH_LOGI("%s was going to start\n", monitors_[i].name.c_str());
        try {
            SohThread::StartDetached(monitors_[i].name.c_str(), [this, i] {
                Monitor(i);
                MonitorEnded();
            });
        } catch (...) {
            MonitorEnded();  // this one never ran
            MonitorEnded();  // nor will the rest
            throw;           // std::system_error: "thread constructor failed"
        }
    }
    MonitorEnded();
}

void EISEstimator::MonitorEnded() {
    std::lock_guard<std::mutex> lock(liveLock_);
    if (--live_ == 0) {
        AnnounceRunState("stop");
    }
}

namespace {

// One node of a monitor: its descriptor (-1 while it cannot be opened), the pace of its
// retries, and when the next open is due.
struct WatchedNode {
    const std::pair<std::string, int>* node = nullptr;
    int fd = -1;
    SohBackoff backoff;
    int64_t reopenAtNs = 0;     // monotonic clock time of the next open while fd < 0
    bool reopenLogged = false;  // a re-open was logged since the last record
};

// Reads one byte to arm the node's notification and seeks back; true when the byte came.
bool Arm(int fd) {
    char byte = 0;
    const bool armed = read(fd, &byte, 1) == 1;
    lseek(fd, 0, SEEK_SET);
    return armed;
}

// Milliseconds (rounded up) until `atNs`, at least 0.
int MsUntil(int64_t atNs, int64_t nowNs) {
    const int64_t left = atNs - nowNs;
    if (left <= 0) {
        return 0;
    }
    const int64_t ms = (left + 999999) / 1000000;
    return ms > INT32_MAX ? INT32_MAX : static_cast<int>(ms);
}

}  // namespace

void EISEstimator::Monitor(size_t index) {
    const EisMonitor& monitor = monitors_[index];
    const char* name = monitor.name.c_str();
    std::vector<WatchedNode> watched(monitor.nodes.size());
    for (size_t i = 0; i < monitor.nodes.size(); ++i) {
        WatchedNode& w = watched[i];
        w.node = &monitor.nodes[i];
        const char* path = w.node->first.c_str();
        SOH_LOGI("%s in %s was going to be monitored\n", path, name);
        w.fd = OpenNode(w.node->first);
        if (w.fd < 0) {
            SOH_LOGE("fail read fd of %s in %s\n", path, name);
            w.backoff.Fail();
            w.reopenAtNs = SohClock::MonoNs() + w.backoff.TakeStepNs();
        } else if (!Arm(w.fd)) {
            // Empty before the driver's first measurement, or a read error: the node stays
            // watched, its next event is taken.
            SOH_LOGE("fail read fd of %s in %s\n", path, name);
        } else {
            SOH_LOGI("1 byte read success form fd of %s\n", path);
        }
    }
    const bool normalMode = BmsPropertyIsNormalMode();
    SohBackoff pollBackoff;
    bool announce = true;
    std::vector<struct pollfd> fds;
    fds.reserve(watched.size());
    for (;;) {
        fds.clear();
        int timeoutMs = -1;
        const int64_t now = SohClock::MonoNs();
        for (WatchedNode& w : watched) {
            if (w.fd >= 0) {
                fds.push_back({w.fd, POLLPRI, 0});
            } else {
                const int ms = MsUntil(w.reopenAtNs, now);
                timeoutMs = timeoutMs < 0 ? ms : std::min(timeoutMs, ms);
            }
        }
        if (announce) {
            SOH_LOGI("poll start in %s\n", name);
            announce = false;
        }
        const int n = SohClock::Poll(fds.data(), fds.size(), timeoutMs);
        const int err = errno;
        if (SOHConfigure::IsSchemeClosed(GetName())) {
            SOH_LOGE("cvt has closed by app\n");  // wording shared with the CVT monitor
            break;
        }
        if (n < 0) {
            if (err == EINTR) {
                continue;
            }
            if (pollBackoff.Fail()) {
                SOH_LOGE("poll error:%d found in %s\n", err, name);
                SOH_LOGE("%s: poll failed %llu times, retrying in %lld s\n", name,
                         static_cast<unsigned long long>(pollBackoff.Failures()),
                         pollBackoff.StepSeconds());
            }
            pollBackoff.Wait();
            continue;
        }
        pollBackoff.Reset();
        if (n == 0 && timeoutMs < 0) {
            SOH_LOGE("poll time out in %s\n", name);
        }
        for (size_t i = 0; i < fds.size(); ++i) {
            if (fds[i].revents == 0) {
                continue;
            }
            // fds follows `watched` in order, skipping the nodes that are closed.
            WatchedNode& w = *std::find_if(watched.begin(), watched.end(),
                                           [&](const WatchedNode& x) { return x.fd == fds[i].fd; });
            if (HandleWakeUp(w.node->first, w.node->second, w.fd, fds[i].revents, normalMode,
                             w.backoff)) {
                w.reopenLogged = false;
                announce = true;
                continue;
            }
            // No record came: a dead descriptor may never recover, so open the node afresh
            // after one back-off step.
            if (w.backoff.Fail()) {
                SOH_LOGE(
                    "%s in %s: wake-up %x brought no record (%llu times), re-opening in "
                    "%lld s\n",
                    w.node->first.c_str(), name, static_cast<unsigned>(fds[i].revents),
                    static_cast<unsigned long long>(w.backoff.Failures()), w.backoff.StepSeconds());
            }
            close(w.fd);
            w.fd = -1;
            w.reopenAtNs = SohClock::MonoNs() + w.backoff.TakeStepNs();
        }
        const int64_t after = SohClock::MonoNs();
        for (WatchedNode& w : watched) {
            if (w.fd >= 0 || after < w.reopenAtNs) {
                continue;
            }
            w.fd = OpenNode(w.node->first);
            if (w.fd < 0) {
                if (w.backoff.Fail()) {
                    SOH_LOGE("%s in %s cannot be opened: %s (%llu times), retrying in %lld s\n",
                             w.node->first.c_str(), name, strerror(errno),
                             static_cast<unsigned long long>(w.backoff.Failures()),
                             w.backoff.StepSeconds());
                }
                w.reopenAtNs = after + w.backoff.TakeStepNs();
                continue;
            }
            Arm(w.fd);  // events from here on are seen
            if (!w.reopenLogged) {
                w.reopenLogged = true;
                SOH_LOGE("%s in %s opened again after %llu failures\n", w.node->first.c_str(), name,
                         static_cast<unsigned long long>(w.backoff.Failures()));
            }
            announce = true;
        }
    }
    for (WatchedNode& w : watched) {
        if (w.fd >= 0) {
            close(w.fd);
        }
    }
    SOH_LOGI("%s was going to be terminaled\n", name);
}

bool EISEstimator::HandleWakeUp(const std::string& path, int type, int fd, short revents,
                                bool normalMode, SohBackoff& backoff) {
    if ((revents & POLLPRI) == 0) {
        return false;  // POLLHUP, POLLERR or POLLNVAL alone: nothing to read
    }
    const bool failing = backoff.Failing();
    if (!failing) {
        SOH_LOGI("monitor %s node file receive event %x\n", path.c_str(),
                 static_cast<unsigned>(revents));
    }
    std::unique_ptr<EisInfo> info = MakeInfo(type);
    if (info == nullptr) {
        SOH_LOGE("can't find process for %s\n", path.c_str());
        return true;
    }
    info->SetQuiet(failing);
    if (!Processor(normalMode, fd, *info)) {
        if (!info->Taken()) {
            return false;  // the node's fault, not the datum's
        }
        SOH_LOGE("process %s datum failed\n", path.c_str());
    }
    const uint64_t failures = backoff.Reset();
    if (failures > 0) {
        SOH_LOGE("%s gives records again after %llu failures\n", path.c_str(),
                 static_cast<unsigned long long>(failures));
    }
    return true;
}

bool EISEstimator::Processor(bool mode, int fd, EisInfo& info) {
    if (!info.GetInfo(fd) || !info.Info2Bigdata()) {
        return false;
    }
    if (mode && !info.ReportBigdata()) {
        SOH_LOGE("acr big data report failed in noraml mode\n");
    }
    if (version_ == 0) {
        if (!info.RecordBigdata()) {
            SOH_LOGE("big data record failed\n");
            return false;
        }
        return true;
    }
    Eis::HistoryData hist;
    GetHistData(hist);  // a history that does not verify is started anew
    Eis::RawDatum* datum = hist.add_raw();
    if (datum == nullptr) {
        SOH_LOGE("update raw data set failed in %s\n", "Processor");
        return false;
    }
    info.ToRawDatum(*datum);
    if (!Add2UnifySet(info.GetType(), *datum, hist)) {
        SOH_LOGE("update unified data set failed in %s\n", "Processor");
        return false;
    }
    if (!JudgeStatus(info.GetType(), hist)) {
        SOH_LOGE("judgement for battery SOH failed in %s\n", "Processor");
        return false;
    }
    return true;
}

bool EISEstimator::HistHash(const Eis::HistoryData& hist, std::string& hash) {
    Eis::HistoryData unsealed(hist);
    unsealed.clear_hash();
    std::string bytes;
    if (!unsealed.SerializeToString(&bytes)) {
        return false;
    }
    unsigned char digest[SHA256_DIGEST_LENGTH + 1] = {};
    SHA256(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), digest);
    // Stored files keep the digest as a C string: up to its first zero byte.
    hash.assign(reinterpret_cast<const char*>(digest));
    return true;
}

bool EISEstimator::GetHistData(Eis::HistoryData& hist) {
    hist.Clear();
    if (SOHEnviroment::IsBatteryChanged() && SohFile::Exists(EisNodes::kHistFile) &&
        SohFile::Rename(EisNodes::kHistFile, EisNodes::kHistBackFile) != 0) {
        SOH_LOGE("EIS hist file rename fail:%s\n", strerror(errno));
    }
    bool ok = false;
    bool parsed = false;
    bool read = false;
    {
        std::shared_lock<std::shared_mutex> lock(histLock_);
        std::string bytes;
        read = SohFile::ReadAll(EisNodes::kHistFile, bytes);
        parsed = read && hist.ParseFromString(bytes);
    }
    if (!read) {
        SOH_LOGE("can't open %s in %s\n", EisNodes::kHistFile, "GetHistData");
    } else if (!parsed) {
        SOH_LOGE("can't parse from %s\n", EisNodes::kHistFile);
    } else if (hist.version() != version_ &&
               (version_ == 0 || hist.version() / 1000 != version_ / 1000)) {
        SOH_LOGE("transform version %u -> %u failed\n", hist.version(), version_);
    } else if (!hist.has_hash()) {
        SOH_LOGE("hash verified failed, no hash\n");
    } else {
        std::string expected;
        if (!HistHash(hist, expected)) {
            SOH_LOGE("serialize to string failed in %s\n", "GetHistData");
        } else if (hist.hash() != expected) {
            SOH_LOGE("hash unmatch\n");
        } else {
            hist.clear_hash();
            hist.set_version(version_);
            ok = true;
        }
    }
    if (!ok) {
        hist.Clear();
        hist.set_version(version_);
    }
    return ok;
}

bool EISEstimator::Add2UnifySet(ProcessorType type, Eis::RawDatum datum, Eis::HistoryData& hist) {
    std::string group = "Unifier" + std::to_string(static_cast<int>(type));
    int strategy = 0;
    if (!paras_.GetPara(group, "type", strategy)) {
        SOH_LOGE("%s do not have type, new datum ignore to UnifySet\n", group.c_str());
        return false;
    }
    std::unique_ptr<EisUnifier> unifier = EisUnifierFatory::GetUnifier(std::to_string(strategy));
    if (!unifier->InitPara(paras_, group)) {
        SOH_LOGE("%s initial parameter failed\n", group.c_str());
        return false;
    }
    if (!unifier->UnifyAndAdd(datum, hist)) {
        SOH_LOGE("%s unify and add raw datum failed\n", group.c_str());
        return false;
    }
    return true;
}

bool EISEstimator::JudgeStatus(ProcessorType type, const Eis::HistoryData& hist) {
    std::string group = "Judge" + std::to_string(static_cast<int>(type));
    int strategy = 0;
    if (!paras_.GetPara(group, "type", strategy)) {
        SOH_LOGI("%s do not have type, no filter applied\n", group.c_str());
        return true;
    }
    return EisJudgeFatory::GetJudge(std::to_string(strategy))->Judge(type, hist);
}
